#!/bin/bash
# bench.sh [ROUNDS [MINUTES]] - measures the library beside its peers: installs them, builds, runs,
# and writes docs/performance.md with its tables and pictures. A quiet machine gives quiet figures;
# seven rounds take some twenty minutes there, and after MINUTES of rounds, 30 without an argument,
# no new one begins.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_packages.sh build bench
cmake --preset release -DOVRMAIL_BUILD_BENCH=ON >/dev/null
cmake --build build -j "$(nproc)" >/dev/null
tests/support/private_dirs.sh /usr/bin/python3 -B bench/run.py --build "$PWD/build" --rounds "${1:-7}" \
    --minutes "${2:-30}" --out "$PWD/docs/performance.md"
cat docs/performance.md
