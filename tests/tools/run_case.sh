#!/bin/bash
# run_case.sh PROGRAM CASE: runs CASE.sh in an empty folder and compares what it prints with CASE.expected, line by
# line. With BMTREE_ACCEPT=1 what it prints becomes what is expected; read the difference before committing it.
#
# What a case can use:
#   t ARG...       runs the program; prints the command, what it says on both outputs, and its exit code if not 0
#   is LABEL A B   prints LABEL with "same", or with both values if they differ
#   bmtree         the program itself
#   $data          the folder of the data sets
set -euo pipefail
program=$(realpath "$1")
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
case=$here/$2
export data=$here/../../data

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"
unset NO_COLOR COLUMNS
export LC_ALL=C.UTF-8 TMPDIR=$scratch

bmtree() { "$program" "$@"; }

t() {
  local status=0
  echo "\$ bmtree $*"
  "$program" "$@" 2>&1 || status=$?
  [ $status -eq 0 ] || echo "[exit $status]"
}

is() {
  if [ "$2" = "$3" ]; then echo "$1: same"; else echo "$1: $2 and $3 differ"; fi
}

# shellcheck disable=SC1090  # one of the cases beside this file
(. "$case.sh") >"$scratch/.output" 2>&1 || echo "[the case ended with $?]" >>"$scratch/.output"

if [ "${BMTREE_ACCEPT:-}" = 1 ]; then
  cp "$scratch/.output" "$case.expected"
else
  diff -u "$case.expected" "$scratch/.output"
fi
