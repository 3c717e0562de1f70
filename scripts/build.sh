#!/usr/bin/env bash
# Configures and builds into a folder.
# Usage: scripts/build.sh [build-dir] [extra cmake args...] [-- extra build args, e.g. --target X]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=${1:-$root/build}
shift || true
configure=() build=()
while [ $# -gt 0 ] && [ "$1" != "--" ]; do configure+=("$1"); shift; done
[ $# -gt 0 ] && shift && build=("$@")
launcher=(); command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$dir" "${launcher[@]}" -DCMAKE_BUILD_TYPE=${BUILD_TYPE:-RelWithDebInfo} -DVELA_WERROR=ON "${configure[@]}" >/dev/null
cmake --build "$dir" -j"$(nproc)" "${build[@]}"
