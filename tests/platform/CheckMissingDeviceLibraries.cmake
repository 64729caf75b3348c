# Configures SOURCE in BUILD for a device, with none of its libraries named and then with wrong
# names and wrong libraries, and checks that it stops with one message that names all of them. DLOG and
# FILESYSTEM are libraries that a device may have, ARCHIVE is a static one, and CXX compiles others.

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

# What is named exists, and each is of no use in its own way.
file(WRITE ${BUILD}-other.cpp "extern \"C\" void other() {}\n")
set(shared ${CXX} -shared -fPIC ${BUILD}-other.cpp)
execute_process(COMMAND ${shared} -o ${BUILD}-nameless.so COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${shared} -Wl,-soname,libQXCurl.so.0 -o ${BUILD}-other.so
    COMMAND_ERROR_IS_FATAL ANY)
expect_one_message(
    OPTIONS
        -DVORTAN_DLOG_LIBRARY=/etc/passwd
        -DVORTAN_QXCURL_LIBRARY=${BUILD}-other.so
        -DVORTAN_FILESYSTEM_LIBRARY=${ARCHIVE}
    TEXTS
        "the platform log's library: /etc/passwd is no shared library"
        "the curl wrapper's library: ${BUILD}-other.so lacks QXCurl::QXCurlEasy::Initialize(), QXCurl"
        ", QXCurl::QXCurlUtility::makeUri(std::string, std::string)\n"
        "the file accessor's library: ${ARCHIVE} is no shared library")
expect_one_message(
    OPTIONS
        -DVORTAN_DLOG_LIBRARY=${DLOG}
        -DVORTAN_QXCURL_LIBRARY=${BUILD}-nameless.so
        -DVORTAN_FILESYSTEM_LIBRARY=${DLOG}
    TEXTS
        "the curl wrapper's library: ${BUILD}-nameless.so has no soname"
        "the file accessor's library: ${DLOG} lacks VORTAN_MW::ThreadSafeFileSystemAccessor::FileExists")

# The header of another machine's library: its number is that of no machine.
file(COPY_FILE ${FILESYSTEM} ${BUILD}-foreign.so)
execute_process(
    COMMAND sh -c "printf '\\376\\376' | dd of=$1 bs=1 seek=18 conv=notrunc" sh ${BUILD}-foreign.so
    ERROR_QUIET COMMAND_ERROR_IS_FATAL ANY)
expect_one_message(
    OPTIONS
        -DVORTAN_DLOG_LIBRARY=${DLOG}
        -DVORTAN_QXCURL_LIBRARY=${BUILD}-other.so
        -DVORTAN_FILESYSTEM_LIBRARY=${BUILD}-foreign.so
    TEXTS
        "the file accessor's library: ${BUILD}-foreign.so is for another kind of machine")
