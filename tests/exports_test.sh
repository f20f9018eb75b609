#!/bin/bash
# exports_test.sh LIBRARY NEEDED... - what the library shows and asks for: its symbols are those of
# cmake/exports.map, it is found by its own name alone, runs nothing when it is loaded, and needs no
# library but those named.
set -uo pipefail
map=$(dirname "$0")/../cmake/exports.map
library=$1
shift
status=0
complain() { echo "exports_test: $1"; status=1; }

listed() { grep -oE '^    [A-Za-z0-9_]+;' "$map" | tr -d ' ;' | sort -u; }
exported() { nm -D --defined-only "$library" | awk '{print $3}' | sort -u; }

[ "$(listed | wc -l)" -gt 100 ] || complain "the list of exports was not understood"
diff <(listed) <(exported) >&2 || complain "nm -D and cmake/exports.map differ (< map, > library)"

dynamic=$(readelf -dW "$library")
grep -q 'SONAME.*\[libovrmail\.so\.1\]' <<<"$dynamic" || complain "SONAME is not libovrmail.so.1"
! grep -qE 'RPATH|RUNPATH' <<<"$dynamic" || complain "a run path"
if ! grep -q 'libasan' <<<"$dynamic" && nm "$library" | grep '_GLOBAL__sub_I_'; then
    complain "code of ours runs when the library is loaded"
fi
for needed in $(sed -nE 's/.*NEEDED.*\[(.*)\]/\1/p' <<<"$dynamic"); do
    case " $* " in *" $needed "*) ;; *) complain "needs $needed" ;; esac
done
exit $status
