# shellcheck shell=bash
# Debian systems of another release in chroots, for building and testing the package there.
# Sourced by scripts/package-release and the package tests; needs root (debootstrap, chroot,
# mount). A minimal system of each release is made once by debootstrap from this machine's own
# mirror (scripts/debian-mirror) and kept in the project cache; the chroots are copies of it.
#
# Mounts made here are undone when the shell exits, by a trap, whatever the reason; the caller
# also runs in a private mount namespace (debian_chroot_private_mounts), so that even a killed
# run leaves no mount behind on the machine.

debian_chroot_scripts=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
debian_chroot_mounts=()
debian_chroot_removals=()

# debian_chroot_private_mounts <script> <arguments>...: runs the script again in a mount
# namespace of its own, once; returns in the second run. Call it first thing.
debian_chroot_private_mounts() {
    if [[ $(id -u) -ne 0 ]]; then
        echo "$(basename "$1"): needs root, for debootstrap, chroot and mount (run it with sudo)" >&2
        exit 1
    fi
    if [[ ${MURMELA_PRIVATE_MOUNTS:-} != "$$" ]]; then
        MURMELA_PRIVATE_MOUNTS=$$ exec unshare --mount --propagation private -- bash "$@"
    fi
}

debian_chroot_cache() {
    local repo
    repo=$(cd "$debian_chroot_scripts/.." && pwd)
    echo "${MURMELA_CACHE_DIR:-$repo/.cache}/debian-$1"
}

# Undoes the mounts in reverse order, then removes the temporary chroots, but only those with
# nothing mounted inside any more: removing a chroot with /dev bound in would empty the host's.
debian_chroot_clean_up() {
    local index directory
    for ((index = ${#debian_chroot_mounts[@]} - 1; index >= 0; index--)); do
        umount "${debian_chroot_mounts[index]}" 2>/dev/null || umount -l "${debian_chroot_mounts[index]}" ||
            echo "chroot: could not unmount ${debian_chroot_mounts[index]}" >&2
    done
    debian_chroot_mounts=()
    for directory in "${debian_chroot_removals[@]}"; do
        if grep -q " $directory/" /proc/mounts; then
            echo "chroot: $directory still has mounts inside; left in place" >&2
        else
            rm -rf --one-file-system "$directory"
        fi
    done
    debian_chroot_removals=()
}
trap debian_chroot_clean_up EXIT
trap 'exit 130' INT TERM

# debian_chroot_remove_on_exit <directory>
debian_chroot_remove_on_exit() {
    debian_chroot_removals+=("$1")
}

# debian_chroot_bind <source> <chroot> <path inside> [ro]
debian_chroot_bind() {
    local target=$2$3
    mkdir -p "$target"
    mount --bind ${4:+-o "bind,$4"} "$1" "$target"
    debian_chroot_mounts+=("$target")
}

# debian_chroot_enter <chroot>: what programs inside need (/proc, /dev, name resolution), and
# the release's package downloads shared between chroots of the cache, so each is fetched once.
debian_chroot_enter() {
    local root=$1 archives
    archives=$(dirname "$root")/archives
    mkdir -p "$archives/partial"
    mount -t proc proc "$root/proc"
    debian_chroot_mounts+=("$root/proc")
    debian_chroot_bind /dev "$root" /dev
    debian_chroot_bind /dev/pts "$root" /dev/pts
    debian_chroot_bind "$archives" "$root" /var/cache/apt/archives
    cp -L /etc/resolv.conf "$root/etc/resolv.conf"
}

# debian_chroot_run <chroot> <command>...: the command inside, in a plain environment.
debian_chroot_run() {
    local root=$1
    shift
    chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 \
        DEBIAN_FRONTEND=noninteractive "$@"
}

# debian_chroot_base <release>: the cached minimal system of the release, made if missing;
# prints its directory. Another run making it at the same time waits for it.
debian_chroot_base() {
    local release=$1 cache base mirror
    cache=$(debian_chroot_cache "$release")
    base=$cache/base
    mkdir -p "$cache"
    (
        flock 9
        [[ -x $base/usr/bin/apt-get ]] && exit 0
        mirror=$("$debian_chroot_scripts/debian-mirror")
        echo "chroot: making a minimal Debian $release from $mirror (once)" >&2
        rm -rf --one-file-system "$base.new"
        debootstrap --variant=minbase "$release" "$base.new" "$mirror" >"$cache/debootstrap.log" 2>&1 ||
            { tail -n 20 "$cache/debootstrap.log" >&2; exit 1; }
        rm -rf "$base.new/var/cache/apt/archives"/*.deb
        mv "$base.new" "$base"
    ) 9>"$cache/base.lock" || return 1
    echo "$base"
}

# debian_chroot_copy <release> <directory>: a fresh copy of the release's minimal system.
debian_chroot_copy() {
    local base
    base=$(debian_chroot_base "$1")
    cp -a "$base" "$2"
}
