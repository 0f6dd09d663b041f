# The published sets: every count that the program gives, beside plain set arithmetic with sort, uniq and comm.
for archive in census1881 uscensus2000 wikileaks-noquotes; do
  echo "--- $archive"
  rm -rf sets s.bmt*
  mkdir sets
  tar xJf "$data/$archive.tar.xz" -C sets --transform 's/.*csv//' --wildcards '*.txt'
  for file in sets/*.txt; do tr ', ' '\n\n' <"$file" | sed '/^$/d' >"${file%.txt}.lines"; done
  bmtree load s.bmt '' --each sets/*.txt
  is 'in all' "$(cat sets/*.lines | wc -l)" "$(bmtree count s.bmt $(bmtree ls --names s.bmt) | awk -F '  +' '/^total/ { gsub(",", "", $2); print $2 }')"

  bmtree or s.bmt $(bmtree ls --names s.bmt) --into union
  is union "$(sort -nu sets/*.lines | md5sum)" "$(bmtree export s.bmt union | md5sum)"

  sort -n sets/*.lines | uniq -c | awk '$1 % 2 { print $2 }' >odd
  is 'in an odd number of sets' "$(md5sum <odd)" \
    "$(bmtree xor s.bmt $(bmtree ls --names s.bmt | grep -v union) | md5sum)"

  for pair in '0 1' '10 100' '34 67' '50 51' '198 199'; do
    set -- $pair
    sort "sets/$1.lines" >a
    sort "sets/$2.lines" >b
    is "$1 and $2" "$(comm -12 a b | wc -l)" "$(bmtree and s.bmt "$1" "$2" --count)"
    is "$1 minus $2" "$(comm -23 a b | wc -l)" "$(bmtree minus s.bmt "$1" "$2" --count)"
    is "$1 xor $2" "$(comm -3 a b | wc -l)" "$(bmtree xor s.bmt "$1" "$2" --count)"
  done

  sort sets/[0-9].lines sets/[1-9][0-9].lines | uniq >low
  sort sets/1[0-9][0-9].lines | uniq >high
  names() { bmtree ls --names s.bmt | grep -x "$1" | sort; }
  bmtree or -q s.bmt $(names '[0-9]\{1,2\}') --into low
  bmtree or -q s.bmt $(names '[0-9]\{3\}') --into high
  is 'lower half and upper half' "$(comm -12 low high | wc -l)" "$(bmtree and s.bmt low high --count)"
  is 'lower half minus upper half' "$(comm -23 low high | sort -n | md5sum)" "$(bmtree minus s.bmt low high | md5sum)"
  t count s.bmt union low high
  t verify s.bmt -q
done
