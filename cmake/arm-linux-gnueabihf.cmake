# Cross build for the tool's controller: 32-bit ARM, hard float (arm-linux-gnueabihf).
#
#   cmake -S . -B build-arm -DCMAKE_TOOLCHAIN_FILE=cmake/arm-linux-gnueabihf.cmake \
#         [-DSYSSRV_ARM_SYSROOT=DIR]
#
# The compiler is Debian's cross compiler (package g++-arm-linux-gnueabihf). The armhf
# libraries (GLib, SQLite 3, cJSON, GoogleTest) come from one of two places:
#   - SYSSRV_ARM_SYSROOT set (cache variable or environment): a directory holding Debian's
#     armhf packages unpacked in their multiarch layout, as scripts/cross-test.sh makes it.
#     The build machine's own packages stay untouched.
#   - not set: the machine's multiarch directories, after
#     "dpkg --add-architecture armhf" and "apt-get install libglib2.0-dev:armhf ...".
# Test binaries run under qemu's user-mode emulator, so CTest works as on the PC.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

if(NOT DEFINED SYSSRV_ARM_SYSROOT AND DEFINED ENV{SYSSRV_ARM_SYSROOT})
  set(SYSSRV_ARM_SYSROOT "$ENV{SYSSRV_ARM_SYSROOT}")
endif()
set(SYSSRV_ARM_SYSROOT "${SYSSRV_ARM_SYSROOT}" CACHE PATH
    "Unpacked armhf libraries; empty: the machine's multiarch directories")
# try_compile() projects read this file again without the cache.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES SYSSRV_ARM_SYSROOT)

if(SYSSRV_ARM_SYSROOT)
  set(CMAKE_SYSROOT "${SYSSRV_ARM_SYSROOT}")
  set(CMAKE_FIND_ROOT_PATH "${SYSSRV_ARM_SYSROOT}")
  set(_syssrv_libroot "${SYSSRV_ARM_SYSROOT}")
  # The sysroot holds the target's C library and loader as well.
  set(_syssrv_qemu_prefix "${SYSSRV_ARM_SYSROOT}")
else()
  set(_syssrv_libroot "")
  # Loader and C library of the cross compiler; the multiarch libraries are found on
  # the machine's own /usr/lib/arm-linux-gnueabihf.
  set(_syssrv_qemu_prefix /usr/arm-linux-gnueabihf)
endif()

# Headers, libraries and CMake packages of the target only; programs run on the build machine.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
if(SYSSRV_ARM_SYSROOT)
  set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
  set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
  set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
endif()

# pkg-config must see the armhf .pc files and nothing of the build machine's.
set(ENV{PKG_CONFIG_LIBDIR}
    "${_syssrv_libroot}/usr/lib/arm-linux-gnueabihf/pkgconfig:${_syssrv_libroot}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${_syssrv_libroot}")
unset(ENV{PKG_CONFIG_PATH})

find_program(SYSSRV_QEMU_ARM NAMES qemu-arm qemu-arm-static)
if(SYSSRV_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR "${SYSSRV_QEMU_ARM};-L;${_syssrv_qemu_prefix}")
endif()

# 64-bit file offsets and inode numbers: without them a 32-bit program's stat() and
# readdir() fail with EOVERFLOW as soon as a file system hands out values above 32 bits
# (large inode numbers, 64-bit directory hashes), which a board with a 64-bit kernel or an
# emulator on a PC does. None of the libraries we link take off_t or struct stat in their
# interfaces, so this changes no interface we share with them.
set(_syssrv_target_flags "-D_FILE_OFFSET_BITS=64")
# On this target a cast to a type of stricter alignment is a fault the PC never shows
# (-Wcast-align warns only where alignment is enforced). Formats are already checked by
# -Wall, here against 32-bit long, size_t and time_t. The note that GCC 7.1 changed how
# some arguments are passed concerns mixing objects of old compilers, which we never do.
string(APPEND _syssrv_target_flags " -Wcast-align -Wno-psabi")
set(CMAKE_C_FLAGS_INIT "${_syssrv_target_flags}")
set(CMAKE_CXX_FLAGS_INIT "${_syssrv_target_flags}")
