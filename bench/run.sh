#!/usr/bin/env bash
# Measures ShareLinkTool on a 100,000-link appliance against the floor of each
# mode (the same work done by hand with plain tools) and prints one table:
# case, median wall time, peak resident memory, the floor's median, the ratio
# tool / floor (medians measured in this one run of the script), the target
# and whether it is met.
#
# Timings come from hyperfine (one warm-up run, each run a whole process, its
# JSON export read back); tool and floor alternate over a few hyperfine
# invocations, and a --prepare step puts back a fresh copy of what the case
# changes before every run. Peak memory comes from GNU time (%M) on one
# more run. Everything happens in bench/out/ (the appliance root is
# bench/out/root); the release build goes to build-release/.
#
# Environment: BENCH_SEED (fixture seed, default 8), BENCH_ROUNDS (hyperfine
# invocations per case, default 3), BENCH_RUNS (timed runs per round of the
# quick cases, default 7), BENCH_SLOW_RUNS (of the slow ones, default 3).
set -euo pipefail
cd "$(dirname "$0")/.."

SRC=$PWD
OUT=$SRC/bench/out
BUILD=$SRC/build-release
SEED=${BENCH_SEED:-8}
ROUNDS=${BENCH_ROUNDS:-3}
RUNS=${BENCH_RUNS:-7}
SLOW_RUNS=${BENCH_SLOW_RUNS:-3}
LINKS=100000
USERS=50
DATA=$OUT/data        # generated rows, registry and command arguments
FIXTURE=$OUT/fixture  # pristine copies of the files the cases change
ROOT=$OUT/root        # the appliance the cases run in
TOOL=$BUILD/ShareLinkTool
CTL=$BUILD/sharelinkctl
FLOOR=$OUT/refresh_floor
REGISTRY=$ROOT/etc/config/shareFileEx.ini
STORE=$ROOT/etc/config/share_link.db
RESTORE=(sh "$SRC/bench/restore.sh" "$FIXTURE" "$ROOT")

export SHARELINK_ROOT=$ROOT
export HTTP_HOST=nas.example.com:8080
unset QUERY_STRING REQUEST_METHOD SHARELINK_DEBUG_LEVEL SHARELINK_DEBUG_FILE || true

ROWS=()  # table rows, tab-separated

note() { printf '%s\n' "$*" >&2; }

# Runs a command with its output in bench/out/last.log, shown only when it fails.
quietly() {
  if ! "$@" >"$OUT/last.log" 2>&1; then
    cat "$OUT/last.log" >&2
    exit 1
  fi
}

# Quotes arguments for hyperfine's command splitting (none contains a quote).
quoted() {
  local a out=""
  for a in "$@"; do out+="'$a' "; done
  printf '%s' "${out% }"
}

build() {
  note "building the release build in build-release/"
  cmake -S . -B "$BUILD" -DCMAKE_BUILD_TYPE=Release -DSLT_TESTS=OFF >/dev/null
  cmake --build "$BUILD" -j2 --target ShareLinkTool sharelinkctl >/dev/null
  mkdir -p "$OUT"
  cc -O2 -Wall -o "$FLOOR" bench/refresh_floor.c
}

# A stand-in platform program that records each start in /tmp/children.log.
stand_in() {
  local file=$ROOT$1
  mkdir -p "$(dirname "$file")"
  {
    echo '#!/bin/sh'
    echo 'echo "$0 $*" >>"$SHARELINK_ROOT/tmp/children.log"'
    printf '%s\n' "$2"
  } >"$file"
  chmod 755 "$file"
}

make_appliance() {
  note "generating the fixture (seed $SEED, $LINKS links, $USERS users)"
  rm -rf "$DATA" "$FIXTURE" "$ROOT"
  mkdir -p "$DATA" "$FIXTURE" "$ROOT/etc/config" "$ROOT/tmp" "$ROOT/home/httpd/cgi-bin/html"
  gawk -v seed="$SEED" -v now="$(date +%s)" -v links="$LINKS" -v users="$USERS" -v out="$DATA" \
    -f bench/fixture.awk

  cat >"$ROOT/etc/config/Korvix.conf" <<'CONF'
[System]
Web Access Port = 8080
External Web Port = 8080
External SSL Port = 443

[Stunnel]
Port = 443

[Alert]
SMTP Server = 127.0.0.1
SMTP Enable = 1
Sender = nas@example.com
CONF
  cat >"$ROOT/etc/config/smb.conf" <<'CONF'
[Public]
path = /share/Public
comment = shared with everyone
CONF
  local u
  for ((u = 0; u < USERS; ++u)); do mkdir -p "$ROOT/share/Public/user$u"; done
  sed "s|^|$ROOT|" "$DATA/files" | xargs touch

  stand_in /usr/bin/nimbo_cli 'case " $* " in *" -6 "*) echo 2001:db8::7 ;; *) echo 203.0.113.7 ;; esac'
  stand_in /usr/sbin/nmcli \
    "echo '{\"ddns1\": {\"enable\": \"1\", \"hostname\": \"nas.ddns.example\", \"ip4\": \"203.0.113.7\"}}'"
  stand_in /usr/sbin/nsh "echo '{\"data\": {\"eth0\": {\"IPv4\": [{\"ip\": \"192.168.1.20\"}], \"IPv6\": []}}}'"
  stand_in /usr/local/bin/nimbo_device_tool "echo '{}'"
  stand_in /sbin/mirrasrv_tool 'echo /share/Public'
  stand_in /usr/sbin/sendmail 'cat >/dev/null'
  if [ -f data/email.tpl ]; then cp data/email.tpl "$ROOT/home/httpd/cgi-bin/html/email.tpl"; fi

  cp "$DATA/registry" "$FIXTURE/shareFileEx.ini"
  cp "$DATA/registry" "$REGISTRY"
  : >"$ROOT/tmp/children.log"
  if make_store; then STORE_OK=1; else STORE_OK=0; note "no store: sharelinkctl init is not there yet"; fi
}

# The store through the store's own schema: the first start makes the tables,
# the rows go in in one transaction, the second start upgrades the file and
# makes the size trigger (made after the rows, so the inserts do not pay for
# it). Besides it, the store as every listing after the first finds it: the
# links that had expired when the fixture was made purged once by the
# listing's own delete statement. The listing cases run on that one, so that
# they measure a listing rather than a one-off delete of thousands of rows.
make_store() {
  "$CTL" init >/dev/null 2>&1 || return 1
  sqlite3 "$STORE" <"$DATA/store.sql"
  "$CTL" init >/dev/null
  cp "$STORE" "$FIXTURE/share_link.db"
  sqlite3 "$STORE" "DELETE FROM SHARELINK_EVENT WHERE expire > 0 AND expire < $(date +%s);"
  cp "$STORE" "$FIXTURE/share_link.listed.db"
}

# The statements of a 20-row page, each after its own .open, as the tool runs
# them.
write_page_floor() {
  local user now where
  user=$(cat "$DATA/page.txt")
  now=$(date +%s)
  where="WHERE creator = 'Mirra:$user' OR creator = 'Mirra:Mirra:$user'"
  {
    echo ".open $STORE"
    echo "SELECT COUNT(*) FROM SHARELINK_EVENT WHERE expire <= $now ;"
    echo ".open $STORE"
    echo "DELETE FROM SHARELINK_EVENT WHERE expire > 0 AND expire < $now;"
    echo ".open $STORE"
    echo "SELECT COUNT(*) FROM SHARELINK_EVENT $where;"
    echo ".open $STORE"
    echo "SELECT * FROM SHARELINK_EVENT $where ORDER BY sharefile  LIMIT 20 OFFSET 0;"
    sqlite3 "$FIXTURE/share_link.listed.db" \
      "SELECT pkey FROM SHARELINK_EVENT $where ORDER BY sharefile LIMIT 20 OFFSET 0;" |
      while read -r key; do
        echo ".open $STORE"
        echo "SELECT COUNT(*) FROM SHARELINK_FID WHERE pkey = '$key' ;"
      done
  } >"$OUT/page_floor.sql"
}

# The floors of modes 2 and 4: the refresh floor, then gawk.
write_edit_floors() {
  local ids
  ids=$(tr ',' '\n' <"$DATA/mode2.txt" | sed 's/.*ssid=//' | paste -sd, -)
  cat >"$OUT/floor_mode2.sh" <<EOF
#!/bin/sh
# The refresh floor, then gawk drops the lines of 100 ids held in a hash.
"$FLOOR" "$ROOT" && exec gawk -F '\t' -v ids='$ids' \\
  'BEGIN { n = split(ids, a, ","); for (i = 1; i <= n; ++i) drop[a[i]] } !(\$1 in drop)' \\
  "$REGISTRY" >"$REGISTRY.awk"
EOF
  cat >"$OUT/floor_mode4.sh" <<EOF
#!/bin/sh
# The refresh floor, then gawk rewrites the fields of one line.
"$FLOOR" "$ROOT" && exec gawk -F '\t' -v OFS='\t' -v id='$MODE4_ID' \\
  '\$1 == id { \$4 = "1"; \$9 = "bench"; \$2 = "nas.example.com"; \$7 = "$MODE4_EXPIRE" } 1' \\
  "$REGISTRY" >"$REGISTRY.awk"
EOF
}

# hyperfine over the tool and its floor, each with its own --prepare, in
# ROUNDS invocations that alternate the two, so that a change in the
# machine's load falls on both; the medians are taken over the times of all
# rounds (read from the JSON exports).
# Usage: measure NAME RUNS "tool prepare" "tool command" "floor prepare" "floor command"
# Sets TOOL_MS and FLOOR_MS (medians in milliseconds).
measure() {
  local name=$1 runs=$2 round
  mkdir -p "$OUT/json"
  rm -f "$OUT/json/$name".*.json
  for ((round = 1; round <= ROUNDS; ++round)); do
    quietly hyperfine -N --warmup 1 --runs "$runs" --export-json "$OUT/json/$name.$round.json" \
      --prepare "$3" --prepare "$5" -n tool -n floor "$4" "$6"
  done
  read -r TOOL_MS FLOOR_MS < <(medians "$OUT/json/$name".*.json)
}

# The median run time of "tool" and of "floor" over hyperfine JSON exports,
# in milliseconds ("-" for a command that is not there).
medians() {
  gawk '
    /"command":/ { cmd = $0 ~ /"tool"/ ? "tool" : "floor" }
    /"times": *\[/ { in_times = 1; sub(/.*\[/, "") }
    in_times {
      n = split($0, parts, /[^0-9.eE+-]+/)
      for (i = 1; i <= n; ++i) if (parts[i] != "") times[cmd][++count[cmd]] = parts[i] * 1000
      if ($0 ~ /\]/) in_times = 0
    }
    function median(cmd,   n, sorted) {
      if (!(cmd in count)) return "-"
      n = asort(times[cmd], sorted)
      return n % 2 ? sorted[(n + 1) / 2] : (sorted[n / 2] + sorted[n / 2 + 1]) / 2
    }
    END { print median("tool"), median("floor") }' "$@"
}

# Peak resident memory of one run, in KiB. Usage: peak_rss item... -- command...
peak_rss() {
  local items=()
  while [ "$1" != "--" ]; do items+=("$1"); shift; done
  shift
  "${RESTORE[@]}" "${items[@]}"
  /usr/bin/time -f %M -o "$OUT/rss.txt" "$@" >/dev/null
  tail -1 "$OUT/rss.txt"
}

# Appends a row. Usage: row CASE TOOL_MS RSS_KIB FLOOR_MS TARGET_RATIO [RSS_LIMIT_MIB]
row() {
  ROWS+=("$(gawk -v c="$1" -v t="$2" -v r="$3" -v f="$4" -v target="$5" -v limit="${6:-}" 'BEGIN {
    ratio = t / f
    met = ratio <= target && (limit == "" || r / 1024 <= limit)
    tgt = "<= " target (limit == "" ? "" : ", RSS <= " limit " MiB")
    printf "%s\t%.1f ms\t%.1f MiB\t%.1f ms\t%.2f\t%s\t%s", c, t, r / 1024, f, ratio, tgt, met ? "yes" : "NO"
  }')")
}

row_text() { ROWS+=("$1"); }

# The registry the tool leaves must be the one its floor leaves.
same_result() {
  local label=$1 floor_file=$2
  shift 2
  "${RESTORE[@]}" registry
  "$@" >/dev/null
  cp "$REGISTRY" "$OUT/tool-result"
  "${RESTORE[@]}" registry
  sh -c "$FLOOR_CMD" >/dev/null
  if ! cmp -s "$OUT/tool-result" "$floor_file"; then
    note "bench: $label: the tool's registry differs from its floor's"
    exit 1
  fi
}

registry_cases() {
  local urls url4
  urls=$(cat "$DATA/mode2.txt")
  url4=$(cat "$DATA/mode4.txt")
  MODE4_ID=${url4##*ssid=}
  MODE4_EXPIRE=$(($(date +%s) + 90 * 86400))
  write_edit_floors

  FLOOR_CMD="$(quoted "$FLOOR" "$ROOT")"
  same_result "refresh" "$REGISTRY" "$TOOL" 9
  FLOOR_CMD="sh $OUT/floor_mode2.sh"
  same_result "mode 2" "$REGISTRY.awk" "$TOOL" 2 "$urls"
  FLOOR_CMD="sh $OUT/floor_mode4.sh"
  same_result "mode 4" "$REGISTRY.awk" "$TOOL" 4 bench 1 "$url4" "$MODE4_EXPIRE"

  local prep
  prep=$(quoted "${RESTORE[@]}" registry)
  note "measuring the refresh"
  measure refresh "$RUNS" "$prep" "$(quoted "$TOOL" 9)" "$prep" "$(quoted "$FLOOR" "$ROOT")"
  row "refresh (mode 9), 100,000 lines" "$TOOL_MS" "$(peak_rss registry -- "$TOOL" 9)" "$FLOOR_MS" 1.3

  note "measuring mode 2"
  measure mode2 "$RUNS" "$prep" "$(quoted "$TOOL" 2 "$urls")" "$prep" "sh $OUT/floor_mode2.sh"
  row "mode 2, 100 URLs (half https)" "$TOOL_MS" "$(peak_rss registry -- "$TOOL" 2 "$urls")" "$FLOOR_MS" 2

  note "measuring mode 4"
  measure mode4 "$RUNS" "$prep" "$(quoted "$TOOL" 4 bench 1 "$url4" "$MODE4_EXPIRE")" \
    "$prep" "sh $OUT/floor_mode4.sh"
  row "mode 4, one link" "$TOOL_MS" \
    "$(peak_rss registry -- "$TOOL" 4 bench 1 "$url4" "$MODE4_EXPIRE")" "$FLOOR_MS" 1.5
}

# Mode 3 is there when a one-row page prints a count.
listing_available() {
  [ "$STORE_OK" = 1 ] || return 1
  "${RESTORE[@]}" listed flag
  local out
  out=$("$TOOL" 3 -m 6 -s 0 -n 1 -u "$(cat "$DATA/page.txt")" 2>/dev/null || true)
  "${RESTORE[@]}" listed
  case $out in *"<count>"*"<data>"*) return 0 ;; *) return 1 ;; esac
}

listing_cases() {
  local page=("$TOOL" 3 -m 6 -s 0 -n 20 -u "$(cat "$DATA/page.txt")")
  if ! listing_available; then
    row_text "mode 3, 20-row page, clean-up throttled	not available"
    row_text "mode 3, clean-up due, nothing to delete	not available"
    return
  fi
  write_page_floor

  note "measuring mode 3 (clean-up throttled)"
  measure page "$RUNS" "$(quoted "${RESTORE[@]}" listed flag)" "$(quoted "${page[@]}")" \
    "$(quoted "${RESTORE[@]}" listed)" "$(quoted sqlite3 :memory: ".read $OUT/page_floor.sql")"
  row "mode 3, 20-row page, clean-up throttled" "$TOOL_MS" \
    "$(peak_rss listed flag -- "${page[@]}")" "$FLOOR_MS" 3

  note "measuring mode 3 (clean-up due)"
  measure cleanup "$SLOW_RUNS" "$(quoted "${RESTORE[@]}" listed noflag)" "$(quoted "${page[@]}")" \
    "$(quoted "${RESTORE[@]}" listed)" "$(quoted sqlite3 "$STORE" "SELECT * FROM SHARELINK_EVENT ORDER BY pkey;")"
  local rss before after
  rss=$(peak_rss listed noflag -- "${page[@]}")
  before=$(sqlite3 "$FIXTURE/share_link.listed.db" "SELECT COUNT(*) FROM SHARELINK_EVENT;")
  after=$(sqlite3 "$STORE" "SELECT COUNT(*) FROM SHARELINK_EVENT;")
  if [ "$before" != "$after" ]; then
    note "bench: the clean-up deleted $((before - after)) links of a store where every path resolves"
    exit 1
  fi
  row "mode 3, clean-up due, nothing to delete" "$TOOL_MS" "$rss" "$FLOOR_MS" 3 32
}

mail_cases() {
  local mail=("$TOOL" 1 20 0 "$(cat "$DATA/mode1.txt")" "ann@mail.example,bob@mail.example,cy@mail.example"
    "Shared files" "Here are the files." "----" "")
  if [ "$STORE_OK" != 1 ]; then
    row_text "mode 1, 20 links to 3 recipients	not available"
    return
  fi
  local rss children mails
  rss=$(peak_rss registry listed children -- "${mail[@]}")
  children=$(wc -l <"$ROOT/tmp/children.log")
  mails=$(grep -c sendmail "$ROOT/tmp/children.log" || true)
  if [ "$mails" -eq 0 ]; then
    row_text "mode 1, 20 links to 3 recipients	not available"
    return
  fi
  note "measuring mode 1"
  local round
  rm -f "$OUT/json/mail".*.json
  for ((round = 1; round <= ROUNDS; ++round)); do
    quietly hyperfine -N --warmup 1 --runs "$SLOW_RUNS" --export-json "$OUT/json/mail.$round.json" \
      --prepare "$(quoted "${RESTORE[@]}" registry listed children)" -n tool "$(quoted "${mail[@]}")"
  done
  local ms
  read -r ms _ < <(medians "$OUT/json/mail".*.json)
  row_text "$(gawk -v t="$ms" -v r="$rss" -v c="$children" -v m="$mails" 'BEGIN {
    printf "mode 1, 20 links to 3 recipients\t%.1f ms\t%.1f MiB\t-\t-\treport only: %d child processes (%d sendmail)\t-",
      t, r / 1024, c, m }')"
}

print_table() {
  printf '\nShareLinkTool %s, seed %s, %s rounds of %s timed runs (%s for the slow cases), load average %s\n' \
    "$(git -C "$SRC" describe --always --dirty 2>/dev/null || echo '?')" "$SEED" "$ROUNDS" "$RUNS" "$SLOW_RUNS" \
    "$(cut -d' ' -f1-3 /proc/loadavg)"
  {
    printf 'case\tmedian\tpeak RSS\tfloor\tratio\ttarget\tmet\n'
    printf '%s\n' "${ROWS[@]}"
  } | gawk -F '\t' '{ for (i = 1; i <= NF; ++i) { cell[NR, i] = $i; if (length($i) > w[i]) w[i] = length($i) }
                    nf[NR] = NF }
        END { for (r = 1; r <= NR; ++r) { line = ""
                for (i = 1; i <= nf[r]; ++i) line = line sprintf(i < nf[r] ? "%-" w[i] "s  " : "%s", cell[r, i])
                print line } }'
  cat <<'NOTES'

floors: refresh = bench/refresh_floor.c (read, compare field 7, stat field 5 of unexpired lines,
one write, fsync, rename, folder flush);
mode 2 / mode 4 = that floor, then gawk (100 ids in a hash / one line rewritten);
mode 3 page = its statements through sqlite3, each after its own .open;
mode 3 clean-up = SELECT * FROM SHARELINK_EVENT ORDER BY pkey through sqlite3.
Child processes of mode 1 are counted by the stand-in programs, each of which
appends a line to /tmp/children.log of the appliance.
NOTES
}

main() {
  scripts/deps.sh build bench
  build
  make_appliance
  listing_cases
  registry_cases
  mail_cases
  print_table
}

main "$@"
