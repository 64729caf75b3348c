# Configures SOURCE in BUILD for a device, with none of its libraries named and then with wrong
# names, and checks that it stops with one message that names all of them.

# expect_one_message(TEXTS text... [OPTIONS option...]): each text stands in the one message.
function(expect_one_message)
    cmake_parse_arguments(PARSE_ARGV 0 arg "" "" "TEXTS;OPTIONS")
    execute_process(
        COMMAND ${CMAKE_COMMAND} --fresh -S ${SOURCE} -B ${BUILD} -G ${GENERATOR}
            ${OPTIONS} ${arg_OPTIONS}
        RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE message)
    if(result EQUAL 0)
        message(SEND_ERROR "Configuration succeeded without the device's libraries.")
    endif()
    string(REGEX MATCHALL "CMake Error" errors "${message}")
    list(LENGTH errors count)
    if(NOT count EQUAL 1)
        message(SEND_ERROR "There are ${count} errors instead of one:\n${message}")
    endif()
    foreach(text IN LISTS arg_TEXTS)
        string(FIND "${message}" "${text}" at)
        if(at EQUAL -1)
            message(SEND_ERROR "\"${text}\" is missing in:\n${message}")
        endif()
    endforeach()
endfunction()

expect_one_message(TEXTS
    "the platform log's library: looked for libdlog.so, libdlog.so.0 in the library folders of "
    "(say -DVORTAN_DLOG_LIBRARY=FILE)"
    "the curl wrapper's library: looked for libQXCurl.so, libQXCurl.so.0 in the library folders of "
    "(say -DVORTAN_QXCURL_LIBRARY=FILE)"
    "the file accessor's library: it has no name to look for"
    "(say -DVORTAN_FILESYSTEM_LIBRARY=FILE)")

expect_one_message(
    OPTIONS
        -DVORTAN_DLOG_LIBRARY=${BUILD}/none/libdlog.so.0
        -DVORTAN_QXCURL_LIBRARY=${BUILD}/none/libQXCurl.so.0
        -DVORTAN_FILESYSTEM_LIBRARY=${BUILD}
        -DVORTAN_FILESYSTEM_INCLUDE_DIR=${BUILD}
    TEXTS
        "the platform log's library: there is no such file as ${BUILD}/none/libdlog.so.0"
        "the curl wrapper's library: there is no such file as ${BUILD}/none/libQXCurl.so.0"
        "the file accessor's library: there is no such file as ${BUILD}"
        "the file accessor's header: looked for ThreadSafeFileSystemAccessor.h in ${BUILD}"
        "(say -DVORTAN_FILESYSTEM_INCLUDE_DIR=FOLDER)")
