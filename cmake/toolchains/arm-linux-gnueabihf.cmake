# Cross build for 32-bit ARM (arm-linux-gnueabihf), run under qemu-arm.
set(IMU_CROSS_TRIPLET arm-linux-gnueabihf)
set(IMU_CROSS_PROCESSOR arm)
set(IMU_CROSS_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
