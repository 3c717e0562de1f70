#!/usr/bin/env bash
# Builds the fuzz targets with libFuzzer, AddressSanitizer and UndefinedBehaviorSanitizer
# (clang), writes their seed corpus with the library's own writers, and runs each target in
# turn for the given time. Stops at the first finding and prints the reproducer's path.
# Usage: scripts/fuzz.sh [seconds-per-target] [target...]   (default 20 s, every target)
# The corpus grows in build-fuzz/corpus/<target> from run to run; findings land in
# build-fuzz/findings/.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-20}
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(Event TimedEventList SubStream ContinuousData ContinuousDataStream EventStream NoteList Chunk Parse Smf)
"$root/scripts/install-deps.sh" clang libclang-rt-14-dev
export CC=clang CXX=clang++
build="$root/build-fuzz"
BUILD_TYPE=RelWithDebInfo "$root/scripts/build.sh" "$build" -DVELA_SANITIZE=address,undefined -DVELA_BUILD_FUZZERS=ON \
  -DVELA_BUILD_TESTS=OFF -DVELA_BUILD_BENCHMARKS=OFF -DVELA_BUILD_TOOLS=OFF
"$build/fuzz/vela_fuzz_seeds" "$build/seeds"
mkdir -p "$build/findings"
for target in "${targets[@]}"; do
  mkdir -p "$build/corpus/$target"
  log="$build/findings/$target.log"
  echo "fuzz: $target for ${seconds}s"
  if ! UBSAN_OPTIONS=print_stacktrace=1 "$build/fuzz/vela_fuzz_$target" -max_total_time="$seconds" -timeout=10 \
      -print_final_stats=1 -artifact_prefix="$build/findings/$target-" \
      "$build/corpus/$target" "$build/seeds/$target" >"$log" 2>&1; then
    tail -n 40 "$log"
    reproducer=$(sed -n 's/.*Test unit written to \(.*\)$/\1/p' "$log" | tail -n 1)
    echo "fuzz: $target found a fault; reproducer: ${reproducer:-(none written, see $log)}" >&2
    exit 1
  fi
  grep -E '^stat::(number_of_executed_units|new_units_added)|cov: ' "$log" | tail -n 3 | sed "s/^/  /"
done
echo "fuzz: no finding"
