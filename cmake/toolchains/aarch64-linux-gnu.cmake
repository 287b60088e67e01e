# Cross build for aarch64-linux-gnu with Debian's cross compiler.
# GoogleTest and Google Benchmark for the target are Debian's multiarch
# packages (/usr/lib/aarch64-linux-gnu, installed by scripts/setup.sh),
# found through the library architecture. Test programs run under
# qemu-user with the cross sysroot as the loader prefix.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
# The loader comes from the sysroot (-L), and so must libc: the multiarch
# libc6 that the test packages pull into /lib/aarch64-linux-gnu is another
# build, which the sysroot's loader cannot run with (threads hang). The
# library path puts the sysroot's libraries, the ones the programs were
# linked against, ahead of the multiarch folders.
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-aarch64 -L /usr/aarch64-linux-gnu -E LD_LIBRARY_PATH=/usr/aarch64-linux-gnu/lib)
