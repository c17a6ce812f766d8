# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Building one preset with its output in a log. Sourced after say.sh.

# build_preset SOURCE PRESET: configures when that was never done and builds; prints one line. On failure it prints
# the end of the log and returns 1.
build_preset() {
    local source=$1 preset=$2 log=$1/build/log/$2.log began=$SECONDS
    mkdir -p "$source/build/log"
    printf 'building %-12s' "$preset"
    if (
        cd "$source" || exit 1
        if [ ! -e "build/$preset/build.ninja" ]; then
            cmake --preset "$preset" || exit 1
        fi
        cmake --build --preset "$preset"
    ) >"$log" 2>&1 </dev/null; then
        printf '%4d s\n' $((SECONDS - began))
        return 0
    fi
    printf 'FAILED after %d s\n' $((SECONDS - began))
    grep -E -m 20 'error:|Error|FAILED:' "$log" || tail -n 20 "$log"
    say "the whole log: $log"
    return 1
}
