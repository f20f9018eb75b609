#!/bin/bash
# check_threads.sh [GTEST-OPTION...] - runs the tests of a host with several threads under
# ThreadSanitizer. Exit status 0 also when it cannot run here; a line says so. The tests with signals
# stay out: the sanitizer delivers signals late.
set -euo pipefail
cd "$(dirname "$0")/.."

if ! scripts/install_packages.sh build test; then
    echo "check_threads: NOT CHECKED: no compiler or tests here"
    exit 0
fi
. scripts/compiler_cache.sh
cmake --preset tsan >/dev/null
cmake --build --preset tsan --parallel "$(nproc)" --target host_test

# The sanitizer of g++ 12 needs addresses with little or no randomness.
run=()
setarch -R true 2>/dev/null && run=(setarch -R)
host_test=build-tsan/tests/host/host_test
if ! said=$("${run[@]}" $host_test --gtest_list_tests 2>&1); then
    echo "check_threads: NOT CHECKED: ThreadSanitizer does not start: ${said:0:200}"
    exit 0
fi
# No look-out for deadlocks: it stumbles over a mutex that is set up anew, and only one is ever
# taken under another.
export TSAN_OPTIONS="suppressions=$PWD/tests/host/tsan.suppressions detect_deadlocks=0"
status=0
"${run[@]}" tests/support/private_dirs.sh $host_test --gtest_brief=1 --gtest_filter=-Signals.* "$@" ||
    status=$?
[ $status != 77 ] || echo "check_threads: NOT CHECKED: no private directories here"
[ $status = 0 ] || [ $status = 77 ]
