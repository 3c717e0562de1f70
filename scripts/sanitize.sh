#!/usr/bin/env bash
# Builds and runs all tests with AddressSanitizer + UndefinedBehaviorSanitizer (clang),
# then the cross-thread tests with ThreadSanitizer.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh" clang libclang-rt-14-dev
export CC=clang CXX=clang++
BUILD_TYPE=Debug "$root/scripts/build.sh" "$root/build-asan" -DVELA_SANITIZE=address,undefined -DVELA_BUILD_BENCHMARKS=OFF
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir "$root/build-asan" --output-on-failure -j"$(nproc)"
# Only the programs holding cross-thread tests (named *Thread* or *Concurr*) are built here.
tsan_targets=(--target OrbiTrace)
for f in $(grep -lE '^(TEST|TEST_F|TEST_P)\(.*(Thread|Concurr)' -r "$root/tests" --include='*_test.cpp'); do
  tsan_targets+=(--target "$(basename "$(dirname "$f")")_$(basename "$f" .cpp)")
done
BUILD_TYPE=RelWithDebInfo "$root/scripts/build.sh" "$root/build-tsan" -DVELA_SANITIZE=thread -DVELA_BUILD_BENCHMARKS=OFF \
  -- "${tsan_targets[@]}"
TSAN_OPTIONS=halt_on_error=1 ctest --test-dir "$root/build-tsan" --output-on-failure -j"$(nproc)" -R 'Thread|Concurr'
