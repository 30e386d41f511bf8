#!/usr/bin/env bash
# One scenario of the programs as a person runs them: endtoend.sh SCENARIO BIN EXAMPLES
set -uo pipefail

scenario=$1
bin=$2
sample=$3/events.ndjson.xz
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
record() { # SEQUENCE [TIME]
  printf '{"artifacts":{"target":{"object_type":"file","path":{"value":["C:\\\\t\\\\%s.txt"]}}},"action":["create"],"begin_time":{"value":"%s"},"seq_num":%s}\n' \
    "$1" "${2:-2026-01-02T03:04:05.006Z}" "$1"
}

sample() {
  xz -dc "$sample" >all.ndjson
  run zel ingest "$sample"
  check "ingest ends well" 0 "$code"
  check "the summary counts" 1 "$(grep -c '^zel: 2029 record(s) taken, 0 line(s) rejected' err)"
  check "nothing but data on stdout" "" "$(cat out)"
  check "every record comes back as it was" "$(sort all.ndjson | md5sum)" "$(zel query | sort | md5sum)"
  check "one folder, of today" "$(date -u +%Y%m%d)" "$(ls store)"
  check "store for its owner alone" 700 "$(stat -c %a store)"

  # The same questions, answered by a plain look at the text.
  local since until expected
  while read -r since until; do
    expected=$(grep -o '"begin_time":{"value":"[^"]*' all.ndjson | cut -c24- |
      awk -v a="$since" -v b="$until" '$0 >= a && $0 <= b' | wc -l)
    check "events from $since to $until" "$expected" "$(zel query --since "$since" --until "$until" | wc -l)"
  done <<'RANGES'
2020-10-22T00:00:00.000Z 2020-10-22T23:59:59.999Z
2019-05-18T20:35:52.569Z 2019-05-18T20:35:52.569Z
2022-08-04T02:00:00.000Z 2022-08-04T02:30:00.000Z
1999-01-01T00:00:00.000Z 2020-06-10T02:00:00.000Z
RANGES
  check "from standard input, packed, the same again" 2029 "$(zel ingest - <"$sample" 2>/dev/null; zel query | wc -l)"
  gzip -c all.ndjson >all.gz
  run "$bin/zel" --store other ingest --no-receive-rows all.gz
  check "gzip" 0 "$code"
  check "receive-time rows are no events" 2029 "$("$bin/zel" --store other query | wc -l)"
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
    record 3 | tr -d '\n'
  } >bad.ndjson
  run zel ingest bad.ndjson
  check "losses are told at the end" 4 "$code"
  check "each bad line with its place" "zel: bad.ndjson:2: not JSON, or a name that no record may hold
zel: bad.ndjson:3: no begin_time
zel: bad.ndjson:4: not JSON, or a name that no record may hold
zel: bad.ndjson:5: not UTF-8
zel: bad.ndjson:7: no target or no action
zel: bad.ndjson:8: holds a NUL
zel: bad.ndjson:9: longer than 64 MiB" "$(grep bad.ndjson err)"
  check "all others are stored" "$(record 1; record 2; record 3)" "$(zel query)"
  run zel ingest nosuch.ndjson
  check "a missing file" "4 zel: nosuch.ndjson:0: can't be read: No such file or directory" "$code $(head -n 1 err)"
  head -c 3000 "$sample" >cut.xz
  run zel ingest cut.xz
  check "a file that was cut off" 4 "$code"
  check "told with its name" 1 "$(grep -c "^zel: cut.xz:.*damaged or cut off" err)"
  run zel ingest --print-keys - < <(record 7)
  check "keys" 'p<begin_time>2026-01-02T03:04:05.006Z<sequence>0000000007<object_type>file<action>create<target_path_name>C:\t\7.txt' "$(cat out)"
}

stores() {
  touch file
  local line
  for store in file file/store missing/parent/store; do
    run "$bin/zel" --store "$store" ingest "$sample"
    check "$store: no store" 3 "$code"
    check "$store: one line" 1 "$(wc -l <err)"
  done
  run "$bin/zel" --store nosuch query
  check "a query makes no store" "3 no" "$code $([ -e nosuch ] && echo yes || echo no)"
  run "$bin/zel" query
  check "no store named" 3 "$code"
  record 1 | ZEL_STORE=$work/env "$bin/zel" ingest 2>/dev/null
  echo "ZELDataStore=$work/env" >zel.ini
  check "store by environment and by configuration" 1 "$("$bin/zel" --config zel.ini query | wc -l)"

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

limits() {
  for i in 1 2 3 4 5; do record "$i"; done | zel ingest 2>/dev/null
  check "limit" "$(record 1; record 2)" "$(zel query --limit 2)"
  run zel query --since 2026-01-03
  check "nothing found" "1 " "$code $(cat out)"
  run zel query --since yester
  check "a bad time is pointed at" "2   ^" "$code $(tail -n 1 err)"
  run zel query '{"event_query":'
  check "a bad document" 2 "$code"
  run zel query --nosuch
  check "a bad flag" 2 "$code"
  zel query --since 2026-01-02 --limit 3 --explain >document.json
  check "the document runs as the flags do" "$(zel query --since 2026-01-02 --limit 3)" "$(zel query - <document.json)"
  run zel query -o json --limit 2
  check "one JSON array" "[
$(record 1),
$(record 2)
]" "$(cat out)"
  zel query | head -n 1 >one
  check "a reader that goes away" "$(record 1)" "$(cat one)"
}

settings() {
  run zel settings get 'ZEL\Settings\FDR' MAX_INCOMING_QUEUE_LENGTH
  check "no value yet" 1 "$code"
  zel settings set 'ZEL\Settings\FDR' MAX_INCOMING_QUEUE_LENGTH 1000 || check "the folder is made" 0 1
  check "what was set" 1000 "$(zel settings get 'ZEL\Settings\FDR' MAX_INCOMING_QUEUE_LENGTH)"
  run zel settings set a b 4294967296
  check "not a number" 2 "$code"
  run zel ingest "$sample"
  check "a short queue loses nothing" "0 2029" "$code $(zel query | wc -l)"
}

interrupt() {
  mkfifo pipe
  "$bin/zel" --store store ingest --print-keys pipe >keys 2>err &
  local ingest=$!
  exec 3>pipe
  # More than the program buffers on its way to `keys`, so that some of them show.
  for i in $(seq 1000); do record "$i" >&3; done
  until [ -s keys ]; do sleep 0.05; done
  kill -INT $ingest
  wait $ingest
  check "interrupted" 130 "$?"
  exec 3>&-
  local taken
  taken=$(sed -n 's/^zel: \([0-9]*\) record(s) taken.*/\1/p' err)
  check "what was taken is stored" "$taken $taken" "$(zel query | wc -l) $(wc -l <keys)"
}

records() { # FROM TO
  for i in $(seq "$1" "$2"); do record "$i"; done
}

follow() {
  mkfifo pipe
  "$bin/zel" --store store ingest --follow pipe >first 2>err &
  local ingest=$! taken
  exec 3>pipe
  # A full batch wakes the store, whose job then prints.
  records 1 600 >&3
  until [ "$(wc -l <first)" -ge 200 ]; do sleep 0.05; done
  records 601 900 >&3
  kill -INT $ingest
  wait $ingest
  check "interrupted" 130 "$?"
  exec 3>&-
  taken=$(sed -n 's/^zel: \([0-9]*\) record(s) taken.*/\1/p' err)
  run zel ingest --follow - < <(records $((taken + 1)) 1000)
  check "the second run" 0 "$code"
  check "each record once, in order" "$(records 1 1000 | md5sum)" \
    "$(cat first out | sed 's/,"enriched_data":null}$/}/' | md5sum)"
  echo garbage >store/zel.position
  run zel ingest --follow - </dev/null
  check "a position that is none" "3 1" "$code $(grep -c 'zel.position: this is no position' err)"
  run zel ingest --follow --print-keys - </dev/null
  check "what excludes each other" 2 "$code"
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
}

"$scenario"
[ "$failures" -eq 0 ]
