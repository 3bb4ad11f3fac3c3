# Build against a target system's own root, as with a device maker's SDK: the binaries link the
# root's C library and libstdc++, so they ask for no symbol version the target lacks. Serves the
# device (32-bit ARM) and integrators' PCs (x86-64 against an older Debian than this machine's).
# Set on the first configure (cmake -D... or a preset's cacheVariables):
#
#   FORMATV2_SYSTEM_PROCESSOR    the target's processor as CMake names it: arm (the default) or
#                                x86_64
#   FORMATV2_CROSS_PREFIX        the compiler's prefix: arm-linux-gnueabihf- or
#                                /opt/sdk/bin/arm-vendor-linux-gnueabihf- (gcc and g++ follow it);
#                                empty for this machine's own gcc and g++
#   FORMATV2_SYSROOT             the target's root: headers and libraries
#   FORMATV2_SYSROOT_LIBSTDCXX   only for a compiler newer than the root (a distribution's cross
#                                compiler with an older root): the GCC version N of the root's
#                                libstdc++ (usr/include/c++/N), used instead of the compiler's
#
# With FORMATV2_SYSROOT_LIBSTDCXX the compiler's own C library and libstdc++ are kept out:
# only its built-in headers (include/) remain, and the root's crt files, libstdc++, libgcc and
# C library are found before the compiler's. Tests of an ARM build run under qemu-arm -L
# FORMATV2_SYSROOT; those of a build for this machine's processor through the root's own dynamic
# loader, which takes its libraries from the root only (the build tree stays visible to them).
set(CMAKE_SYSTEM_NAME Linux)
if(NOT FORMATV2_SYSTEM_PROCESSOR)
  set(FORMATV2_SYSTEM_PROCESSOR arm)
endif()
set(CMAKE_SYSTEM_PROCESSOR ${FORMATV2_SYSTEM_PROCESSOR})
# try_compile projects read this file again: pass the settings on to them.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES FORMATV2_SYSTEM_PROCESSOR
     FORMATV2_CROSS_PREFIX FORMATV2_SYSROOT FORMATV2_SYSROOT_LIBSTDCXX)
if(NOT FORMATV2_SYSROOT)
  message(FATAL_ERROR "toolchain-sysroot.cmake: set FORMATV2_SYSROOT")
endif()
if(NOT IS_DIRECTORY "${FORMATV2_SYSROOT}/usr/include")
  message(FATAL_ERROR "FORMATV2_SYSROOT=${FORMATV2_SYSROOT} holds no usr/include "
                      "(for the Debian 11 root: scripts/sysroot.sh)")
endif()

set(CMAKE_C_COMPILER ${FORMATV2_CROSS_PREFIX}gcc)
set(CMAKE_CXX_COMPILER ${FORMATV2_CROSS_PREFIX}g++)
set(CMAKE_SYSROOT ${FORMATV2_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
find_program(CMAKE_STRIP ${FORMATV2_CROSS_PREFIX}strip REQUIRED)

# The multiarch name (arm-linux-gnueabihf, x86_64-linux-gnu) where the root has Debian's layout.
get_filename_component(triplet "${FORMATV2_CROSS_PREFIX}" NAME)
string(REGEX REPLACE "-$" "" triplet "${triplet}")
if(NOT triplet)
  execute_process(COMMAND ${CMAKE_C_COMPILER} -dumpmachine
                  OUTPUT_VARIABLE triplet OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
endif()
if(IS_DIRECTORY "${FORMATV2_SYSROOT}/usr/lib/${triplet}")
  set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
endif()

set(c_flags "")
set(cxx_flags "")
set(link_flags "")
if(FORMATV2_SYSROOT_LIBSTDCXX)
  set(root ${FORMATV2_SYSROOT})
  set(version ${FORMATV2_SYSROOT_LIBSTDCXX})
  execute_process(COMMAND ${CMAKE_C_COMPILER} -print-file-name=include
                  OUTPUT_VARIABLE builtin OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  set(c_dirs ${builtin} ${root}/usr/include/${triplet} ${root}/usr/include)
  set(cxx_dirs ${root}/usr/include/c++/${version} ${root}/usr/include/${triplet}/c++/${version}
               ${root}/usr/include/c++/${version}/backward ${c_dirs})
  list(TRANSFORM c_dirs PREPEND "-isystem ")
  list(TRANSFORM cxx_dirs PREPEND "-isystem ")
  list(JOIN c_dirs " " c_flags)
  list(JOIN cxx_dirs " " cxx_flags)
  set(c_flags "-nostdinc ${c_flags}")
  # GCC 12 misreads the older library's std::function moves as reads of uninitialised storage
  # (the warning points into bits/move.h); the native builds keep this warning for our code.
  set(cxx_flags "-nostdinc ${cxx_flags} -Wno-maybe-uninitialized")
  set(link_flags "-B${root}/usr/lib/${triplet}/ -L${root}/usr/lib/gcc/${triplet}/${version} \
-L${root}/usr/lib/${triplet} -L${root}/lib/${triplet}")
endif()
# GCC notes that the passing of some vector types changed in GCC 7.1; everything here is
# built by one compiler, so the note says nothing about this build.
set(CMAKE_C_FLAGS_INIT "${c_flags}")
set(CMAKE_CXX_FLAGS_INIT "${cxx_flags} -Wno-psabi")
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "${link_flags}")
endforeach()

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
  find_program(FORMATV2_QEMU_ARM qemu-arm)
  if(FORMATV2_QEMU_ARM)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${FORMATV2_QEMU_ARM} -L ${FORMATV2_SYSROOT})
  endif()
else()
  # The root's loader, its cache (this machine's) left unread, the root's libraries first.
  file(GLOB loader "${FORMATV2_SYSROOT}/usr/lib/${triplet}/ld-linux*.so.*")
  if(loader)
    list(GET loader 0 loader)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${loader} --inhibit-cache
        --library-path ${FORMATV2_SYSROOT}/usr/lib/${triplet})
  endif()
endif()
