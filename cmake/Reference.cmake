# The target `reference`: the reference of the public headers with the documents, as HTML in
# reference/html. It is there where Doxygen, Graphviz and mandoc are.

find_program(VORTAN_DOXYGEN doxygen)
find_program(VORTAN_DOT dot)
find_program(VORTAN_MANDOC mandoc)
if(VORTAN_DOXYGEN AND VORTAN_DOT AND VORTAN_MANDOC)
    set(VORTAN_REFERENCE_DIR ${PROJECT_BINARY_DIR}/reference)
    add_custom_target(reference
        COMMAND ${CMAKE_COMMAND} -E rm -rf ${VORTAN_REFERENCE_DIR}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${VORTAN_REFERENCE_DIR}
        COMMAND ${CMAKE_COMMAND} -E env
            REFERENCE_FOLDER=${VORTAN_REFERENCE_DIR} REFERENCE_VERSION=${PROJECT_VERSION}
            ${VORTAN_DOXYGEN} docs/reference/Doxyfile
        COMMAND ${VORTAN_MANDOC} -T html tools/vortan-transfer/vortan-transfer.1
            > ${VORTAN_REFERENCE_DIR}/html/vortan-transfer.html
        COMMAND ${CMAKE_COMMAND} -E copy_directory docs/abi ${VORTAN_REFERENCE_DIR}/html/abi
        COMMAND ${CMAKE_COMMAND} -E copy_directory examples ${VORTAN_REFERENCE_DIR}/html/examples
        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
        COMMENT "Building the reference in ${VORTAN_REFERENCE_DIR}/html"
        VERBATIM)
endif()
