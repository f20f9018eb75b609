#!/bin/bash
# test.sh [CTEST-OPTION...] - installs what is missing (scripts/install_packages.sh), builds the
# library with sanitizers and for debugging, and runs the tests under AddressSanitizer and UBSan,
# then plain; what the sanitizers say nothing about runs once. The last lines are ctest's; the exit
# status is 0 only when both runs passed.
# Options go to both runs of ctest, for example: scripts/test.sh -R smtp
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_packages.sh build test package users e2e
. scripts/compiler_cache.sh
jobs=$(nproc)

# As shipped: what the demo sends with.
cmake --preset release >/dev/null
cmake --build --preset release --parallel "$jobs" --target ovrmail send_one_mail
for preset in asan dev; do
    echo "== build: $preset"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" --parallel "$jobs"
done

status=0
for preset in asan dev; do
    echo "== tests: $preset"
    ctest --preset "$preset" --parallel "$jobs" --no-tests=error --no-label-summary "$@" </dev/null || status=1
done
exit $status
