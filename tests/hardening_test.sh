#!/bin/sh
# hardening_test.sh READELF FILE: whether a release build may be loaded anywhere
# (PIE, or a shared library), whether its tables cannot be written to once it is
# loaded (RELRO with every symbol bound at once), and whether it guards its stack.
readelf=$1
file=$2
status=0
expect() {
  if ! "$readelf" -W "$3" "$file" | grep -Eq "$2"; then
    echo "$file: $1 is missing" >&2
    status=1
  fi
}
expect "position-independent code" '^ *Type: +DYN ' -h
expect "RELRO" '^ *GNU_RELRO ' -l
expect "binding at once" 'FLAGS.* NOW|BIND_NOW' -d
expect "the stack protector" ' __stack_chk_fail' --dyn-syms
exit "$status"
