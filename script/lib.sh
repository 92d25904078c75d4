# What the other scripts share. Sourced, not run.

set -euo pipefail

# Packages that building the library, the hosted platform and the tool takes: libraries, and what builds with them; and
# what the tests take in addition.
LIBRARY_PACKAGES="libssl-dev libzip-dev libmimalloc-dev libcli11-dev nlohmann-json3-dev libfmt-dev libre2-dev"
LIBRARY_PACKAGES+=" libzstd-dev libnats-dev libunistring-dev"
BUILD_PACKAGES="g++ cmake ninja-build pkgconf scdoc $LIBRARY_PACKAGES"
TEST_PACKAGES="libgmock-dev libgtest-dev"
TEST_PROGRAMS="nats-server openssl zsh"

# Prints the folder of the checkout.
repo_root() {
    cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd
}

# Prints the version of the checkout, 1.2.3.
project_version() {
    sed -n 's/^#define TAV_VERSION_[A-Z]* *\([0-9][0-9]*\)$/\1/p' "$(repo_root)/include/tav_version.h" | paste -sd .
}

# Runs a command as root.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}

# Installs the Debian packages among the arguments that are not there yet.
require_packages() {
    local missing=() package
    for package in "$@"; do
        if [ "$(dpkg-query -W -f '${Status}' "$package" 2>/dev/null)" != "install ok installed" ]; then
            missing+=("$package")
        fi
    done
    if [ ${#missing[@]} -eq 0 ]; then
        return
    fi
    echo "Installing ${missing[*]}"
    as_root apt-get update -qq
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# Configures and builds a preset; further arguments go to the configuration.
build_preset() {
    local preset=$1 output
    shift
    if ! output=$(cmake --preset "$preset" "$@" 2>&1); then
        printf '%s\n' "$output"
        return 1
    fi
    cmake --build --preset "$preset"
}
