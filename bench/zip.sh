#!/usr/bin/env bash
# Zip throughput against a static download, through the same lighttpd:
# share.cgi?zip=1 of a 2 GiB folder (16 files of 128 MiB) versus the static
# download of one 2 GiB file. Files are sparse (no disk used), both runs read
# the same amount of file data, each transfer goes to /dev/null with curl.
# Prints both rates and their ratio (target: zip >= 0.7 x static), from
# hyperfine medians of this one run, and share.cgi's peak RSS (GNU time).
# "zip" is a folder zipped before, whose files' CRCs share.cgi has kept, so
# their bytes are spliced; "zip-first" touches the files before every run,
# so each CRC is summed from bytes read and written by share.cgi.
# The relay case is the ceiling of any CGI answer on this server: a CGI that
# only runs cat on the 2 GiB file, so lighttpd relays the same bytes from a
# pipe; zip/relay says how much of that ceiling the zip reaches.
# Uses build/ (the normal build); BENCH_RUNS timed runs each (default 3).
set -euo pipefail
cd "$(dirname "$0")/.."
SRC=$PWD
OUT=$SRC/bench/out/zip
ROOT=$OUT/root
RUNS=${BENCH_RUNS:-3}
scripts/deps.sh bench test >/dev/null
[ -x build/share.cgi ] || { echo "zip.sh: build first (cmake --build build)" >&2; exit 2; }

rm -rf "$OUT"
mkdir -p "$ROOT/etc/config" "$ROOT/tmp" "$ROOT/share/VOL1/Public/Folder" "$OUT/htdocs" "$OUT/logs"
trap 'kill "$(cat "$OUT/pid" 2>/dev/null)" 2>/dev/null || true; rm -rf "$OUT/htdocs" "$ROOT/share"' EXIT
export SHARELINK_ROOT=$ROOT
printf '[Public]\npath = /share/VOL1/Public\n' >"$ROOT/etc/config/smb.conf"
build/sharelinkctl init >/dev/null
build/sharelinkctl add BenchZip /Public/Folder --creator admin >/dev/null
for i in $(seq -w 1 16); do truncate -s 128M "$ROOT/share/VOL1/Public/Folder/part$i.bin"; done
truncate -s 2G "$OUT/htdocs/whole.bin"

cat >"$OUT/measure.cgi" <<SH
#!/bin/sh
/usr/bin/time -f %M -a -o "$OUT/rss" "$SRC/build/share.cgi"
SH
chmod +x "$OUT/measure.cgi"
cat >"$OUT/relay.cgi" <<SH
#!/bin/sh
printf 'Content-Type: application/octet-stream\r\nContent-Length: %s\r\n\r\n' "\$(stat -c %s "$OUT/htdocs/whole.bin")"
exec cat "$OUT/htdocs/whole.bin"
SH
chmod +x "$OUT/relay.cgi"
port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
cat >"$OUT/lighttpd.conf" <<CONF
server.modules = ("mod_alias", "mod_setenv", "mod_cgi")
server.bind = "127.0.0.1"
server.port = $port
server.document-root = "$OUT/htdocs"
server.errorlog = "$OUT/logs/error.log"
server.stream-response-body = 2
server.chunkqueue-chunk-sz = 65536
alias.url = ("/share.cgi" => "$OUT/measure.cgi", "/relay.cgi" => "$OUT/relay.cgi")
cgi.assign = (".cgi" => "")
setenv.add-environment = ("SHARELINK_ROOT" => "$ROOT")
CONF
lighttpd -D -f "$OUT/lighttpd.conf" & echo $! >"$OUT/pid"
for _ in $(seq 50); do curl -s -o /dev/null "http://127.0.0.1:$port/" && break; sleep 0.1; done

zip_url="http://127.0.0.1:$port/share.cgi?ssid=BenchZip&zip=1"
static_url="http://127.0.0.1:$port/whole.bin"
relay_url="http://127.0.0.1:$port/relay.cgi"
zip_bytes=$(curl -s -A bench -o /dev/null -w '%{size_download}' "$zip_url")
static_bytes=$(curl -s -o /dev/null -w '%{size_download}' "$static_url")
# CRCs are kept only for files unchanged for a few seconds.
sleep 3
parts=$(echo "$ROOT"/share/VOL1/Public/Folder/part*.bin)
hyperfine -N -w 1 -r "$RUNS" --export-json "$OUT/zip.json" \
  --prepare true --prepare "touch $parts" --prepare true --prepare true \
  -n zip "curl -sf -A bench -o /dev/null $zip_url" \
  -n zip-first "curl -sf -A bench -o /dev/null $zip_url" \
  -n static "curl -sf -o /dev/null $static_url" \
  -n relay "curl -sf -o /dev/null $relay_url" >"$OUT/hyperfine.txt"
python3 - "$OUT/zip.json" "$zip_bytes" "$static_bytes" "$OUT/rss" <<'PY'
import json, sys
res = {r["command"]: r["median"] for r in json.load(open(sys.argv[1]))["results"]}
zb, sb = int(sys.argv[2]), int(sys.argv[3])
rz, rs, rr = zb / res["zip"] / 2**20, sb / res["static"] / 2**20, sb / res["relay"] / 2**20
rf = zb / res["zip-first"] / 2**20
rss = max(int(l) for l in open(sys.argv[4]) if l.strip().isdigit())
print("case    bytes        median s  MiB/s")
print("zip     %-12d %-9.2f %.0f" % (zb, res["zip"], rz))
print("first   %-12d %-9.2f %.0f" % (zb, res["zip-first"], rf))
print("static  %-12d %-9.2f %.0f" % (sb, res["static"], rs))
print("relay   %-12d %-9.2f %.0f" % (sb, res["relay"], rr))
print("ratio zip/static %.2f (target >= 0.70: %s); first/static %.2f; relay/static %.2f; "
      "share.cgi peak RSS %d KiB"
      % (rz / rs, "met" if rz / rs >= 0.7 else "NOT met", rf / rs, rr / rs, rss))
PY
