#!/bin/bash
# hardening_test.sh [--linked] FILE... - the built libraries and programs are hardened: what
# readelf, nm and objdump show of it. With --linked only what the linker does, as in a Debug build.
set -uo pipefail
linked_only=
[ "${1:-}" != --linked ] || { linked_only=1; shift; }
[ $# -gt 0 ] || { echo "hardening_test: no file"; exit 1; }
status=0
complain() { echo "hardening_test: $file: $*"; status=1; }

for file in "$@"; do
    headers=$(readelf -hldW "$file") || { complain "cannot be read"; continue; }
    grep -qE 'Type: +DYN' <<<"$headers" || complain "lies at a fixed address"
    ! grep -q 'INTERP' <<<"$headers" || grep -q 'Flags:.* PIE' <<<"$headers" || complain "no PIE"
    grep -q 'BIND_NOW' <<<"$headers" || complain "symbols are not bound at load time"
    grep -q 'GNU_RELRO' <<<"$headers" || complain "no RELRO segment"
    grep -E 'GNU_STACK' <<<"$headers" | grep -q 'RW ' || complain "the stack is executable"
    ! grep -q 'TEXTREL' <<<"$headers" || complain "text relocations"
    [ -z "$linked_only" ] || continue

    asked=$(nm -D --undefined-only "$file")
    grep -q ' __stack_chk_fail' <<<"$asked" || complain "no check of the stack"
    # Calls that format text have a checking form whatever is known about the buffer (with clang
    # only those that take a va_list); what makes none need have no checks.
    if ! grep -qE ' __([^s]|s[^t])[a-z_]*_chk' <<<"$asked"; then
        plain=$(grep -oE ' [a-z]*printf\>' <<<"$asked") && complain "no checks of buffers:" "$plain"
    fi
    # The mark of the whole file (IBT, SHSTK) is there only where the C library's own start files
    # have it; the code of this project is marked at each function.
    case $headers in *X86-64* | *80386*)
        marked=$(objdump -d --no-show-raw-insn "$file" | grep -cE '\sendbr(32|64)')
        [ "$marked" -gt 50 ] || complain "$marked landing places for indirect jumps" ;;
    esac
done
exit $status
