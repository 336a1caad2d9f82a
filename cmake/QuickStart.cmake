# A program that people and scripts start again and again, for a moment each: loading its libraries is most of its time.
# quick_start(<program>) links the reference platform and the C++ library into it; a vendor's platform stays shared.
function(quick_start program)
    if(INSPECT_PLATFORM STREQUAL "linux")
        set_target_properties(${program} PROPERTIES HAS_PLATFORM ON)
    endif()
    if(NOT INSPECT_SANITIZE)
        target_link_options(${program} PRIVATE -static-libstdc++ -static-libgcc)
    endif()
endfunction()

# quick_start_libraries(<variable> <library>...): platform libraries as a static library is to name them that is linked into
# programs of both kinds.
function(quick_start_libraries variable)
    set(libraries)
    foreach(library IN LISTS ARGN)
        if(INSPECT_PLATFORM STREQUAL "linux")
            list(APPEND libraries $<IF:$<BOOL:$<TARGET_PROPERTY:HAS_PLATFORM>>,${library}_archive,${library}>)
        else()
            list(APPEND libraries ${library})
        endif()
    endforeach()
    set(${variable} ${libraries} PARENT_SCOPE)
endfunction()
