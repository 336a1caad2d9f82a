// Has no code: its target compiles the headers below once for all test programs (tests/CMakeLists.txt).
