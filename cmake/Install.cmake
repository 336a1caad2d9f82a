# What is installed where. Each component is one package of Debian: server (ominspect), tools, owner, room, gateway, dev, python.
#
# All is below the prefix, but for the configuration where GNUInstallDirs has it elsewhere: in /etc for /usr, in
# /etc/opt for a prefix in /opt. A destination below the prefix stays relative, so that `cmake --install --prefix` can move it.
if(CMAKE_INSTALL_FULL_SYSCONFDIR STREQUAL "${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_SYSCONFDIR}")
    set(OMINSPECT_CONFIG_DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/ominspect)
else()
    set(OMINSPECT_CONFIG_DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/ominspect)
endif()
set(OMINSPECT_CONFIG_DIR ${CMAKE_INSTALL_FULL_SYSCONFDIR}/ominspect)
# Below /var/lib, where the service manager makes it (StateDirectory=).
set(OMINSPECT_STATE_DIR /var/lib/ominspect)
set(OMINSPECT_LOG_DIR /var/log/ominspect)
set(OMINSPECT_LIBEXEC_DIR ${CMAKE_INSTALL_FULL_LIBEXECDIR}/ominspect)

# Where the schemas are, as seen from a program in the given folder.
function(find_schemas target folder)
    file(RELATIVE_PATH path ${folder} ${CMAKE_INSTALL_FULL_DATADIR}/ominspect/schema)
    target_compile_definitions(${target} PRIVATE OMINSPECT_SCHEMAS="${path}")
endfunction()

# The dynamic linker looks into the system's folders by itself; from anywhere else a program or library must say where its
# libraries are, as seen from itself.
function(find_installed_libraries target folder)
    if(CMAKE_INSTALL_FULL_LIBDIR IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES)
        return()
    endif()
    file(RELATIVE_PATH path ${CMAKE_INSTALL_PREFIX}/${folder} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${path}")
endfunction()

# install_program(<target> <component> <folder below the prefix>)
function(install_program target component folder)
    find_installed_libraries(${target} ${folder})
    install(TARGETS ${target} RUNTIME DESTINATION ${folder} COMPONENT ${component})
endfunction()

# install_library(<target> <name in the CMake package>): the library with the server, its link for the linker and its
# place in the CMake package with the headers.
function(install_library target name)
    find_installed_libraries(${target} ${CMAKE_INSTALL_LIBDIR})
    set_target_properties(${target} PROPERTIES EXPORT_NAME ${name})
    install(TARGETS ${target} EXPORT ominspect LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT server
                                                       NAMELINK_COMPONENT dev
    )
endfunction()

# install_configured(<file.in> <component> <folder> [NAME <name>] [PROGRAM]): a file that names the installation's places.
function(install_configured source component folder)
    cmake_parse_arguments(arg "PROGRAM" "NAME" "" ${ARGN})
    if(NOT arg_NAME)
        get_filename_component(arg_NAME ${source} NAME)
        string(REGEX REPLACE "\\.in$" "" arg_NAME ${arg_NAME})
    endif()
    set(configured ${CMAKE_CURRENT_BINARY_DIR}/configured/${component}/${folder}/${arg_NAME})
    configure_file(${source} ${configured} @ONLY)
    set(kind FILES)
    if(arg_PROGRAM)
        set(kind PROGRAMS)
    endif()
    install(${kind} ${configured} DESTINATION ${folder} COMPONENT ${component})
endfunction()

# Units and policy name the prefix of the configuration.
install(
    CODE
    "if(NOT \"\${CMAKE_INSTALL_PREFIX}\" STREQUAL \"${CMAKE_INSTALL_PREFIX}\")
    message(WARNING \"Units, bus policy and examples name ${CMAKE_INSTALL_PREFIX}: configure with CMAKE_INSTALL_PREFIX for an installation that is to run\")
endif()"
    COMPONENT server
)
