# What lets CMake and pkg-config find the installed library, and the examples. Both find it relative to
# their own place, so that an installed tree can be moved.

include(CMakePackageConfigHelpers)

set(VORTAN_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VortanTransferAgent)
set(VORTAN_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(VORTAN_PLATFORM STREQUAL "standin")
    set(VORTAN_PLATFORM_SONAMES libdlog.so.0 libQXCurl.so.0)
else()
    list(JOIN VORTAN_DEVICE_SONAMES " " VORTAN_PLATFORM_SONAMES)
endif()
configure_package_config_file(
    cmake/VortanTransferAgentConfig.cmake.in
    ${PROJECT_BINARY_DIR}/VortanTransferAgentConfig.cmake
    INSTALL_DESTINATION ${VORTAN_CMAKE_DIR})
# Before 1.0 a minor version may change what clients see.
write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/VortanTransferAgentConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/VortanTransferAgentConfig.cmake
    ${PROJECT_BINARY_DIR}/VortanTransferAgentConfigVersion.cmake
    DESTINATION ${VORTAN_CMAKE_DIR} COMPONENT development)
install(EXPORT VortanTransferAgentTargets
    NAMESPACE VortanTransferAgent::
    DESTINATION ${VORTAN_CMAKE_DIR} COMPONENT development)

if(VORTAN_BUILD_KIT)
    install(EXPORT VortanTransferKitTargets
        NAMESPACE VortanTransferAgent::
        DESTINATION ${VORTAN_CMAKE_DIR} COMPONENT development)
endif()

install(DIRECTORY examples
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/vortantransferagent COMPONENT development)

file(RELATIVE_PATH VORTAN_PC_PREFIX
    ${CMAKE_INSTALL_PREFIX}/${VORTAN_PC_DIR} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" VORTAN_PC_PREFIX ${VORTAN_PC_PREFIX})
set(modules vortantransferagent)
if(VORTAN_BUILD_KIT)
    list(APPEND modules vortantransferkit)
endif()
foreach(module IN LISTS modules)
    configure_file(cmake/${module}.pc.in ${PROJECT_BINARY_DIR}/${module}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${module}.pc
        DESTINATION ${VORTAN_PC_DIR} COMPONENT development)
endforeach()
