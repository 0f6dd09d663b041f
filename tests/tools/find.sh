# get, first, last, free.
seq 0 3 300 | bmtree load -q s.bmt threes
bmtree load -q s.bmt none </dev/null
t get s.bmt threes --limit 3
t get s.bmt threes --from 10 --to 20
t get s.bmt threes --rank 0-4 --chunk 2
t get s.bmt threes --rank 100
t get s.bmt threes --rank 101
t get s.bmt threes --rank 99-1000
t get s.bmt threes --rank 4-2
t get s.bmt threes --rank x
t get s.bmt threes --from 290 --limit 2 --json
t get s.bmt threes --from 290 --json
t get s.bmt none
t get s.bmt none --json

echo '--- all of a larger tree, in chunks that divide nothing'
seq 7 13 2000000 | bmtree load -q s.bmt many
is many "$(bmtree get s.bmt many --chunk 7 | tr , '\n' | md5sum)" "$(seq 7 13 2000000 | md5sum)"
next=7
while [ "$next" != null ]; do
  bmtree get s.bmt many --from "$next" --limit 40000 --json >page.json
  sed -n 's/^    \([0-9]*\),\{0,1\}$/\1/p' page.json >>pages.txt
  next=$(sed -n 's/^  "next": //p' page.json)
done
is pages "$(md5sum <pages.txt)" "$(seq 7 13 2000000 | md5sum)"

echo '--- the ends'
t first s.bmt threes
t first s.bmt threes --from 4
t first s.bmt threes --from 301
t last s.bmt threes
t last s.bmt none
t first s.bmt threes --json
t last s.bmt none --json

echo '--- free numbers'
t free s.bmt threes
t free s.bmt threes --from 297 --limit 5
t free s.bmt threes --from 3 --to 3
t free s.bmt threes --from 3 --to 4 --limit 10 --json
t free s.bmt threes --limit 3 --json
t free s.bmt none --from 1099511627774 --limit 9
bmtree range -q s.bmt full 0 199999
t free s.bmt full --limit 2
is 'free of threes' "$(bmtree free s.bmt threes --to 300 --limit 1000 | md5sum)" \
  "$(seq 0 300 | awk '$1 % 3' | md5sum)"
