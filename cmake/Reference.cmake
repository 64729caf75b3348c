# The target `reference`: the reference of the public headers, as HTML in reference/html. It is there
# where Doxygen and Graphviz are.

find_program(VORTAN_DOXYGEN doxygen)
find_program(VORTAN_DOT dot)
if(VORTAN_DOXYGEN AND VORTAN_DOT)
    set(VORTAN_REFERENCE_DIR ${PROJECT_BINARY_DIR}/reference)
    add_custom_target(reference
        COMMAND ${CMAKE_COMMAND} -E rm -rf ${VORTAN_REFERENCE_DIR}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${VORTAN_REFERENCE_DIR}
        COMMAND ${CMAKE_COMMAND} -E env
            REFERENCE_FOLDER=${VORTAN_REFERENCE_DIR} REFERENCE_VERSION=${PROJECT_VERSION}
            ${VORTAN_DOXYGEN} docs/reference/Doxyfile
        COMMAND ${CMAKE_COMMAND} -E copy_directory docs/abi ${VORTAN_REFERENCE_DIR}/html/abi
        COMMAND ${CMAKE_COMMAND} -E copy_directory examples ${VORTAN_REFERENCE_DIR}/html/examples
        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
        COMMENT "Building the reference in ${VORTAN_REFERENCE_DIR}/html"
        VERBATIM)
endif()
