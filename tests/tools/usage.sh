# The command line itself: help, mistakes, exit codes.
t --version
t
t nonsense
t load
t load --nonsense s.bmt x
t ls
t free s.bmt x --limit 0
t free s.bmt x --from 12x
t load s.bmt x --format yaml
t completion tcsh
ls

echo '--- every command has help with examples, a description, and fits the width of this text'
for command in $(bmtree --help | sed -n 's/^  \([a-z-]*\)  .*/\1/p'); do
  bmtree "$command" --help >help.txt || echo "$command fails"
  grep -q '^Examples:' help.txt || echo "$command has no examples"
  grep -q "^Usage: bmtree $command" help.txt || echo "$command has no usage line"
  awk -v c="$command" 'length($0) > 118 { print c ": a line of " length($0) }' help.txt
  echo "$command"
done
