# INSPECT_SANITIZE=address (address, leak and undefined behaviour), fuzzer (the same with clang's coverage for libFuzzer) or
# thread; empty for none. For the whole build:
# mixing instrumented and plain objects gives false reports.
set(INSPECT_SANITIZE "" CACHE STRING "address | fuzzer | thread | empty")
set_property(CACHE INSPECT_SANITIZE PROPERTY STRINGS "" address fuzzer thread)
if(INSPECT_SANITIZE STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
elseif(INSPECT_SANITIZE STREQUAL "fuzzer")
    add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
elseif(INSPECT_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
elseif(INSPECT_SANITIZE)
    message(FATAL_ERROR "INSPECT_SANITIZE: unknown value '${INSPECT_SANITIZE}'")
endif()
