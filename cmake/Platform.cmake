# The device's own libraries. A host that lacks them builds the stand-ins in platform/.

set(VORTAN_PLATFORM standin CACHE STRING
    "standin: build stand-ins for the device's libraries; device: use the device's own")
set_property(CACHE VORTAN_PLATFORM PROPERTY STRINGS standin device)

add_subdirectory(platform/text)
if(VORTAN_PLATFORM STREQUAL "standin")
    add_subdirectory(platform)
elseif(VORTAN_PLATFORM STREQUAL "device")
    include(cmake/DeviceLibraries.cmake)
else()
    message(FATAL_ERROR "VORTAN_PLATFORM is \"${VORTAN_PLATFORM}\"; it must be standin or device.")
endif()
