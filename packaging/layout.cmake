# Read by cpack, once for each kind of package, before it installs what it is to pack.

# Each distribution has its own folders for libraries and for zsh, which only the scripts that install
# and that find the package depend on: nothing is built again.
execute_process(
    COMMAND ${CMAKE_COMMAND}
        -DCMAKE_INSTALL_LIBDIR:PATH=${CPACK_VORTAN_LIBDIR_${CPACK_GENERATOR}}
        -DVORTAN_ZSH_COMPLETION_DIR:STRING=${CPACK_VORTAN_ZSH_COMPLETION_DIR_${CPACK_GENERATOR}}
        ${CPACK_VORTAN_BUILD_DIR}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)

# All that bears a date bears the commit's; without git, that of the last change that is told of.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(
        COMMAND git -c safe.directory=* log -1 --format=%ct
        WORKING_DIRECTORY ${CPACK_VORTAN_SOURCE_DIR}
        OUTPUT_VARIABLE epoch OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    if(NOT epoch)
        file(TIMESTAMP ${CPACK_VORTAN_SOURCE_DIR}/CHANGELOG.md epoch %s UTC)
    endif()
    set(ENV{SOURCE_DATE_EPOCH} ${epoch})
endif()
