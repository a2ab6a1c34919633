#!/usr/bin/env bash
# Builds the Debian package: build/sharelink_<version>_<arch>.deb.
# The programs, manual pages and templates come from the install rules; the
# runtime dependencies are computed by dpkg-shlibdeps.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/deps.sh build package
jobs=$(nproc 2>/dev/null || echo 2)

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$jobs" >&2
rm -f build/sharelink_*.deb
if ! (cd build && cpack -G DEB) >build/cpack.log 2>&1; then cat build/cpack.log >&2; exit 1; fi
deb=$(ls build/sharelink_*.deb)
echo "$deb"
