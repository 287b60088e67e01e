# Cross build for 64-bit ARM (aarch64-linux-gnu), run under qemu-aarch64.
set(IMU_CROSS_TRIPLET aarch64-linux-gnu)
set(IMU_CROSS_PROCESSOR aarch64)
set(IMU_CROSS_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
