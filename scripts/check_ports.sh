#!/bin/bash
# check_ports.sh [PORT...] - builds library, tools and tests for other processors with Debian's cross
# compilers, and runs under qemu-user what needs no other program: unit tests, failing calls, a host
# process, the corpus of the fuzzers. PORT is arm64, armhf or s390x; without one, all. Under CI=true
# only s390x, which differs most (big-endian), and only the tests of what depends on the processor.
# Exit status 0 also when the compilers cannot be installed, but not under CI=true; a line says so.
set -euo pipefail
cd "$(dirname "$0")/.."

declare -A triplets=([arm64]=aarch64-linux-gnu [armhf]=arm-linux-gnueabihf [s390x]=s390x-linux-gnu)
if [ $# = 0 ]; then
    set -- s390x
    [ "${CI:-}" = true ] || set -- s390x arm64 armhf
fi
for port in "$@"; do
    [ -n "${triplets[$port]:-}" ] || { echo "check_ports: PORT is one of ${!triplets[*]}" >&2; exit 2; }
done
if ! scripts/install_packages.sh ports "${@/#/port-}"; then
    echo "check_ports: NOT CHECKED: no cross compiler or no qemu-user here"
    [ "${CI:-}" != true ]
    exit
fi
. scripts/compiler_cache.sh
jobs=$(nproc)

# fetch_converters PORT DIR - the iconv modules of PORT's C library, which Debian's cross packages
# lack. apt-get works on lists of its own: the machine gets no foreign architecture.
fetch_converters() {
    local port=$1 dir=$2 apt=$2/apt
    [ ! -d "$dir/gconv" ] || return 0
    rm -rf "$dir"
    mkdir -p "$apt/lists/partial" "$apt/cache/archives/partial"
    : >"$apt/status"
    printf '%s\n' "#clear APT::Architectures;" "APT::Architectures { \"$port\"; };" \
        "APT::Architecture \"$port\";" "APT::Sandbox::User \"\";" "Acquire::Languages \"none\";" \
        "Dir::State \"$apt\";" "Dir::State::status \"$apt/status\";" "Dir::Cache \"$apt/cache\";" \
        >"$apt/apt.conf"
    export APT_CONFIG=$apt/apt.conf
    apt-get -qq update || : # a list that is not needed may be missing
    (cd "$apt" && apt-get -qq download libc6)
    unset APT_CONFIG
    dpkg-deb --fsys-tarfile "$apt"/libc6_*.deb |
        tar -x -C "$dir" --strip-components=4 --wildcards './usr/lib/*/gconv'
    rm -rf "$apt"
}

# Left out: a case that bounds real time, and a storm of signals, under which qemu makes no progress.
slow='Reader.Follows*:Signals.*'
status=0
for port in "$@"; do
    triplet=${triplets[$port]}
    build=$PWD/build-ports/$port
    emulator="qemu-${triplet%%-*};-L;/usr/$triplet"
    target=all
    chosen=(--tests-regex '(_test|_fuzz)$')
    if [ "${CI:-}" = true ]; then
        target=processor_tests
        chosen=(--label-regex '^processor$')
        # Left out, too: what needs converters.
        export GTEST_FILTER="-$slow:Iso2022.EveryPair:CodeSet.*:Reader.*"
    else
        export GTEST_FILTER="-$slow"
        # qemu hands the host's 64-bit places in a directory to a readdir() that holds 32 bits.
        [ "$port" != armhf ] || GTEST_FILTER+=:Files.DirectoriesAreReadAndMade
        fetch_converters "$port" "$build/libc"
        emulator+=";-E;GCONV_PATH=$build/libc/gconv"
    fi
    echo "== $port"
    flags=(-DCMAKE_BUILD_TYPE=Debug -DCMAKE_SYSTEM_NAME=Linux "-DCMAKE_SYSTEM_PROCESSOR=${triplet%%-*}"
        "-DCMAKE_C_COMPILER=$triplet-gcc" "-DCMAKE_CXX_COMPILER=$triplet-g++"
        "-DCMAKE_CXX_FLAGS=-D_GLIBCXX_ASSERTIONS -Wno-psabi"
        -DCMAKE_C_FLAGS_DEBUG= -DCMAKE_CXX_FLAGS_DEBUG=)

    gtest=$build/googletest
    if [ ! -e "$gtest/lib/libgtest.a" ]; then
        cmake -S /usr/src/googletest -B "$build/googletest-build" "${flags[@]}" -DBUILD_GMOCK=OFF \
            -DCMAKE_INSTALL_PREFIX="$gtest" -DCMAKE_INSTALL_LIBDIR=lib >/dev/null
        cmake --build "$build/googletest-build" --target install --parallel "$jobs" >/dev/null
    fi
    # What pkg-config knows belongs to this machine.
    cmake -S . -B "$build" "${flags[@]}" -DOVRMAIL_BUILD_TESTS=ON -DCMAKE_PREFIX_PATH="$gtest" \
        "-DCMAKE_CROSSCOMPILING_EMULATOR=$emulator" \
        -DCMAKE_DISABLE_FIND_PACKAGE_PkgConfig=ON >/dev/null
    cmake --build "$build" --parallel "$jobs" --target $target
    ctest --test-dir "$build" --output-on-failure --no-tests=error --parallel "$jobs" \
        "${chosen[@]}" </dev/null || status=1
done
exit $status
