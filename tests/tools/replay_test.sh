#!/bin/sh
# The recording workflow from the command line: run --record records as on a device, replay
# finds every run the same, a changed configuration differs (exit 1), a torn file is read up
# to its tear, a recording becomes a scenario that test passes, and a folder that holds no
# recording is an error (exit 2).
# Usage: replay_test.sh WORK_DIR EXAMPLES_DIR [EMULATOR...] PREVIEW
set -u
work=$1 examples=$2
shift 2
preview() { "$@" >"$work/out" 2>"$work/err"; }
fail() { echo "replay_test: $*"; cat "$work/out" "$work/err"; exit 1; }
expect() {  # expect EXIT COMMAND...
    want=$1
    shift
    preview "$@"
    got=$?
    [ "$got" = "$want" ] || fail "exit $got, not $want: $*"
}
rm -rf "$work" && mkdir -p "$work" && cp -R "$examples/plc-telegram" "$work/ex" || exit 1
echo '{"dir": "rec", "max_bytes": 100000}' >"$work/ex/formatv2_record.json"

expect 0 "$@" run "$work/ex/scenario.json" --record "$work/ex/formatv2_record.json" --log-level none
[ "$(ls "$work/ex/rec" | wc -l)" = 1 ] || fail "not one recording file"
expect 0 "$@" replay "$work/ex/rec" --json
grep -q '"name":	"one part"' "$work/out" || fail "the run's name from the scenario is missing"
[ "$(grep -c '"same":	true' "$work/out")" = 2 ] || fail "not two runs the same"

sed 's/"StrSuffix": ";"/"StrSuffix": ","/' "$work/ex/algo_private.json" >"$work/changed.json"
expect 1 "$@" replay "$work/ex/rec" --config "$work/changed.json" --junit "$work/replay.xml"
grep -q 'first difference at byte 5' "$work/out" || fail "no first differing byte"
grep -q '<failure' "$work/replay.xml" || fail "JUnit has no failure"

expect 0 "$@" replay "$work/ex/rec" --scenario "$work/recorded.scenario.json"
expect 0 "$@" test "$work/recorded.scenario.json"

file=$(ls "$work/ex/rec"/*.fv2rec)
size=$(wc -c <"$file")
head -c $((size - 7)) "$file" >"$work/torn" && mv "$work/torn" "$file"
expect 0 "$@" replay "$work/ex/rec" --json
grep -q 'torn write' "$work/err" || fail "the torn record is not reported"
[ "$(grep -c '"same":	true' "$work/out")" = 1 ] || fail "not the one whole run"

mkdir -p "$work/empty"
expect 2 "$@" replay "$work/empty"
expect 2 "$@" replay "$work/ex"
echo '{"runs": "some"}' >"$work/bad.json"
expect 2 "$@" run "$work/ex/scenario.json" --record "$work/bad.json"
grep -q '"runs" must be "all" or "failed"' "$work/err" || fail "a bad settings file is not explained"
