# Cross build for the device: 32-bit ARM, hard-float, Debian's multiarch libraries.
# No CMAKE_SYSROOT and no ONLY root-path modes: the armhf -dev packages live in the host's
# multiarch folders (/usr/lib/arm-linux-gnueabihf), which a sysroot would hide.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf)
