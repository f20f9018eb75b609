#!/bin/bash
# check_abi.sh [--update] - compares the binary interface of the library, built as shipped, with the
# baseline in cmake/; any difference fails. --update writes the baseline anew: commit it with the
# change that made it necessary. Exit status 0 also where the tools cannot be installed or the
# processor has no baseline; a line says so.
set -euo pipefail
cd "$(dirname "$0")/.."

baseline=cmake/ovrmail-x86_64.abi
if [ "$(uname -m)" != x86_64 ] || ! scripts/install_packages.sh build test abi; then
    echo "check_abi: NOT CHECKED: no abigail-tools, or no x86_64 machine, here"
    exit 0
fi
. scripts/compiler_cache.sh

cmake --preset release -B build-abi -DCMAKE_CXX_FLAGS=-g \
    -DOVRMAIL_BUILD_TOOLS=OFF -DOVRMAIL_BUILD_EXAMPLES=OFF >/dev/null
cmake --build build-abi --target ovrmail --parallel "$(nproc)"
tests/exports_test.sh build-abi/libovrmail.so.1 libc.so.6
tests/hardening_test.sh build-abi/libovrmail.so.1

# Descriptions are compared, not the library itself: abidiff would take the records of a library
# whose description has no source locations for private ones, and let them change.
abidw --headers-dir include --drop-private-types --exported-interfaces-only --no-corpus-path \
    --no-comp-dir-path --no-show-locs --no-parameter-names --type-id-style hash \
    build-abi/libovrmail.so.1 >build-abi/ovrmail.abi
if [ "${1:-}" = --update ]; then
    cp build-abi/ovrmail.abi "$baseline"
    echo "check_abi: wrote $baseline"
elif abidiff "$baseline" build-abi/ovrmail.abi; then
    echo "check_abi: the interface is that of $baseline"
else
    echo "check_abi: the interface has changed; if that is meant: scripts/check_abi.sh --update"
    exit 1
fi
