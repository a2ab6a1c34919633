#!/usr/bin/env bash
# Measures share.cgi behind lighttpd against the same lighttpd serving the
# same file statically, and prints one table: case, share.cgi's median, the
# static median, the ratio (both measured in this one run) and the target.
#
#   page      a link's page            at most 3x the static 4 KiB request
#   4k        a 4 KiB download         at most 3x the static 4 KiB request
#   1g-xs     a 1 GiB download, X-Sendfile     throughput at least 0.9x static
#   1g-cgi    a 1 GiB download, share.cgi sends it   at least 0.5x static
#   audit-1m  a link's page with 1.2 M rows in the audit trail, at most 1.5x
#             the same page with 20 rows (two appliances, same link)
#   rss-*     share.cgi's peak resident memory (GNU time) on each download,
#             at most 8 MiB
#   xs-left   hand-over links left in share_xsend after the X-Sendfile runs: none
#
# Timings come from hyperfine (each run one curl over 127.0.0.1). Everything lives in
# bench/out/share/; the release build goes to build-release/.
# Environment: BENCH_ROUNDS (hyperfine invocations per small case, default 3),
# BENCH_RUNS (runs per invocation of the small cases, default 15),
# BENCH_BIG_ROUNDS and BENCH_BIG_RUNS (the same for the 1 GiB cases, default
# 7 and 3: one 1 GiB transfer over loopback varies by a third from run to
# run here, so they take turns with the static download more often).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh build bench

SRC=$PWD
OUT=$SRC/bench/out/share
ROOT=$OUT/root
BUILD=$SRC/build-release
RUNS=${BENCH_RUNS:-15}
BIG_RUNS=${BENCH_BIG_RUNS:-3}
ROUNDS=${BENCH_ROUNDS:-3}
BIG_ROUNDS=${BENCH_BIG_ROUNDS:-7}
WEB_CGI_DIR=$BUILD
source scripts/web.sh

cmake -S . -B "$BUILD" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$BUILD" -j2 --target share_cgi sharelinkctl >/dev/null

# The appliance: a 4 KiB and a 1 GiB file, a link to each, no limit.
rm -rf "$OUT"
mkdir -p "$ROOT/etc/config" "$ROOT/tmp" "$ROOT/share/Public"
printf '[Public]\npath = /share/Public\n' >"$ROOT/etc/config/smb.conf"
printf '[System]\nWeb Access Port = 8080\n' >"$ROOT/etc/config/Korvix.conf"
head -c 4096 /dev/urandom >"$ROOT/share/Public/small.bin"
head -c $((1024 * 1024 * 1024)) /dev/zero >"$ROOT/share/Public/big.bin"
ctl() { SHARELINK_ROOT="$ROOT" "$BUILD/sharelinkctl" "$@" >/dev/null; }
ctl init
ctl add LkBenchSmall /Public/small.bin --creator admin --host 127.0.0.1
ctl add LkBenchBig00 /Public/big.bin --creator admin --host 127.0.0.1

# Static copies are hard links: the very same file from the same server.
start() {  # start NAME X_SENDFILE: a server, its static files, its base URL in $NAME
  web_start "$OUT/web-$1" "$ROOT" "$2"
  ln -f "$ROOT/share/Public/small.bin" "$ROOT/share/Public/big.bin" "$OUT/web-$1/htdocs/"
  printf -v "$1" 'http://127.0.0.1:%s' "$WEB_PORT"
  printf -v "$1_pid" '%s' "$WEB_PID"
}
start xs 1
start cgi 0
trap 'kill "$xs_pid" "$cgi_pid" 2>/dev/null || true' EXIT

get='curl -sf -o /dev/null'
# Median seconds of each named command: hyperfine runs them ROUNDS times
# (share.cgi and static take turns), the median of the rounds' medians
# evens out a busy machine. median NAME RUNS ROUNDS -n CASE CMD ...
median() {
  local name="$1" runs="$2" rounds="$3" r
  shift 3
  for r in $(seq "$rounds"); do
    hyperfine -N -w 1 -r "$runs" --export-csv "$OUT/$name-$r.csv" "$@" >/dev/null 2>&1
  done
  gawk -F, 'FNR > 1 { v[FNR - 1] = v[FNR - 1] " " $4; n = FNR - 1 }
    END { for (i = 1; i <= n; i++) { k = split(v[i], a, " "); asort(a); print a[int((k + 1) / 2)] } }' \
    "$OUT/$name"-*.csv
}

rows=()
row() {  # row CASE SHARE STATIC RATIO TARGET OK
  rows+=("$(printf '%-10s %14s %14s %7s  %-12s %s' "$@")")
}
ratio_at_most() {  # ratio_at_most NAME SHARE_S STATIC_S LIMIT: time ratio
  local r
  r=$(awk -v a="$2" -v b="$3" 'BEGIN { printf "%.2f", a / b }')
  row "$1" "$(awk -v a="$2" 'BEGIN { printf "%.2f ms", a * 1000 }')" \
      "$(awk -v a="$3" 'BEGIN { printf "%.2f ms", a * 1000 }')" "$r" "<= $4x" \
      "$(awk -v r="$r" -v l="$4" 'BEGIN { print (r <= l) ? "yes" : "NO" }')"
}
throughput_at_least() {  # NAME SHARE_S STATIC_S LIMIT: throughput ratio
  local r
  r=$(awk -v a="$2" -v b="$3" 'BEGIN { printf "%.2f", b / a }')
  row "$1" "$(awk -v a="$2" 'BEGIN { printf "%.0f MiB/s", 1024 / a }')" \
      "$(awk -v a="$3" 'BEGIN { printf "%.0f MiB/s", 1024 / a }')" "$r" ">= $4x" \
      "$(awk -v r="$r" -v l="$4" 'BEGIN { print (r >= l) ? "yes" : "NO" }')"
}

# Each run is a new visitor (its own User-Agent), so every download counts.
ua='-A "bench-$RANDOM$RANDOM"'
mapfile -t m < <(median small "$RUNS" "$ROUNDS" \
  -n page "$get $xs/share.cgi?ssid=LkBenchSmall" \
  -n 4k "bash -c '$get $ua \"$xs/share.cgi?ssid=LkBenchSmall&dl=1\"'" \
  -n static "$get $xs/small.bin" \
  -n bash-static "bash -c '$get $ua $xs/small.bin'")
ratio_at_most page "${m[0]}" "${m[2]}" 3
# The download's command starts a shell for its User-Agent: so does its static twin.
ratio_at_most 4k "${m[1]}" "${m[3]}" 3
mapfile -t m < <(median big-xs "$BIG_RUNS" "$BIG_ROUNDS" \
  -n 1g-xs "$get $xs/share.cgi?ssid=LkBenchBig00&dl=1" -n static "$get $xs/big.bin")
throughput_at_least 1g-xs "${m[0]}" "${m[1]}" 0.9
# Each of those went through a link in the hand-over folder, and none stays.
xs_dir=$ROOT/etc/config/share_xsend
if [ -d "$xs_dir" ]; then left=$(find "$xs_dir" -mindepth 1 | wc -l); else left="no folder"; fi
row xs-left "$left" - - 0 "$([ "$left" = 0 ] && echo yes || echo NO)"
mapfile -t m < <(median big-cgi "$BIG_RUNS" "$BIG_ROUNDS" \
  -n 1g-cgi "$get $cgi/share.cgi?ssid=LkBenchBig00&dl=1" -n static "$get $cgi/big.bin")
throughput_at_least 1g-cgi "${m[0]}" "${m[1]}" 0.5

# A page view's cost must not grow with the audit trail: two copies of the
# appliance whose access files hold 20 and 1.2 M audit rows (80 days' worth,
# none old enough to prune).
audit_root() {  # audit_root NAME ROWS: an appliance copy, its server's base URL in $NAME
  local r="$OUT/$1-root"
  mkdir -p "$r/tmp" "$r/share/Public"
  cp -a "$ROOT/etc" "$r/"
  rm -f "$r/etc/config/share_link_access.db"*
  ln -f "$ROOT/share/Public/small.bin" "$r/share/Public/"
  web_start "$OUT/web-$1" "$r" 0
  printf -v "$1" 'http://127.0.0.1:%s' "$WEB_PORT"
  audit_pids+=("$WEB_PID")
  $get "http://127.0.0.1:$WEB_PORT/share.cgi?ssid=LkBenchSmall"  # makes the access file
  sqlite3 "$r/etc/config/share_link_access.db" "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL
    SELECT i + 1 FROM n WHERE i < $2) INSERT INTO audit SELECT strftime('%s','now') - 80 * 86400
    + i * 5, 'LkOther' || (i % 5000), '', '10.0.' || (i % 250) || '.' || (i % 200), 'ab12', 'view' FROM n;"
}
audit_pids=()
audit_root a20 19
audit_root a1m 1199999
trap 'kill "$xs_pid" "$cgi_pid" "${audit_pids[@]}" 2>/dev/null || true' EXIT
mapfile -t m < <(median audit "$RUNS" "$ROUNDS" \
  -n audit-1m "$get $a1m/share.cgi?ssid=LkBenchSmall" -n audit-20 "$get $a20/share.cgi?ssid=LkBenchSmall")
r=$(awk -v a="${m[0]}" -v b="${m[1]}" 'BEGIN { printf "%.2f", a / b }')
row audit-1m "$(awk -v a="${m[0]}" 'BEGIN { printf "%.2f ms", a * 1000 }')" \
    "$(awk -v a="${m[1]}" 'BEGIN { printf "%.2f ms (20)", a * 1000 }')" "$r" "<= 1.5x" \
    "$(awk -v r="$r" 'BEGIN { print (r <= 1.5) ? "yes" : "NO" }')"

# Peak memory: share.cgi run as lighttpd runs it, under GNU time; an
# X-Sendfile link is opened as lighttpd opens it, which ends share.cgi's wait.
take_answer() {
  local line
  while IFS= read -r line; do
    line=${line%$'\r'}
    [ -n "$line" ] || break
    case $line in "X-Sendfile: "*) exec 3<"${line#X-Sendfile: }" && exec 3<&- ;; esac
  done
  cat >/dev/null
}
rss() {  # rss NAME X_SENDFILE SSID
  local kb
  env -i PATH="$PATH" SHARELINK_ROOT="$ROOT" SHARE_X_SENDFILE="$2" SHARE_XSEND_FOLDER=/etc/config/share_xsend/ GATEWAY_INTERFACE=CGI/1.1 \
    REQUEST_METHOD=GET QUERY_STRING="ssid=$3&dl=1" REMOTE_ADDR=127.0.0.2 \
    HTTP_USER_AGENT="bench-rss-$1" SCRIPT_NAME=/share.cgi SERVER_NAME=127.0.0.1 \
    SERVER_PORT=80 SERVER_PROTOCOL=HTTP/1.1 \
    /usr/bin/time -f %M -o "$OUT/$1.rss" "$BUILD/share.cgi" | take_answer
  kb=$(tail -1 "$OUT/$1.rss")
  row "$1" "$(awk -v k="$kb" 'BEGIN { printf "%.1f MiB", k / 1024 }')" "-" "-" "<= 8 MiB" \
      "$(awk -v k="$kb" 'BEGIN { print (k <= 8192) ? "yes" : "NO" }')"
}
rss rss-4k 0 LkBenchSmall
rss rss-1g 0 LkBenchBig00
rss rss-1g-xs 1 LkBenchBig00

printf '%-10s %14s %14s %7s  %-12s %s\n' case share.cgi static ratio target met
printf '%s\n' "${rows[@]}"
