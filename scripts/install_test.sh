#!/usr/bin/env bash
# Install test: builds the Debian package, unpacks it into a throw-away root
# with `dpkg -x`, installs the build with `cmake --install --prefix` into
# another, and runs the installed programs of each against a temporary
# appliance (SHARELINK_ROOT). Then lintian must find no error in the package.
# Any failure ends the script with a message and status 1.
set -euo pipefail
cd "$(dirname "$0")/.."

deb=$(scripts/package.sh | tail -1)
[ -f "$deb" ] || { echo "install test: no package built" >&2; exit 1; }
version=$(dpkg-deb -f "$deb" Version)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "install test: FAIL: $*" >&2; failures=$((failures + 1)); }
pass() { echo "install test: ok: $*" >&2; }

# A small appliance: a shared folder, a registry with one live and one
# expired line, and the store.
make_appliance() {
  local root=$1 now
  now=$(date +%s)
  mkdir -p "$root/etc/config" "$root/tmp" "$root/share/Public"
  printf '[Public]\npath = /share/Public\n' >"$root/etc/config/smb.conf"
  printf '[System]\nWeb Access Port = 8080\n' >"$root/etc/config/Korvix.conf"
  echo "team notes" >"$root/share/Public/notes.txt"
  printf 'Live0001\tnas\tadmin\t0\t/share/Public/notes.txt\t%s\t0\t0\tlive\t-\n' "$now" \
    >"$root/etc/config/shareFileEx.ini"
  printf 'Gone0001\tnas\tadmin\t0\t/share/Public/notes.txt\t%s\t%s\t0\tgone\t-\n' \
    "$((now - 7200))" "$((now - 3600))" >>"$root/etc/config/shareFileEx.ini"
}

# check_tree NAME PREFIX: the programs installed under PREFIX.
check_tree() {
  local name=$1 prefix=$2 root="$work/root-$1" out status
  make_appliance "$root"
  export SHARELINK_ROOT=$root
  local bin="$prefix/bin" cgi="$prefix/lib/sharelink/cgi-bin" f missing=0

  # Every shipped data file and example snippet is installed as it is.
  while IFS= read -r f; do
    cmp -s "data/$f" "$prefix/share/sharelink/$f" || { fail "$name: share/sharelink/$f missing or different"; missing=1; }
  done < <(cd data && find . -path ./lighttpd -prune -o -type f -printf '%P\n')
  for f in data/lighttpd/*.conf; do
    [ -e "$f" ] || continue
    cmp -s "$f" "$prefix/share/doc/sharelink/examples/${f##*/}" ||
      { fail "$name: example ${f##*/} missing or different"; missing=1; }
  done
  [ "$missing" = 0 ] && pass "$name: templates and examples installed"

  out=$("$bin/sharelinkctl" --version) || true
  [ "$out" = "sharelinkctl $version" ] && pass "$name: sharelinkctl --version is $version" ||
    fail "$name: sharelinkctl --version printed '$out', the package is $version"

  status=0
  "$bin/ShareLinkTool" 9 || status=$?
  if [ "$status" = 0 ] && grep -q '^Live0001' "$root/etc/config/shareFileEx.ini" &&
     ! grep -q '^Gone0001' "$root/etc/config/shareFileEx.ini"; then
    pass "$name: ShareLinkTool refreshed the registry"
  else
    fail "$name: ShareLinkTool 9 (status $status) left the registry as: $(cat "$root/etc/config/shareFileEx.ini")"
  fi

  if "$bin/sharelinkctl" init &&
     "$bin/sharelinkctl" add Inst0Notes /Public/notes.txt --creator Mirra:alice \
       --host nas.example.com --link-name notes; then
    out=$(HTTP_HOST=nas.example.com "$bin/ShareLinkTool" 3 -n 10 -u alice) || true
    case "$out" in
      *'<ssid><![CDATA[Inst0Notes]]></ssid>'*) pass "$name: ShareLinkTool 3 lists the link" ;;
      *) fail "$name: ShareLinkTool 3 printed: $out" ;;
    esac
  else
    fail "$name: sharelinkctl could not make the store"
  fi

  out=$(REMOTE_USER=admin REQUEST_METHOD=GET QUERY_STRING='func=download&path=/Public/notes.txt' "$cgi/sharelink.cgi" | tail -1) || true
  [ "$out" = "team notes" ] && pass "$name: sharelink.cgi sends a file" ||
    fail "$name: sharelink.cgi answered '$out'"

  if [ -x "$cgi/share.cgi" ]; then
    # Mark the installed templates: the page must come from them, not from
    # the source tree the program was built from.
    find "$prefix/share/sharelink" -type f ! -name email.tpl -exec sh -c \
      'echo "<!-- installed-tree -->" >>"$1"' _ {} \;
    out=$(REQUEST_METHOD=GET QUERY_STRING='ssid=Inst0Notes' REMOTE_ADDR=127.0.0.1 \
          HTTP_USER_AGENT=install-test SCRIPT_NAME=/share.cgi "$cgi/share.cgi" 2>&1) || true
    case "$out" in
      *notes.txt*installed-tree*) pass "$name: share.cgi shows the link's page from the installed templates" ;;
      *) fail "$name: share.cgi page: $(printf '%s' "$out" | head -c 600)" ;;
    esac
    out=$(REQUEST_METHOD=GET QUERY_STRING='ssid=Inst0Notes&dl=1' REMOTE_ADDR=127.0.0.1 \
          HTTP_USER_AGENT=install-test SCRIPT_NAME=/share.cgi "$cgi/share.cgi" 2>&1 | tail -1) || true
    [ "$out" = "team notes" ] && pass "$name: share.cgi sends the file" ||
      fail "$name: share.cgi download answered '$out'"
  else
    echo "install test: skipped: $name has no share.cgi" >&2
  fi
  unset SHARELINK_ROOT

  local page pages=0
  for page in "$prefix"/share/man/man*/*; do
    pages=$((pages + 1))
    out=$(MANWIDTH=80 man --warnings -l "$page" 2>&1 >/dev/null)
    [ -z "$out" ] || fail "$name: man warns on $(basename "$page"): $out"
  done
  [ "$pages" -ge 2 ] && pass "$name: $pages manual pages render without warnings" ||
    fail "$name: only $pages manual pages installed"
}

dpkg -x "$deb" "$work/deb"
check_tree deb "$work/deb/usr"
cmake --install build --prefix "$work/cmake" >/dev/null
check_tree cmake "$work/cmake"

depends=$(dpkg-deb -f "$deb" Depends)
case "$depends" in
  *libsqlite3*libcurl*|*libcurl*libsqlite3*) pass "package depends on: $depends" ;;
  *) fail "package dependencies not computed: '$depends'" ;;
esac

if lint=$(lintian --fail-on error --tag-display-limit 0 "$deb" 2>&1); then
  pass "lintian: no errors"
else
  fail "lintian found errors"
fi
printf '%s\n' "$lint" | grep -v 'root privileges' | sed 's/^/  lintian: /' >&2 || true

if [ "$failures" -gt 0 ]; then
  echo "install test: $failures FAILED ($deb)" >&2
  exit 1
fi
echo "install test: passed ($deb)" >&2
