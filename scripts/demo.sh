#!/usr/bin/env bash
# Builds ShareLinkTool, makes a small demo appliance in build/demo-root and
# runs the tool's modes on it, showing what each step changes.
# Each step is a small function; main() at the bottom lists them in order.
set -euo pipefail
cd "$(dirname "$0")/.."

BUILD=build
ROOT="$PWD/$BUILD/demo-root"
TOOL="$PWD/$BUILD/ShareLinkTool"
CTL="$PWD/$BUILD/sharelinkctl"
REGISTRY=/etc/config/shareFileEx.ini
NOW=$(date +%s)

heading() { printf '\n== %s\n' "$*"; }

# Runs the tool against the demo appliance and shows its exit status.
tool() {
  local status=0
  printf '$ ShareLinkTool'
  printf ' %q' "$@"
  printf '\n'
  SHARELINK_ROOT="$ROOT" "$TOOL" "$@" || status=$?
  printf '(exit status %d)\n' "$status"
}

# Runs the operator's program against the demo appliance.
ctl() {
  SHARELINK_ROOT="$ROOT" "$CTL" "$@"
}

# The registry with its tabs shown as " | ".
show_registry() {
  local file="$ROOT$REGISTRY"
  if [ ! -s "$file" ]; then
    echo "(registry is empty)"
    return
  fi
  sed 's/\t/ | /g' "$file"
}

build_tools() {
  heading "Build"
  scripts/deps.sh build
  cmake -S . -B "$BUILD" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  scripts/deps.sh web
  cmake --build "$BUILD" -j2 --target ShareLinkTool sharelinkctl sharelink_cgi share_cgi >/dev/null
  echo "built $TOOL, $CTL, $BUILD/sharelink.cgi and $BUILD/share.cgi"
}

# Fields of a registry line: id, host, owner, https flag, shared path,
# created, expiry, -, text value, -.
registry_line() {
  printf '%s\t%s\tadmin\t%s\t%s\t%s\t%s\t0\t%s\t-\n' "$1" "$2" "$3" "$4" "$((NOW - 86400))" "$5" "$6"
}

make_appliance() {
  heading "Demo appliance in $ROOT"
  rm -rf "$ROOT"
  mkdir -p "$ROOT/etc/config" "$ROOT/tmp" "$ROOT/share/Public/Reports" "$ROOT/share/Multimedia"
  cat >"$ROOT/etc/config/Korvix.conf" <<'CONF'
[System]
Web Access Port = 8080

[Stunnel]
Port = 443
CONF
  cat >"$ROOT/etc/config/smb.conf" <<'CONF'
[Public]
path = /share/Public
CONF
  echo "quarterly figures" >"$ROOT/share/Public/Reports/q3.pdf"
  echo "holiday photo" >"$ROOT/share/Multimedia/beach.jpg"
  echo "team notes" >"$ROOT/share/Public/notes.txt"
  {
    registry_line Q7xK2pLm 192.168.1.20 0 /share/Public/Reports/q3.pdf 0 report
    registry_line Zr81WmQa 192.168.1.20 0 /share/Multimedia/beach.jpg "$((NOW + 30 * 86400))" photo
    registry_line Tn40VbEe nas.example.com 1 /share/Public/notes.txt "$((NOW + 7 * 86400))" notes
    registry_line Gh55XcRr 192.168.1.20 0 /share/Public/removed.iso 0 removed-file
    registry_line Ex12PiTu nas.example.com 1 /share/Public/notes.txt "$((NOW - 3600))" expired
  } >"$ROOT$REGISTRY"
  echo "shared files:"
  (cd "$ROOT" && find share -type f | sort | sed 's|^|  /|')
  heading "Registry at the start (Gh55XcRr names a missing file, Ex12PiTu has expired)"
  show_registry
}

demo_refresh() {
  heading "Refresh: any unknown mode only tidies the registry"
  tool 9
  show_registry
}

demo_rewrite() {
  heading "Mode 4: link Q7xK2pLm becomes https on nas.example.com, value 'quarterly', expires in 90 days"
  tool 4 quarterly 1 "https://nas.example.com/share.cgi?ssid=Q7xK2pLm" "$((NOW + 90 * 86400))"
  show_registry
}

demo_delete() {
  heading "Mode 2: delete link Zr81WmQa"
  tool 2 "http://192.168.1.20:8080/share.cgi?ssid=Zr81WmQa"
  show_registry
}

# The store: links of several users made with sharelinkctl, among them an
# expired one, a team-folder link and one whose file is gone.
make_store() {
  heading "Share-link store: links made with sharelinkctl"
  mkdir -p "$ROOT/sbin" "$ROOT/share/Team" "$ROOT/share/Public/old"
  echo "plan" >"$ROOT/share/Team/plan.txt"
  echo "soon gone" >"$ROOT/share/Public/old/draft.txt"
  # The sync service's tool: the real folder of a team-folder address.
  cat >"$ROOT/sbin/mirrasrv_tool" <<'TOOL'
#!/bin/sh
case "$1" in
  -8) printf '/share/Team/%s' "${2#tfx://Team1/}" ;;
  -t) printf '/share/Team' ;;
esac
TOOL
  chmod +x "$ROOT/sbin/mirrasrv_tool"
  ctl init
  local day=$((NOW - 86400))
  ctl add Lk1Rep0rtQ3 /Public/Reports/q3.pdf --creator Mirra:alice --host nas.example.com \
    --link-name "Q3 report" --createtic "$day" --useraddr bob@example.org --fid F1:/Public/Reports/q3.pdf
  ctl add Lk2Exp1red0 /Public/notes.txt --creator Mirra:alice --host nas.example.com \
    --createtic "$day" --expire "$((NOW - 3600))"
  ctl add Lk3TeamPlan tfx://Team1/plan.txt --creator Mirra:alice --host nas.example.com --ssl 1 \
    --link-name plan.txt --createtic "$day"
  ctl add Lk4Draft000 /Public/old/draft.txt --creator Mirra:alice --host nas.example.com \
    --link-name "old draft" --createtic "$day" --recipient carol:carol@example.org
  ctl add Lk5BobNotes /Public/notes.txt --creator Mirra:bob --host nas.example.com --createtic "$day"
  ctl add Lk6CarolQ3x /Public/Reports/q3.pdf --creator carol --host nas.example.com --createtic "$day"
  ctl list | sed 's/\t/ | /g'
}

demo_listing() {
  heading "Mode 3: alice's links (clean-up ran a moment ago, so it waits; the expired link goes)"
  rm "$ROOT/share/Public/old/draft.txt"
  touch "$ROOT/tmp/.kdx_sf_clean_flag"
  HTTP_HOST=nas.example.com:8080 tool 3 -m 6 -s 0 -n 20 -u alice
  heading "Mode 3 again a minute later: the clean-up removed the link whose file is gone"
  rm -f "$ROOT/tmp/.kdx_sf_clean_flag"
  HTTP_HOST=nas.example.com:8080 tool 3 -m 6 -s 0 -n 20 -u alice
}

# Mode 1 through a stand-in sendmail that shows what it was given.
demo_mail() {
  heading "Mode 1: mail links Lk1Rep0rtQ3 and Lk3TeamPlan to two people"
  mkdir -p "$ROOT/usr/sbin" "$ROOT/home/httpd/cgi-bin/html"
  cp data/email.tpl "$ROOT/home/httpd/cgi-bin/html/email.tpl"
  cat >>"$ROOT/etc/config/Korvix.conf" <<'CONF'

[Alert]
SMTP Server = 127.0.0.1
SMTP Enable = 1
Sender = nas@example.com
CONF
  cat >"$ROOT/usr/sbin/sendmail" <<'MTA'
#!/bin/sh
printf -- '--- sendmail'
printf ' %s' "$@"
printf '\n'
cat
printf -- '--- end of message\n'
MTA
  chmod +x "$ROOT/usr/sbin/sendmail"
  HTTP_HOST=nas.example.com:8080 tool 1 2 0 Lk1Rep0rtQ3,Lk3TeamPlan \
    "bob@example.org, carol@example.org" "Shared with you" $'Hello,\nhere are the files.' \
    ---- "" "" "" "alice@example.org"
}

# sharelink.cgi behind lighttpd with the shipped configuration snippet:
# basic authentication with a password file made here.
demo_web() {
  heading "sharelink.cgi behind lighttpd: no credentials, then the administrator's"
  local lighttpd curl
  lighttpd=$(command -v lighttpd || command -v /usr/sbin/lighttpd || true)
  curl=$(command -v curl || true)
  if [ -z "$lighttpd" ] || [ -z "$curl" ]; then
    echo "(lighttpd or curl missing: scripts/deps.sh test installs them)"
    return
  fi
  local web="$ROOT/web" port=$((20000 + RANDOM % 20000))
  local password
  password=$(od -An -N9 -tx1 /dev/urandom | tr -d ' \n')
  mkdir -p "$web/htdocs"
  printf 'admin:%s\n' "$password" >"$web/users"
  chmod 600 "$web/users"
  cat >"$web/lighttpd.conf" <<CONF
server.bind = "127.0.0.1"
server.port = $port
server.document-root = "$web/htdocs"
server.errorlog = "$web/error.log"
var.sharelink_cgi = "$PWD/$BUILD/sharelink.cgi"
var.sharelink_root = "$ROOT"
var.sharelink_userfile = "$web/users"
include "$PWD/data/lighttpd/sharelink-admin.conf"
CONF
  "$lighttpd" -D -f "$web/lighttpd.conf" >"$web/console.log" 2>&1 &
  local pid=$!
  local url="http://127.0.0.1:$port/sharelink.cgi?func=download&path=/Public/notes.txt"
  for _ in $(seq 50); do
    "$curl" -s -o /dev/null "http://127.0.0.1:$port/" && break
    sleep 0.1
  done
  echo "\$ curl '$url'"
  "$curl" -s -o /dev/null -w 'HTTP %{http_code}\n' "$url" || true
  echo "\$ curl -u admin:... '$url'"
  "$curl" -s -u "admin:$password" -w '\n(HTTP %{http_code})\n' "$url" || true
  kill "$pid" 2>/dev/null || true
  wait "$pid" 2>/dev/null || true
}

# One request through lighttpd: the command, then the status, the headers a
# recipient's browser acts on and the size of the body.
fetch() {
  local dir="$PWD/$BUILD/demo-web" code
  printf '$ curl'
  printf ' %q' "$@"
  printf '\n'
  code=$(curl -s -o "$dir/body" -D "$dir/headers" -w '%{http_code}' "$@")
  printf '  -> %s, %s bytes\n' "$code" "$(wc -c <"$dir/body")"
  grep -i '^\(Content-Type\|Content-Disposition\|Cache-Control\|Retry-After\):' "$dir/headers" |
    tr -d '\r' | sed 's/^/     /'
  grep -qi '^Set-Cookie:' "$dir/headers" && echo "     Set-Cookie: (the link's access cookie)"
  return 0
}

# The recipient's side: share.cgi behind the real lighttpd, driven by curl.
demo_recipient() {
  [ -x "$BUILD/share.cgi" ] || return 0
  source scripts/web.sh
  heading "A link with access code 2468 and a limit of 2 downloads, mailed to dave"
  ctl add LkCodeLimit /Public/Reports/q3.pdf --creator Mirra:alice --host nas.example.com \
    --link-name "Q3 report for Dave" --createtic "$NOW" --accesscode 2468 --download-limit 2
  ctl add LkPublicDir /Public --creator Mirra:alice --host nas.example.com --link-name Public \
    --createtic "$NOW"
  HTTP_HOST=nas.example.com:8080 tool 1 1 0 LkCodeLimit "dave@example.org" "Q3 report" \
    $'Hello Dave,\nthe code comes by phone.' ---- "" "" "" "alice@example.org"

  heading "Dave opens the link: lighttpd on 127.0.0.1 runs share.cgi (data/lighttpd/share.conf)"
  web_start "$PWD/$BUILD/demo-web" "$ROOT"
  trap web_stop EXIT
  local link="http://127.0.0.1:$WEB_PORT/share.cgi?ssid=LkCodeLimit" jar="$BUILD/demo-web/jar"
  rm -f "$jar"-*
  fetch "$link"
  heading "A wrong code, then the right one (three visitors enter it, each gets a cookie)"
  # The form carries a token, as a browser posts it back.
  local token
  token=$(curl -s "$link" | sed -n 's/.*name="form_token" value="\([0-9a-f]*\)".*/\1/p')
  fetch -d "form_token=$token&code=1111" "$link"
  local i
  for i in 1 2 3; do
    fetch -c "$jar-$i" -A "visitor-$i" -d "form_token=$token&code=2468" "$link"
  done
  heading "Two visitors download; the third finds the limit of 2 reached"
  for i in 1 2 3; do
    fetch -b "$jar-$i" -A "visitor-$i" "$link&dl=1"
  done
  web_stop
  heading "Mode 3: the link's row now counts 2 downloads"
  HTTP_HOST=nas.example.com:8080 tool 3 -m 6 -s 0 -n 20 -u alice |
    awk '/<log>/ { row = "" } { row = row $0 "\n" } /<\/log>/ && row ~ /LkCodeLimit/ { printf "%s", row }'
  # For scripts/serve.sh: an expired link to open in a browser.
  ctl add LkExpired00 /Public/notes.txt --creator Mirra:alice --host nas.example.com \
    --createtic "$((NOW - 86400))" --expire "$((NOW - 3600))"
  echo
  echo "scripts/serve.sh serves this appliance to a browser."
}

main() {
  build_tools
  make_appliance
  demo_refresh
  demo_rewrite
  demo_delete
  make_store
  demo_listing
  demo_mail
  demo_web
  demo_recipient
}

main "$@"
