#!/bin/bash
# check_layers.sh [ROOT] - fails when a library file includes a layer it must not know.
# One way only: mailapi -> mime -> smtp -> net -> common and mailapi -> pop3 -> net -> common; logging
# lies below the clients, the toolkit below logging: smtp, pop3 -> log -> toolkit -> common. The
# engine in net knows neither.
set -euo pipefail
cd "${1:-$(dirname "$0")/..}"

declare -A below=(
    [common]="common"
    [net]="net common"
    [toolkit]="toolkit common"
    [log]="log toolkit common"
    [smtp]="smtp net log toolkit common"
    [pop3]="pop3 net log toolkit common"
    [mime]="mime smtp net log toolkit common"
    [mailapi]="mailapi mime smtp pop3 net log toolkit common"
)
declare -A owner=(
    [mail_types.h]=common
    [profile.h]=toolkit [file_util.h]=toolkit [inst_info.h]=toolkit
    [trace.h]=log [mail_log.h]=log
    [smtp.h]=smtp [smtp_auth.h]=smtp [md5.h]=smtp
    [pop3.h]=pop3
    [mime.h]=mime [codeset.h]=mime
    [mail_api.h]=mailapi
)

bad=0
seen=0
while IFS=: read -r file line include; do
    seen=$((seen + 1))
    folder=${file%%/*}
    name=${include#*\"}
    name=${name%%\"*}
    case $name in
        */*) layer=${name%%/*} ;;
        *) layer=${owner[$name]:-} ;;
    esac
    if [ -z "$layer" ]; then
        echo "$file:$line: \"$name\" is neither a public header nor \"folder/name.hpp\""
        bad=1
    elif [[ " ${below[$folder]} " != *" $layer "* ]]; then
        echo "$file:$line: $folder must not include $layer (\"$name\")"
        bad=1
    fi
done < <(grep -nE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' -r "${!below[@]}" \
    --include='*.cpp' --include='*.hpp' --include='*.h')

[ "$seen" -gt 0 ] || { echo "check_layers: no include found below $PWD"; exit 1; }
[ $bad = 0 ] && echo "check_layers: $seen includes, all downwards"
exit $bad
