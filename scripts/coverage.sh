#!/bin/bash
# coverage.sh [PERCENT] - which lines and branches of the library the tests reach: builds with
# --coverage, runs ctest, prints both by file, with the lines that nothing reached. Exit status 0
# only when every test passed and PERCENT of the lines, 90 without an argument, were reached.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_packages.sh build test users e2e coverage
. scripts/compiler_cache.sh
cmake --preset coverage >/dev/null
cmake --build build-coverage --parallel "$(nproc)"
find build-coverage -name '*.gcda' -delete

# Without what builds the library anew, measures its footprint, or limits the files it writes (the
# counts among them).
status=0
ctest --test-dir build-coverage --output-on-failure --no-tests=error --parallel "$(nproc)" \
    --exclude-regex '^(demo|packaging|e2e_footprint|surroundings)$' </dev/null || status=1

report() {
    gcovr --root . --object-directory build-coverage --exclude-throw-branches \
        --filter '(common|log|smtp|pop3|mime|mailapi)/' "$@" \
        build-coverage/CMakeFiles/ovrmail_objects.dir
}
report --branches
report --fail-under-line "${1:-90}" --print-summary || status=1
exit $status
