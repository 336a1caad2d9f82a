# Sourced by the other scripts: the Debian packages this project needs, and how to get those that are missing.
# shellcheck shell=bash disable=SC2034  # the lists are used by the scripts that source this one

# To build: compiler, build system, and the libraries that the platform, the server and the programs call.
BUILD_PACKAGES=(
    g++ cmake ninja-build pkg-config ccache
    libsystemd-dev   # sd-bus and sd_notify
    libspdlog-dev    # rotating operations log
    libcjson-dev     # request texts
    libtinyxml2-dev  # configuration files
    libcli11-dev     # command lines
    libutf8proc-dev  # UTF-8 and the width of characters
    libarchive-dev   # packages of collected logs; compresses with zstd by itself
    libssl-dev       # their checksums, and TLS to a room's servers
    libosip2-dev     # SIP messages
    libldap-dev      # directories
    libsqlite3-dev   # the gateway's history
    libmicrohttpd-dev  # its HTTP
    libmosquitto-dev # its MQTT
    libre2-dev       # the patterns of secrets that are masked in them
    libasound2-dev   # the room's sound
    libdrm-dev       # its displays
    libnl-3-dev libnl-genl-3-dev libnl-route-3-dev # its network
)
# To run on a bus of one's own.
RUN_PACKAGES=(dbus-daemon)
# What the tests need beside these; systemd for busctl, iproute2 for network namespaces, zsh for its completion, libxml2-utils
# for xmllint, which the programs call, jeepney for the Python module. The last line are the servers that the room's checks
# are tried on: each runs for a test only, with a configuration of the test's.
TEST_PACKAGES=(
    libgtest-dev binutils procps libarchive-tools systemd iproute2 libxml2-utils zsh python3 python3-jeepney
    openssl sip-tester slapd socat
)
# What the tests of the gateway need; other sources than Debian have npm in nodejs.
TEST_PACKAGES+=(chromium curl openssl mosquitto mosquitto-clients libglib2.0-bin) # the last one for gdbus
command -v npm >/dev/null || TEST_PACKAGES+=(nodejs npm)
# Servers that the gateway's metrics are tried on and measured beside. Their packages would start them now and at each boot, so
# they are unpacked into build/unpacked, and are never installed (unpack_missing).
UNPACKED_PACKAGES=(prometheus prometheus-node-exporter)
# To make packages of Debian, and their bill of materials.
PACKAGE_PACKAGES=(dpkg-dev file python3 binutils)
# What the benchmarks are built with, what counts their instructions, and what asks over HTTP.
BENCH_PACKAGES=(libbenchmark-dev valgrind apache2-utils curl)
# To install them into a system of their own, and to boot it.
INSTALL_TEST_PACKAGES=(
    mmdebstrap systemd-container dbus procps util-linux lintian python3-license-expression openssl iproute2
)
# To build for other processors and to run the tests, in systems of their own (scripts/foreign): of the building machine's...
FOREIGN_PACKAGES=(
    cmake ninja-build pkg-config ccache dbus-daemon systemd procps libarchive-tools libxml2-utils libcli11-dev python3
    python3-jeepney openssl sip-tester slapd socat iproute2
)
ARM64_BUILD_PACKAGES=(g++-aarch64-linux-gnu qemu-user-static dpkg-dev file "${FOREIGN_PACKAGES[@]}")
I386_BUILD_PACKAGES=(g++ "${FOREIGN_PACKAGES[@]}")
# ... and the libraries of the other one. CLI11 is headers only, the same for each.
for package in "${BUILD_PACKAGES[@]}" libgtest-dev; do
    case "$package" in
        libcli11-dev) ;;
        lib*-dev) ARM64_BUILD_PACKAGES+=("$package:arm64") I386_BUILD_PACKAGES+=("$package") ;;
    esac
done
# What the demo's checks are, and what looks into its package.
DEMO_PACKAGES=(monitoring-plugins-basic procps libarchive-tools curl mosquitto mosquitto-clients)
# What ./scripts/fuzz needs.
FUZZ_PACKAGES=(clang libclang-rt-14-dev llvm)
# What ./scripts/lint needs.
LINT_PACKAGES=(clang-format clang-tidy cppcheck shellcheck python3-flake8 mypy)

# install_missing PACKAGE...: installs what is not there, as root or through sudo; else prints the command and ends.
install_missing() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    # Without a configuration of the system's own no slapd is ever started, neither now nor at the next boot.
    local answers="slapd slapd/no_configuration boolean true"
    # A broker that is not there yet is masked: its service would be enabled and started. "systemctl unmask mosquitto" has it.
    local mask=true units=/etc/systemd/system
    case " ${missing[*]} " in *" mosquitto "*) mask="mkdir -p $units && ln -sf /dev/null $units/mosquitto.service" ;; esac
    local command=(apt-get install -y --no-install-recommends "${missing[@]}")
    echo "Missing packages: ${missing[*]}"
    if [ "$(id -u)" -eq 0 ]; then
        sh -c "$mask" && debconf-set-selections <<<"$answers" && apt-get update -qq && DEBIAN_FRONTEND=noninteractive "${command[@]}" -qq >/dev/null
    elif command -v sudo >/dev/null; then
        sudo sh -c "$mask" && sudo debconf-set-selections <<<"$answers" && sudo apt-get update -qq && sudo DEBIAN_FRONTEND=noninteractive "${command[@]}" -qq >/dev/null
    else
        echo "They need root to install, and there is no sudo here. Please run as root:"
        echo "    $mask && echo '$answers' | debconf-set-selections && apt-get update && ${command[*]}"
        return 1
    fi
}

# unpack_missing PACKAGE...: makes the programs of packages usable from build/unpacked/usr/bin. Needs no root.
unpack_missing() {
    local folder=build/unpacked package
    for package in "$@"; do
        [ ! -e "$folder/usr/bin/$package" ] || continue
        echo "Unpacking $package into $folder"
        mkdir -p "$folder/packages"
        if ! (cd "$folder/packages" && apt-get download -qq -o APT::Sandbox::User= "$package"); then
            echo "The package lists may be old. Please run: apt-get update"
            return 1
        fi
        dpkg-deb -x "$folder/packages/${package}"_*.deb "$folder"
        rm -r "$folder/packages"
    done
}

# debian_sources: sets DEBIAN_SOURCES to the files that say from where this machine has its own packages.
debian_sources() {
    local file
    DEBIAN_SOURCES=()
    for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list /etc/apt/sources.list.d/*.sources; do
        [ ! -e "$file" ] || DEBIAN_SOURCES+=("$file")
    done
}

# debian_flags: sets CFLAGS, CXXFLAGS and LDFLAGS to Debian's own. They harden the programs, and keep this folder's name out of
# them. What is installed is stripped, so nothing is compiled with debug information.
debian_flags() {
    local -x DEB_CFLAGS_STRIP=-g DEB_CXXFLAGS_STRIP=-g
    CFLAGS="$(dpkg-buildflags --get CFLAGS) $(dpkg-buildflags --get CPPFLAGS)"
    CXXFLAGS="$(dpkg-buildflags --get CXXFLAGS) $(dpkg-buildflags --get CPPFLAGS)"
    LDFLAGS=$(dpkg-buildflags --get LDFLAGS)
}
