#!/bin/bash
# check_analysis.sh - reads the code for faults, beside clang-tidy in check_style.sh: cppcheck over
# library, tools and C programs, gcc's analyzer over the C programs (gcc 12 does not know C++ well
# enough: docs/testing.md), mypy over the Python module. A finding fails. Exit status 0 also when
# the tools cannot be installed; a line says so.
set -uo pipefail
cd "$(dirname "$0")/.." || exit 1

if ! scripts/install_packages.sh build analysis; then
    echo "check_analysis: NOT CHECKED: no cppcheck here"
    exit 0
fi
mapfile -t programs < <(git ls-files --cached --others --exclude-standard -- 'examples/*.c' 'tests/*.c')
[ ${#programs[@]} -gt 0 ] || { echo "check_analysis: git lists no program here"; exit 1; }

# What cannot be found here is a header of the system. A loop that an algorithm could replace is no
# fault. A member that only structured bindings read counts as never used.
run_cppcheck() {
    cppcheck --quiet -j "$(nproc)" --enable=warning,performance,portability,style --inline-suppr \
        --suppress=missingIncludeSystem --suppress=useStlAlgorithm \
        --suppress=unusedStructMember --error-exitcode=1 -I. -Iinclude "$@"
}

check_cppcheck() {
    run_cppcheck --std=c++20 common toolkit log net smtp pop3 mime mailapi tools
}
check_cppcheck_c() {
    run_cppcheck --std=c11 "${programs[@]}"
}

check_fanalyzer() {
    local program flags found=0
    for program in "${programs[@]}"; do
        flags=()
        # It takes (iconv_t)-1, which is a failure, for a block that nobody frees.
        if grep -q iconv_open "$program"; then flags=(-Wno-analyzer-malloc-leak); fi
        gcc -std=gnu11 -fanalyzer -Werror "${flags[@]}" -Iinclude -S -o /dev/null "$program" || found=1
    done
    return $found
}

# With the types of the oldest Python it runs on.
check_mypy() {
    mypy --strict --python-version 3.9 --cache-dir=/dev/null python/ovrmail
}

status=0
for check in cppcheck cppcheck_c fanalyzer mypy; do
    echo "== analysis: $check"
    "check_$check" || { status=1; echo "check_analysis: $check FAILED"; }
done
exit $status
