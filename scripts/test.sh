#!/usr/bin/env bash
# Builds everything and runs the whole test suite: the normal build, the same
# suite under AddressSanitizer + UndefinedBehaviorSanitizer, and a short fuzz
# smoke run from the committed seed corpus, and the install test (the Debian
# package unpacked and run, lintian; scripts/install_test.sh runs it alone).
# SLT_QUICK=1 runs the normal build only (for a quick local check).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/deps.sh build test fuzz package
jobs=$(nproc 2>/dev/null || echo 2)

echo "== every shell script parses" >&2
for script in scripts/*.sh bench/*.sh fuzz/*.sh .ci/run; do
  bash -n "$script" || { echo "$script does not parse" >&2; exit 1; }
done

echo "== build and test" >&2
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$jobs"
mkdir -p build
(cd build && ctest --output-on-failure -j"$jobs") | tee build/ctest.log

summary() {
  # One closing line over every ctest run: "N passed, N failed".
  local total=0 failed=0 t f
  for log in "$@"; do
    read -r t f < <(sed -n 's/.*tests passed, \([0-9]*\) tests failed out of \([0-9]*\).*/\2 \1/p' "$log" | tail -1)
    total=$((total + ${t:-0})); failed=$((failed + ${f:-0}))
  done
  echo "summary: $((total - failed)) passed, $failed failed"
}

# The README's first command, as a newcomer runs it: a broken demo fails the run.
echo "== the demo" >&2
scripts/demo.sh >build/demo.log 2>&1 || { tail -n 40 build/demo.log >&2; echo "scripts/demo.sh failed" >&2; exit 1; }

if [ "${SLT_QUICK:-0}" = 1 ]; then summary build/ctest.log; exit 0; fi

echo "== build and test with AddressSanitizer and UndefinedBehaviorSanitizer" >&2
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DSLT_SANITIZE=ON >/dev/null
cmake --build build-asan -j"$jobs"
(cd build-asan && ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 \
   UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 ctest --output-on-failure -j"$jobs") | tee build-asan/ctest.log

echo "== fuzz smoke run" >&2
fuzz/run.sh 3

echo "== install test: package, installed programs, lintian" >&2
scripts/install_test.sh

summary build/ctest.log build-asan/ctest.log
