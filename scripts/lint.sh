#!/bin/bash
# Checks the sources: formatting, file lengths, layering, clang-tidy. Takes a configured build directory, whose
# compile_commands.json tells clang-tidy how each file is compiled. What was checked clean once is remembered by
# content in build/lint and is not checked again.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly build_dir=$PWD/$1
readonly cache=$PWD/build/lint
readonly max_lines=600
readonly jobs=$(nproc)
mkdir -p "$cache/clean"

say() { printf '== lint: %s\n' "$*"; }

# The folders that hold sources; those still to come are left out.
folders() { ls -d src host store tools tests bench examples 2>/dev/null || true; }
sources() { find $(folders) -name '*.h' -o -name '*.cpp' | LC_ALL=C sort; }

check_format() {
  say "clang-format"
  local lines
  lines=$(sources | xargs clang-format --style=file --dry-run -Werror 2>&1 |
    grep -oP '^[^:]+:\d+(?=:\d+: error)' | uniq) || true
  [ -n "$lines" ] || return 0
  printf '%s: not formatted (clang-format -i mends it)\n' $lines
  return 1
}

check_lengths() {
  say "no file above $max_lines lines"
  sources | xargs awk -v max="$max_lines" '
    FNR == max + 1 { printf "%s: more than %d lines\n", FILENAME, max; bad = 1 }
    END { exit bad }'
}

# The module stands alone: a file of src/ includes its own headers by their path below src/, and nothing else in
# quotes.
check_layers() {
  say "src/ includes only itself"
  local bad=0 file name
  while IFS=: read -r file name; do
    if [ ! -e "src/$name" ] || [[ $name == *..* ]]; then
      printf '%s: includes "%s", which is not below src/\n' "$file" "$name"
      bad=1
    fi
  done < <(grep -rHoP '^\s*#\s*include\s*"\K[^"]+' src --include='*.h' --include='*.cpp')
  return $bad
}

# tidy_one FILE: runs clang-tidy unless this very text, as preprocessed and with its comments, was clean before.
tidy_one() {
  local file=$1 command key
  command=$(awk -v file="$PWD/$file" -F '"' '
    $2 == "command" { command = $0 }
    $2 == "file" && $4 == file { print command; exit }' "$build_dir/compile_commands.json" |
    sed -e 's/^ *"command": "//' -e 's/",$//' -e 's/\\"/"/g' -e 's/ -o [^ ]*//')
  key=$({ cat .clang-tidy && (cd "$build_dir" && eval "$command -E -C"); } | sha256sum | cut -d' ' -f1)
  [ ! -e "$cache/clean/$key" ] || return 0
  printf '   clang-tidy %s\n' "$file"
  # the commands are those of the release build's compiler, which may know warnings that clang does not
  clang-tidy -p "$build_dir" --quiet --extra-arg=-Wno-unknown-warning-option "$file" 2>&1 | { grep -v 'warnings\? generated' || true; }
  touch "$cache/clean/$key"
}

check_tidy() {
  say "clang-tidy"
  export -f tidy_one
  export cache build_dir
  grep -oP '"file": "\K[^"]+' "$build_dir/compile_commands.json" | sed "s|^$PWD/||" |
    grep -E '^(src|host|store|tools)/' | LC_ALL=C sort -u |
    xargs -r -P "$jobs" -I{} bash -c 'set -euo pipefail; tidy_one {}'
}

failed=0
for check in check_format check_lengths check_layers check_tidy; do
  "$check" || failed=1
done
[ $failed -eq 0 ] || { say "failed" >&2; exit 1; }
say "clean"
