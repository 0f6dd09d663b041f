# Every report as JSON, read by a parser that is not ours.
seq 1 1000 >n.txt
name='a "b" \ é ß'
check() {
  local status=0
  bmtree "$@" --json >out.json 2>err.txt || status=$?
  if python3 -c 'import json, sys; json.load(open("out.json", encoding="utf-8"))'; then
    echo "ok ($status): $1"
  else
    echo "not JSON: $*"
    cat out.json
  fi
  cat err.txt
}
check load s.bmt "$name" n.txt
check set s.bmt x 1 2 3
check clear s.bmt x 2
check range s.bmt x 10 20
check truncate s.bmt x 5
check cp s.bmt x y
check rename s.bmt y z
check ls s.bmt
check ls s.bmt --names
check stat s.bmt
check stat s.bmt "$name"
check count s.bmt x "$name"
check test s.bmt x 1 2
check get s.bmt x
check first s.bmt x
check last s.bmt x
check free s.bmt x
check or s.bmt x "$name" --count
check or s.bmt x "$name" --into both
check map s.bmt x
check map s.bmt
check pack s.bmt x x.pack
check unpack s.bmt x2 x.pack
bmtree export s.bmt x x.bm --format bitmap
check import s.bmt x3 x.bm
check check-file x.bm n.txt
check verify s.bmt
check compact s.bmt t.bmt
check rm s.bmt x
python3 -c '
import json, subprocess, sys
out = subprocess.run(sys.argv[1:], stdout=subprocess.PIPE, check=True).stdout
print([tree["name"] for tree in json.loads(out)])' "$program" ls s.bmt --json
