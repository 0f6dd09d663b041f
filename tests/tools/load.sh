# Loading: formats, separators, order, and that bad input loads nothing.
printf '1,2 3\t4\r\n5\n\n , 7' >mixed.txt
t load s.bmt mixed mixed.txt
t get s.bmt mixed --chunk 10

echo '--- unsorted, with repeats, more than a batch'
seq 200000 -1 1 >down.txt
t load s.bmt down down.txt down.txt
t stat s.bmt down
is 'numbers of down' "$(bmtree export s.bmt down | md5sum)" "$(seq 1 200000 | md5sum)"
shuf --random-source=<(yes) -i 0-99999999 -n 150000 >shuffled.txt
t load s.bmt shuffled shuffled.txt
is 'numbers of shuffled' "$(bmtree export s.bmt shuffled | md5sum)" "$(sort -n shuffled.txt | md5sum)"

echo '--- standard input'
seq 0 7 100 | t load s.bmt sevens
seq 0 11 100 | t load s.bmt sevens -
t get s.bmt sevens --chunk 30
t load s.bmt nothing </dev/null
t count s.bmt nothing

echo '--- the ends of the number space, zeros in front'
echo '0 0001 1099511627775 0000000000000000000000000000000000000007' | t load s.bmt ends
t get s.bmt ends

echo '--- --replace and adding'
echo 9 | t load s.bmt mixed
echo 10 | t load s.bmt mixed --replace
t get s.bmt mixed

echo '--- one tree for each file'
mkdir logs
echo '1 2 3' >logs/monday.txt
echo '3 4' >logs/tuesday.txt
t load s.bmt day/ --each logs/monday.txt logs/tuesday.txt
t load s.bmt day/ --each logs/monday.txt logs/monday.csv
t load s.bmt day/ --each -
t ls s.bmt --names

echo '--- raw numbers'
printf '\1\0\0\0\0\0\0\0\377\0\0\0\0\0\0\0\0\0\0\0\377\0\0\0' >numbers.raw
t load s.bmt raw --format raw numbers.raw
t get s.bmt raw

echo '--- bad input'
printf '1\n2 3x\n' >bad.txt
t load s.bmt bad mixed.txt bad.txt
printf '1\n22,333,-4\n' | t load s.bmt bad
printf '1099511627775\n  1099511627776\n' >large.txt
t load s.bmt bad large.txt
printf '1 99999999999999999999999999999999999999\n' | t load s.bmt bad
printf '3 4\nab\033[31mcd\n' | t load s.bmt bad
{ seq 1 300000; echo '12 hello 13'; seq 1 300000; } >late.txt
t load s.bmt bad late.txt
{ seq -s, 1 300000; echo '5,,6;7'; } | t load s.bmt bad
head -c 3000000 /dev/zero | tr '\0' 'z' >one-word.txt
t load s.bmt bad one-word.txt
head -c 3000000 /dev/zero | tr '\0' '9' >one-number.txt
t load s.bmt bad one-number.txt
head -c 13 numbers.raw >cut.raw
t load s.bmt bad --format raw cut.raw
printf '\1\0\0\0\0\0\0\0\0\0\0\0\0\1\0\0' >large.raw
t load s.bmt bad --format raw large.raw
t load s.bmt bad missing.txt
t load s.bmt bad logs
t load s.bmt 'day/' --each logs/monday.txt bad.txt
t ls s.bmt --names
t get s.bmt day/monday

echo '--- a new store whose first load fails is not made'
printf '1\n2 3x\n' >bad.txt
t load new.bmt x bad.txt
t load new.bmt x missing.txt
t import new.bmt x shuffled.txt
t unpack new.bmt x missing.pack
t set new.bmt x --file bad.txt
t set new.bmt '' 5
t range new.bmt '' 5 6
ls new.bmt* 2>&1 || true
t load no/folder/new.bmt x mixed.txt
t load new.bmt x mixed.txt
t verify new.bmt
ls new.bmt*
