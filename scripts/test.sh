#!/usr/bin/env bash
# Builds everything and runs the whole test suite.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/deps.sh build test
jobs=$(nproc 2>/dev/null || echo 2)

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$jobs"
(cd build && ctest --output-on-failure -j"$jobs")
