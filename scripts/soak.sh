#!/bin/bash
# soak.sh [MAILS [PROCESSES]] - sends MAILS (20,000 without an argument) through a Postfix of its own,
# as root, from PROCESSES (8) processes at once that share their process id and their directories,
# while somebody deletes what lies in those. Each mail has to arrive exactly once and whole, and no
# process may grow. Some ten minutes; ctest runs the short form.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_packages.sh build test e2e
cmake --preset release -B build-soak -DOVRMAIL_BUILD_TESTS=ON >/dev/null
cmake --build build-soak --parallel "$(nproc)" --target soak >/dev/null
OVRMAIL_SOAK_MAILS=${1:-20000} OVRMAIL_SOAK_PROCESSES=${2:-8} \
    OVRMAIL_SOAK=$PWD/build-soak/tests/soak/soak \
    PYTHONPATH=tests/e2e \
    tests/support/private_dirs.sh /usr/bin/python3 -B tests/soak/soak_test.py
