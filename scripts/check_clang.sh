#!/bin/bash
# check_clang.sh - builds the library, its tools, examples and tests with clang++; a warning is an
# error, and what is shipped must be hardened here too. Exit status 0 also when the compiler cannot
# be installed; a line says so.
set -euo pipefail
cd "$(dirname "$0")/.."

if ! scripts/install_packages.sh build test clang; then
    echo "check_clang: NOT CHECKED: no clang here"
    exit 0
fi
. scripts/compiler_cache.sh
cmake --preset release -B build-clang -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
    -DOVRMAIL_BUILD_TESTS=ON >/dev/null
cmake --build build-clang --parallel "$(nproc)"
tests/hardening_test.sh build-clang/libovrmail.so.1 build-clang/tools/ovrm-{send,trace}
