# The device's own libraries, under the names of the targets whose place they take.
#
#   VORTAN_DLOG_LIBRARY            the platform log; looked for if it is not named
#   VORTAN_QXCURL_LIBRARY          the maker's curl wrapper; looked for if it is not named
#   VORTAN_FILESYSTEM_LIBRARY      the sibling library with the file accessor
#   VORTAN_FILESYSTEM_INCLUDE_DIR  the folder of the file accessor's header

set(missing "")

# vortan_device_library(VARIABLE WHAT [NAME...]): makes sure that VARIABLE holds the path of a
# library. Where it holds none, one of the NAMEs is looked for.
function(vortan_device_library variable what)
    if(${variable} OR NOT ARGN)
        set(${variable} "" CACHE FILEPATH "${what}")  # turns a relative path into an absolute one
    else()
        unset(${variable} CACHE)
        find_library(${variable} NAMES ${ARGN} DOC "${what}")
    endif()
    if(EXISTS "${${variable}}" AND NOT IS_DIRECTORY "${${variable}}")
        return()
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

vortan_device_library(VORTAN_DLOG_LIBRARY "the platform log's library" libdlog.so libdlog.so.0)
vortan_device_library(VORTAN_QXCURL_LIBRARY "the curl wrapper's library" libQXCurl.so libQXCurl.so.0)
vortan_device_library(VORTAN_FILESYSTEM_LIBRARY "the file accessor's library")

set(VORTAN_FILESYSTEM_INCLUDE_DIR ${PROJECT_SOURCE_DIR}/platform/filesystem/Inc
    CACHE PATH "the folder of ThreadSafeFileSystemAccessor.h")
if(NOT EXISTS ${VORTAN_FILESYSTEM_INCLUDE_DIR}/ThreadSafeFileSystemAccessor.h)
    string(APPEND missing "\n  the file accessor's header: looked for "
        "ThreadSafeFileSystemAccessor.h in ${VORTAN_FILESYSTEM_INCLUDE_DIR}"
        "\n    (say -DVORTAN_FILESYSTEM_INCLUDE_DIR=FOLDER)")
endif()

if(missing)
    message(FATAL_ERROR "VORTAN_PLATFORM is device, and of the device's libraries these are "
        "missing:${missing}")
endif()

add_library(vortan_dlog_headers INTERFACE)
target_include_directories(vortan_dlog_headers INTERFACE ${PROJECT_SOURCE_DIR}/platform/dlog/Inc)

add_library(vortan_dlog UNKNOWN IMPORTED)
set_target_properties(vortan_dlog PROPERTIES IMPORTED_LOCATION ${VORTAN_DLOG_LIBRARY})
target_link_libraries(vortan_dlog INTERFACE vortan_dlog_headers)

add_library(vortan_qxcurl_headers INTERFACE)
target_include_directories(vortan_qxcurl_headers INTERFACE
    ${PROJECT_SOURCE_DIR}/platform/QXCurl/Inc)

add_library(vortan_qxcurl UNKNOWN IMPORTED)
set_target_properties(vortan_qxcurl PROPERTIES IMPORTED_LOCATION ${VORTAN_QXCURL_LIBRARY})
target_link_libraries(vortan_qxcurl INTERFACE vortan_qxcurl_headers)

add_library(vortan_filesystem UNKNOWN IMPORTED)
set_target_properties(vortan_filesystem PROPERTIES IMPORTED_LOCATION ${VORTAN_FILESYSTEM_LIBRARY})
target_include_directories(vortan_filesystem INTERFACE ${VORTAN_FILESYSTEM_INCLUDE_DIR})
