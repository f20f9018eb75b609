#!/bin/bash
# fuzz.sh [MINUTES [TARGET...]] - builds the coverage-guided fuzzers (clang, libFuzzer, with
# AddressSanitizer and UBSan) and runs each for MINUTES, 30 without an argument, all at once. Inputs
# found are kept in build-fuzz/found/TARGET and used by the next run, beside TARGET.log; one that
# fails belongs, once mended, into tests/fuzz/corpus, where every run of the tests sees it again.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_packages.sh build fuzz
. scripts/compiler_cache.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --parallel "$(nproc)" >/dev/null

seconds=$(awk -v minutes="${1:-30}" 'BEGIN { print int(minutes * 60) }')
targets=("${@:2}")
[ ${#targets[@]} -gt 0 ] || targets=(tests/fuzz/*_fuzz.cpp)
ulimit -c 0
running=()
status=0

fuzz() {
    local name found log
    name=$(basename "$1" .cpp)
    found=build-fuzz/found/$name
    log=$found.log
    mkdir -p "$found"
    if "build-fuzz/tests/fuzz/$name" -max_total_time="$seconds" -print_final_stats=1 -timeout=20 \
        -rss_limit_mb=2048 -max_len=20000 -artifact_prefix="build-fuzz/found/failed-" \
        "$found" "tests/fuzz/corpus/$name" >"$log" 2>&1; then
        awk -v name="$name" '/number_of_executed_units/ { print name ": " $2 " executions" }' "$log"
    else
        echo "$name: FAILED"
        grep -A 40 '==ERROR' "$log" || tail -n 5 "$log"
        return 1
    fi
}
for target in "${targets[@]}"; do
    fuzz "$target" &
    running+=($!)
done
for process in "${running[@]}"; do wait "$process" || status=1; done
exit $status
