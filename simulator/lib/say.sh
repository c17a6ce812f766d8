# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# How the scripts talk: progress on standard output, complaints on standard error, details in a log file.

# say TEXT...: one line of progress.
say() {
    printf '%s\n' "$*"
}

# fail TEXT...: says what went wrong and ends the script.
fail() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# forbidden TEXT...: says which permission is missing and how to give it, and ends the script with status 77.
forbidden() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    printf '%s\n' \
        'A television needs root with all its capabilities (CAP_SYS_ADMIN above all) and the right to mount and to' \
        'make namespaces, which neither seccomp nor AppArmor may filter.' \
        'On a machine: run it as root, or install sudo. In a container: start that with' \
        '    docker run --privileged ...       or       podman run --privileged ... (as root)' >&2
    exit 77
}

# as_root ARG...: starts the calling script once more as root unless it is root already. The script's own path and its
# arguments are given because a function has arguments of its own.
as_root() {
    [ "$(id -u)" -ne 0 ] || return 0
    command -v sudo >/dev/null || forbidden 'this needs root, and there is no sudo to ask'
    exec sudo -- "$@"
}

# give_back FOLDER: hands what root has made to the user who called sudo.
give_back() {
    if [ -n "${SUDO_UID:-}" ] && [ -d "$1" ]; then
        chown -R "$SUDO_UID:${SUDO_GID:-$SUDO_UID}" "$1"
    fi
}
