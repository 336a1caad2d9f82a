# The items of calls and of the servers that they need.
find_library(OSIP_PARSER_LIBRARY osipparser2 REQUIRED) # its package names the transaction machines as well
pkg_check_modules(OPENSSL REQUIRED IMPORTED_TARGET libssl libcrypto)
pkg_check_modules(LDAP REQUIRED IMPORTED_TARGET ldap lber)

target_sources(
    room_lib
    PRIVATE call_choices.cpp
            call_conference.cpp
            call_h323.cpp
            call_ldap.cpp
            call_sip.cpp
            certificate.cpp
            credentials.cpp
            net.cpp
            ras.cpp
            sip_options.cpp
            sip_verdict.cpp
            tls_probe.cpp
)
target_link_libraries(
    room_lib PUBLIC Threads::Threads PRIVATE ${OSIP_PARSER_LIBRARY} PkgConfig::OPENSSL PkgConfig::LDAP
)
