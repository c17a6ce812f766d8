# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Roots of other architectures and releases. Sourced after say.sh.

# Where this machine's own apt has Debian 12 from, unless ZEL_DEBIAN_MIRROR names another place. Other releases are there
# too.
debian_mirror() {
    [ -z "${ZEL_DEBIAN_MIRROR:-}" ] || { printf '%s\n' "$ZEL_DEBIAN_MIRROR"; return; }
    # shellcheck disable=SC2016  # apt replaces these
    apt-get indextargets --format '$(RELEASE) $(COMPONENT) $(REPO_URI)' 'Created-By: Packages' |
        awk '$1 == "bookworm" && $2 == "main" && !found++ { print $3 }'
}

# bind_into FOLDER SOURCE INSIDE [...]: makes FOLDER a root to change into, which stays as it was made: it is read-only but
# for /tmp. Each SOURCE is a folder, seen at INSIDE; with `rw:` before INSIDE it can be written to. All mounts end with the
# mount namespace that this is called in.
bind_into() {
    local folder=$1 inside options
    shift
    mount --bind -o ro "$folder" "$folder"
    while [ $# -gt 0 ]; do
        inside=${2#rw:}
        options=ro
        [ "$inside" = "$2" ] || options=rw
        mount --bind -o "$options" "$1" "$folder$inside"
        shift 2
    done
    mount -t proc proc "$folder/proc"
    mount --rbind /sys "$folder/sys"
    mount --rbind /dev "$folder/dev"
    mount -t tmpfs -o mode=1777 tmpfs "$folder/tmp"
}

# debian_root FOLDER RELEASE ARCHITECTURE VARIANT PACKAGE...: makes FOLDER a Debian of that release and architecture with
# these packages and all that they need, unless it is one already. In the variant `essential` programs can be run;
# `extract` is only their files. FOLDER gets its name when it is complete.
debian_root() {
    local folder=$1 release=$2 architecture=$3 variant=$4
    local mirror made_of lock attempt link
    shift 4
    mirror=$(debian_mirror)
    [ -n "$mirror" ] || fail "apt has no source of bookworm main; name one in ZEL_DEBIAN_MIRROR"
    made_of="$release $architecture $variant $mirror $*"
    mkdir -p "${folder%/*}"
    exec {lock}>"$folder.lock"
    flock "$lock"
    if [ "$(cat "$folder/made-of" 2>/dev/null)" = "$made_of" ]; then
        exec {lock}>&-
        return 0
    fi
    say "making a Debian $release for $architecture in $folder"
    rm -rf "$folder"
    for attempt in 1 2; do
        rm -rf "$folder.new"
        mmdebstrap --mode=root --architectures="$architecture" --variant="$variant" --include="$*" \
            "$release" "$folder.new" "deb $mirror $release main" </dev/null >"$folder.log" 2>&1 && break
        [ "$attempt" -eq 1 ] || fail "making a Debian $release for $architecture from $mirror failed; the last lines of $folder.log:
$(tail -n 5 "$folder.log")"
    done
    # Nobody changes into this one, so links of libraries from its top would lead out of it.
    if [ "$variant" = extract ]; then
        while IFS= read -r link; do
            ln -sfr "$folder.new$(readlink "$link")" "$link"
        done < <(find "$folder.new/usr/lib" -type l -lname '/*')
    fi
    printf '%s\n' "$made_of" >"$folder.new/made-of"
    mv -T "$folder.new" "$folder"
    exec {lock}>&-
}
