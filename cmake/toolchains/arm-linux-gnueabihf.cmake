# Cross-builds for 32-bit ARM Linux, hard float: -DACM_SYSROOT=<root with the device's headers and libraries>.
# With qemu-arm installed, tests are run through it: in the build's own ctest and while tests are listed.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(ACM_SYSROOT "" CACHE PATH "Root of the device's headers and libraries")
# Probes of the compiler are configured apart, and need to know it too.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ACM_SYSROOT)
if(NOT IS_DIRECTORY "${ACM_SYSROOT}/usr/include")
    message(FATAL_ERROR "-DACM_SYSROOT=<root> is needed: '${ACM_SYSROOT}' has no usr/include")
endif()

set(triplet arm-linux-gnueabihf)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_SYSROOT ${ACM_SYSROOT})
# Notes on how compilers before version 7 passed some arguments; no such code is linked.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config reads the root's files alone, and its answers get the root in front.
set(ENV{PKG_CONFIG_DIR} "")
set(ENV{PKG_CONFIG_LIBDIR} ${ACM_SYSROOT}/usr/lib/${triplet}/pkgconfig:${ACM_SYSROOT}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${ACM_SYSROOT})

find_program(ACM_QEMU_ARM NAMES qemu-arm qemu-arm-static)
if(ACM_QEMU_ARM)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${ACM_QEMU_ARM} -L ${ACM_SYSROOT})
endif()
