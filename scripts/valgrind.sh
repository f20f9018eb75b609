#!/bin/bash
# valgrind.sh [CTEST-OPTION...] - every test once under valgrind's memcheck: builds into
# build-valgrind, puts a script in the place of each program that runs it under valgrind, and lets
# ctest go its usual way, so that servers, shells and interpreters around the programs stay out.
# Exit status 0 only when every test passed and no program's log has an error, a leaked block or a
# descriptor that the program opened and left open. The logs stay in build-valgrind/logs.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_packages.sh build test users e2e valgrind
. scripts/compiler_cache.sh
build=$PWD/build-valgrind
logs=$build/logs
programs() { find "$build" -type f -perm -u+x "$@" -not -path '*/CMakeFiles/*' -not -name '*.so*'; }

# The programs of a run before come back first: make would take the scripts for them.
if [ -d "$build" ]; then
    programs -name '*.real' | while read -r real; do mv "$real" "${real%.real}"; done
fi
cmake --preset dev -B "$build" >/dev/null
cmake --build "$build" --parallel "$(nproc)"
rm -rf "$logs"
mkdir -m 1777 "$logs"

# Not run: what builds the library anew (demo, packaging) or has no program of ours (man_pages,
# abi_exports), and what judges the memory or the descriptors of its process, which would be
# valgrind's (e2e_footprint, e2e_soak).
skipped='^(demo|packaging|man_pages|abi_exports|e2e_footprint|e2e_soak)$'

# The partners of the tests stay as they are.
programs -not -name '*.real' -not -name bench_sink | while read -r program; do
    [ "$(head -c 4 "$program")" = $'\177ELF' ] || continue
    mv "$program" "$program.real"
    cat >"$program" <<EOF
#!/bin/sh
exec valgrind --quiet --leak-check=full --track-fds=yes --error-exitcode=99 --num-callers=30 \\
    --suppressions=$PWD/tests/support/valgrind.supp --log-file=$logs/${program##*/}.%p \\
    "$program.real" "\$@"
EOF
    chmod 755 "$program"
done
find "$build" -name CTestTestfile.cmake -exec sed -i 's/ TIMEOUT "[0-9]*"/ TIMEOUT "3600"/' {} +

# Cases that are left out: one kills the program that it started after two seconds, and one leaves a
# child with what a thread of its parent holds.
export GTEST_FILTER=-Reader.FollowsFromBeforeTheBeginning:Threads.ChildOfAFork
export OVRMAIL_VALGRIND=1

status=0
ctest --test-dir "$build" --output-on-failure --no-tests=error --parallel "$(nproc)" \
    --exclude-regex "$skipped" "$@" </dev/null || status=1

# A log holds a paragraph for each error, lost block and open descriptor. It is a finding unless
# it is a descriptor of whoever started the program, the port that the tests keep for refusing, or
# one of the tool, which a test ends by a signal in the middle of a send.
findings() {
    local log found=1
    for log in "$logs"/*; do
        sed -E 's/^==[0-9]+== ?//' "$log" |
            awk -v RS= -v name="${log##*/}" '
                { sub(/^FILE DESCRIPTORS[^\n]*\n?/, "") }
                /^Open / && /inherited from parent|refusing_port|\(ovrm_send\.cpp:/ { next }
                $0 != "" { print name ": " $0 "\n"; bad = 1 }
                END { exit !bad }' && found=0
    done
    return $found
}
echo "valgrind: $(find "$logs" -type f | wc -l) processes looked at"
if findings; then status=1; fi
exit $status
