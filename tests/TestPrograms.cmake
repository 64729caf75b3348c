# How test programs are compiled and run.
include(GoogleTest)

option(VORTAN_TEST_PROGRAMS_WHOLE
    "Run each test program as one test; else each of its test cases, in a process of its own" OFF)
option(VORTAN_PRECOMPILE_TEST_HEADERS "Compile once what nearly all tests include" ON)
set(VORTAN_PRECOMPILED_TEST_HEADER support/Precompiled.h CACHE STRING
    "The header that VORTAN_PRECOMPILE_TEST_HEADERS compiles")

# These take a third of the time of the usual linker, which links what is shipped.
include(CheckLinkerFlag)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    check_linker_flag(CXX -fuse-ld=lld VORTAN_QUICK_LINKER)
else()
    check_linker_flag(CXX -fuse-ld=gold VORTAN_QUICK_LINKER)
endif()

# Half of the time goes into templates that are the same in all sources. Groups of more would leave
# one core idle at the end of the build.
set(CMAKE_UNITY_BUILD ${VORTAN_UNITY_BUILD})
set(CMAKE_UNITY_BUILD_BATCH_SIZE 5)
if(VORTAN_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # It takes each source for a header that more than one unit includes.
    add_compile_options(-Wno-subobject-linkage)
endif()

# The owner of the precompiled header is a program, because libraries are compiled otherwise.
if(VORTAN_PRECOMPILE_TEST_HEADERS)
    add_executable(vortan_precompiled support/precompiled.cpp)
    set_target_properties(vortan_precompiled PROPERTIES PCH_INSTANTIATE_TEMPLATES ON)
    target_precompile_headers(vortan_precompiled PRIVATE ${VORTAN_PRECOMPILED_TEST_HEADER})
    # A compiler cache recognises the header by what is in it.
    target_compile_options(vortan_precompiled PRIVATE
        $<$<CXX_COMPILER_ID:Clang>:SHELL:-Xclang -fno-pch-timestamp>)
    target_link_libraries(vortan_precompiled PRIVATE vortan_build_settings GTest::gmock)
endif()

# vortan_test_library(NAME USES TARGET SOURCES...): what several test programs share, compiled once as they
# are. TARGET, whose headers it uses, is linked by the programs.
function(vortan_test_library name)
    cmake_parse_arguments(test "" USES "" ${ARGN})
    add_library(${name} STATIC ${test_UNPARSED_ARGUMENTS})
    target_include_directories(${name} PRIVATE
        $<TARGET_PROPERTY:${test_USES},INTERFACE_INCLUDE_DIRECTORIES>)
    if(VORTAN_PRECOMPILE_TEST_HEADERS)
        # The precompiled header is for code of programs.
        set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
        target_compile_options(${name} PRIVATE -fPIE)
        target_precompile_headers(${name} REUSE_FROM vortan_precompiled)
    endif()
    target_link_libraries(${name} PRIVATE
        vortan_build_settings Boost::headers vortan_test_servers vortan_test_support)
endfunction()

# ctest names each program that it does not find; before a build that is all of them.
file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/BuildFirst.cmake @ONLY CONTENT [[
if(NOT EXISTS "@PROJECT_BINARY_DIR@/TransferAgent/libvortantransferagent.so"
        AND NOT DEFINED ENV{VORTAN_BEFORE_BUILD})
    message(FATAL_ERROR "Nothing is built in @PROJECT_BINARY_DIR@ yet. Build it first: ninja -C "
        "@PROJECT_BINARY_DIR@ (or run ./test, which builds what the tests need).")
endif()
]])
set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY
    TEST_INCLUDE_FILES ${CMAKE_CURRENT_BINARY_DIR}/BuildFirst.cmake)

# vortan_test_program(TARGET LABELS...): has ctest run the program's tests.
function(vortan_test_program target)
    if(VORTAN_PRECOMPILE_TEST_HEADERS)
        target_precompile_headers(${target} REUSE_FROM vortan_precompiled)
    endif()
    if(VORTAN_QUICK_LINKER)
        target_link_options(${target} PRIVATE
            -fuse-ld=$<IF:$<CXX_COMPILER_ID:Clang>,lld,gold>)
    endif()
    if(VORTAN_TEST_PROGRAMS_WHOLE)
        # All of a program's cases, emulated or with a sanitizer, take longer than one of them.
        math(EXPR timeout "4 * ${VORTAN_TEST_TIMEOUT}")
        add_test(NAME ${target} COMMAND ${target} --gtest_brief=1)
        set_tests_properties(${target} PROPERTIES TIMEOUT ${timeout} LABELS "${ARGN}")
    else()
        gtest_discover_tests(${target} PROPERTIES TIMEOUT ${VORTAN_TEST_TIMEOUT} LABELS "${ARGN}")
    endif()
endfunction()
