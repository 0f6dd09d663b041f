# ls, stat, count, test.
seq 1 5000 | bmtree load -q s.bmt dense
bmtree set -q s.bmt sparse 5 1000000 2000000000 1099511627775
bmtree load -q s.bmt 'empty one' </dev/null
t ls s.bmt
t ls s.bmt --names
t ls s.bmt --names --json
t stat s.bmt dense
t stat s.bmt sparse
t stat s.bmt 'empty one'
t stat s.bmt sparse --json
t stat s.bmt | grep -v -e 'in use' -e 'free for'

echo '--- counting'
t count s.bmt dense
t count s.bmt dense --from 100 --to 0xc8
t count s.bmt dense sparse 'empty one'
t count s.bmt dense sparse --json
t count s.bmt dense --from 5 --to 4

echo '--- testing'
t test s.bmt sparse 5 6 0xf4240
t test s.bmt sparse 5
t test -q s.bmt sparse 6
t test s.bmt sparse 5 7 --json
printf '1000000\n7\n' | t test s.bmt sparse
printf '1000000\n' >ask.txt
t test s.bmt sparse --file ask.txt
t test s.bmt sparse five
t test s.bmt sparse 1099511627776
printf '1 b' | t test s.bmt sparse

echo '--- what is not there'
t stat s.bmt none
t count missing.bmt dense
ls missing.bmt* 2>&1 || true
