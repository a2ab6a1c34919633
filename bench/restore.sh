#!/bin/sh
# Puts back what a benchmark case changes, before each timed run.
# Usage: restore.sh FIXTURE ROOT item...
#   registry  the registry as generated (companions of earlier runs removed)
#   store     the store as generated
#   listed    the store as a listing leaves it (expired links purged)
#   flag      a fresh clean-up flag (the pass is throttled)
#   noflag    no clean-up flag (the pass is due)
#   children  an empty record of started programs
set -e
fixture=$1
root=$2
shift 2
config=$root/etc/config
for item in "$@"; do
  case $item in
    registry)
      rm -f "$config"/tmp?????? "$config"/??tmp?????? "$config/shareFileEx.ini.del" "$config/shareFileEx.ini.awk"
      cp "$fixture/shareFileEx.ini" "$config/shareFileEx.ini"
      ;;
    store)
      rm -f "$config/share_link.db-journal"
      cp "$fixture/share_link.db" "$config/share_link.db"
      ;;
    listed)
      rm -f "$config/share_link.db-journal"
      cp "$fixture/share_link.listed.db" "$config/share_link.db"
      ;;
    flag) touch "$root/tmp/.kdx_sf_clean_flag" ;;
    noflag) rm -f "$root/tmp/.kdx_sf_clean_flag" ;;
    children) : >"$root/tmp/children.log" ;;
    *) echo "restore.sh: unknown item $item" >&2; exit 2 ;;
  esac
done
