#!/bin/bash
# The demo: 200 real sets go into a store, are united, intersected and subtracted; the union is written to a file and
# read back; the store is verified, and two pictures are drawn. `./run demo` builds the program and starts this.
#
#   demo.sh PROGRAM FOLDER     FOLDER is made anew and keeps the store and the pictures
set -euo pipefail
program=$(realpath "$1")
folder=$2
data=$(cd "$(dirname "${BASH_SOURCE[0]}")/../data" && pwd)
sets=census1881

say() { printf '\n# %s\n' "$*"; }

# show ARG...: a command as one would type it, long lists cut short, and then its output.
show() {
  local line='$ bmtree' word left=0
  for word in "$@"; do
    [[ $word == *[[:space:]]* ]] && word="'$word'"
    if [[ $word == $sets/* && $word != "$sets/" && $# -gt 50 ]]; then
      ((++left))
      ((left == 3)) && line+=" ..."
      ((left < 3 || left == 200)) || continue
    fi
    line+=" $word"
  done
  printf '%s\n' "$line"
  "$program" "$@"
}

rm -rf "$folder"
mkdir -p "$folder/$sets"
cd "$folder"
tar xJf "$data/$sets.tar.xz" -C "$sets" --transform 's/.*csv//' --wildcards '*.txt'

say "200 sets of row numbers, one to a text file, become 200 trees in one commit"
show load demo.bmt "$sets/" --each "$sets"/*.txt
mapfile -t trees < <("$program" ls demo.bmt --names)

say "all of them united: a number that several sets have counts once"
show or demo.bmt "${trees[@]}" --into union
show stat demo.bmt union

say "two of them, combined in four ways"
for operation in and or minus xor; do
  show "$operation" demo.bmt "$sets/63" "$sets/68" --into "63 $operation 68"
done

say "three large ones united, and what a small one has in common with them"
show or demo.bmt "$sets/29" "$sets/68" "$sets/75" --into large
show and demo.bmt "$sets/63" large --into '63 and large'
show minus demo.bmt "$sets/63" large --into '63 minus large'

say "the table of counts"
mapfile -t results < <("$program" ls demo.bmt --names | grep -v "^$sets/")
show ls demo.bmt "$sets/29" "$sets/63" "$sets/68" "$sets/75" "${results[@]}"

say "the union as a bitmap file, checked, read back, and compared"
show export demo.bmt union union.bm --format bitmap
show check-file union.bm
show import demo.bmt reread union.bm
show xor demo.bmt union reread --count

say "every page and every tree verified"
show verify demo.bmt

say "where the numbers lie"
show map demo.bmt union --svg union.svg
mapfile -t trees < <(printf '%s\n' "${trees[@]}" | sort -V)
show map demo.bmt "${trees[@]}" --svg sets.svg

printf '\nThe store:    %s\nThe pictures: %s\n              %s\n' "$PWD/demo.bmt" "$PWD/union.svg" "$PWD/sets.svg"
