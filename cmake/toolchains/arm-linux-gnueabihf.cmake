# Cross build for arm-linux-gnueabihf with Debian's cross compiler.
# GoogleTest and Google Benchmark for the target are Debian's multiarch
# packages (/usr/lib/arm-linux-gnueabihf, installed by scripts/setup.sh),
# found through the library architecture. Test programs run under
# qemu-user with the cross sysroot as the loader prefix.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
# The loader comes from the sysroot (-L), and so must libc: the multiarch
# libc6 that the test packages pull into /lib/arm-linux-gnueabihf is another
# build, which the sysroot's loader cannot run with (threads hang). The
# library path puts the sysroot's libraries, the ones the programs were
# linked against, ahead of the multiarch folders.
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-arm -L /usr/arm-linux-gnueabihf -E LD_LIBRARY_PATH=/usr/arm-linux-gnueabihf/lib)
