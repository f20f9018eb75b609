# shellcheck shell=bash
# compiler_cache.sh - sourced by scripts that build: with ninja, and through ccache, where these are
# there.
if command -v ninja >/dev/null; then export CMAKE_GENERATOR=${CMAKE_GENERATOR:-Ninja}; fi
if command -v ccache >/dev/null; then
    export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi
