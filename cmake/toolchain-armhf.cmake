# Cross build for the device: 32-bit ARM, hard-float, Debian's multiarch libraries.
# No CMAKE_SYSROOT and no ONLY root-path modes: the armhf -dev packages live in the host's
# multiarch folders (/usr/lib/arm-linux-gnueabihf), which a sysroot would hide.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
# Packages strip with this (CPACK_STRIP_FILES); the host's strip cannot read ARM objects.
find_program(CMAKE_STRIP arm-linux-gnueabihf-strip REQUIRED)
# qemu's -L prefix supplies the cross package's ld.so, but the loader's multiarch search path
# would find libc6:armhf, a different build, first; pthread_create then crashes. /lib inside
# the prefix holds the libc that matches the loader.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf -E LD_LIBRARY_PATH=/lib)
# GCC notes that the passing of some vector types changed in GCC 7.1; everything here is
# built by one compiler, so the note says nothing about this build.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")
