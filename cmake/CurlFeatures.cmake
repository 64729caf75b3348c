# Refuses a libcurl that resolves names synchronously. Such a libcurl interrupts a slow resolver with
# a signal, and that is not safe with several threads; the libcurl handler does not switch it off.

set(VORTAN_CURL_CONFIG "" CACHE FILEPATH
    "The curl-config of the libcurl to build against; looked for beside it if not named")
option(VORTAN_CURL_IS_ASYNCHRONOUS
    "Where there is no curl-config: libcurl is known to resolve names asynchronously" OFF)

# Sets VARIABLE to the curl-config that came with the found libcurl. Another system's is no answer.
function(vortan_find_curl_config variable)
    set(folders "")
    foreach(include IN LISTS CURL_INCLUDE_DIRS)
        list(APPEND folders ${include}/../bin ${include}/../../bin)
    endforeach()
    if(CMAKE_CROSSCOMPILING)
        foreach(root IN LISTS CMAKE_SYSROOT CMAKE_FIND_ROOT_PATH)
            list(APPEND folders ${root}/usr/bin ${root}/bin)
        endforeach()
        set(only NO_DEFAULT_PATH)
    endif()
    find_program(found curl-config HINTS ${folders} ${only} NO_CACHE)
    set(${variable} ${found} PARENT_SCOPE)
endfunction()

function(vortan_require_asynchronous_curl)
    if(VORTAN_CURL_IS_ASYNCHRONOUS)
        return()
    endif()
    set(config ${VORTAN_CURL_CONFIG})
    if(NOT config)
        vortan_find_curl_config(config)
    endif()
    if(NOT config)
        message(FATAL_ERROR "Cannot tell whether libcurl resolves names asynchronously: there is no "
            "curl-config beside it. Name it with -DVORTAN_CURL_CONFIG=FILE, or, if you know that it "
            "has the feature AsynchDNS, say -DVORTAN_CURL_IS_ASYNCHRONOUS=ON.")
    endif()
    execute_process(COMMAND ${config} --features
        RESULT_VARIABLE result OUTPUT_VARIABLE features ERROR_VARIABLE error)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${config} --features failed: ${result}\n${error}")
    endif()
    if(NOT features MATCHES "(^|[ \n])AsynchDNS([ \n]|$)")
        message(FATAL_ERROR "This libcurl resolves names synchronously, which is not safe with "
            "several threads: ${config} --features does not list AsynchDNS. Use a libcurl that was "
            "configured with --enable-threaded-resolver or --enable-ares.")
    endif()
endfunction()

vortan_require_asynchronous_curl()
