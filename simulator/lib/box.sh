# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# A television in a box, seen from the script that wants one. Sourced after say.sh.
#
#   box_start SOURCE BUILD NAME    boots a box; it ends with the script, however that ends
#   box_run COMMAND [ARG...]       runs a command in it; its exit status is the command's
#   box_keep_journal               writes the journal of the box to build/box/NAME.journal
#   box_end                        ends it now

# What of the build is installed in it.
box_components=(daemon simulator)

box_start() {
    local source=$1 build=$2 word rest
    box_name=$3
    box_logs=$source/build/box
    [ -e "$build/cmake_install.cmake" ] || fail "nothing is built in $build; ./run builds it"
    mkdir -p "$box_logs"
    unshare --mount --propagation private true 2>/dev/null || forbidden 'making a mount namespace is not permitted'
    # A session of its own: what ends this script's process group must not end the one that cleans up after it.
    coproc BOX {
        exec setsid unshare --mount --propagation private -- \
            "$source/simulator/lib/box-guard" "$source" "$build" "$box_logs/$box_name.console" \
            "${box_components[@]}"
    }
    box_guard=$BOX_PID
    trap box_end EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM HUP
    word=died rest='the guard of the box died'
    read -r word rest <&"${BOX[0]}"
    case $word in
        ready) read -r box_leader box_cgroup <<<"$rest" ;;
        forbidden) forbidden "$rest; see $box_logs/$box_name.console" ;;
        *) box_explain "$rest" ;;
    esac
}

# Says why there is no box, with the end of its console; a lack of permission is told from anything else.
box_explain() {
    local console=$box_logs/$box_name.console
    tail -n 10 "$console" >&2
    if grep -q -E 'Operation not permitted|Permission denied' "$console"; then
        forbidden "$1: something in it was not permitted; its console: $console"
    fi
    fail "$1; its console: $console"
}

# The command that starts a command in the box: among its processes, in its own cgroup there, with a clean environment.
box_enter=()
box_enter_command() {
    # shellcheck disable=SC2016  # for the shell that is started
    box_enter=(
        nsenter --target "$box_guard" --mount -- sh -c 'echo $$ >"$1/cgroup.procs" && shift && exec "$@"' sh
        "$box_cgroup" nsenter --target "$box_leader" --mount --uts --ipc --net --pid --cgroup --root --wd --
        env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8
        "TERM=${TERM:-dumb}" "$@"
    )
}

# In the background, so that a signal to this script ends it and the box at once.
box_run() {
    box_enter_command "$@"
    "${box_enter[@]}" <&0 &
    wait $!
}

# In the foreground, for a program that owns the terminal.
box_run_interactively() {
    box_enter_command "$@"
    "${box_enter[@]}"
}

box_keep_journal() {
    box_run journalctl --quiet --no-pager --output=short-precise --all </dev/null >"$box_logs/$box_name.journal" 2>&1
}

# Closing the guard's standard input is what ends the box.
box_end() {
    trap '' INT TERM HUP
    [ -n "${box_guard:-}" ] || return 0
    if [ -n "${BOX[1]:-}" ]; then
        eval "exec ${BOX[1]}>&-"
    fi
    wait "$box_guard" 2>/dev/null
    box_guard=
}
