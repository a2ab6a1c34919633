#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (ASan + UBSan) and runs each for
# SECONDS (default 60), starting from the committed seed corpus in
# fuzz/corpus/<target>. New inputs go to fuzz/out/<target>; a crash stops the
# run with its input saved in fuzz/out/.
# Usage: fuzz/run.sh [SECONDS] [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true

scripts/deps.sh build fuzz
cmake -S . -B build-fuzz -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=Debug -DSLT_TESTS=OFF -DSLT_FUZZ=ON >/dev/null
cmake --build build-fuzz -j"$(nproc 2>/dev/null || echo 2)" >/dev/null

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for f in build-fuzz/fuzz/*_fuzzer; do targets+=("$(basename "$f" _fuzzer)"); done
fi
for t in "${targets[@]}"; do
  corpus=fuzz/corpus/$t
  out=fuzz/out/$t
  mkdir -p "$corpus" "$out"
  echo "fuzz: $t for ${seconds}s" >&2
  build-fuzz/fuzz/${t}_fuzzer -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -artifact_prefix="fuzz/out/${t}-" -print_final_stats=1 "$out" "$corpus" 2>fuzz/out/$t.log \
    || { echo "fuzz: $t FAILED, see fuzz/out/$t.log" >&2; tail -40 fuzz/out/$t.log >&2; exit 1; }
  grep -E '^stat::number_of_executed_units' fuzz/out/$t.log | sed "s/^/fuzz: $t /" >&2 || true
done
echo "fuzz: all ${#targets[@]} targets ran clean" >&2
