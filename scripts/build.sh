#!/usr/bin/env bash
# Configures and builds into a folder. Usage: scripts/build.sh [build-dir] [extra cmake args...]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=${1:-$root/build}
shift || true
launcher=(); command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$dir" "${launcher[@]}" -DCMAKE_BUILD_TYPE=${BUILD_TYPE:-RelWithDebInfo} -DVELA_WERROR=ON "$@" >/dev/null
cmake --build "$dir" -j"$(nproc)"
