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
# Debian's zsh looks for what packages bring in a folder of its own, and elsewhere as others do.
set(OMINSPECT_ZSH_DIR ${CMAKE_INSTALL_FULL_DATADIR}/zsh/site-functions)
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(OMINSPECT_ZSH_DIR /usr/share/zsh/vendor-completions)
endif()
# The units hide these folders from what they run, so an installation there cannot be started by them.
if(CMAKE_INSTALL_PREFIX MATCHES "^/(home|root|tmp|var/tmp|run/user)(/|$)")
    message(WARNING "The service manager's units cannot run what lies below ${CMAKE_INSTALL_PREFIX}")
endif()

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

# install_placed(<component> <folder> [PROGRAMS] <file>...): texts that name places, as Debian's packages have them. For another
# prefix they name those of the installation.
function(install_placed component folder)
    cmake_parse_arguments(arg "PROGRAMS" "" "" ${ARGN})
    set(kind FILES)
    if(arg_PROGRAMS)
        set(kind PROGRAMS)
    endif()
    foreach(source IN LISTS arg_UNPARSED_ARGUMENTS)
        get_filename_component(source ${source} ABSOLUTE)
        get_filename_component(name ${source} NAME)
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
        file(READ ${source} text)
        string(REPLACE "/zq_product/etc/" "/zq_product/ETC/" text "${text}") # the device's own
        string(REPLACE "/etc/ominspect" "${OMINSPECT_CONFIG_DIR}" text "${text}")
        string(REPLACE "/zq_product/ETC/" "/zq_product/etc/" text "${text}")
        string(REPLACE "/usr/libexec/ominspect" "${OMINSPECT_LIBEXEC_DIR}" text "${text}")
        string(REPLACE "/usr/share/zsh/vendor-completions" "${OMINSPECT_ZSH_DIR}" text "${text}")
        foreach(place bash-completion dbus-1 doc ominspect)
            string(REPLACE "/usr/share/${place}/" "${CMAKE_INSTALL_FULL_DATADIR}/${place}/" text "${text}")
        endforeach()
        set(placed ${CMAKE_CURRENT_BINARY_DIR}/placed/${component}/${folder}/${name})
        file(GENERATE OUTPUT ${placed} CONTENT "${text}")
        install(${kind} ${placed} DESTINATION ${folder} COMPONENT ${component})
    endforeach()
endfunction()

# Units and policy name the prefix of the configuration.
install(
    CODE
    "if(NOT \"\${CMAKE_INSTALL_PREFIX}\" STREQUAL \"${CMAKE_INSTALL_PREFIX}\")
    message(WARNING \"Units, bus policy and examples name ${CMAKE_INSTALL_PREFIX}: configure with CMAKE_INSTALL_PREFIX for an installation that is to run\")
endif()"
    COMPONENT server
)
