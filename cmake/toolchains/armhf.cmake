# Cross build for 32-bit ARM Linux (armhf) with Debian's arm-linux-gnueabihf
# compilers against a sysroot of armhf packages (scripts/armhf-sysroot.sh makes
# one). Tests run under qemu-arm.
#
#   cmake -S . -B build-armhf -G Ninja \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/armhf.cmake -DOCPP_ARMHF_SYSROOT=/path/to/sysroot
#
# The sysroot may also come from the environment variable OCPP_ARMHF_SYSROOT.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(OCPP_ARMHF_TRIPLET arm-linux-gnueabihf)

if(NOT OCPP_ARMHF_SYSROOT AND DEFINED ENV{OCPP_ARMHF_SYSROOT})
  set(OCPP_ARMHF_SYSROOT "$ENV{OCPP_ARMHF_SYSROOT}")
endif()
if(NOT OCPP_ARMHF_SYSROOT AND EXISTS /var/cache/ocppprotocol/armhf-sysroot/current/.complete)
  set(OCPP_ARMHF_SYSROOT /var/cache/ocppprotocol/armhf-sysroot/current)
endif()
if(NOT OCPP_ARMHF_SYSROOT OR NOT IS_DIRECTORY "${OCPP_ARMHF_SYSROOT}/usr/include")
  message(FATAL_ERROR "armhf sysroot not found: run scripts/armhf-sysroot.sh and pass -DOCPP_ARMHF_SYSROOT=<its output>")
endif()
# The "current" link moves when the package list changes; pin what was configured.
get_filename_component(OCPP_ARMHF_SYSROOT "${OCPP_ARMHF_SYSROOT}" REALPATH)
set(OCPP_ARMHF_SYSROOT "${OCPP_ARMHF_SYSROOT}" CACHE PATH "armhf sysroot" FORCE)
# try_compile projects re-read this file without the cache; hand the path on.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES OCPP_ARMHF_SYSROOT)

set(CMAKE_SYSROOT "${OCPP_ARMHF_SYSROOT}")
set(CMAKE_C_COMPILER ${OCPP_ARMHF_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${OCPP_ARMHF_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${OCPP_ARMHF_TRIPLET})

# Headers, libraries and package files come from the sysroot only; programs
# (python3, node, code generators, git) are the build host's.
set(CMAKE_FIND_ROOT_PATH "${OCPP_ARMHF_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The host's pkg-config reads only the sysroot's .pc files and prefixes their paths.
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${OCPP_ARMHF_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR}
  "${OCPP_ARMHF_SYSROOT}/usr/lib/${OCPP_ARMHF_TRIPLET}/pkgconfig:${OCPP_ARMHF_SYSROOT}/usr/lib/pkgconfig:${OCPP_ARMHF_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# Test binaries (and gtest's test discovery) run under user-mode emulation.
find_program(OCPP_QEMU_ARM qemu-arm)
if(OCPP_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR "${OCPP_QEMU_ARM};-L;${OCPP_ARMHF_SYSROOT}")
endif()

# GCC notes on ARM that the argument passing of some types changed in GCC 7.1;
# it only matters when linking with objects built by GCC 6 or older.
set(CMAKE_C_FLAGS_INIT "-Wno-psabi")
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")
