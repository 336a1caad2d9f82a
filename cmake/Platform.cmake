# Which implementation of include/kivo the server and the programs link against:
#   linux     platform/linux, built here
#   fake      platform/fake, in memory: only the unit tests and their half of the contract suite are built
#   external  a vendor's libraries: INSPECT_PLATFORM_INCLUDE_DIR and INSPECT_PLATFORM_LIBRARY_DIR say where
# Each library is one target, kivo_<name>, whatever its origin.
set(INSPECT_PLATFORM linux CACHE STRING "linux | fake | external")
set_property(CACHE INSPECT_PLATFORM PROPERTY STRINGS linux fake external)

set(KIVO_LIBRARIES
    os_bounds
    os_file
    os_lock
    os_mem
    os_monitor_interface
    os_msg
    os_signal
    os_thread
    os_time
    os_timer
    om_log_client
    om_inspect_engine_client
)

if(INSPECT_PLATFORM STREQUAL "linux")
    add_subdirectory(platform/linux)
elseif(INSPECT_PLATFORM STREQUAL "external")
    set(INSPECT_PLATFORM_INCLUDE_DIR "" CACHE PATH "Folder that holds the platform's kivo/ headers")
    set(INSPECT_PLATFORM_LIBRARY_DIR "" CACHE PATH "Folder that holds the platform's libkivo_*.so")
    find_path(KIVO_INCLUDE_DIR kivo/os_msg.h PATHS ${INSPECT_PLATFORM_INCLUDE_DIR} NO_DEFAULT_PATH REQUIRED)
    # Before the headers of this tree: the vendor's may be newer.
    target_include_directories(inspect_api BEFORE INTERFACE $<BUILD_INTERFACE:${KIVO_INCLUDE_DIR}>)
    foreach(name IN LISTS KIVO_LIBRARIES)
        find_library(KIVO_${name}_LIBRARY kivo_${name} PATHS ${INSPECT_PLATFORM_LIBRARY_DIR} NO_DEFAULT_PATH REQUIRED)
        add_library(kivo_${name} SHARED IMPORTED)
        set_target_properties(kivo_${name} PROPERTIES IMPORTED_LOCATION ${KIVO_${name}_LIBRARY})
        target_link_libraries(kivo_${name} INTERFACE inspect_api)
    endforeach()
elseif(NOT INSPECT_PLATFORM STREQUAL "fake")
    message(FATAL_ERROR "INSPECT_PLATFORM: unknown value '${INSPECT_PLATFORM}'")
endif()

if(BUILD_TESTING OR INSPECT_BENCH OR INSPECT_FUZZ OR INSPECT_PLATFORM STREQUAL "fake")
    add_subdirectory(platform/fake)
endif()
