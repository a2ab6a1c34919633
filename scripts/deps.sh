#!/usr/bin/env bash
# Installs the Debian packages the project needs, only those that are missing.
# Usage: scripts/deps.sh [build|test|bench|fuzz|web|package]...   (default: build)
# (package: what scripts/package.sh and scripts/install_test.sh need)
set -euo pipefail

want=(cmake g++ make pkg-config libsqlite3-dev libjson-c-dev libcurl4-openssl-dev
      libgtest-dev libgmock-dev sqlite3 libssl-dev zlib1g-dev)
for group in "$@"; do
  case "$group" in
    package) want+=(pandoc dpkg-dev file lintian man-db) ;;
    build) ;;
    test) want+=(curl lighttpd msmtp python3 python3-aiosmtpd clang libclang-rt-14-dev time
                 chromium chromium-driver python3-selenium p7zip-full unzip) ;;
    bench) want+=(hyperfine time sqlite3 gawk lighttpd curl python3) ;;
    fuzz) want+=(clang libclang-rt-14-dev) ;;
    web) want+=(lighttpd curl) ;;
    *) echo "deps.sh: unknown group $group" >&2; exit 2 ;;
  esac
done

missing=()
for p in "${want[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}" >&2
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq >/dev/null
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
