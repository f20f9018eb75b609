#!/bin/bash
# demo.sh - shows the library at work: builds it, sends one mail with a Japanese subject, a Japanese
# text and a binary attachment to a small receiver on the loopback, and prints what happened.
# Leaves the machine as it was. Exit status 0 only when what arrived is what was sent.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_packages.sh demo || {
    echo "demo: cannot run without these packages" >&2
    exit 1
}
echo "demo: building the library (build/libovrmail.so)"
if ! { cmake --preset release && cmake --build --preset release --parallel "$(nproc)" \
    --target ovrmail send_one_mail; } >build.log.$$ 2>&1; then
    cat build.log.$$ >&2
    rm -f build.log.$$
    echo "demo: the build failed" >&2
    exit 1
fi
rm -f build.log.$$

# Directories that are missing, outermost first: where the real ones are used, they go again.
missing=()
for dir in /etc/opt /etc/opt/Quorvin /var/opt /var/opt/Quorvin /var/opt/Quorvin/{tmp,tmp2,log}; do
    [ -d "$dir" ] || missing+=("$dir")
done
remove_directories() {
    local i
    for ((i = ${#missing[@]} - 1; i >= 0; i--)); do
        rmdir "${missing[i]}" 2>/dev/null || :
    done
}
trap remove_directories EXIT

status=0
tests/support/private_dirs.sh /usr/bin/python3 -B scripts/demo.py build/examples/send_one_mail || status=$?
if [ $status = 77 ]; then
    echo "demo: the library works in /etc/opt, /var/opt and /opt. To leave yours alone the demo needs" >&2
    echo "demo: a mount namespace: run it as root, or where user namespaces are allowed" >&2
fi
exit $status
