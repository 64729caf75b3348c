# How everything here is compiled.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# Compiled with -O2 and without link-time optimisation, as docs/footprint.md gives reasons for.
if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "" FORCE)
endif()

option(VORTAN_WARNINGS_AS_ERRORS "Stop at the first warning" OFF)
set(VORTAN_SANITIZE "" CACHE STRING "Sanitizers to build with, as for -fsanitize=")
option(VORTAN_FUZZ "Let libFuzzer drive the programs in tests/fuzz; needs clang and VORTAN_SANITIZE" OFF)

# A project that this is a part of links what the library's interface names.
set(CMAKE_FIND_PACKAGE_TARGETS_GLOBAL ON)
find_package(Boost REQUIRED)
find_package(CURL REQUIRED)
include(cmake/CurlFeatures.cmake)
find_package(Threads REQUIRED)

# Our own code is held to these; the headers of others are not.
add_library(vortan_build_settings INTERFACE)
target_compile_options(vortan_build_settings INTERFACE
    -Wall -Wextra -Wconversion -Wshadow
    $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
    $<$<CXX_COMPILER_ID:Clang>:-Werror=thread-safety>
    $<$<BOOL:${VORTAN_WARNINGS_AS_ERRORS}>:-Werror>)
# On 32 bits too, a file may be larger than 2 GiB and younger than 2038. Neither type is part of the
# library's interface, and a C library that knows no wide times passes the second one over.
target_compile_definitions(vortan_build_settings INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)

# What is received comes from anywhere: a mistake in its treatment is to end the process rather than
# be of use to the sender. Programs are placed at random addresses, function tables are read-only
# once they are filled, no stack is executable, overruns are noticed, and a large frame cannot reach past
# the page that guards the stack.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
add_compile_options(-fstack-protector-strong)
add_link_options(LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
check_cxx_compiler_flag(-fstack-clash-protection VORTAN_HAS_STACK_CLASH_PROTECTION)
if(VORTAN_HAS_STACK_CLASH_PROTECTION)
    add_compile_options(-fstack-clash-protection)
endif()
# On x86, indirect jumps lead only to marked places (IBT), and the processor may keep return addresses twice
# (SHSTK). A linker claims either for a binary only if every object does, and Debian's crti.o and crtn.o do
# not. They keep to SHSTK, so it is claimed here, but have no marks. Tests are linked by gold, which has no
# such option, so programs that ship name it themselves.
check_cxx_compiler_flag(-fcf-protection VORTAN_HAS_CF_PROTECTION)
if(VORTAN_HAS_CF_PROTECTION)
    add_compile_options(-fcf-protection)
    set(VORTAN_CLAIM_SHADOW_STACK LINKER:-z,shstk)
    string(APPEND CMAKE_SHARED_LINKER_FLAGS " -Wl,-z,shstk")
endif()
# Not in what ships: the C++ library's containers check indices and iterators.
add_compile_definitions($<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)
if(NOT VORTAN_SANITIZE)
    # A sanitizer looks closer, and the C library fortifies optimised code only.
    add_compile_options(
        $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
endif()

if(VORTAN_SANITIZE)
    add_compile_options(-fsanitize=${VORTAN_SANITIZE} -fno-omit-frame-pointer
                        -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${VORTAN_SANITIZE})
endif()

option(VORTAN_BUILD_PACKAGES "Build what cpack makes packages of" OFF)
if(VORTAN_BUILD_PACKAGES)
    # The dynamic linker finds by itself what is in the system's folders.
    set(CMAKE_SKIP_RPATH ON)
    # One commit gives the same binaries in every folder: no path in them, nor in their debug information,
    # tells where they were built. The build ID is what a binary and its debug information have in common.
    add_compile_options(-g -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
    add_link_options(LINKER:--build-id=sha1)
    if(CMAKE_SYSROOT)
        add_compile_options(-ffile-prefix-map=${CMAKE_SYSROOT}=)
    endif()
endif()

if(VORTAN_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang" OR NOT VORTAN_SANITIZE)
        message(FATAL_ERROR "VORTAN_FUZZ needs clang, and VORTAN_SANITIZE to notice mistakes.")
    endif()
    # It follows which branches an input takes.
    add_compile_options(-fsanitize=fuzzer-no-link)
    add_link_options(-fsanitize=fuzzer-no-link)
endif()
