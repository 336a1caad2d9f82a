# What makes a mistake of memory harder to use, in every optimised build; tests/install reads it from the binaries. Not
# with a sanitizer, which finds the same mistakes and replaces the functions that are fortified.
if(INSPECT_SANITIZE OR CMAKE_BUILD_TYPE STREQUAL "Debug")
    return()
endif()
include(CheckPIESupported)
check_pie_supported() # programs at an address of the kernel's choice

add_compile_options(
    -fstack-protector-strong # a canary behind what lies on the stack
    -fstack-clash-protection # a large frame touches the guard page on its way
    "SHELL:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2" # the C library checks sizes that the compiler knows
)
add_link_options(
    -Wl,-z,relro -Wl,-z,now # tables of addresses are complete before main, and read-only then
    -Wl,-z,noexecstack # nothing on the stack is code
)
# Calls and jumps by address reach only what is meant as their goal, where the processor checks that.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
    add_compile_options(-fcf-protection=full)
elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    add_compile_options(-mbranch-protection=standard)
endif()
