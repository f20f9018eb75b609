#!/bin/bash
# soak.sh [MAILS] - sends MAILS mails, 10,000 without an argument, from one process through a Postfix
# of its own, as root: each has to arrive exactly once, and the process and its directories to end
# as they began. Some two minutes; ctest runs the short form.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_packages.sh build test e2e
cmake --preset release -B build-soak -DOVRMAIL_BUILD_TESTS=ON >/dev/null
cmake --build build-soak --parallel "$(nproc)" --target soak >/dev/null
OVRMAIL_SOAK_MAILS=${1:-10000} OVRMAIL_SOAK=$PWD/build-soak/tests/soak/soak \
    tests/support/private_dirs.sh /usr/bin/python3 -B tests/soak/soak_test.py
