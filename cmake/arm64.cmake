# The toolchain of preset arm64: Debian's cross compiler, its libraries beside those of the building machine
# (/usr/lib/aarch64-linux-gnu), and QEMU for the tests. ./scripts/foreign makes a system that has them.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static)
# The building machine's own libraries are of no use.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
