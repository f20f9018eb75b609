#!/bin/bash
# check_clang.sh - builds the library, its tools and examples with clang++, and reads the tests; a
# warning is an error, and what is shipped must be hardened here too. Under CI=true it only reads
# examples and tests: check_style.sh gives clang's warnings of library and tools. Exit status 0 also when the compiler cannot be
# installed; a line says so.
set -euo pipefail
cd "$(dirname "$0")/.."

if ! scripts/install_packages.sh build test clang; then
    echo "check_clang: NOT CHECKED: no clang here"
    exit 0
fi
. scripts/compiler_cache.sh
configure() {
    cmake --preset release -B build-clang -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
        -DOVRMAIL_BUILD_TESTS="$1" >/dev/null
}
if [ "${CI:-}" != true ]; then
    configure OFF
    cmake --build build-clang --parallel "$(nproc)"
    tests/hardening_test.sh build-clang/libovrmail.so.1 build-clang/tools/ovrm-{send,trace}
fi

# Warnings need no code: none is made here.
configure ON
python3 - build-clang/compile_commands.json <<'END' | xargs -0 -P "$(nproc)" -n 1 sh -c
import json, sys
for entry in json.load(open(sys.argv[1])):
    if any(part in entry["file"] for part in ("/tests/", "/bench/", "/examples/")):
        print("cd", entry["directory"], "&&", entry["command"], "-fsyntax-only", end="\0")
END
