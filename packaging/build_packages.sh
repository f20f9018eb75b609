#!/bin/bash
# build_packages.sh [PACKAGES [WORK]] - builds the Debian packages with dpkg-buildpackage, in a copy
# of the tree below WORK (default: build-package), and puts them into PACKAGES (default:
# WORK/packages) together with the source package. Installs what the build needs. Prints the names
# of the packages; fails when one lacks a dependency.
set -euo pipefail
cd "$(dirname "$0")/.."
work=$(realpath -m "${2:-build-package}")
out=$(realpath -m "${1:-$work/packages}")

scripts/install_packages.sh build package
. scripts/compiler_cache.sh
# debhelper gives the build a home directory of its own.
! command -v ccache >/dev/null || CCACHE_DIR=$(ccache --get-config cache_dir)
export CCACHE_DIR

# What git knows, or would know; without git the tree as it is.
list_files() {
    git ls-files --cached --others --exclude-standard --deduplicate -z 2>/dev/null ||
        find . -name 'build*' -prune -type d -o ! -type d -print0
}
umask 022
rm -rf "$work/ovrmail" "$out"
mkdir -p "$work/ovrmail" "$out"
list_files | tar --null --files-from=- --mode=u=rwX,go=rX --create |
    tar --directory "$work/ovrmail" --extract
(
    cd "$work/ovrmail"
    DEB_BUILD_OPTIONS="parallel=$(nproc) ${DEB_BUILD_OPTIONS:-}" dpkg-buildpackage -us -uc >&2
)
find "$work" -maxdepth 1 -name '*ovrmail*_*' -exec mv -t "$out" {} +

# needs PACKAGE PATTERN...: each is the beginning of an item of its field Depends.
status=0
needs() {
    local package=$1 depends pattern
    shift
    depends=$(dpkg-deb --field "$out/${package}"_*.deb Depends)
    for pattern; do
        grep -qE ", ${pattern}[ :,]" <<<", $depends," && continue
        echo "build_packages: $package does not depend on $pattern, only on: $depends" >&2
        status=1
    done
}
version=$(dpkg-parsechangelog --show-field Version)
needs libovrmail1 'libc6 \(>= [0-9.]+\)'
needs ovrmail-tools "libovrmail1 \(= $version\)" 'libc6 \(>= [0-9.]+\)' 'libstdc\+\+6'
needs libovrmail-dev "libovrmail1 \(= $version\)" "ovrmail-tools \(>= $version\)" libc6-dev
needs python3-ovrmail "libovrmail1 \(>= $version\)" python3
ls "$out"/*.deb
exit $status
