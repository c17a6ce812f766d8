# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# What a fresh Debian 12 lacks. Sourced after say.sh.

# To build the daemon for Linux.
daemon_packages=(
    g++ cmake ninja-build pkg-config
    libglib2.0-dev libdbus-1-dev libjsoncpp-dev libsdbus-c++-dev libsystemd-dev
    libwayland-dev libwayland-bin
)

# To build everything but the tests.
build_packages=(
    "${daemon_packages[@]}"
    libcli11-dev libweston-10-dev libpixman-1-dev wayland-protocols
)

# To build, and to boot the television.
# shellcheck disable=SC2034  # for the script that sources this
run_packages=(
    "${build_packages[@]}"
    dbus systemd systemd-container mount util-linux weston
    python3 python3-dbus python3-dbusmock
)

# To build the tests that need no television, and to run them.
unit_packages=(
    libgtest-dev libgmock-dev
    dbus mount weston
)

# To test, on top of what runs.
# shellcheck disable=SC2034  # for the script that sources this
test_packages=(
    "${unit_packages[@]}"
    dpkg-dev file rpm rpmlint
    clang-format clang-tidy shellcheck mandoc zsh fish
)

# To build for other machines, on top of that.
# shellcheck disable=SC2034  # for the script that sources this
foreign_packages=(
    mmdebstrap arch-test g++-arm-linux-gnueabi
)

# Of what a build of the daemon needs, the libraries, which are the machine's that it is built for.
library_packages() {
    local package
    for package in "${daemon_packages[@]}"; do
        [[ $package != lib*-dev ]] || printf '%s\n' "$package"
    done
}

# The names of those packages, one a line, that are not installed.
missing_packages() {
    local name
    for name; do
        if [ "$(dpkg-query -W -f '${db:Status-Status}' "$name" 2>/dev/null)" != installed ]; then
            printf '%s\n' "$name"
        fi
    done
}

# apt-get without questions, waiting for another one to finish, once more when a mirror stumbles.
apt_get() {
    local -x DEBIAN_FRONTEND=noninteractive
    local command=(apt-get -y -q -o DPkg::Lock::Timeout=300 "$@")
    "${command[@]}" </dev/null || "${command[@]}" </dev/null
}

# install_packages LOG PACKAGE...: installs those that are missing; touches nothing when none is.
install_packages() {
    local log=$1 missing
    shift
    command -v dpkg-query >/dev/null ||
        fail "this is no Debian; install the counterparts of these packages by hand: $*"
    mapfile -t missing < <(missing_packages "$@")
    [ "${#missing[@]}" -gt 0 ] || return 0
    say "installing ${missing[*]}"
    {
        apt_get update && apt_get install --no-install-recommends "${missing[@]}"
    } >"$log" 2>&1 || fail "installing packages failed; the last lines of $log:
$(tail -n 5 "$log")"
    mapfile -t missing < <(missing_packages "$@")
    [ "${#missing[@]}" -eq 0 ] || fail "apt-get left these uninstalled: ${missing[*]}; see $log"
}
