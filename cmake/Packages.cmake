# Debian packages and RPMs, made by cpack from one build: docs/packaging.md. What can only be known
# once cpack runs is in packaging/*.cmake.

if(NOT VORTAN_BUILD_KIT)
    message(FATAL_ERROR "Packages hold the transfer kit: VORTAN_BUILD_KIT must be ON.")
endif()

set(VORTAN_MAINTAINER "Vortan transfer agent maintainers <maintainers@vortan.example>"
    CACHE STRING "Whom the packages name as their maintainer")

# Both kinds of package have a name of their own for each kind of machine.
if(CMAKE_LIBRARY_ARCHITECTURE STREQUAL "arm-linux-gnueabihf")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
    set(CPACK_RPM_PACKAGE_ARCHITECTURE armv7hl)
endif()

set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_GENERATOR DEB RPM)
set(CPACK_PACKAGE_NAME vortantransferagent)
set(CPACK_PACKAGE_VENDOR "Vortan")
set(CPACK_PACKAGE_CONTACT "${VORTAN_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_RELOCATABLE OFF)
set(CPACK_THREADS 1)  # how data is compressed depends on their number
set(CPACK_COMPONENTS_ALL runtime kit development tools debug)
if(VORTAN_PLATFORM STREQUAL "standin")
    list(APPEND CPACK_COMPONENTS_ALL standins)
endif()
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/packaging/layout.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/complete.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/even_out.cmake)

# For the scripts in packaging/.
set(CPACK_VORTAN_SOURCE_DIR ${PROJECT_SOURCE_DIR})
set(CPACK_VORTAN_BUILD_DIR ${PROJECT_BINARY_DIR})
set(CPACK_VORTAN_STRIP ${CMAKE_STRIP})
set(CPACK_VORTAN_OBJCOPY ${CMAKE_OBJCOPY})
set(CPACK_VORTAN_READELF ${CMAKE_READELF})
set(CPACK_VORTAN_SYSROOT ${CMAKE_SYSROOT})
if(VORTAN_PLATFORM STREQUAL "standin")
    set(CPACK_VORTAN_DEVICE_SONAMES libdlog.so.0 libQXCurl.so.0)
    set(CPACK_VORTAN_DEVICE_PACKAGES "vortan-standins | vortan-device-libraries")
else()
    set(CPACK_VORTAN_DEVICE_SONAMES ${VORTAN_DEVICE_SONAMES})
    set(CPACK_VORTAN_DEVICE_PACKAGES vortan-device-libraries)
    foreach(library DLOG QXCURL FILESYSTEM)
        get_filename_component(folder ${VORTAN_${library}_LIBRARY} DIRECTORY)
        list(APPEND CPACK_VORTAN_DEVICE_FOLDERS ${folder})
    endforeach()
endif()
set(CPACK_VORTAN_LIBDIR_DEB lib/${CMAKE_LIBRARY_ARCHITECTURE})
set(CPACK_VORTAN_ZSH_COMPLETION_DIR_DEB share/zsh/vendor-completions)
set(CPACK_VORTAN_ZSH_COMPLETION_DIR_RPM share/zsh/site-functions)
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    set(CPACK_VORTAN_LIBDIR_RPM lib64)
else()
    set(CPACK_VORTAN_LIBDIR_RPM lib)
endif()

# What each package is.
set(about "The Vortan transfer agent performs HTTP and file transfers for the
middleware of an embedded device. Each runs on a thread of its own and hands
the header, the body and the result over to callbacks.")

set(summary_runtime "library that performs HTTP and file transfers")
set(this_holds_runtime "This package holds the shared library.")

set(summary_kit "transfer kit of the Vortan transfer agent")
set(this_holds_kit "This package holds the transfer kit, a library that gives the agent
HTTP transfers that end, try again, stay within bounds and share their
connections.")

set(summary_development "library that performs HTTP and file transfers (development files)")
set(this_holds_development "This package holds what programs that use the library or the transfer kit
are built with: headers, the files that CMake and pkg-config find them by, and
examples.")

set(summary_tools "command-line client of the Vortan transfer agent")
set(this_holds_tools "This package holds vortan-transfer, which fetches URLs and files, and sends
data, from the command line.")

set(summary_debug "debug symbols for the Vortan transfer agent")
set(this_holds_debug "This package holds what a debugger and a reader of backtraces need for the
libraries and programs of the other packages, each under its build ID.")

set(summary_standins "stand-ins for a device's libraries, for the Vortan transfer agent")
set(this_holds_standins "This package holds stand-ins for two libraries of the device: its log, and its
maker's wrapper of libcurl. The transfer agent needs them on any other
machine. A device has libraries of its own, and must not have this package.")

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} COMPONENT)
    set(description "${about}\n\n${this_holds_${component}}")
    set(CPACK_DEBIAN_${COMPONENT}_DESCRIPTION "${summary_${component}}\n${description}")
    set(CPACK_RPM_${COMPONENT}_PACKAGE_SUMMARY "${summary_${component}}")
    set(CPACK_RPM_${COMPONENT}_PACKAGE_DESCRIPTION "${description}")
endforeach()

# Debian
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Debian's own package of this version, if there ever is one, replaces ours.
set(CPACK_DEBIAN_PACKAGE_RELEASE 0vortan1)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# cpack has no variable for Multi-Arch; the line follows the one that it has.
set(source vortan-transfer-agent)
set(co_installable "${source}\nMulti-Arch: same")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libvortantransferagent0)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SOURCE "${co_installable}")

set(CPACK_DEBIAN_KIT_PACKAGE_NAME libvortantransferkit0)
set(CPACK_DEBIAN_KIT_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_KIT_PACKAGE_SOURCE "${co_installable}")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvortantransferagent-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SOURCE "${co_installable}")
set(same_version "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "libvortantransferagent0 ${same_version}, libvortantransferkit0 ${same_version}, libboost-dev")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vortan-transfer)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION web)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SOURCE "${source}")

set(CPACK_DEBIAN_DEBUG_PACKAGE_NAME vortan-transfer-agent-dbgsym)
set(CPACK_DEBIAN_DEBUG_PACKAGE_SECTION debug)
set(CPACK_DEBIAN_DEBUG_PACKAGE_SOURCE "${co_installable}")

set(CPACK_DEBIAN_STANDINS_PACKAGE_NAME vortan-standins)
set(CPACK_DEBIAN_STANDINS_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_STANDINS_PACKAGE_SOURCE "${co_installable}")
# Loaded when lines are to go to the journal.
set(CPACK_DEBIAN_STANDINS_PACKAGE_RECOMMENDS libsystemd0)

# RPM
set(CPACK_RPM_COMPONENT_INSTALL ON)
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_RELEASE 1)
set(CPACK_RPM_PACKAGE_LICENSE "none chosen yet")
set(CPACK_RPM_COMPRESSION_TYPE xz)

set(CPACK_RPM_RUNTIME_PACKAGE_NAME libvortantransferagent0)
set(CPACK_RPM_RUNTIME_PACKAGE_GROUP "System/Libraries")

set(CPACK_RPM_KIT_PACKAGE_NAME libvortantransferkit0)
set(CPACK_RPM_KIT_PACKAGE_GROUP "System/Libraries")

set(CPACK_RPM_DEVELOPMENT_PACKAGE_NAME libvortantransferagent-devel)
set(CPACK_RPM_DEVELOPMENT_PACKAGE_GROUP "Development/Libraries")
set(same_version "= ${PROJECT_VERSION}-${CPACK_RPM_PACKAGE_RELEASE}")
set(CPACK_RPM_DEVELOPMENT_PACKAGE_REQUIRES
    "libvortantransferagent0 ${same_version}, libvortantransferkit0 ${same_version}, boost-devel")

set(CPACK_RPM_TOOLS_PACKAGE_NAME vortan-transfer)
set(CPACK_RPM_TOOLS_PACKAGE_GROUP "Applications/Internet")

set(CPACK_RPM_DEBUG_PACKAGE_NAME vortantransferagent-debuginfo)
set(CPACK_RPM_DEBUG_PACKAGE_GROUP "Development/Debug")
set(CPACK_RPM_DEBUG_PACKAGE_AUTOREQPROV OFF)

set(CPACK_RPM_STANDINS_PACKAGE_NAME vortan-standins)
set(CPACK_RPM_STANDINS_PACKAGE_GROUP "System/Libraries")

foreach(component RUNTIME KIT STANDINS)
    set(CPACK_RPM_${component}_POST_INSTALL_SCRIPT_FILE ${PROJECT_SOURCE_DIR}/packaging/ldconfig)
    set(CPACK_RPM_${component}_POST_UNINSTALL_SCRIPT_FILE ${PROJECT_SOURCE_DIR}/packaging/ldconfig)
endforeach()

# Folders that belong to no package of ours.
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
    /usr/share/man /usr/share/man/man1
    /usr/share/bash-completion /usr/share/bash-completion/completions
    /usr/share/zsh /usr/share/zsh/site-functions
    /usr/lib/debug /usr/lib/debug/.build-id
    /usr/${CPACK_VORTAN_LIBDIR_RPM}/cmake /usr/${CPACK_VORTAN_LIBDIR_RPM}/pkgconfig)

# Nothing of the building machine is in the packages, and it is not that machine's strip that rpm
# strips with.
set(CPACK_RPM_SPEC_MORE_DEFINE "%define __strip ${CMAKE_STRIP}
%define _build_id_links none
%define _buildhost localhost
%define use_source_date_epoch_as_buildtime 1
%define clamp_mtime_to_source_date_epoch 1")

include(CPack)
