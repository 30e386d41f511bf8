#!/usr/bin/env bash
# One scenario of the programs as a person runs them: endtoend.sh SCENARIO BIN EXAMPLES
set -uo pipefail

scenario=$1
bin=$2
examples=$3
sample=$examples/events.ndjson.xz
docs=$3/../docs
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export XDG_CONFIG_HOME="$work/config"
unset ZEL_STORE
cd "$work" || exit 1
failures=0

zel() { "$bin/zel" --store "$work/store" "$@"; }
check() { # WHAT EXPECTED GOT
  [ "$2" = "$3" ] && return
  printf 'FAILED: %s\n  expected: %s\n  got:      %s\n' "$1" "$2" "$3"
  failures=$((failures + 1))
}
# Runs a command; keeps its end, what it printed and what it told.
run() {
  "$@" >out 2>err
  code=$?
}
ends() { # CODE WHAT COMMAND...
  run "${@:3}"
  check "$2" "$1" "$code"
}
record() { # SEQUENCE [TIME]
  printf '{"artifacts":{"target":{"object_type":"file","path":{"value":["C:\\\\t\\\\%s.txt"]}}},"action":["create"],"begin_time":{"value":"%s"},"seq_num":%s}\n' \
    "$1" "${2:-2026-01-02T03:04:05.006Z}" "$1"
}
records() { # FROM TO
  form=$(record %d) awk -v from="$1" -v to="$2" \
    'BEGIN { for (i = from; i <= to; i++) printf ENVIRON["form"] "\n", i, i }'
}
stored() { sed -n 's/^zel: \([0-9]*\) record(s) stored.*/\1/p' err; }

# Keeps a folder of the store locked until the file `free` is there; $holder is who does.
hold() { # FOLDER
  python3 -c 'import fcntl, sys
lock = open(sys.argv[1], "r+")
fcntl.lockf(lock, fcntl.LOCK_EX)
open("locked", "w")
sys.stdin.read()' "store/$1/LOCK" < <(while [ ! -e free ]; do sleep 0.05; done) &
  holder=$!
  until [ -e locked ]; do sleep 0.05; done
}

sample() {
  run zel ingest "$sample"
  check "the summary counts" "0 1" "$code $(grep -c '^zel: 2029 record(s) stored, 0 line(s) rejected' err)"
  check "nothing but data on stdout" "" "$(cat out)"
  check "one folder, of today, for its owner alone" "$(date -u +%Y%m%d) 700" "$(ls store) $(stat -c %a store)"
  check "from standard input, the same again" 2029 "$(zel ingest - <"$sample" 2>/dev/null; zel query | wc -l)"
}

packed() {
  records 1 9000 >all
  for tool in gzip xz; do
    cat <(head -n 4000 all | $tool) <(tail -n +4001 all | $tool) >joined
    run "$bin/zel" --store $tool ingest --no-receive-rows joined
    check "$tool, packed in two" "0 $(md5sum <all)" "$code $("$bin/zel" --store $tool query | md5sum)"
    $tool -c all | head -c -500 >cut
    run zel ingest --print-keys cut
    check "$tool, cut off" "4 1" "$code $(grep -c '^zel: cut:.*damaged or cut off' err)"
    check "what came before is taken" 1 "$(grep -c '<sequence>0000000001<' out)"
    $tool -c all >damaged
    printf 'damage' | dd of=damaged bs=1 seek=2000 conv=notrunc status=none
    ends 4 "$tool, damaged" zel ingest damaged
  done
}

# Archives, files within them that are packed, and what is damaged in the middle.
archives() {
  records 1 9 >nine
  gzip -k nine
  tar cf plain.tar nine nine.gz
  gzip -k plain.tar
  python3 -c 'import zipfile
with zipfile.ZipFile("z.zip", "w", zipfile.ZIP_DEFLATED) as z:
    for name in ("nine", "nine.gz", "plain.tar.gz"): z.write(name, "a/" + name)'
  for archive in plain.tar plain.tar.gz z.zip; do
    run zel ingest --keys-only "$archive"
    check "$archive" "0 9" "$code $(sort -u out | wc -l)"
    run zel ingest --keys-only - <"$archive"
    check "$archive through a pipe" "0 9" "$code $(sort -u out | wc -l)"
  done
  (cat nine; echo no) >bad && zip=$(python3 -c 'import zipfile
with zipfile.ZipFile("bad.zip", "w") as z: z.write("bad"); z.write("nine")') && run zel ingest bad.zip
  check "a bad line in an archive" "4 18 1" "$code $(stored) $(grep -c '^zel: bad.zip:bad:10: not JSON' err)"
  head -c 900 bad.zip >cut.zip
  run zel ingest cut.zip nine
  check "an archive that is cut off ends itself alone" "4 1" "$code $(grep -c '1 file(s) not read to the end' err)"
  if command -v zstd >/dev/null; then
    zstd -q nine && cat nine.zst nine.zst >two.zst
    run zel ingest --keys-only two.zst
    check "zstd, packed in two" "0 18" "$code $(wc -l <out)"
    head -c -3 nine.zst >cut.zst
    run zel ingest cut.zst
    check "zstd, cut off" "4 1" "$code $(grep -c 'zstd data is damaged or cut off' err)"
  fi
}

# A store that came as an archive is read, whatever else is in there, and never written to.
packedstore() {
  records 1 9 >nine && zel ingest nine 2>/dev/null && cp -r store st && mkdir tmp
  find st -type f -exec touch -d 2026-02-03T04:05:06Z {} +
  export TMPDIR=$work/tmp
  zel query >whole && touch st/other && tar czf st.tgz st nine && tar cf st.tar -C st . &&
    python3 -c 'import shutil; shutil.make_archive("st", "zip", ".", "st")'
  for archive in st.tgz st.tar st.zip; do
    run zel --store $archive query
    check "$archive" "0 same" "$code $(cmp -s out whole && echo same)"
    run zel --store $archive ingest nine
    check "$archive is not written to" "3 1" "$code $(grep -c 'never changed' err)"
  done
  run zel --store st.tgz --keep-temporary info
  check "kept, with its times" "0 1" "$code $(find tmp/zel-* -name CURRENT -newermt 2026-02-03T04:05:05Z \
    ! -newermt 2026-02-03T04:05:06Z | wc -l)" && rm -r tmp/zel-*
  head -c 600 st.tgz >cut.tgz && cp -r st two && tar cf two.tar st two && tar cf none.tar nine
  python3 -c 'import tarfile
with tarfile.open("out.tar", "w") as t: t.add("nine", "../../20200101/../escaped"); t.add("nine", "20200101/.."); t.add("nine", "/20200101/a b")'
  for bad in cut.tgz two.tar none.tar nine out.tar; do
    run zel --store $bad query
    check "$bad" "3 1 0" "$code $(grep -c "^zel: the store $bad can't be unpacked: " err) $(wc -c <out)"
  done
  python3 -c 'import tarfile
big = tarfile.TarInfo("other"); big.size = 1 << 40
with open("big.tar", "wb") as file: file.write(big.tobuf()); file.truncate(big.size + 2048)'
  timeout --preserve-status -s INT -k 60 1 "$bin/zel" --store big.tar query 2>err
  check "an interrupt ends the passing over" "130" "$?" && rm big.tar
  check "nothing is left" "" "$(ls tmp; ls | grep escaped)"
}

# Events of other sources, mixed with records.
sources() {
  xz -dc "$examples/raw.ndjson.xz" >raw
  (head -n 300 raw; records 1 5; echo 'no event'; tail -n +301 raw) >mixed
  run zel ingest mixed "$examples/security.evtx.xz"
  check "what each became" "4 1092 1 1755" "$code $(sed -n 's/^zel: \([0-9]*\) record(s) stored, \([0-9]*\) line(s) rejected, \([0-9]*\) event(s) without a rule.*/\1 \2 \3/p' err)"
  check "why one became nothing" 1 "$(grep -c '^zel: mixed:306: not JSON' err)"
  check "what has no rule, by source and number" 1 "$(grep -c 'no rule for 620 of Security 4907, ' err)"
  check "keys lose a value once in words" "1 1" "$(grep -c "which keys can't hold" err) $(grep -c "value(s) in all that keys" err)"
  check "asked for" 2 "$(zel query --action injection | wc -l)"
  run zel ingest mixed
  check "events that are read again are no new ones" 1092 "$(zel query | wc -l)"
  run zel -v ingest --keep-unmapped raw
  check "all are kept" "0 581" "$code $(stored)"
  check "and told by kind" 124 "$(sed -n 's/^zel: no rule for \([0-9]*\) of.*/\1/p' err | awk '{ n += $1 } END { print n }')"
  run "$bin/zel" --store small ingest --no-unmapped raw
  check "without the rest" 0 "$("$bin/zel" --store small query | grep -c unmapped)"
  run zel ingest --format windows-json mixed
  check "one format alone" "4 6" "$code $(grep -c 'mixed:30[1-6]: not of the format that was asked for' err)"
  ends 2 "no such format" zel ingest --format evtlog raw
  check "which there are" 1 "$(grep -c 'known: record, windows-json, ' err)"
  # There and back again: the same events, under the same keys.
  zel query -o ocsf --since 1970-01-01T00:00:00Z >events.ocsf
  zel query --print-keys >keys
  run zel --store "$work/again" ingest --format ocsf events.ocsf
  check "OCSF is read back" "$(sort keys | md5sum)" "$(zel --store "$work/again" query --print-keys | sort | md5sum)"
  run zel ingest --format evtx raw
  check "no event log" "4 1" "$code $(grep -c "can't be read: no Windows event log" err)"
  xz -dc "$examples/security.evtx.xz" | head -c 100000 >cut.evtx
  run zel ingest --keys-only cut.evtx "$examples/raw.ndjson.xz"
  check "a log that is cut off ends itself alone" "4 1" "$code $(grep -c 'cut.evtx:[0-9]*: .*cut off within a chunk' err)"
  for flags in "--recover --keys-only" "--keep-unmapped --no-unmapped"; do
    # shellcheck disable=SC2086
    run zel ingest $flags "$examples/../tests/records/data/evtx/sample_with_a_bad_chunk_magic.evtx.xz"
    [ "${flags#--r}" = "$flags" ] || check "damage is told" "4 5" "$code $(grep -c '(chunk [0-9]*)' err)"
  done
  check "flags that exclude each other" 2 "$code"
}

badlines() {
  {
    record 1
    echo 'not json'
    echo '{"artifacts":{"target":{"object_type":"url"}},"action":["open"]}'
    echo '{"artifacts":{"target":{"object_type":"url"}},"action":["fly"],"begin_time":{"value":"T"}}'
    printf '{"a":"\xff"}\n'
    echo
    echo '{"action":["open"],"begin_time":{"value":"T"}}'
    printf 'a\0b\n'
    head -c 70000000 /dev/zero | tr '\0' x
    echo
    record 2 | tr -d '\n'
    printf '\r\n'
    printf '{"a":"%s",%s' "$(head -c 600000 /dev/zero | tr '\0' x)" "$(record 3 | cut -c2-)"
  } >bad.ndjson
  ends 4 "losses are told at the end" zel ingest bad.ndjson
  check "each bad line with its place" "zel: bad.ndjson:2: not JSON: column 1: a value is expected
zel: bad.ndjson:3: no begin_time
zel: bad.ndjson:4: unknown action \"fly\", in action[0]
zel: bad.ndjson:5: not UTF-8
zel: bad.ndjson:7: no target or no action
zel: bad.ndjson:8: holds a NUL
zel: bad.ndjson:9: longer than 64 MiB" "$(grep bad.ndjson err)"
  check "all others are stored" "$(record 1; record 2; tail -n 1 bad.ndjson)" "$(zel query)"
  run zel ingest nosuch.ndjson
  check "a missing file" "4 zel: nosuch.ndjson: can't be read: No such file or directory" "$code $(head -n 1 err)"
  check "is counted" 1 "$(grep -c '^zel: 0 record(s) stored, 0 line(s) rejected, 1 file(s) not read to the end' err)"

  # Names that the store does not know, by their place; what repeats is told as one.
  {
    record 1 | sed 's/"file"/"fiel"/'
    record 1 | sed 's/{"value":\["C:/{"operator":{"value":"equal"},"value":["C:/'
    for _ in $(seq 20); do echo '{"action":["open"]}'; done
  } >names.ndjson
  run zel ingest names.ndjson
  check "unknown names" 'zel: names.ndjson:1: unknown object type "fiel"; did you mean "file"?, in artifacts.target.object_type
zel: names.ndjson:2: unknown operator "equal"; did you mean "equals"?, in artifacts.target.path.operator.value' "$(head -n 2 err)"
  check "ten in full, and how many" "10 zel: 20 lines: no begin_time; first at names.ndjson:3 (-v tells all)" "$(grep -c 'names.ndjson:[0-9]*: no begin_time' err) $(grep lines: err)"
  run zel -v ingest names.ndjson
  check "all of them" 20 "$(grep -c 'names.ndjson:[0-9]*: no begin_time' err)"

  run "$bin/zel" --store none ingest --keys-only - < <(record 7)
  check "keys alone" "0 1 no" "$code $(grep -c '^zel: 1 key(s) made' err) $([ -e none ] && echo yes || echo no)"
  check "which are" 'p<begin_time>2026-01-02T03:04:05.006Z<sequence>0000000007<object_type>file<action>create<target_path_name>C:\t\7.txt' "$(cat out)"
}

# What the store would take and nobody would find again.
misplaced() {
  {
    record 1
    for time in x 2026-01-02T03:04:05Z 2026-01-02T03:04:05.006+02:00 1900-02-29T03:04:05.006Z 1600-01-02T03:04:05.006Z; do
      record 2 "$time"
    done
    record 3
    record 3
    record 4
    record 3 | sed 's/,"seq/ ,"seq/'
    record 4
  } >times.ndjson
  ends 4 "losses" zel ingest times.ndjson
  check "bad times with their places" "2 3 4 5 6" "$(grep -o '^zel: times.ndjson:[0-9]*: \(no begin_time\|begin_time\)' err | cut -d: -f3 | xargs)"
  check "a record that takes another's place" "zel: times.ndjson:10: has the key of an earlier record, which it replaces (seq_num tells records of one time apart)
zel: 1 record(s) replaced an earlier, different one of this run with the same key, unless another folder was begun in between" "$(grep replace err)"
  check "and one that came again" "zel: 2 record(s) came again, unchanged" "$(grep again err)"
  check "what is left" "$(sed -n '1p;10p;11p' times.ndjson)" "$(zel query)"

  # Output that has no place is told and reaches no database.
  records 1 2000 >many.ndjson
  run bash -c "'$bin/zel' --store other ingest --print-keys many.ndjson >/dev/full"
  check "a full device" "4 1" "$code $(grep -c "^zel: can't write: No space left on device" err)"
  ends 4 "no stdout" bash -c "'$bin/zel' --store third ingest --print-keys many.ndjson >&- <&-"
  check "the store is whole" "2000 0" "$("$bin/zel" --store third query | wc -l) $(grep -c begin_time third/*/LOG)"

  # Damage inside a table is no silent end.
  records 1 30000 | "$bin/zel" --store damaged ingest 2>/dev/null
  "$bin/zel" --store damaged query --limit 1 >/dev/null # moves the log to a table
  local table
  table=$(ls -S damaged/*/*.ldb | head -n 1)
  truncate -s $(($(stat -c %s "$table") / 2)) "$table"
  run "$bin/zel" --store damaged query
  check "rows that can't be read" "4 yes" "$code $(grep -q '^zel: .*' err && echo yes)"
}

stores() {
  touch file
  local line
  for store in file file/store missing/parent/store; do
    ends 3 "$store: no store" "$bin/zel" --store "$store" ingest "$sample"
    check "$store: one line" 1 "$(wc -l <err)"
  done
  run "$bin/zel" --store nosuch query
  check "a query makes no store" "3 no" "$code $([ -e nosuch ] && echo yes || echo no)"
  ends 3 "no store named" "$bin/zel" query
  record 1 | ZEL_STORE=$work/env "$bin/zel" ingest 2>/dev/null
  echo "ZELDataStore=$work/env" >zel.ini
  check "store by environment and by configuration" 1 "$("$bin/zel" --config zel.ini query | wc -l)"

  # A directory of other things is not taken for a store, nor made one unless asked.
  mkdir -p documents/20200101
  touch documents/letter documents/20200101/photo
  ends 3 "a question there" "$bin/zel" --store documents query
  check "why not" "zel: documents is no store: none of a store's folders is in it" "$(cat err)"
  ends 3 "a purge there" "$bin/zel" --store documents purge --max-size 0
  run "$bin/zel" --store documents ingest - < <(record 1)
  check "nothing is put there" "3 20200101 letter" "$code $(ls documents | xargs)"
  run "$bin/zel" --store documents ingest --new - < <(record 1)
  check "unless that is wanted" "0 1" "$code $("$bin/zel" --store documents query | wc -l)"
  # One that holds nothing yet may become one, and its owner is warned of what others may do.
  mkdir -m 755 fresh
  run "$bin/zel" --store fresh query
  check "an empty store" "1 zel: note: the store fresh is open to others than its owner (mode 0755); chmod 700 closes it zel: the store fresh is empty" "$code $(xargs -d '\n' <err | xargs -0 printf %s)"
  run "$bin/zel" --store fresh ingest - < <(record 1)
  check "becomes a store" 0 "$code"

  # A folder that is no database, and one whose files went bad, cost only themselves.
  record 2 | zel ingest 2>/dev/null
  cp -r "store/$(ls store)" store/20200101
  echo garbage >store/20200101/CURRENT
  mkdir store/foreign
  run zel query
  check "a damaged folder is told" "4 1" "$code $(wc -l <out)"
  check "by name" 1 "$(grep -c '^zel: folder 20200101: 1 failure' err)"
  check "the damaged folder is still there" garbage "$(cat store/20200101/CURRENT)"
}

settings() {
  zel settings set 'ZEL\Settings\FDR' MAX_INCOMING_QUEUE_LENGTH 1000 || check "the folder is made" 0 1
  check "what was set" 1000 "$(zel settings get 'ZEL\Settings\FDR' MAX_INCOMING_QUEUE_LENGTH)"
  ends 2 "not a number" zel settings set a b 4294967296
  run zel settings set 'ZEL\Settings\FDR' MAX_INCOMING_QUEUE_LENGHT 5
  check "a name that nothing knows" "2 zel: nothing here knows ZEL\Settings\FDR MAX_INCOMING_QUEUE_LENGHT; known:" "$code $(head -n 1 err)"
  check "with those that are known" "  'ZEL\Settings\FDR' MAX_INCOMING_QUEUE_LENGTH" "$(sed -n '2s/^zel: //p' err)"
  run zel ingest "$sample"
  check "a short queue loses nothing" "0 2029" "$code $(zel query | wc -l)"
  ends 0 "taken out" zel settings unset 'ZEL\Settings\FDR' MAX_INCOMING_QUEUE_LENGTH
  for command in get unset; do
    ends 1 "$command: is out" zel settings $command 'ZEL\Settings\FDR' MAX_INCOMING_QUEUE_LENGTH
  done
  check "the file is empty" "0" "$(wc -c <config/zelstore/settings.ini)"
}

interrupt() {
  mkfifo pipe
  "$bin/zel" --store store ingest --print-keys pipe >keys 2>err &
  local ingest=$!
  exec 3>pipe
  # More than the program buffers on its way to `keys`, so that some of them show.
  records 1 1000 >&3
  until [ -s keys ]; do sleep 0.05; done
  kill -INT $ingest
  wait $ingest
  check "interrupted" 130 "$?"
  exec 3>&-
  check "what is told is stored" "$(stored) $(stored)" "$(zel query | wc -l) $(wc -l <keys)"

  # Whichever thread hears of it, the one that reads does.
  mkfifo idle
  exec 4<>idle
  "$bin/zel" --store store ingest - <&4 2>err &
  ingest=$!
  until [ "$(ls /proc/$ingest/task | wc -l)" -gt 1 ] && grep -q '^State:.S' /proc/$ingest/status; do sleep 0.05; done
  python3 -c "import ctypes; ctypes.CDLL(None).tgkill($ingest, $(ls /proc/$ingest/task | sort -n | tail -n 1), 15)"
  wait $ingest
  check "interrupted on another thread" 130 "$?"

  # Who is told to end, and has, has done what it should.
  local wanted
  for wanted in INT:130 TERM:0; do
    "$bin/zel" --store store ingest --live - <&4 2>err &
    ingest=$!
    until grep -q '^State:.S' /proc/$ingest/status && [ "$(ls /proc/$ingest/task | wc -l)" -gt 1 ]; do sleep 0.05; done
    kill -"${wanted%:*}" $ingest
    wait $ingest
    check "live" "$wanted" "${wanted%:*}:$?"
  done
}

# Nothing is called stored that isn't.
locked() {
  records 1 3 | zel ingest 2>/dev/null
  hold "$(date -u +%Y%m%d)"
  run zel ingest - < <(records 3 6)
  check "another process has the folder" "4 1" "$code $(tail -n 1 err | grep -c '^zel: 0 record(s) stored, 4 lost, 4 receive-time row(s) lost, 0 line(s) rejected')"
  touch free
  wait "$holder"
  run zel ingest - < <(records 3 6)
  check "and no more" "0 6" "$code $(zel query | wc -l)"
}

bytes() { find store -type f -printf '%s\n' | awk '{ n += $1 } END { print n + 0 }'; }
names() { grep -o '"name":"[^"]*' "${1:-out}" | cut -d'"' -f4 | xargs; }
# Five folders of 1 MiB each.
oldstore() {
  rm -rf store
  mkdir -m 700 store
  for folder in 20260101 20260101001 20260101999 20260102 foreign; do
    mkdir -p store/$folder
    truncate -s 1M store/$folder/000005.ldb
  done
}

retention() {
  oldstore
  mkdir store/lost+found # of a volume of its own; passed over
  local limit stray gone
  run zel info -o json
  check "info" "0 20260101 20260101001 20260101999 20260102 foreign" "$code $(names)"
  check "sums" 1 "$(grep -c '"files":5,"bytes":5242880,"oldest_date":"20260101","estimated_bytes":7864320,"errors":\[\]}$' out)"
  check "kinds" "events events silent events other" "$(grep -o '"kind":"[a-z]*' out | cut -d'"' -f4 | xargs)"
  run zel info --check -o table
  check "what is no database is told" "4 5" "$code $(grep -c '^folder .*: 1 failure(s) to read' out)"
  check "a table" "20260101999  2026-01-01    999 silent       1      1.0 MiB" "$(grep silent out)"

  oldstore
  for dry in "" --dry-run; do
    run zel purge --max-size 0 $dry -o json
    check "what is no database is not deleted unasked" "2 5" "$code $(ls store | wc -l)"
    check "but named" "zel:   foreign" "$(tail -n 1 err)"
  done

  while read -r limit stray gone; do
    oldstore
    [ "$stray" = 0 ] || truncate -s "$stray" store/stray
    run zel purge --max-size "$limit" --including-foreign --dry-run -o json
    check "$limit $stray: would go" "0 $gone" "$code $(names)"
    check "$limit $stray: nothing is gone" 5 "$(ls -d store/*/ | wc -l)"
    run zel purge --max-size "$limit" --including-foreign -o json
    check "$limit $stray: went" "0 $gone" "$code $(names)"
    check "$limit $stray: left" $((5 - $(wc -w <<<"$gone"))) "$(ls store | grep -cv stray)"
    check "$limit $stray: the size is told" "$(bytes)" "$(sed 's/.*"bytes_after":\([0-9]*\).*/\1/' out)"
  done <<'LIMITS'
5M 0
5m 1 20260101
3MiB 0 20260101 20260101001
0 0 20260101 20260101001 20260101999 20260102 foreign
4294967295M 0
4095T 0
2gib 0
LIMITS
  check "nothing is written outside the store" no "$([ -e config ] && echo yes || echo no)"
  ZELSettingsFile=$work/named.ini zel purge --max-size 5M --including-foreign >/dev/null
  check "but for a file that is named" "MaxDBSizeHonored=1" "$(tail -n 1 named.ini)"
  oldstore
  run zel purge --max-size 4M --including-foreign -o table
  check "a table" "20260101     2026-01-01 events    1.0 MiB" "$(cat out)"
  check "and a summary" "zel: 1 folder(s) went; 5.0 MiB before, 4.0 MiB now, limit 4.0 MiB" "$(cat err)"
  for limit in "" 5 M -1M " 5M" 1.5M 5K 5MB 4294967296M 4096T 99999999999999999999M; do
    ends 2 "size $limit" zel purge --max-size "$limit"
  done
  ends 2 "no size" zel purge
  for command in "purge --max-size 1M" info monitor; do
    ends 3 "$command: no store" "$bin/zel" --store nosuch $command
  done

  # Links are neither counted nor followed.
  mkdir kept && truncate -s 9M kept/a && ln -s "$work/kept" store/link && ln -s "$work/kept" store/foreign/link
  run zel purge --max-size 0 --including-foreign -o json
  check "links" "0 20260101001 20260101999 20260102 foreign a" "$code $(names) $(ls kept)"
}

# What another process writes stays; all else goes, and the writer loses nothing.
# All that is in the store: names, sizes, modes, times of change, contents.
state() {
  (cd store && find . -printf '%p %s %m %T@\n' | sort && find . -type f | sort | xargs sha256sum) | sha256sum
}

# Whoever asks leaves no trace, and neither hinders a writer nor is hindered by one.
readalone() {
  local today before writer
  today=$(date -u +%Y%m%d)
  zel ingest "$sample" 2>/dev/null
  zel ingest "$sample" 2>/dev/null
  mkdir store/20200101.removed store/20200102
  before=$(state)
  hold "$today"
  run zel query
  check "a folder that is locked is read" "0 2029" "$code $(wc -l <out)"
  check "and checked" "0" "$(zel info --check >/dev/null 2>err; echo $?)$(cat err)"
  zel purge --max-size 0 --dry-run >/dev/null 2>&1
  touch free
  wait "$holder"
  run zel query --limit 5
  check "nothing in the store has changed" "0 $before" "$code $(state)"
  mkfifo pipe
  "$bin/zel" --store store ingest pipe 2>/dev/null &
  writer=$!
  exec 3>pipe
  records 1 2500 >&3
  until [ "$(zel query 2>>err | wc -l)" -ge 4029 ]; do sleep 0.05; done
  run zel query
  check "beside a writer" "0 yes" "$code $([ "$(wc -l <out)" -ge 4029 ] && echo yes)"
  exec 3>&-
  wait $writer
  check "whom it does not hinder" "0 4529" "$? $(zel query | wc -l)"
}

inuse() {
  local today
  today=$(date -u +%Y%m%d)
  oldstore
  mkfifo pipe
  "$bin/zel" --store store ingest pipe 2>/dev/null &
  local ingest=$!
  exec 3>pipe
  records 1 1000 >&3
  until [ -s "store/$today/000003.log" ]; do sleep 0.05; done
  run zel purge --max-size 0 --including-foreign --dry-run -o json
  check "foreseen" "4 1" "$code $(grep -c "\"name\":\"$today\".*\"in_use\":true" out)"
  run zel purge --max-size 0 --including-foreign -o json
  check "others go" "4 20260101 20260101001 20260101999 20260102 foreign" "$code $(names)"
  check "told" 1 "$(grep -c '^zel: the store is still larger than its limit' err)"
  record 1001 >&3
  exec 3>&-
  wait $ingest
  check "the writer ends well" 0 "$?"
  check "nothing is lost" 1001 "$(zel query | wc -l)"
}

monitor() {
  mkdir -m 700 store
  run zel monitor --once -o json
  check "once" "0 1" "$code $(grep -c '"state":"[a-z]*","free_mb":[0-9]*}$' out)"
  run zel monitor --once --stop-below 4294967295 -o table
  check "below the threshold" 1 "$(grep -c '  stop    [0-9]* MB free$' out)"
  ends 1 "a look changes no settings" zel settings get 'ZEL\Settings\DiskMonitor' StopThreshold
  ZELSettingsFile=$work/named.ini "$bin/zel" --store store monitor --stop-below 7 -o json >out 2>err &
  local pid=$!
  until [ -s out ]; do sleep 0.05; done
  kill -INT $pid
  wait $pid
  check "interrupted" 130 "$?"
  check "the state at once" 1 "$(grep -c '"state":"resume"' out)"
  check "thresholds are kept in a file that is named" "StopThreshold=7 ResumePercentage=10" "$(tail -n 2 named.ini | sort -r | xargs)"
}

# Records of about 2500 bytes that don't pack: FIRST LAST
bulk() {
  awk -v first="$1" -v last="$2" -v pool="$(head -c 32768 /dev/urandom | od -An -v -tx1 | tr -d ' \n')" '
    BEGIN {
      srand(1)
      for (i = first; i <= last; i++)
        printf "{\"artifacts\":{\"target\":{\"object_type\":\"url\",\"note\":\"%s\"}},\"action\":[\"open\"],\"begin_time\":{\"value\":\"2026-02-02T03:04:05.006Z\"},\"seq_num\":%d}\n",
          substr(pool, 1 + int(rand() * 63000), 2400), i
    }'
}

# A volume that fills up while records come in, is made room on by a purge, and goes on.
fulldisk() {
  mkdir store
  if ! mount -t tmpfs -o size=180m tmpfs store 2>mounterr; then
    echo "SKIPPED: no volume can be mounted here: $(cat mounterr)"
    exit 77
  fi
  trap 'umount -l "$work/store"; rm -rf "$work"' EXIT
  mkdir store/20260101
  head -c 60M /dev/zero >store/20260101/000005.ldb
  records 1 1000 >first.ndjson
  ends 0 "there is room" zel ingest first.ndjson

  bulk 1 30000 >bulk.ndjson
  run zel ingest --no-receive-rows bulk.ndjson
  local stored
  stored=$(stored)
  check "refused records are told with their cause" "4 yes" "$code $(grep -q '^zel: folder [0-9]*: [0-9]* failure(s) to write, the last: the disk is full (0x80070070)$' err && echo yes)"
  check "what is lost is told" 1 "$(grep -c '^zel: [0-9]* record(s) stored, [1-9][0-9]* lost, 0 line(s) rejected' err)"
  zel query 2>/dev/null | LC_ALL=C sort >before
  check "as many are stored as was told" "$stored" "$(grep -c '"url"' before)"
  check "what was taken before is there" "$(LC_ALL=C sort first.ndjson | md5sum)" "$(grep '"file"' before | md5sum)"
  check "and records that fitted" yes "$([ "$stored" -gt 5000 ] && echo yes || echo "$stored")"

  # A megabyte less than there is: the oldest folder alone is more than that.
  run zel purge --max-size $(($(bytes) / 1048576 - 1))M -o json
  check "a purge makes room" "0 20260101" "$code $(names)"
  bulk 30001 31000 >third.ndjson
  ends 0 "it goes on" zel ingest third.ndjson
  stored=$(LC_ALL=C sort -m before <(LC_ALL=C sort third.ndjson) | md5sum)
  check "every acknowledged record is there" "$stored" "$(zel query | LC_ALL=C sort | md5sum)"

  # Reading needs no room and leaves no trace.
  dd if=/dev/zero of=store/filler bs=64k 2>/dev/null
  local former
  former=$(find store -printf '%p %s %T@ %C@\n' | sort)
  check "full to the last byte" "$stored" "$(zel query | LC_ALL=C sort | md5sum)"
  mount -o remount,ro store
  check "for reading alone" "$stored" "$(zel query | LC_ALL=C sort | md5sum)"
  mount -o remount,rw store
  check "no trace" "$former" "$(find store -printf '%p %s %T@ %C@\n' | sort)"
}

follow() {
  mkfifo pipe
  "$bin/zel" --store store ingest --follow pipe >first 2>err &
  local ingest=$! taken
  exec 3>pipe
  # A full batch wakes the store, whose job then prints.
  records 1 40000 >&3
  until [ "$(wc -l <first)" -ge 200 ]; do sleep 0.05; done
  records 40001 60000 >&3
  kill -INT $ingest
  wait $ingest
  check "interrupted" 130 "$?"
  exec 3>&-
  taken=$(stored)
  run zel ingest --follow - < <(records $((taken + 1)) 100000)
  check "the second run" 0 "$code"
  check "each record once, in order" "$(records 1 100000 | md5sum)" \
    "$(cat first out | sed 's/,"enriched_data":null}$/}/' | md5sum)"
  echo garbage >store/zel.position
  run zel ingest --follow - </dev/null
  check "a position that is none" "3 1" "$code $(grep -c 'zel.position: this is no position' err)"
  run zel ingest --follow --print-keys - </dev/null
  check "what excludes each other" 2 "$code"
}

# The rows of a folder that can't be read for now come first all the same, once it can.
followobstacle() {
  records 1 10 | zel ingest 2>/dev/null
  mv "store/$(date -u +%Y%m%d)" store/20200101
  echo 'r<receive_time>2020-01-01T00:00:00.000Z<sequence>0000000000' >store/zel.position
  hold 20200101
  "$bin/zel" --store store ingest --follow - < <(records 11 20) >out 2>err &
  local ingest=$!
  until grep -qs '20200101.*in use by another process' err; do sleep 0.05; done
  touch free
  wait $holder $ingest
  check "an obstacle that passed is no loss" 0 "$?"
  check "each record once, in order" "$(records 1 20)" "$(sed 's/,"enriched_data":null}$/}/' out)"
  # Reading opens a folder, which makes its log anew; the former one stays beside it.
  local log
  log=$(md5sum <store/20200101/LOG)
  run zel ingest --follow - </dev/null
  check "who has nothing to do reads once" "0 $log" "$code $(md5sum <store/20200101/LOG.old)"
  echo garbage >store/20200101/CURRENT
  run zel ingest --follow - < <(record 21)
  check "damage holds nothing up and is a loss" "4 1 1" "$code $(wc -l <out) $(grep -c '^zel: folder 20200101: .*is not printed' err)"
}

# A reader of the output that stalls, or a full device, costs no record and holds no end up.
followstall() {
  mkfifo pipe stalled
  exec 5<>stalled
  head -c 65536 /dev/zero >&5
  "$bin/zel" --store store ingest --follow pipe >stalled 2>err &
  local ingest=$! taken
  exec 3>pipe
  records 1 600 >&3
  # The job prints as soon as the first batch is on the disk.
  until [ "$(cat store/2*/*.log 2>/dev/null | wc -c)" -gt 60000 ]; do sleep 0.05; done
  kill -TERM $ingest
  wait $ingest
  check "ended in order" 0 "$?"
  exec 3>&-
  taken=$(stored)
  check "what was taken is stored" "$taken" "$(zel query | wc -l)"
  cp store/2*/LOG before
  "$bin/zel" --store store ingest --follow - >stalled 2>err </dev/null &
  ingest=$!
  until ! cmp -s before store/2*/LOG; do sleep 0.05; done
  kill -TERM $ingest
  wait $ingest
  check "ended at the start" 0 "$?"
  run bash -c "'$bin/zel' --store store ingest --follow - >/dev/full </dev/null"
  check "a full device" "4 1" "$code $(grep -c "^zel: can't write: No space left on device" err)"
  run zel ingest --follow - </dev/null
  check "all comes at last" "0 $taken" "$code $(wc -l <out)"
}

machine() {
  run zel machine show
  check "this machine" 0 "$code"
  check "is described as Linux" '  "os_major_version": 0,' "$(grep os_major out)"
  cp out this.json
  zel machine show --machine this.json >that.json
  check "what is shown can be read" "$(sort this.json | tr -d ,)" "$(sort that.json | tr -d ,)"
  sed -n '/^```json/,/^```/p' "$docs/machine.md" | grep -v '^```' >example.json
  check "the documented example" 1 "$(zel machine show --machine example.json | grep -c '"account": "alice"')"
  run zel query --explain --machine example.json --object file --target-path 'CSIDL_APPDATA\x.exe'
  check "concrete paths" 'C:\Users\alice\AppData\Roaming\x.exe C:\Users\bob\AppData\Roaming\x.exe' "$(sed -n 's/.* target_path_name equals //p' err | xargs -d '\n')"
  echo '{"users":[{}]}' >bad.json
  run zel machine show --machine bad.json
  check "a bad description" "2 zel: bad.json: users[0]: a user needs a sid" "$code $(cat err)"
  run zel machine show --machine nosuch.json
  check "a missing one" "2" "$code"
}

host() {
  mkdir hoststore
  run "$bin/minimalhost" hoststore
  check "the minimal host" "0 2" "$code $(wc -l <out)"
  check "its events" 2 "$("$bin/zel" --store hoststore query | wc -l)"
  run "$bin/minimalhost" nosuch
  check "without a directory" "1 minimalhost: events can't be stored or read in nosuch" "$code $(cat err)"
  run "$bin/agenthost" nosuch
  check "the other host says what failed" "1 2" "$code $(grep -c 'operation 1 failed' out)"
}

"$scenario"
[ "$failures" -eq 0 ]
