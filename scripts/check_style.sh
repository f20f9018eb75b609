#!/bin/bash
# check_style.sh - every check that reads the tree without running it: format, banned calls,
# layers, words that do not belong in it, shell scripts, static analysis. All of them run; the exit
# status is 0 only when none had a finding.
set -uo pipefail
cd "$(dirname "$0")/.." || exit 1

scripts/install_packages.sh build test check || exit 1
list() { git ls-files --cached --others --exclude-standard -- "$@" | sort -u; }
[ -n "$(list '*.cpp')" ] || { echo "check_style: git lists no source here"; exit 1; }

check_format() { list '*.c' '*.h' '*.cpp' '*.hpp' | xargs clang-format --dry-run -Werror; }

check_shell() { { list '*.sh'; echo .ci/run; } | xargs shellcheck --severity=warning; }

# Documents that stay outside, and the place a checkout happens to lie in, are never named. (The
# brackets keep this file from finding itself.)
check_words() {
    ! list | xargs grep -nIE -e \
        '\bsp[e]c(ification)?s?\b|style-mod[e]ls|\.\./sh[a]red|\b[Pp]arts? [0-9]\.[0-9]|[Ii]ssue #?[0-9]|/wor[k]/'
}

# In the tools its analyzer stays within each function: what they call of the standard library takes
# it more time than everything else here.
run_tidy() { xargs -P "$(nproc)" -n 1 clang-tidy --quiet -p build-tidy "$@" 2>/dev/null; }
check_tidy() {
    cmake --preset dev -B build-tidy -DOVRMAIL_BUILD_TESTS=OFF >/dev/null || return 1
    local found=0
    list 'tools/*.cpp' | run_tidy --extra-arg={-Xclang,-analyzer-config,-Xclang,ipa=none} || found=1
    list 'common/*.cpp' 'toolkit/*.cpp' 'log/*.cpp' 'net/*.cpp' 'smtp/*.cpp' 'pop3/*.cpp' 'mime/*.cpp' \
        'mailapi/*.cpp' | run_tidy || found=1
    return $found
}

status=0
for check in format words shell tidy; do
    echo "== style: $check"
    "check_$check" || { status=1; echo "check_style: $check FAILED"; }
done
for script in tools/check_layers.sh tools/check_banned.sh tools/check_trace_points.py; do
    echo "== style: $script"
    "$script" || status=1
done
exit $status
