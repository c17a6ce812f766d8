# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Roots of other architectures. Sourced after say.sh.

# Where this machine's own apt has Debian 12 from, unless ZEL_DEBIAN_MIRROR names another place.
debian_mirror() {
    [ -z "${ZEL_DEBIAN_MIRROR:-}" ] || { printf '%s\n' "$ZEL_DEBIAN_MIRROR"; return; }
    # shellcheck disable=SC2016  # apt replaces these
    apt-get indextargets --format '$(RELEASE) $(COMPONENT) $(REPO_URI)' 'Created-By: Packages' |
        awk '$1 == "bookworm" && $2 == "main" && !found++ { print $3 }'
}

# debian_root FOLDER ARCHITECTURE VARIANT PACKAGE...: makes FOLDER a Debian 12 of that architecture with these packages
# and all that they need, unless it is one already. In the variant `essential` programs can be run; `extract` is only
# their files. FOLDER gets its name when it is complete.
debian_root() {
    local folder=$1 architecture=$2 variant=$3
    local mirror made_of lock attempt
    shift 3
    mirror=$(debian_mirror)
    [ -n "$mirror" ] || fail "apt has no source of bookworm main; name one in ZEL_DEBIAN_MIRROR"
    made_of="$architecture $variant $mirror $*"
    mkdir -p "${folder%/*}"
    exec {lock}>"$folder.lock"
    flock "$lock"
    if [ "$(cat "$folder/made-of" 2>/dev/null)" = "$made_of" ]; then
        exec {lock}>&-
        return 0
    fi
    say "making a Debian 12 for $architecture in $folder"
    rm -rf "$folder"
    for attempt in 1 2; do
        rm -rf "$folder.new"
        mmdebstrap --mode=root --architectures="$architecture" --variant="$variant" --include="$*" \
            bookworm "$folder.new" "deb $mirror bookworm main" </dev/null >"$folder.log" 2>&1 && break
        [ "$attempt" -eq 1 ] || fail "making a Debian 12 for $architecture from $mirror failed; the last lines of $folder.log:
$(tail -n 5 "$folder.log")"
    done
    printf '%s\n' "$made_of" >"$folder.new/made-of"
    mv -T "$folder.new" "$folder"
    exec {lock}>&-
}
