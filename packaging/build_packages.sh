#!/bin/bash
# build_packages.sh [PACKAGES [BUILD]] - builds the library as shipped in the directory BUILD
# (default: build-package) and its three Debian packages into PACKAGES (default: BUILD/packages).
# Prints the names of the packages.
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(realpath -m "${2:-build-package}")
out=$(realpath -m "${1:-$build/packages}")

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
    -DOVRMAIL_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$build" --parallel "$(nproc)" >&2
rm -rf "$out"
(cd "$build" && umask 022 && cpack -G DEB -B "$out" >&2)
rm -rf "$out/_CPack_Packages"
ls "$out"/*.deb
