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
