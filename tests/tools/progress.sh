# The progress line: on a terminal after a second, and nowhere else.
slowly() { seq 1 10; sleep 1.3; seq 11 20; }

echo '--- into pipes and files: silent'
slowly | bmtree load s.bmt quick 2>said
wc -c <said

echo '--- on a terminal'
seq 1 200000 >a.txt
mkfifo pipe
{ slowly; seq 21 200000; } >pipe &
script -qec "'$program' load s.bmt slow pipe" /dev/null >said </dev/null
wait
grep -q 'loading  ' said && echo 'it tells how far it is'
grep -q '/s' said && echo 'with the rate'
grep -q 'numbers read' said && echo 'and the report comes last'

echo '--- on a terminal, but quick'
script -qec "'$program' load s.bmt quick a.txt" /dev/null >said </dev/null
tr -d '\r' <said
