# Run by cpack, once for each kind of package, when what it packs is in CPACK_TEMPORARY_DIRECTORY, a
# folder for each component: adds what packages hold beside what is installed.

set(work ${CPACK_TOPLEVEL_DIRECTORY}/complete)
file(MAKE_DIRECTORY ${work})

if(CPACK_GENERATOR STREQUAL "DEB")
    set(kind DEBIAN)
else()
    set(kind RPM)
endif()

# compress(FILE): into FILE.gz, without a date.
function(compress file)
    execute_process(COMMAND gzip -9 --no-name --force ${file} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# date_of_build(RESULT FORMAT): as the program date writes it.
function(date_of_build result format)
    execute_process(
        COMMAND ${CMAKE_COMMAND} -E env LC_ALL=C date --utc --date=@$ENV{SOURCE_DATE_EPOCH} ${format}
        OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    set(${result} ${date} PARENT_SCOPE)
endfunction()

# The changes of the packages themselves, as each kind has it.
function(write_package_changelog file)
    set(told "Packaged version ${CPACK_PACKAGE_VERSION}, whose changes are told in changelog.gz.")
    if(kind STREQUAL "DEBIAN")
        date_of_build(date "+%a, %d %b %Y %H:%M:%S +0000")
        set(version ${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
        file(WRITE ${file} "vortan-transfer-agent (${version}) unstable; urgency=medium\n\n"
            "  * ${told}\n\n -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
    else()
        date_of_build(date "+%a %b %d %Y")
        set(version ${CPACK_PACKAGE_VERSION}-${CPACK_RPM_PACKAGE_RELEASE})
        file(WRITE ${file} "* ${date} ${CPACK_PACKAGE_CONTACT} - ${version}\n- ${told}\n")
    endif()
endfunction()

# keep_debug_information(BINARY): in the component for that, under the binary's build ID.
function(keep_debug_information binary)
    execute_process(COMMAND ${CPACK_VORTAN_READELF} --notes --wide ${binary}
        OUTPUT_VARIABLE notes COMMAND_ERROR_IS_FATAL ANY)
    if(NOT notes MATCHES "Build ID: (..)([0-9a-f]+)")
        message(FATAL_ERROR "${binary} has no build ID.")
    endif()
    set(folder ${CPACK_TEMPORARY_DIRECTORY}/debug/usr/lib/debug/.build-id/${CMAKE_MATCH_1})
    file(MAKE_DIRECTORY ${folder})
    execute_process(
        COMMAND ${CPACK_VORTAN_OBJCOPY} --only-keep-debug --compress-debug-sections
            ${binary} ${folder}/${CMAKE_MATCH_2}.debug
        COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# strip(FOLDER): takes from its binaries whatever they run without.
function(strip folder)
    file(GLOB binaries
        ${folder}/usr/bin/* ${folder}/usr/${CPACK_VORTAN_LIBDIR_${CPACK_GENERATOR}}/lib*.so.*.*)
    foreach(binary IN LISTS binaries)
        keep_debug_information(${binary})
        execute_process(
            COMMAND ${CPACK_VORTAN_STRIP} --strip-unneeded --remove-section=.comment
                --remove-section=.note ${binary}
            COMMAND_ERROR_IS_FATAL ANY)
    endforeach()
endfunction()

# Documents are installed under the library's name, and packed under the package's.
function(add_documents folder)
    get_filename_component(documents ${folder} DIRECTORY)
    if(EXISTS ${documents}/vortantransferagent)
        file(RENAME ${documents}/vortantransferagent ${folder})
    endif()
    file(COPY ${CPACK_VORTAN_SOURCE_DIR}/packaging/copyright DESTINATION ${folder})
    configure_file(${CPACK_VORTAN_SOURCE_DIR}/CHANGELOG.md ${folder}/changelog COPYONLY)
    compress(${folder}/changelog)
    if(kind STREQUAL "DEBIAN")
        write_package_changelog(${folder}/changelog.Debian)
        compress(${folder}/changelog.Debian)
    endif()
endfunction()

# depend_on_libraries(COMPONENT FOLDER): what the binaries in FOLDER need, for the package's control
# file.
function(depend_on_libraries component folder)
    file(GLOB binaries ${folder}/usr/bin/* ${folder}/usr/${CPACK_VORTAN_LIBDIR_DEB}/lib*.so.*.*)
    if(NOT binaries)
        return()
    endif()
    find_program(shlibdeps dpkg-shlibdeps)
    if(NOT shlibdeps)
        message(FATAL_ERROR "dpkg-shlibdeps is not installed; on Debian it is in the package dpkg-dev.")
    endif()
    # Libraries are found beside ours or, for another machine, in the folder that it was built with.
    set(folders ${CPACK_TEMPORARY_DIRECTORY}/runtime/usr ${CPACK_TEMPORARY_DIRECTORY}/kit/usr
        ${CPACK_TEMPORARY_DIRECTORY}/standins/usr)
    if(CPACK_VORTAN_SYSROOT)
        list(APPEND folders ${CPACK_VORTAN_SYSROOT} ${CPACK_VORTAN_SYSROOT}/usr)
    endif()
    list(TRANSFORM folders PREPEND -l)
    list(TRANSFORM folders APPEND /${CPACK_VORTAN_LIBDIR_DEB})
    foreach(device IN LISTS CPACK_VORTAN_DEVICE_FOLDERS)
        list(APPEND folders -l${device})
    endforeach()
    file(MAKE_DIRECTORY ${folder}/DEBIAN)  # tells dpkg-shlibdeps that this is a package's folder
    execute_process(
        COMMAND ${CMAKE_COMMAND} -E env DEB_HOST_ARCH=${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}
            ${shlibdeps} -O -L${work}/shlibs.local ${folders} ${binaries}
        WORKING_DIRECTORY ${work}
        OUTPUT_VARIABLE found OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE_RECURSE ${folder}/DEBIAN)
    string(REPLACE "shlibs:Depends=" "" found "${found}")
    set(CPACK_DEBIAN_${component}_PACKAGE_DEPENDS "${found}" PARENT_SCOPE)
endfunction()

# write_control_files(COMPONENT SHLIBS): tells which package others need for the component's
# libraries, and has the dynamic linker take notice of them.
function(write_control_files component shlibs)
    file(WRITE ${work}/${component}/shlibs "${shlibs}")
    set(CPACK_DEBIAN_${component}_PACKAGE_CONTROL_EXTRA
        ${work}/${component}/shlibs ${CPACK_VORTAN_SOURCE_DIR}/packaging/triggers PARENT_SCOPE)
endfunction()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} COMPONENT)
    set(folder ${CPACK_TEMPORARY_DIRECTORY}/${component})
    strip(${folder})
    add_documents(${folder}/usr/share/doc/${CPACK_${kind}_${COMPONENT}_PACKAGE_NAME})
    file(GLOB pages ${folder}/usr/share/man/*/*.?)
    foreach(page IN LISTS pages)
        compress(${page})
    endforeach()
endforeach()

if(kind STREQUAL "DEBIAN")
    unset(CPACK_PACKAGE_DESCRIPTION_SUMMARY)  # each package has its own in its description
    set(library
        "libvortantransferagent 0 libvortantransferagent0 (>= ${CPACK_PACKAGE_VERSION})\n")
    set(kit "libvortantransferkit 0 libvortantransferkit0 (>= ${CPACK_PACKAGE_VERSION})\n")
    write_control_files(RUNTIME "${library}")
    write_control_files(KIT "${kit}")
    set(with_needs runtime kit tools)
    if(EXISTS ${CPACK_TEMPORARY_DIRECTORY}/standins)
        list(APPEND with_needs standins)
        write_control_files(STANDINS "libdlog 0 vortan-standins\nlibQXCurl 0 vortan-standins\n")
        file(MAKE_DIRECTORY ${CPACK_TEMPORARY_DIRECTORY}/standins/usr/share/lintian/overrides)
        file(COPY_FILE ${CPACK_VORTAN_SOURCE_DIR}/packaging/lintian-overrides
            ${CPACK_TEMPORARY_DIRECTORY}/standins/usr/share/lintian/overrides/vortan-standins)
    endif()

    # A device's own libraries are in packages whose names only the device knows.
    file(WRITE ${work}/shlibs.local "${library}${kit}")
    foreach(soname IN LISTS CPACK_VORTAN_DEVICE_SONAMES)
        string(REPLACE ".so." " " soname ${soname})
        file(APPEND ${work}/shlibs.local "${soname} ${CPACK_VORTAN_DEVICE_PACKAGES}\n")
    endforeach()
    file(WRITE ${work}/debian/control "")  # dpkg-shlibdeps looks for it
    foreach(component IN LISTS with_needs)
        string(TOUPPER ${component} COMPONENT)
        depend_on_libraries(${COMPONENT} ${CPACK_TEMPORARY_DIRECTORY}/${component})
    endforeach()
else()
    write_package_changelog(${work}/changelog)
    set(CPACK_RPM_CHANGELOG_FILE ${work}/changelog)
endif()

# Nothing depends on the umask, nor on when the sources were fetched.
execute_process(
    COMMAND chmod --recursive u=rwX,go=rX ${CPACK_TEMPORARY_DIRECTORY} COMMAND_ERROR_IS_FATAL ANY)
execute_process(
    COMMAND find ${CPACK_TEMPORARY_DIRECTORY}
        -exec touch --no-dereference --date=@$ENV{SOURCE_DATE_EPOCH} {} +
    COMMAND_ERROR_IS_FATAL ANY)
