#!/usr/bin/env bash
# Checks that a host project can use Vela: installs the build to a scratch prefix and builds and
# runs tests/consumer against it with find_package, then again with add_subdirectory of the
# repository. Uses the build folder of scripts/test.sh (built first if missing; another folder
# with VELA_BUILD_DIR=...).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${VELA_BUILD_DIR:-$root/build}
scratch=$(mktemp -d /tmp/vela-consumer.XXXXXX)
trap 'rm -rf "$scratch"' EXIT
launcher=(); command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)

[ -f "$build/CMakeCache.txt" ] || "$root/scripts/build.sh" "$build"
cmake --build "$build" -j"$(nproc)" >/dev/null

echo "== installed package (find_package)"
cmake --install "$build" --prefix "$scratch/prefix" >/dev/null
cmake -S "$root/tests/consumer" -B "$scratch/installed" "${launcher[@]}" -DCMAKE_PREFIX_PATH="$scratch/prefix" >/dev/null
cmake --build "$scratch/installed" -j"$(nproc)" >/dev/null
"$scratch/installed/host"

echo "== source tree (add_subdirectory)"
cmake -S "$root/tests/consumer" -B "$scratch/subdirectory" "${launcher[@]}" -DVELA_SOURCE_DIR="$root" >/dev/null
cmake --build "$scratch/subdirectory" -j"$(nproc)" >/dev/null
"$scratch/subdirectory/host"
echo "consumer check passed"
