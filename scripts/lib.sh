# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# What the commands in this directory share. To be sourced; sets the root of the repository as $root.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
command_name=scripts/$(basename "$0")

# One line that says what the user is waiting for.
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

packages_complete()
{
    command -v dpkg-checkbuilddeps > /dev/null && dpkg-checkbuilddeps "$root/debian/control" 2> /dev/null
}

# Installs what debian/control names, unless it is all there.
install_packages()
{
    packages_complete && return
    say "installing the packages that debian/control names (once; a few minutes)"
    export DEBIAN_FRONTEND=noninteractive
    as_root apt-get -q -q update
    (cd "$root" && as_root apt-get -q -y --no-install-recommends build-dep ./ > /dev/null) ||
        fail "apt-get could not install the packages"
    packages_complete || fail "$(dpkg-checkbuilddeps "$root/debian/control" 2>&1)"
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
    (cd "$root" && cmake --preset "$preset" > "$build.log" 2>&1) || { cat "$build.log" >&2; fail "cmake failed"; }
    rm -f "$build.log"
    local targets=()
    if [ $# -gt 0 ]; then
        targets=(--target "$@")
    fi
    cmake --build "$build" "${targets[@]}" -- --quiet || fail "the build failed"
}
