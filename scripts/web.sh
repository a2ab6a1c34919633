# Sourced by the demo, serve.sh and the benchmark: a private lighttpd with
# data/lighttpd/local.conf (share.cgi at /share.cgi) on a free local port.
#   web_start WEB_DIR ROOT [1|0]   sets WEB_PORT and WEB_PID
#   web_stop
# share.cgi is taken from $WEB_CGI_DIR (default: build/ of the checkout).

WEB_CONF="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)/data/lighttpd/local.conf"
WEB_CGI_DIR="${WEB_CGI_DIR:-$(dirname "$WEB_CONF")/../../build}"
WEB_PID=""
WEB_PORT=""

web_start() {
  local dir="$1" root="$2" xsendfile="${3:-1}" attempt i
  mkdir -p "$dir/htdocs"
  for attempt in 1 2 3 4 5; do
    WEB_PORT=$((20000 + RANDOM % 40000))
    # Someone else's server there would answer in our place.
    curl -s -o /dev/null "http://127.0.0.1:$WEB_PORT/" && continue
    SHARELINK_WEB_PORT="$WEB_PORT" SHARELINK_WEB_DIR="$dir" SHARELINK_ROOT="$root" \
      SHARELINK_CGI_DIR="$(cd "$WEB_CGI_DIR" && pwd)" SHARELINK_X_SENDFILE="$xsendfile" \
      lighttpd -D -f "$WEB_CONF" >>"$dir/console.log" 2>&1 &
    WEB_PID=$!
    # A taken port makes lighttpd exit at once; otherwise wait until it listens.
    for i in $(seq 100); do
      kill -0 "$WEB_PID" 2>/dev/null || break
      if curl -s -o /dev/null "http://127.0.0.1:$WEB_PORT/" && kill -0 "$WEB_PID" 2>/dev/null; then
        return 0
      fi
      sleep 0.05
    done
    web_stop
  done
  echo "web.sh: lighttpd did not start (see $dir/error.log)" >&2
  return 1
}

web_stop() {
  [ -n "$WEB_PID" ] || return 0
  kill "$WEB_PID" 2>/dev/null || true
  wait "$WEB_PID" 2>/dev/null || true
  WEB_PID=""
}
