# Configures SOURCE in BUILD with several answers of curl-config, and checks what it says of them.

# write_curl_config(VARIABLE COMMANDS...): sets VARIABLE to a curl-config that does what is told.
function(write_curl_config variable)
    set(file ${BUILD}-${variable})
    list(JOIN ARGN "\n" commands)
    file(WRITE ${file} "#!/bin/sh\n${commands}\n")
    file(CHMOD ${file} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
    set(${variable} ${file} PARENT_SCOPE)
endfunction()

# expect(succeeds|fails CONFIG [TEXT]): the message contains TEXT.
function(expect outcome config)
    execute_process(
        COMMAND ${CMAKE_COMMAND} --fresh -S ${SOURCE} -B ${BUILD} -G ${GENERATOR}
            ${OPTIONS} -DVORTAN_CURL_CONFIG=${config}
        RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE message)
    if(result EQUAL 0 AND outcome STREQUAL fails OR NOT result EQUAL 0 AND outcome STREQUAL succeeds)
        message(SEND_ERROR "Configuration with ${config} ends with ${result}:\n${message}")
    endif()
    string(REGEX REPLACE "[ \n]+" " " message "${message}")
    foreach(text IN LISTS ARGN)
        string(FIND "${message}" "${text}" at)
        if(at EQUAL -1)
            message(SEND_ERROR "\"${text}\" is missing in:\n${message}")
        endif()
    endforeach()
endfunction()

write_curl_config(asynchronous "echo IPv6" "echo AsynchDNS" "echo libz")
write_curl_config(synchronous "echo IPv6" "echo NoAsynchDNS" "echo libz")
write_curl_config(broken "echo AsynchDNS" "exit 3")

expect(succeeds ${asynchronous})
expect(fails ${synchronous} "${synchronous} --features does not list AsynchDNS")
expect(fails ${broken} "${broken} --features failed: 3")
