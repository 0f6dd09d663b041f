# verify and compact; stores that are none, or damaged.
seq 1 3 300000 | bmtree load -q s.bmt a
bmtree set -q s.bmt b 5 6 78187493520
t verify s.bmt
t verify s.bmt --json
t verify -q s.bmt

echo '--- compaction'
for i in 1 2 3 4 5; do bmtree range -q s.bmt a 0 $((i * 500000)); done
bmtree truncate -q s.bmt a 1000
t compact s.bmt small.bmt | sed 's/[0-9.]* [KM]iB/N/g'
t compact s.bmt small.bmt
t compact s.bmt other.bmt --json | sed 's/[0-9][0-9]*/N/'
[ "$(stat -c %s small.bmt)" -lt "$(stat -c %s s.bmt)" ] && echo 'the new file is smaller'
is a "$(bmtree export s.bmt a | md5sum)" "$(bmtree export small.bmt a | md5sum)"
is b "$(bmtree export s.bmt b | md5sum)" "$(bmtree export small.bmt b | md5sum)"
t verify small.bmt -q

echo '--- a commit that the size of a file cuts off'
cp s.bmt cut.bmt
(
  trap '' XFSZ
  ulimit -f 80000
  bmtree range -q cut.bmt big 0 1000000000 2>/dev/null || echo "[exit $?]"
)
t verify cut.bmt | sed 's/^[0-9,]* pages of/N pages of/'
bmtree set -q cut.bmt b 8
t verify cut.bmt

echo '--- no store'
seq 100000 >text
t ls text
t load text x text
cmp <(seq 100000) text && echo 'the file is as it was'
t ls missing.bmt
t ls .
t verify missing.bmt

echo '--- a flipped byte: 78187493520 is 0x1234567890'
places=$(LC_ALL=C grep -abo -P '\x90\x78\x56\x34\x12' small.bmt | cut -d: -f1)
for place in $places; do printf '\x91' | dd of=small.bmt bs=1 seek="$place" conv=notrunc status=none; done
t verify small.bmt | sed -e 's/page [0-9]*/page N/g'
t verify -q small.bmt
t get small.bmt b | sed -e 's/page [0-9]*/page N/g'
t count small.bmt a
t rm small.bmt b
t verify small.bmt
