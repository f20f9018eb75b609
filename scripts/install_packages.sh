#!/bin/bash
# install_packages.sh GROUP... - installs the Debian packages of the named groups that are missing,
# as root or through sudo, without a question. The mail servers of group "e2e" are installed but
# neither configured, started nor enabled: the tests run instances of their own.
# Exit status 0 when every package is there; else 1, with the reason and the command to run by hand.
set -euo pipefail

declare -A groups=(
    [build]="g++ cmake make"
    [test]="g++ cmake make ninja-build binutils libgtest-dev locales python3 util-linux"
    [check]="clang-format clang-tidy git shellcheck"
    [analysis]="cppcheck git mypy"
    [coverage]="gcovr"
    [bench]="g++ cmake make pkg-config python3 python3-matplotlib strace util-linux
             libmodpbase64-dev libbenchmark-dev libcurl4-gnutls-dev libesmtp-dev libetpan-dev
             libvmime-dev libpoco-dev msmtp libssl-dev liblttng-ust-dev lttng-tools libinih-dev
             libglib2.0-dev"
    [e2e]="postfix dovecot-core dovecot-pop3d python3 mpack openssl strace locales btrfs-progs
           stunnel4 libsasl2-modules"
    [package]="build-essential debhelper dpkg-dev dh-python libgmime-3.0-dev pkgconf"
    [users]="python3 mandoc lintian pkg-config dpkg-dev gzip rpm libgmime-3.0-dev"
    [demo]="g++ cmake make python3"
    [m32]="g++-12-multilib"  # g++-multilib excludes the compilers of the ports
    [ports]="cmake make googletest qemu-user"
    [port-arm64]="g++-aarch64-linux-gnu"
    [port-armhf]="g++-arm-linux-gnueabihf"
    [port-s390x]="g++-s390x-linux-gnu"
    [clang]="clang"
    [fuzz]="clang libclang-rt-14-dev"
    [abi]="abigail-tools"
    [valgrind]="valgrind libc6-dbg"
)

usage() {
    echo "usage: install_packages.sh GROUP...   groups: ${!groups[*]}" >&2
    exit 2
}

fail() {
    echo "install_packages: $1" >&2
    echo "install_packages: by hand: apt-get install --no-install-recommends ${missing[*]}" >&2
    exit 1
}

is_installed() {
    [ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# Sets missing[] to the packages of the groups that are not installed, each once.
find_missing() {
    local group package
    local -A seen=()
    missing=()
    for group in "$@"; do
        [ -n "${groups[$group]:-}" ] || usage
        for package in ${groups[$group]}; do
            [ -z "${seen[$package]:-}" ] || continue
            seen[$package]=1
            is_installed "$package" || missing+=("$package")
        done
    done
}

# While packages are set up, no service may start: policy-rc.d says so, and what was there before
# comes back afterwards.
policy=/usr/sbin/policy-rc.d
forbid_services() {
    if [ -e "$policy" ] || [ -L "$policy" ]; then
        "${as_root[@]}" mv "$policy" "$policy.ovrmail"
    fi
    trap restore_services EXIT
    printf '#!/bin/sh\nexit 101\n' | "${as_root[@]}" tee "$policy" >/dev/null
    "${as_root[@]}" chmod 755 "$policy"
}
restore_services() {
    "${as_root[@]}" rm -f "$policy"
    if [ -e "$policy.ovrmail" ] || [ -L "$policy.ovrmail" ]; then
        "${as_root[@]}" mv "$policy.ovrmail" "$policy"
    fi
}

# A package, or what comes with it, enables its services for the next boot, for systemd and for init
# scripts alike; the tests start their own instances instead.
boot_links() {
    find /etc/rc?.d /etc/systemd \( -name 'S[0-9][0-9]*' -o -path '*.wants/*' \) 2>/dev/null | sort
}
disable_new_services() {
    local link name
    while read -r link; do
        name=${link##*/}
        case $link in
            /etc/rc*) "${as_root[@]}" update-rc.d "${name:3}" disable ;;
            *) "${as_root[@]}" env DPKG_MAINTSCRIPT_PACKAGE=ovrmail deb-systemd-helper disable "$name" ;;
        esac
    done < <(comm -13 <(echo "$links_before") <(boot_links)) >/dev/null 2>&1 || :
}

apt() {
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=600 \
        -o Dpkg::Use-Pty=0 "$@" </dev/null
}

[ $# -gt 0 ] || usage
find_missing "$@"
[ ${#missing[@]} -gt 0 ] || exit 0
exec 9<"$0"
flock 9 # one at a time
find_missing "$@"
[ ${#missing[@]} -gt 0 ] || exit 0

command -v apt-get >/dev/null || fail "this is no Debian system (no apt-get); missing: ${missing[*]}"
if [ "$(id -u)" = 0 ]; then
    as_root=()
elif command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
    as_root=(sudo -n)
else
    fail "neither root nor sudo without a password; missing: ${missing[*]}"
fi

echo "install_packages: installing ${missing[*]}"
apt update || fail "apt-get update failed"
# --no-remove: a mail server that the machine already has is never thrown out for ours.
if [[ " ${missing[*]} " = *" postfix "* ]]; then
    echo "postfix postfix/main_mailer_type select No configuration" |
        "${as_root[@]}" debconf-set-selections || fail "debconf-set-selections failed"
fi
forbid_services
links_before=$(boot_links)
status=0
apt install --no-install-recommends --no-remove "${missing[@]}" || status=$?
disable_new_services
[ $status = 0 ] || fail "apt-get install failed"
find_missing "$@"
[ ${#missing[@]} -eq 0 ] || fail "still missing: ${missing[*]}"
