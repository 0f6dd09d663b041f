# The completion scripts: accepted by their shells, and doing the right thing in bash.
for shell in bash zsh fish; do
  bmtree completion $shell >script.$shell
  if command -v $shell >/dev/null && [ $shell != fish ]; then $shell -n script.$shell; fi
  if [ $shell = fish ] && command -v fish >/dev/null; then fish --no-execute script.fish; fi
  for command in load minus check-file; do
    grep -q "$command" script.$shell || echo "$shell does not know $command"
  done
done
bmtree set -q s.bmt apples 1
bmtree set -q s.bmt 'two words' 1

# complete WORD...: what bash offers for the last word.
complete_words() {
  PATH=$scratch/bin:$PATH bash -c '
    source script.bash
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
    _bmtree
    printf "%s\n" "${COMPREPLY[@]}"' - "$@" | sort
}
mkdir bin
ln -s "$program" bin/bmtree
echo '--- commands'
complete_words bmtree c
echo '--- options'
complete_words bmtree load s.bmt --
echo '--- choices'
complete_words bmtree export s.bmt apples --format b
echo '--- files, then trees'
complete_words bmtree count s.b
complete_words bmtree count s.bmt ''  | grep -e apples -e words
