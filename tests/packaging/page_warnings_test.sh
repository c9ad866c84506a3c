#!/usr/bin/env bash
# page_warnings_test.sh PAGE: a manual page is shown without a warning. Status 77: what
# shows manual pages is not installed.
set -euo pipefail
page=$1

command -v groff >/dev/null || { echo "skipped: groff-base is not installed" >&2; exit 77; }
warnings=$(groff -man -Tutf8 -ww -z "$page" 2>&1)
# A small system has a script in the place of man.
man_db=$(dpkg-query -W -f='${db:Status-Status}' man-db 2>/dev/null || true)
if [ "$man_db" = installed ]; then
  warnings+=$(MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 -Z "$page" 2>&1 >/dev/null)
fi
if [ -n "$warnings" ]; then
  echo "$warnings" >&2
  exit 1
fi
