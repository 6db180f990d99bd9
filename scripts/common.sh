# shellcheck shell=sh
# Shared by the scripts beside it: installs what they need and builds. Sourced, not run.

script=scripts/$(basename "$0") # after the cd that each of them begins with

# What building and running takes; the tests take more. Used by the scripts.
# shellcheck disable=SC2034
packages="cmake ninja-build pkg-config g++ qtbase5-dev libqt5serialport5-dev libqt5svg5-dev libspdlog-dev libudev-dev
          libumockdev-dev umockdev"

say() {
    printf '%s\n' "$*" >&2
}

isInstalled() {
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# The packages of "$@" that are not there yet.
missingPackages() {
    for package in "$@"; do
        isInstalled "$package" || printf '%s ' "$package"
    done
}

# showUsage "$@": prints the comment at the top of the script when that is asked for, and ends it.
showUsage() {
    case ${1:-} in
    -h | --help)
        sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$script"
        exit 0
        ;;
    esac
}

# installPackages NAME...: nothing when all are there.
installPackages() {
    if ! command -v apt-get >/dev/null 2>&1 || ! command -v dpkg-query >/dev/null 2>&1; then
        say "This system has no apt, so nothing is installed here. It takes the equivalents of these Debian packages:"
        say " " "$@"
        return 0
    fi
    missing=$(missingPackages "$@")
    [ -n "$missing" ] || return 0
    root=
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null 2>&1; then
            say "These packages are missing, and there is no sudo to install them. As root, run:"
            say "  apt-get update && apt-get install $missing"
            say "and then this again."
            exit 1
        fi
        root=sudo
    fi
    say "Installing: $missing"
    $root apt-get update -q >&2
    # $missing is a list of names without blanks or patterns.
    # shellcheck disable=SC2086
    $root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends $missing >&2
}

# Whether clang brings its sanitizers and libFuzzer along differs between systems.
installSanitizers() {
    printf 'extern "C" int LLVMFuzzerTestOneInput(const char *, unsigned long) { return 0; }' \
        | clang++ -x c++ -fsanitize=fuzzer,address,undefined -o /dev/null - 2>/dev/null \
        || installPackages "libclang-rt-$(clang++ -dumpversion | cut -d. -f1)-dev"
}

# build PRESET [OPTION]...: configures and builds by preset; the options are cmake --build's.
build() {
    if [ -e "build/$1" ] && [ ! -w "build/$1" ]; then
        say "The folder build/$1 belongs to $(stat -c %U "build/$1"). Remove it, or run this as that user."
        exit 1
    fi
    say "Building, preset $1 ..."
    cmake --preset "$1" >&2
    cmake --build --preset "$@" >&2
}
