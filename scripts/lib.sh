# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Functions that the commands in this directory share. Source it; it sets $root to the root of the repository.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
command_name=scripts/$(basename "$0")

# Prints one line about what the user waits for.
say()
{
    printf '%s: %s\n' "$command_name" "$*" >&2
}

fail()
{
    say "$*"
    exit 1
}

as_root()
{
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo > /dev/null; then
        sudo --preserve-env=DEBIAN_FRONTEND "$@"
    else
        fail "packages are missing; run this once as root, or install sudo"
    fi
}

# packages_complete PROFILES: whether all is there that debian/control names for these build profiles.
packages_complete()
{
    command -v dpkg-checkbuilddeps > /dev/null && dpkg-checkbuilddeps -P "$1" "$root/debian/control" 2> /dev/null
}

# [build_profiles=PROFILES] install_packages: installs what debian/control names, unless it is all there, and says before
# how much that is.
install_packages()
{
    local profiles=${build_profiles-} command size
    packages_complete "$profiles" && return
    export DEBIAN_FRONTEND=noninteractive
    command=(apt-get -q -y --no-install-recommends -P "$profiles" build-dep "$root/")
    as_root apt-get -q -q update
    size=$(LC_ALL=C as_root "${command[@]}" --assume-no 2> /dev/null |
        sed -n -e 's/^[0-9]* upgraded, \([0-9]*\) newly.*/\1 packages./p' -e '/^Need to get/p' -e '/^After this/p' | tr '\n' ' ' || true)
    say "installing what debian/control names, once; a few minutes. $size"
    as_root "${command[@]}" > /dev/null || fail "apt-get could not install the packages"
    packages_complete "$profiles" || fail "$(dpkg-checkbuilddeps -P "$profiles" "$root/debian/control" 2>&1)"
}

# build PRESET [TARGET]...: configures and builds in the preset's directory, which becomes $build.
build()
{
    local preset=$1
    shift
    case $preset in
        release) build=$root/build ;;
        *) build=$root/build-$preset ;;
    esac
    if command -v ccache > /dev/null; then
        export CMAKE_CXX_COMPILER_LAUNCHER=ccache
    fi
    say "building in $build (the first time takes minutes)"
    # A directory that was configured by hand keeps its generator.
    local generator
    generator=$(sed -n 's/^CMAKE_GENERATOR:INTERNAL=//p' "$build/CMakeCache.txt" 2> /dev/null || :)
    (cd "$root" && cmake --preset "$preset" ${generator:+-G "$generator"} > "$build.log" 2>&1) || { cat "$build.log" >&2; fail "cmake failed"; }
    rm -f "$build.log"
    local targets=()
    if [ $# -gt 0 ]; then
        targets=(--target "$@")
    fi
    # Keeps the standard output for the command: ninja would print there that it has nothing to do.
    cmake --build "$build" --parallel "$(nproc)" "${targets[@]}" -- --quiet >&2 || fail "the build failed"
}

# --- packages and other processors ---

# Roots of Debian systems that the commands create; may be removed at any time.
# shellcheck disable=SC2034 # the commands use it
cache=${XDG_CACHE_HOME:-$HOME/.cache}/varnel-browser

# Installs Debian packages that only some commands need, named with a program of each: PROGRAM=PACKAGE.
need_programs()
{
    local pair missing=()
    for pair in "$@"; do
        command -v "${pair%=*}" > /dev/null || missing+=("${pair#*=}")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    say "installing ${missing[*]}"
    DEBIAN_FRONTEND=noninteractive as_root apt-get -q -q -y --no-install-recommends install "${missing[@]}" > /dev/null ||
        fail "apt-get could not install ${missing[*]}"
}

# export_source DIRECTORY: copies the files of the repository in their present state, with their times.
export_source()
{
    mkdir -p "$1"
    (cd "$root" && git ls-files -z --cached --others --exclude-standard |
        while IFS= read -r -d '' file; do [ -e "$file" ] && printf '%s\0' "$file"; done |
        tar --create --null --files-from=-) | tar --extract --directory "$1"
}

# package_version: 2.0.N, N being the number of commits, so that apt takes each later build for an update. A changed working
# tree adds "+local".
package_version()
{
    local version
    version=$(sed -n '1s/.*(\(.*\)).*/\1/p' "$root/debian/changelog").$(git -C "$root" rev-list --count HEAD)
    [ -z "$(git -C "$root" status --porcelain)" ] || version=$version+local
    printf '%s\n' "$version"
}

# stamp_version SOURCE: gives an exported source that version, with the time of the last commit.
stamp_version()
{
    sed -i -e "1s/(.*)/($(package_version))/" \
        -e "s/^ -- \(.*>\)  .*/ -- \1  $(git -C "$root" log -1 --format=%cD)/" "$1/debian/changelog"
}

# remove_root DIRECTORY: stays on one filesystem, in case something is mounted there. A panel that ran in it has protected
# the mount point of its drive.
remove_root()
{
    as_root chattr -i "$1/usbmnt" "$1"/*/usbmnt 2> /dev/null || :
    as_root rm -rf --one-file-system "$1"
}

# in_root DIRECTORY [BWRAP-OPTION]... -- COMMAND...: runs a command as root of a root made by one of the commands. It
# sees nothing of the host, and all mounts end with it.
in_root()
{
    local directory=$1
    shift
    local options=()
    while [ "$1" != -- ]; do
        options+=("$1")
        shift
    done
    shift
    as_root bwrap --bind "$directory" / --proc /proc --dev /dev --perms 1777 --tmpfs /tmp --tmpfs /run --tmpfs /dev/shm \
        --unshare-pid --unshare-ipc --unshare-uts --hostname panel --die-with-parent --cap-add ALL \
        --clearenv --setenv HOME /root --setenv LC_ALL C.UTF-8 --setenv DEBIAN_FRONTEND noninteractive \
        --setenv PATH /usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
        "${options[@]}" --chdir / -- "$@"
}

# The mirror from which this machine's apt gets Debian's packages.
debian_mirror()
{
    local site
    # shellcheck disable=SC2016 # apt's words, not the shell's
    site=$(apt-get indextargets --format '$(SITE)' 'Codename: bookworm' | sed -n 1p)
    [ -n "$site" ] || fail "apt knows no Debian 12 mirror; run apt-get update first"
    echo "$site"
}
