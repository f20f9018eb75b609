#!/bin/sh
# private_dirs.sh COMMAND... - runs COMMAND in a mount namespace of its own, in which temporary
# directories lie over /etc/opt, /var/opt and /opt. The product's real paths are thus used as
# shipped, and the machine stays as it was.
# Without the right to make a namespace: as root the real directories are used, with a word about
# it; as another user the command is skipped (exit status 77, which ctest reports as skipped).
set -eu

inside='
for dir in /etc/opt /var/opt /opt; do
    mkdir -p "$dir" 2>/dev/null || :
    mount -t tmpfs -o mode=0755 tmpfs "$dir"
done
mkdir -p /etc/opt/Quorvin /var/opt/Quorvin/tmp /var/opt/Quorvin/tmp2 /var/opt/Quorvin/log
OVRMAIL_PRIVATE_DIRS=1 exec "$@"'

case $(realpath "$(command -v "$1")") in
/opt/* | /etc/opt/* | /var/opt/*)
    echo "private_dirs: $1 lies where the private directories go; skipped" >&2
    exit 77
    ;;
esac

if [ "${OVRMAIL_PRIVATE_DIRS:-}" = 1 ]; then
    exec "$@"
elif [ "$(id -u)" = 0 ] && unshare --mount true 2>/dev/null; then
    exec unshare --mount sh -euc "$inside" sh "$@"
elif unshare --user --map-root-user --mount true 2>/dev/null; then
    exec unshare --user --map-root-user --mount sh -euc "$inside" sh "$@"
elif [ "$(id -u)" = 0 ]; then
    echo "private_dirs: no mount namespace here; using the real /etc/opt, /var/opt and /opt" >&2
    mkdir -p /etc/opt/Quorvin /var/opt/Quorvin/tmp /var/opt/Quorvin/tmp2 /var/opt/Quorvin/log
    exec "$@"
else
    echo "private_dirs: neither root nor a user namespace; skipped: $*" >&2
    exit 77
fi
