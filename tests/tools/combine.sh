# and, or, minus, xor against comm and sort.
seq 0 2 1000 >two
seq 0 3 1000 >three
seq 0 5 1000 >five
for name in two three five; do bmtree load -q s.bmt $name $name; done
t and s.bmt two three five
t and s.bmt two three --count
t or s.bmt two three five --count
t minus s.bmt two three five --count
t xor s.bmt two three five --count

shared() { comm -12 <(sort "$1") <(sort "$2") | sort -n; }
is and "$(bmtree and s.bmt two three | md5sum)" "$(shared two three | md5sum)"
is or "$(bmtree or s.bmt two three five | md5sum)" "$(sort -nu two three five | md5sum)"
is minus "$(bmtree minus s.bmt two three five | md5sum)" \
  "$(comm -23 <(sort two) <(sort -u three five) | sort -n | md5sum)"
is xor "$(bmtree xor s.bmt two three five | md5sum)" \
  "$(sort -n two three five | uniq -c | awk '$1 % 2 { print $2 }' | md5sum)"

echo '--- into trees'
t or s.bmt two three --into both
t or s.bmt both five --into both
t or s.bmt both five --into both --replace
t and s.bmt both two --into two --replace --json
t count s.bmt both two
t minus s.bmt five five --into nothing
t count s.bmt nothing
t verify s.bmt

echo '--- into files'
t and s.bmt three five --output shared.txt
is file "$(md5sum <shared.txt)" "$(shared three five | md5sum)"
t and s.bmt three five --output shared.txt
t and s.bmt three five --output shared.raw --format raw
od -An -v -t u8 -w8 --endian=little shared.raw | head -3
t and s.bmt three five --output shared.bm --format bitmap
t check-file shared.bm
bmtree and s.bmt three five --format bitmap | cmp - shared.bm && echo 'the same from a pipe'

echo '--- refusals'
t and s.bmt two
t and s.bmt two none
t and s.bmt two three --count --into x
t and s.bmt two three --replace
t and s.bmt two three --json
t and s.bmt two three --count --output counted.txt
t xor s.bmt two three --output counted.txt --count --json
ls counted.txt* 2>&1 || true
