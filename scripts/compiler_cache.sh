# shellcheck shell=bash
# compiler_cache.sh - sourced by scripts that build: compilers run through ccache where it is there.
if command -v ccache >/dev/null; then
    export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi
