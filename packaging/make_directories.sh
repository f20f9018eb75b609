#!/bin/sh
# make-directories - makes the directories that the library uses and never makes itself. The
# packages run it; after "cmake --install" run it once by hand, as root. Logs, traces and working
# files may hold mail text: root alone may write and read, and group adm reads logs. What exists
# already stays as the operator has set it.
set -eu
umask 022

# make MODE DIRECTORY [GROUP]
make() {
    [ ! -d "$2" ] || return 0
    mkdir -m "$1" "$2"
    # A system without that group leaves its logs to root.
    [ -z "${3:-}" ] || chgrp "$3" "$2" 2>/dev/null || :
}

mkdir -p /etc/opt /var/opt
make 0755 /etc/opt/Quorvin
make 0755 /var/opt/Quorvin
make 0700 /var/opt/Quorvin/tmp
make 0700 /var/opt/Quorvin/tmp2
make 0750 /var/opt/Quorvin/log adm
