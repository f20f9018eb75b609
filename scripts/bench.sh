#!/bin/bash
# bench.sh [ROUNDS] - measures the library beside its peers: installs them, builds, runs, and writes
# docs/performance.md. Takes some twenty minutes; a quiet machine gives quiet figures.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_packages.sh build bench
cmake --preset release -DOVRMAIL_BUILD_BENCH=ON >/dev/null
cmake --build build -j "$(nproc)" >/dev/null
tests/support/private_dirs.sh python3 bench/run.py --build "$PWD/build" --rounds "${1:-7}" \
    --out "$PWD/docs/performance.md"
cat docs/performance.md
