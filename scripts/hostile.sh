#!/bin/bash
# hostile.sh [COUNT [SEED]] - builds the library with AddressSanitizer and UBSan and sends COUNT mails,
# 100,000 without an argument, to servers that misbehave as SEED (1), SEED + 1 and so on have it.
# COUNT 1 shows the dialogue of one seed. Exit status 0 only when nothing was found.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_packages.sh build test
. scripts/compiler_cache.sh
cmake --preset asan >/dev/null
cmake --build --preset asan --parallel "$(nproc)" --target hostile_peers
time tests/support/private_dirs.sh build-asan/tests/hostile/hostile_peers "${1:-100000}" "${2:-1}"
