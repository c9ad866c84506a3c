# shellcheck shell=bash
# What the scripts share. A script sources this file first: from then on it stands in
# the project's folder, and an error ends it.
set -euo pipefail
script=scripts/$(basename "$0")
# shellcheck disable=SC2034  # for the scripts
called_from=$PWD
if [ -n "${ZELK_BUILD_DIR:-}" ]; then
  ZELK_BUILD_DIR=$(realpath -m -- "$ZELK_BUILD_DIR")
fi
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# A script's opening comment is what it answers to --help.
print_usage() {
  sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$script"
}

answer_help() {
  local argument
  for argument in "$@"; do
    if [ "$argument" = --help ] || [ "$argument" = -h ]; then
      print_usage
      exit 0
    fi
  done
}

# Ends the script: it was called for something that it does not do.
refuse() {
  echo "$script: $1" >&2
  exit 2
}

refuse_argument() {
  refuse "it takes no \`$1\`; $script --help tells what it takes"
}

# Whether a build in this directory can be begun, or gone on with. Files of another user
# in the middle of a build of one's own would end it half-way.
can_build_in() {
  local nearest=$1
  while [ ! -e "$nearest" ]; do
    nearest=$(dirname "$nearest")
  done
  [ -d "$nearest" ] && [ -w "$nearest" ] || return 1
  [ "$nearest" != "$1" ] ||
    [ -z "$(find "$1" '(' -type d -o -type f ')' ! -writable ! -user "$(id -u)" -print -quit 2>&1)" ]
}

# Sets `build`, the directory for the build of a preset: build/PRESET, or PRESET in the
# directory that ZELK_BUILD_DIR names. Where build/ is somebody else's, or the whole tree
# cannot be written, a directory of the user's own takes its place, one for each tree.
choose_build() {
  build=${ZELK_BUILD_DIR:-$(pwd -P)/build}/$1
  if can_build_in "$build"; then
    return
  fi
  if [ -n "${ZELK_BUILD_DIR:-}" ]; then
    refuse "cannot write $build; set ZELK_BUILD_DIR to a directory that can be written"
  fi
  local own
  own=${XDG_CACHE_HOME:-${HOME:-/nonexistent}/.cache}/zelk$(pwd -P)/$1
  if ! can_build_in "$own"; then
    refuse "cannot write $build; set ZELK_BUILD_DIR to a directory that can be written"
  fi
  echo "$script: cannot write $build, so it builds in $own; ZELK_BUILD_DIR names another place" >&2
  build=$own
}

# build_targets PRESET [TARGET...]: configures and builds, everything by default.
build_targets() {
  local preset=$1
  shift
  cmake --preset "$preset" -B "$build"
  cmake --build "$build" ${1:+--target "$@"}
}
