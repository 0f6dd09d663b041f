# set, clear, range, truncate, rm, cp, rename.
t set s.bmt ids 5 7 10-12 0x20
t set s.bmt ids 7 8
t get s.bmt ids --chunk 20
t clear s.bmt ids 10-11 99
t get s.bmt ids --chunk 20
seq 100 200 | t set s.bmt ids --file -
seq 150 300 | t clear s.bmt ids
t count s.bmt ids
t set s.bmt ids 1 --json
t clear s.bmt ids 1 --json

echo '--- ranges'
t range s.bmt block 1000 1999
t range s.bmt block 1500 2499
t range s.bmt block 1990 2009 --clear
t count s.bmt block
t range s.bmt block 1 1 -q
t range s.bmt wide 0 50000000
t truncate s.bmt wide 40000000
t last s.bmt wide
t truncate s.bmt wide 0
t count s.bmt wide

echo '--- trees'
t cp s.bmt ids copy
t set s.bmt copy 1
t count s.bmt ids copy
t cp s.bmt ids copy
t cp s.bmt ids copy --replace
t cp s.bmt none copy --replace
t count s.bmt copy
t rename s.bmt copy moved
t rename s.bmt moved ids
t rename s.bmt moved ids --replace
t rename s.bmt ids ids
t rm s.bmt block none
t ls s.bmt --names
t rm s.bmt block wide --json
t ls s.bmt --names

echo '--- refusals change nothing'
t set s.bmt ids 3 x
t set s.bmt ids 9-3
t set s.bmt ids 1099511627776
t set s.bmt ids 0-1099511627776
t range s.bmt ids 7 3
t clear s.bmt none 3
t clear none.bmt ids 3
t set s.bmt '' 3
t set s.bmt "$(printf 'a\tb')" 3
t truncate s.bmt ids -1
t count s.bmt ids
t verify s.bmt

echo '--- somebody else writes'
mkfifo pipe
bmtree load -q s.bmt slow <pipe &
exec 3>pipe
seq 500000 >&3  # far more than a pipe holds: it reads, so it is the writer by now
t set s.bmt ids 3
t count s.bmt ids slow
exec 3>&-
wait
t count s.bmt slow
t set s.bmt ids 3
