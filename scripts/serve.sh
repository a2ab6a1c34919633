#!/usr/bin/env bash
# Serves the demo appliance (build/demo-root) to a browser: lighttpd with
# share.cgi on a free port of 127.0.0.1, until Ctrl-C. Runs scripts/demo.sh
# first when the demo appliance or share.cgi is missing.
# Usage: scripts/serve.sh [1|0]   (X-Sendfile, default 1)
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/web.sh

if [ ! -d build/demo-root ] || [ ! -x build/share.cgi ]; then
  echo "serve.sh: no demo appliance yet, running scripts/demo.sh first" >&2
  scripts/demo.sh >/dev/null
fi
scripts/deps.sh web

trap 'web_stop; exit 0' INT TERM
web_start "$PWD/build/demo-web" "$PWD/build/demo-root" "${1:-1}"
base="http://127.0.0.1:$WEB_PORT/share.cgi?ssid="
cat <<MSG
Serving build/demo-root at http://127.0.0.1:$WEB_PORT/ (logs in build/demo-web).
Open in a browser:
  ${base}Lk1Rep0rtQ3    a file
  ${base}LkPublicDir    a folder
  ${base}LkCodeLimit    a file behind access code 2468 (the demo used up its 2 downloads)
  ${base}LkExpired00    an expired link
Ctrl-C stops the server.
MSG
wait "$WEB_PID" || true
