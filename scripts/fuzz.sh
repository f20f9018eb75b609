#!/bin/bash
# fuzz.sh [MINUTES [TARGET...]] - builds the coverage-guided fuzzers (clang, libFuzzer, with
# AddressSanitizer and UBSan) and runs each for MINUTES of processor time, 30 without an argument.
# Inputs found are kept in build-fuzz/found; one that fails belongs, once mended, into
# tests/fuzz/corpus, where every run of the tests sees it again.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_packages.sh build fuzz
. scripts/compiler_cache.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --parallel "$(nproc)" >/dev/null
python3 -B tests/fuzz/fuzz.py build-fuzz "${1:-30}" "${@:2}"
