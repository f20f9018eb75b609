#!/bin/bash
# build_packages.sh [DIRECTORY] - builds the library as shipped and its three Debian packages into
# DIRECTORY (default: build-package/packages). Prints the names of the packages.
set -euo pipefail
cd "$(dirname "$0")/.."
out=$(realpath -m "${1:-build-package/packages}")

cmake -S . -B build-package -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr >/dev/null
cmake --build build-package --parallel "$(nproc)" >&2
rm -rf "$out"
(cd build-package && umask 022 && cpack -G DEB -B "$out" >&2)
rm -rf "$out/_CPack_Packages"
ls "$out"/*.deb
