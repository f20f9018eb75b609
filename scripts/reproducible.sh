#!/bin/bash
# reproducible.sh - builds the Debian packages twice, and the RPM packages where rpmbuild is there:
# in two directories, with another umask, time zone, locale, home directory and number of jobs. Each
# package, that of the sources too, must have the same bytes. Takes about two minutes.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install_packages.sh build package

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export CCACHE_DISABLE=1  # a compiler runs for each

# build DIRECTORY UMASK VARIABLE...
build() {
    local directory=$work/$1
    mkdir -p "$directory"
    umask "$2"
    shift 2
    echo "reproducible: building in $directory"
    env "$@" packaging/build_packages.sh "$directory/packages" "$directory" &>"$directory/log" ||
        { tail -20 "$directory/log"; return 1; }
    command -v rpmbuild >/dev/null || return 0
    env "$@" "$directory/ovrmail/packaging/build_rpms.sh" "$directory/rpms" \
        "$directory/ovrmail/build-deb" &>"$directory/log" || { tail -20 "$directory/log"; return 1; }
}
sums() { (cd "$work/$1" && find . -name '*.deb' -o -name '*.rpm' -o -name '*.tar.xz' |
    grep -v /ovrmail/ | sort | xargs sha256sum); }

build first 022 TZ=UTC LC_ALL=C.UTF-8 HOME=/nonexistent
build a/second/place/with/a/longer/name 077 TZ=Asia/Tokyo LC_ALL=C HOME=/tmp \
    DEB_BUILD_OPTIONS=parallel=1
sums first
[ "$(sums first | wc -l)" -ge 6 ] || { echo "reproducible: packages are missing"; exit 1; }
diff <(sums first) <(sums a/second/place/with/a/longer/name) ||
    { echo "reproducible: the second build differs"; exit 1; }
echo "reproducible: the same bytes twice"
