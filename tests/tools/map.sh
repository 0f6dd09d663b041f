# The map on a terminal that is none, as SVG, as JSON.
{ seq 0 20 100000; seq 300000 301000; seq 500000 3 700000; echo 999999; } >numbers.txt
bmtree load -q s.bmt shapes numbers.txt
bmtree set -q s.bmt one 7
bmtree load -q s.bmt none </dev/null
bmtree set -q s.bmt ends 0 1099511627775
t map s.bmt shapes
t map s.bmt shapes --from 299900 --to 301100
t map s.bmt one
t map s.bmt none
t map s.bmt ends
t map s.bmt shapes one none --to 1000000
t map s.bmt shapes --from 5 --to 4
t map s.bmt missing

echo '--- colours only where they are wanted'
is never "$(bmtree map s.bmt shapes --color never | md5sum)" "$(bmtree map s.bmt shapes | md5sum)"
bmtree map s.bmt shapes --color always | grep -q $'\033\[38;5;' && echo 'always has colours'

echo '--- pictures'
t map s.bmt shapes --svg shapes.svg
t map s.bmt --svg all.svg
t map s.bmt --svg all.svg
t map s.bmt --svg all.svg --force -q
t map s.bmt shapes --json --svg both.svg
t map s.bmt --svg both.svg --json
ls both.svg* 2>&1 || true
bmtree rename -q s.bmt one 'a <b> & "c"'
for tree in shapes none ends 'a <b> & "c"'; do bmtree map s.bmt "$tree" --svg - >"$tree.svg"; done
for picture in *.svg; do
  python3 -c '
import sys, xml.dom.minidom
picture = xml.dom.minidom.parse(sys.argv[1]).documentElement
cells = sum(1 for p in picture.getElementsByTagName("path") if p.getElementsByTagName("title"))
print(sys.argv[1], picture.tagName, picture.getElementsByTagName("title")[0].firstChild.data, cells > 0)' "$picture"
done

echo '--- the counts of the cells make up the tree'
bmtree map s.bmt shapes --json |
  python3 -c 'import json, sys; m = json.load(sys.stdin); print(sum(sum(r["counts"]) for r in m["rows"]), m["numbers"])'
bmtree count s.bmt shapes
