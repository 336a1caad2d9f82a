# Warnings are errors. Each flag beyond -Wall -Wextra stands for a class of mistakes that this code must not hold:
add_library(kivo_warnings INTERFACE)
target_compile_options(
    kivo_warnings
    INTERFACE -Wall
              -Wextra
              -Wpedantic # standard C and C++ only: a vendor's compiler must take the code
              -Wshadow # a name means one thing in one place
              -Wconversion # no value changes silently: wire fields have fixed widths
              -Werror
)
# With -O3, GCC 12 takes a text that is put together from a temporary for an overlapping copy (its bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(kivo_warnings INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()
