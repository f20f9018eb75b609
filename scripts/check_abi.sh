#!/bin/bash
# check_abi.sh [--update] - compares the binary interface of the library with the baseline in
# cmake/; any difference fails. It is read from the build for debugging, which has the types; the
# library as shipped must export the same names and be hardened. --update writes the baseline anew:
# commit it with the change that made it necessary. Exit status 0 also where the tools cannot be
# installed or the processor has no baseline; a line says so.
set -euo pipefail
cd "$(dirname "$0")/.."

baseline=cmake/ovrmail-x86_64.abi
if [ "$(uname -m)" != x86_64 ] || ! scripts/install_packages.sh build test abi; then
    echo "check_abi: NOT CHECKED: no abigail-tools, or no x86_64 machine, here"
    exit 0
fi
. scripts/compiler_cache.sh

for preset in release dev; do
    cmake --preset $preset >/dev/null
    cmake --build --preset $preset --target ovrmail --parallel "$(nproc)"
done
tests/exports_test.sh build/libovrmail.so.1 libc.so.6
tests/hardening_test.sh build/libovrmail.so.1

# Descriptions are compared, not the library itself: abidiff would take the records of a library
# whose description has no source locations for private ones, and let them change.
abidw --headers-dir include --drop-private-types --exported-interfaces-only --no-corpus-path \
    --no-comp-dir-path --no-show-locs --no-parameter-names --type-id-style hash \
    build-dev/libovrmail.so.1 >build-dev/ovrmail.abi
if [ "${1:-}" = --update ]; then
    cp build-dev/ovrmail.abi "$baseline"
    echo "check_abi: wrote $baseline"
elif abidiff "$baseline" build-dev/ovrmail.abi; then
    echo "check_abi: the interface is that of $baseline"
else
    echo "check_abi: the interface has changed; if that is meant: scripts/check_abi.sh --update"
    exit 1
fi
