#!/bin/bash
# build_rpms.sh [PACKAGES [BUILD]] - builds the library as shipped in the directory BUILD (default:
# build-rpm) and its RPM packages into PACKAGES (default: BUILD/packages). Needs rpmbuild. Prints
# the names of the packages.
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(realpath -m "${2:-build-rpm}")
out=$(realpath -m "${1:-$build/packages}")

SOURCE_DATE_EPOCH=$(date --date="$(sed -n 's/^ -- .*>  //p;T;q' debian/changelog)" +%s)
export SOURCE_DATE_EPOCH
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
    -DOVRMAIL_BUILD_EXAMPLES=OFF >&2
cmake --build "$build" --parallel "$(nproc)" >&2
rm -rf "$out"
(cd "$build" && umask 022 && cpack -G RPM -B "$out" >&2)
rm -rf "$out/_CPack_Packages"
ls "$out"/*.rpm
