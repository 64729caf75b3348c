# The device's own libraries, under the names of the targets whose place they take.
#
#   VORTAN_DLOG_LIBRARY            the platform log; looked for if it is not named
#   VORTAN_QXCURL_LIBRARY          the maker's curl wrapper; looked for if it is not named
#   VORTAN_FILESYSTEM_LIBRARY      the sibling library with the file accessor
#   VORTAN_FILESYSTEM_INCLUDE_DIR  the folder of the file accessor's header
#
# Each has to be a shared library for the machine that is built for, with a soname and the symbols that
# platform/*/needed_symbols.txt list.

set(missing "")

# elf_header(VARIABLE FILE): sets VARIABLE to TYPE;MACHINE. The type of a shared library is 3, and what
# is for the same machine has the same word size, byte order and machine number.
function(elf_header variable file)
    file(READ ${file} start LIMIT 20 HEX)
    set(${variable} none none PARENT_SCOPE)
    if(start MATCHES "^7f454c46(....)....................(....)(....)$")
        set(machine ${CMAKE_MATCH_1}${CMAKE_MATCH_3})
        string(REPLACE "00" "" type ${CMAKE_MATCH_2})  # in either byte order
        set(${variable} ${type} ${machine} PARENT_SCOPE)
    endif()
endfunction()

# vortan_fault_of(VARIABLE LIBRARY SYMBOLS): sets VARIABLE to what is wrong with the file, empty if
# nothing is. The file SYMBOLS has a line for each needed symbol: its name, and how people know it.
function(vortan_fault_of variable library symbols)
    file(REAL_PATH ${library} file)
    elf_header(header ${file})
    list(GET header 0 type)
    list(GET header 1 machine)
    if(NOT type STREQUAL "03")
        set(${variable} "${library} is no shared library" PARENT_SCOPE)
        return()
    elseif(NOT machine STREQUAL vortan_machine)
        set(${variable} "${library} is for another kind of machine than this build" PARENT_SCOPE)
        return()
    endif()
    execute_process(COMMAND ${CMAKE_READELF} --dynamic --wide ${file}
        OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
    if(NOT dynamic MATCHES "\\(SONAME\\)[^\n]*\\[([^]]+)\\]")
        set(${variable} "${library} has no soname for the dynamic linker to find it by" PARENT_SCOPE)
        return()
    endif()
    set(soname ${CMAKE_MATCH_1} PARENT_SCOPE)
    execute_process(COMMAND ${CMAKE_NM} --dynamic --defined-only ${file}
        OUTPUT_VARIABLE defined COMMAND_ERROR_IS_FATAL ANY)
    set(lacking "")
    file(STRINGS ${symbols} needed)
    foreach(line IN LISTS needed)
        string(FIND "${line}" " " blank)
        string(SUBSTRING "${line}" 0 ${blank} symbol)
        string(SUBSTRING "${line}" ${blank} -1 meaning)
        if(NOT defined MATCHES " ${symbol}(@[^\n]*)?\n")
            list(APPEND lacking ${meaning})
        endif()
    endforeach()
    list(JOIN lacking "," lacking)
    if(lacking)
        set(lacking "${library} lacks${lacking}")
    endif()
    set(${variable} "${lacking}" PARENT_SCOPE)
endfunction()

# vortan_device_library(VARIABLE SYMBOLS WHAT [NAME...]): makes sure that VARIABLE holds the path of a
# library that has the SYMBOLS. Where it holds none, one of the NAMEs is looked for.
function(vortan_device_library variable symbols what)
    if(${variable} OR NOT ARGN)
        set(${variable} "" CACHE FILEPATH "${what}")  # turns a relative path into an absolute one
    else()
        unset(${variable} CACHE)
        find_library(${variable} NAMES ${ARGN} DOC "${what}")
    endif()
    if(EXISTS "${${variable}}" AND NOT IS_DIRECTORY "${${variable}}")
        vortan_fault_of(fault ${${variable}} ${PROJECT_SOURCE_DIR}/platform/${symbols})
        if(NOT fault)
            set(VORTAN_DEVICE_SONAMES ${VORTAN_DEVICE_SONAMES} ${soname} PARENT_SCOPE)
            return()
        endif()
    elseif(${variable} MATCHES "-NOTFOUND$")
        list(JOIN ARGN ", " names)
        set(folders ${CMAKE_LIBRARY_PATH} ${CMAKE_PREFIX_PATH} ${CMAKE_SYSTEM_PREFIX_PATH})
        set(roots ${CMAKE_SYSROOT} ${CMAKE_FIND_ROOT_PATH})
        list(REMOVE_DUPLICATES folders)
        list(JOIN folders ", " folders)
        list(JOIN roots ", " roots)
        set(fault "looked for ${names} in the library folders of ${folders}")
        if(roots)
            string(APPEND fault " below ${roots}")
        endif()
    elseif(${variable})
        set(fault "there is no such file as ${${variable}}")
    else()
        set(fault "it has no name to look for")
    endif()
    set(missing "${missing}\n  ${what}: ${fault}\n    (say -D${variable}=FILE)" PARENT_SCOPE)
endfunction()

# What the compiler compiles for: the libraries must be for the same.
file(WRITE ${PROJECT_BINARY_DIR}/CMakeFiles/machine.cpp "int main() {}\n")
try_compile(VORTAN_PROGRAM_COMPILES ${PROJECT_BINARY_DIR}/CMakeFiles/machine
    SOURCES ${PROJECT_BINARY_DIR}/CMakeFiles/machine.cpp
    COPY_FILE ${PROJECT_BINARY_DIR}/CMakeFiles/machine.bin)
elf_header(vortan_machine ${PROJECT_BINARY_DIR}/CMakeFiles/machine.bin)
list(GET vortan_machine 1 vortan_machine)

vortan_device_library(VORTAN_DLOG_LIBRARY dlog/needed_symbols.txt
    "the platform log's library" libdlog.so libdlog.so.0)
vortan_device_library(VORTAN_QXCURL_LIBRARY QXCurl/needed_symbols.txt
    "the curl wrapper's library" libQXCurl.so libQXCurl.so.0)
vortan_device_library(VORTAN_FILESYSTEM_LIBRARY filesystem/needed_symbols.txt
    "the file accessor's library")

set(VORTAN_FILESYSTEM_INCLUDE_DIR ${PROJECT_SOURCE_DIR}/platform/filesystem/Inc
    CACHE PATH "the folder of ThreadSafeFileSystemAccessor.h")
if(NOT EXISTS ${VORTAN_FILESYSTEM_INCLUDE_DIR}/ThreadSafeFileSystemAccessor.h)
    string(APPEND missing "\n  the file accessor's header: looked for "
        "ThreadSafeFileSystemAccessor.h in ${VORTAN_FILESYSTEM_INCLUDE_DIR}"
        "\n    (say -DVORTAN_FILESYSTEM_INCLUDE_DIR=FOLDER)")
endif()

if(missing)
    message(FATAL_ERROR "VORTAN_PLATFORM is device, and these of its libraries are missing "
        "or of no use:${missing}")
endif()

add_library(vortan_dlog_headers INTERFACE)
target_include_directories(vortan_dlog_headers INTERFACE ${PROJECT_SOURCE_DIR}/platform/dlog/Inc)

add_library(vortan_dlog SHARED IMPORTED)
set_target_properties(vortan_dlog PROPERTIES IMPORTED_LOCATION ${VORTAN_DLOG_LIBRARY})
target_link_libraries(vortan_dlog INTERFACE vortan_dlog_headers)

add_library(vortan_qxcurl_headers INTERFACE)
target_include_directories(vortan_qxcurl_headers INTERFACE
    ${PROJECT_SOURCE_DIR}/platform/QXCurl/Inc)

add_library(vortan_qxcurl SHARED IMPORTED)
set_target_properties(vortan_qxcurl PROPERTIES IMPORTED_LOCATION ${VORTAN_QXCURL_LIBRARY})
target_link_libraries(vortan_qxcurl INTERFACE vortan_qxcurl_headers)

add_library(vortan_filesystem SHARED IMPORTED)
set_target_properties(vortan_filesystem PROPERTIES IMPORTED_LOCATION ${VORTAN_FILESYSTEM_LIBRARY})
target_include_directories(vortan_filesystem INTERFACE ${VORTAN_FILESYSTEM_INCLUDE_DIR})
