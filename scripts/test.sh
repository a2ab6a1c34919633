#!/usr/bin/env bash
# Builds everything and runs the whole test suite: the normal build, the same
# suite under AddressSanitizer + UndefinedBehaviorSanitizer, and a short fuzz
# smoke run from the committed seed corpus.
# SLT_QUICK=1 runs the normal build only (for a quick local check).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/deps.sh build test fuzz
jobs=$(nproc 2>/dev/null || echo 2)

echo "== build and test" >&2
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$jobs"
(cd build && ctest --output-on-failure -j"$jobs")

[ "${SLT_QUICK:-0}" = 1 ] && exit 0

echo "== build and test with AddressSanitizer and UndefinedBehaviorSanitizer" >&2
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DSLT_SANITIZE=ON >/dev/null
cmake --build build-asan -j"$jobs"
(cd build-asan && ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 \
   UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 ctest --output-on-failure -j"$jobs")

echo "== fuzz smoke run" >&2
fuzz/run.sh 3
