#!/bin/bash
# check_m32.sh [CTEST-OPTION...] - builds the library for 32-bit x86, where a list entry is exactly
# three words, and runs the unit tests there; under CI=true those of what depends on the processor.
# Debian has no 32-bit GoogleTest: it is built from its sources first. Exit status 0 also when the
# compiler cannot be installed; a line says so.
set -euo pipefail
cd "$(dirname "$0")/.."

if ! scripts/install_packages.sh build test m32; then
    echo "check_m32: NOT CHECKED: no 32-bit compiler or tests here"
    exit 0
fi
. scripts/compiler_cache.sh
jobs=$(nproc)
# <asm/...> is found where the 64-bit compiler has it.
m32="-m32 -idirafter /usr/include/x86_64-linux-gnu"
flags=(-DCMAKE_BUILD_TYPE=Debug "-DCMAKE_C_FLAGS=$m32" "-DCMAKE_CXX_FLAGS=$m32 -D_GLIBCXX_ASSERTIONS")

gtest=$PWD/build-m32/googletest
if [ ! -e "$gtest/lib/libgtest.a" ]; then
    cmake -S /usr/src/googletest -B build-m32/googletest-build "${flags[@]}" -DBUILD_GMOCK=OFF \
        -DCMAKE_INSTALL_PREFIX="$gtest" -DCMAKE_INSTALL_LIBDIR=lib >/dev/null
    cmake --build build-m32/googletest-build --target install --parallel "$jobs" >/dev/null
fi
cmake -S . -B build-m32 "${flags[@]}" -DCMAKE_CXX_FLAGS_DEBUG= -DOVRMAIL_BUILD_TESTS=ON \
    -DOVRMAIL_BUILD_EXAMPLES=OFF -DCMAKE_PREFIX_PATH="$gtest" >/dev/null
# Without what does not depend on the width of a word: real servers, a machine in trouble.
target=all
chosen=(--exclude-regex '^(e2e_|demo|surroundings)')
if [ "${CI:-}" = true ]; then
    target=processor_tests
    chosen=(--label-regex '^processor$')
fi
cmake --build build-m32 --parallel "$jobs" --target $target
ctest --test-dir build-m32 --output-on-failure --no-tests=error --parallel "$jobs" \
    "${chosen[@]}" "$@" </dev/null
