# Debian's cross compiler for 32-bit ARM. Libraries come from a folder with Debian's packages for
# that machine (scripts/armhf_sysroot.sh makes one), and programs run under qemu's user emulation.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

set(VORTAN_ARMHF_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot CACHE PATH
    "Folder with the libraries for 32-bit ARM")
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VORTAN_ARMHF_SYSROOT)
get_filename_component(CMAKE_SYSROOT ${VORTAN_ARMHF_SYSROOT} REALPATH)
if(NOT EXISTS ${CMAKE_SYSROOT}/usr/include)
    message(FATAL_ERROR "There are no libraries for 32-bit ARM in ${CMAKE_SYSROOT}.\n"
        "Make that folder with scripts/armhf_sysroot.sh, or name another in VORTAN_ARMHF_SYSROOT.")
endif()
if(NOT EXISTS ${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf)
    message(FATAL_ERROR "The libraries in ${CMAKE_SYSROOT} are for another kind of machine than 32-bit ARM.")
endif()

set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
# gcc notes at every vector that its versions before 7.1 passed vectors differently.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    ${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)

set(CMAKE_CROSSCOMPILING_EMULATOR
    ${CMAKE_CURRENT_LIST_DIR}/../scripts/run_on_armhf.sh ${CMAKE_SYSROOT})
