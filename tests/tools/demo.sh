# The demo, and its counts beside plain set arithmetic.
"$data/../tools/demo.sh" "$program" "$PWD/demo" | sed "s|$PWD|...|"
python3 -c '
import sys, xml.dom.minidom
for path in sys.argv[1:]: print(xml.dom.minidom.parse(path).documentElement.tagName)' demo/union.svg demo/sets.svg

cd demo || exit
for set in census1881/*.txt; do tr ',' '\n' <"$set" | sed '/^$/d' | sort >"$set.lines"; done
lines() { cat "census1881/$1.txt.lines"; }
tree() { bmtree count demo.bmt "$1"; }
sort -u census1881/{29,68,75}.txt.lines >large
is 'in all' "$(cat census1881/*.lines | wc -l)" 1003861
is union "$(sort -u census1881/*.lines | wc -l)" "$(tree union)"
is 'union, re-read' "$(sort -nu census1881/*.lines | md5sum)" "$(bmtree export demo.bmt reread | md5sum)"
is '63 and 68' "$(comm -12 <(lines 63) <(lines 68) | wc -l)" "$(tree '63 and 68')"
is '63 or 68' "$(sort -u <(lines 63) <(lines 68) | wc -l)" "$(tree '63 or 68')"
is '63 minus 68' "$(comm -23 <(lines 63) <(lines 68) | wc -l)" "$(tree '63 minus 68')"
is '63 xor 68' "$(comm -3 <(lines 63) <(lines 68) | wc -l)" "$(tree '63 xor 68')"
is large "$(wc -l <large)" "$(tree large)"
is '63 and large' "$(comm -12 <(lines 63) large | wc -l)" "$(tree '63 and large')"
is '63 minus large' "$(comm -23 <(lines 63) large | wc -l)" "$(tree '63 minus large')"
