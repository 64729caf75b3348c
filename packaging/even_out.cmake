# Run by cpack, once for each kind of package, when the packages are made.

# cpack's Debian packages tell the umask of whoever made them, in the modes of their members.
if(CPACK_GENERATOR STREQUAL "DEB")
    foreach(package IN LISTS CPACK_PACKAGE_FILES)
        set(folder ${package}.members)
        file(MAKE_DIRECTORY ${folder})
        execute_process(
            COMMAND ar x ${package} WORKING_DIRECTORY ${folder} COMMAND_ERROR_IS_FATAL ANY)
        file(REMOVE ${package})
        execute_process(
            COMMAND ar qcSD ${package} debian-binary control.tar.gz data.tar.xz
            WORKING_DIRECTORY ${folder} COMMAND_ERROR_IS_FATAL ANY)
    endforeach()
endif()
