#!/bin/bash
# check_banned.sh [ROOT] - fails on calls and types that the library's code does not use.
# A line that needs one all the same says why, on itself or on the line above:
# "// allow: a field of fixed size".
set -euo pipefail
cd "${1:-$(dirname "$0")/..}"
folders=(common toolkit log net smtp pop3 mime mailapi)

# What is banned, each with the reason given to the one who meets it.
call='(^|[^A-Za-z0-9_.>])(::|std::)?'
rules=(
    "${call}(strcpy|strcat|sprintf|vsprintf|gets|stpcpy) *\\(|unbounded: use format_into or a span"
    "${call}strncpy *\\(|only where a fixed field is the contract"
    "${call}(strtok|sscanf|atoi|atol|stoi|stol|alloca|longjmp|setjmp) *\\(|not checked, or not bounded"
    "${call}close *\\([^)]|descriptors have an owner: UniqueFd"
    "${call}(signal|sigaction|sigprocmask|pthread_sigmask) *\\(|the host's signals are its own"
    "(^|[^A-Za-z0-9_])(goto +[a-z]|throw|try *\\{|catch *\\(|delete|dynamic_cast|typeid)([^A-Za-z0-9_]|\$)|guards, no exceptions"
    "(^|[^A-Za-z0-9_])new( +[A-Za-z_]| *\\(std::nothrow)|no C++ run time: heap.hpp, or new in a place"
    "std::(string|wstring|vector|map|set|list|deque|function|thread|shared_ptr|make_unique|ostringstream|cout|cerr)([^A-Za-z0-9_]|\$)|libc alone: views, spans, fixed arrays"
    "# *include *<(iostream|sstream|fstream|string|vector|map|filesystem|functional|thread|mutex|regex|exception|stdexcept)>|libc alone: views, spans, fixed arrays"
    "\\.at\\([^\")]|throws: index after the check"
)

# Code only: comments and the contents of literals are blanked, the lines keep their numbers.
code_of() {
    sed -E '/^ *\/\/ allow: /{s/.*//; n; s/.*//}
            /\/\/ allow: /s/.*//
            s/"([^"\\]|\\.)*"/""/g
            s@//.*@@
            s@/\*.*\*/@@g
            s/= *delete *;//
            /\/\*/,/\*\//{s@/\*.*@@; t; s@.*\*/@@; t; s/.*//}' "$1"
}

mapfile -t files < <(find "${folders[@]}" -name '*.cpp' -o -name '*.hpp' | sort)
[ ${#files[@]} -gt 0 ] || { echo "check_banned: no source below $PWD"; exit 1; }
bad=0
for file in "${files[@]}"; do
    code=$(code_of "$file")
    for rule in "${rules[@]}"; do
        pattern=${rule%|*}
        if hits=$(grep -nE "$pattern" <<<"$code"); then
            while IFS=: read -r line text; do
                echo "$file:$line: banned (${rule##*|}):${text}"
            done <<<"$hits"
            bad=1
        fi
    done
done
[ $bad = 0 ] && echo "check_banned: ${#files[@]} files clean"
exit $bad
