# Run by CPack between the installation into the folders of the packages and the making of the packages.
set(version ${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

# dpkg-shlibdeps knows the libraries of installed packages only: it is told of those that are made here.
file(GLOB libraries ${CPACK_TEMPORARY_DIRECTORY}/server/usr/lib/*/lib*.so.[0-9])
set(lines "")
foreach(library IN LISTS libraries)
    get_filename_component(name ${library} NAME)
    string(REGEX MATCH "^(.+)\\.so\\.([0-9]+)$" matched ${name})
    string(APPEND lines "${CMAKE_MATCH_1} ${CMAKE_MATCH_2} ominspect (>= ${version})\n")
endforeach()
foreach(component tools owner room gateway)
    file(WRITE ${CPACK_TEMPORARY_DIRECTORY}/${component}/debian/shlibs.local "${lines}")
endforeach()

# Debian has manual pages and changelogs compressed.
file(GLOB pages ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/man*/*.[1-8]
     ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/doc/*/changelog.Debian
)
foreach(page IN LISTS pages)
    execute_process(COMMAND gzip -9nf ${page} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
