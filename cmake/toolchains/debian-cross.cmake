# Cross build with Debian's cross compiler for IMU_CROSS_TRIPLET (a GNU
# triplet such as aarch64-linux-gnu), set with IMU_CROSS_PROCESSOR and
# IMU_CROSS_QEMU by the toolchain file that includes this one.
# GoogleTest and Google Benchmark for the target are Debian's multiarch
# packages (/usr/lib/<triplet>, installed by scripts/setup.sh), found
# through the library architecture. Test programs run under qemu-user with
# the cross sysroot as the loader prefix.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${IMU_CROSS_PROCESSOR})
set(CMAKE_C_COMPILER ${IMU_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${IMU_CROSS_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${IMU_CROSS_TRIPLET})
# The loader comes from the sysroot (-L), and so must libc: the multiarch
# libc6 that the test packages pull into /lib/<triplet> is another build,
# which the sysroot's loader cannot run with (threads hang). The library
# path puts the sysroot's libraries, the ones the programs were linked
# against, ahead of the multiarch folders.
set(CMAKE_CROSSCOMPILING_EMULATOR
    ${IMU_CROSS_QEMU} -L /usr/${IMU_CROSS_TRIPLET}
    -E LD_LIBRARY_PATH=/usr/${IMU_CROSS_TRIPLET}/lib)
