# Checks a shared library's dynamic section: LIBRARY has the soname SONAME, and where they are given,
# it defines the SYMBOLS and no others, and needs the libraries in the list NEEDED.

execute_process(COMMAND ${READELF} -d ${LIBRARY} OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
if(NOT dynamic MATCHES "\\(SONAME\\)[^\n]*\\[${SONAME}\\]")
    message(SEND_ERROR "The soname is not ${SONAME}:\n${dynamic}")
endif()
foreach(library IN LISTS NEEDED)
    if(NOT dynamic MATCHES "\\(NEEDED\\)[^\n]*\\[${library}\\]")
        message(SEND_ERROR "It does not need ${library}:\n${dynamic}")
    endif()
endforeach()
if(DEFINED SYMBOLS)
    execute_process(COMMAND ${NM} --dynamic --defined-only --format=just-symbols ${LIBRARY}
        OUTPUT_VARIABLE symbols OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    if(NOT symbols STREQUAL SYMBOLS)
        message(SEND_ERROR "Instead of ${SYMBOLS} it defines:\n${symbols}")
    endif()
endif()
