# shellcheck shell=sh
# Functions that the scripts in this folder share, to install packages and to build. The scripts source this file.

script=scripts/$(basename "$0") # path from the project's folder, because each script first changes to this folder

# Packages that every build of the project needs, whether for Qt 5 or for Qt 6.
# shellcheck disable=SC2034
packagesAnyQt="cmake ninja-build pkg-config g++ libspdlog-dev libudev-dev libumockdev-dev umockdev libmosquitto-dev
               libssl-dev libsqlite3-dev python3"
packagesQt5="qtbase5-dev libqt5serialport5-dev libqt5svg5-dev"
packagesQt6="qt6-base-dev qt6-serialport-dev qt6-svg-dev" # Ubuntu 22.04 has other names
if grep -qs '^VERSION_CODENAME=jammy$' /etc/os-release; then
    packagesQt6="qt6-base-dev libqt6serialport6-dev libqt6svg6-dev"
fi
# Packages for a build for Qt 5. Each script adds the packages that it also needs; configure() adds those for Qt 6.
# shellcheck disable=SC2034
packages="$packagesAnyQt $packagesQt5"

say() {
    printf '%s\n' "$*" >&2
}

isInstalled() {
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# missingPackages NAME...: prints the packages that are not installed.
missingPackages() {
    for package in "$@"; do
        isInstalled "$package" || printf '%s ' "$package"
    done
}

# showUsage "$@": for -h or --help prints the comment at the top of the script, and ends the script.
showUsage() {
    case ${1:-} in
    -h | --help)
        sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$script"
        exit 0
        ;;
    esac
}

# installPackages NAME...: installs the packages of this list that are missing.
installPackages() {
    if ! command -v apt-get >/dev/null 2>&1 || ! command -v dpkg-query >/dev/null 2>&1; then
        say "This system has no apt, so this script installs nothing. Install the equivalents of these Debian packages:"
        say " " "$@"
        return 0
    fi
    missing=$(missingPackages "$@")
    [ -n "$missing" ] || return 0
    root=
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null 2>&1; then
            say "Packages are missing, and there is no sudo. Run as root:"
            say "  apt-get update && apt-get install $missing"
            say "Then start this script again."
            exit 1
        fi
        root=sudo
    fi
    say "Installing: $missing"
    $root apt-get update -q >&2
    # $missing is a list of names, so do not quote it.
    # shellcheck disable=SC2086
    $root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends $missing >&2
    case " $missing " in
    *" mosquitto "*)
        # Debian starts its broker after the installation and at each start of the system. We start our own brokers.
        $root systemctl disable --now mosquitto >&2 || $root service mosquitto stop >&2 || true
        ;;
    esac
}

# Installs clang's sanitizers and libFuzzer if they are missing. On some systems clang's package does not contain them.
installSanitizers() {
    printf 'extern "C" int LLVMFuzzerTestOneInput(const char *, unsigned long) { return 0; }' \
        | clang++ -x c++ -fsanitize=fuzzer,address,undefined -o /dev/null - 2>/dev/null \
        || installPackages "libclang-rt-$(clang++ -dumpversion | cut -d. -f1)-dev"
}

# configure PRESET: configures by preset. Installs Qt 6 if the preset needs it.
configure() {
    # $packagesQt6 is a list, so do not quote it.
    # shellcheck disable=SC2086
    case $1 in
    *-qt6) installPackages $packagesQt6 ;;
    esac
    if [ -e "build/$1" ] && [ ! -w "build/$1" ]; then
        say "The folder build/$1 belongs to $(stat -c %U "build/$1"). Remove it, or start this script as that user."
        exit 1
    fi
    cmake --preset "$1" >&2
}

# build PRESET [OPTION]...: configures and builds by preset; the options are for cmake --build.
build() {
    say "Building, preset $1 ..."
    configure "$1"
    cmake --build --preset "$@" >&2
}
