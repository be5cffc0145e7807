#!/bin/bash
# Runs trk as a user does: programs.sh TRK MAKE_EXAMPLE_RECORDING SCRATCH
set -euo pipefail
trk=$1 make_example=$2 scratch=$3
rm -rf "$scratch"
mkdir -p "$scratch"
cd "$scratch"

fail() {
    echo "FAILED: $1" >&2
    exit 1
}
# A command that must fail with status $1 and say, in one line, something that matches $2.
refuses() {
    local expected=$1 pattern=$2 status=0
    shift 2
    "$@" >out 2>err || status=$?
    [ "$status" -eq "$expected" ] || fail "$*: status $status"
    [ "$(wc -l <err)" -eq 1 ] && grep -q -- "$pattern" err || fail "$*: says '$(cat err)'"
}
# Every cell of column $2 of the table $1.
cells() {
    awk -F'\t' -v name="$2" 'NR == 1 { for (i = 1; i <= NF; i++) if ($i == name) c = i } NR > 1 { print $c }' "$1"
}
has() { grep -qE -- "$2" "$1" || fail "$1 lacks '$2': $(cat "$1")"; }
hex() { printf "$(tr -d ' \n' <<<"$1" | sed 's/../\\x&/g')"; }

# ---- A recording by hand: left eye, 1000 samples/s, gaze divisor 10, lost samples at 1003 and 1004 ----

start() { printf 'QM_OPTICORE_COMBFILE\nVERSION: PUPILON V2 7\nSOURCE: PUPILON LX\nSUBJECT:\ta\\b\nENDP:\n'; }
block="cf00 21000003e8 4103e80000 30000a 51000a 4b00120000 560001 b48540 00
       d100 21000003e8 4103e80000 30000a 51000a 4b00120000 554000 560001 00"
message="1800 21000003e9 5e0008 473009 5c 00 0a 2e21 00"
samples="a541 000003e8 2584 1519 04b0 0007
         0700 21000003e8 00
         8541 01 8000 8000 0000 8000
         8541 01 2588 1515 04b1 0009
         8541 03 2589 1515 04b1 0009"
fixation="0800 21000003e8 41000003ed 6a25861517 7204b0 00"
tail="1000 21000003ee 00 1200 21000003ee 00 0000"
unreadable="2800 21000003ec 00"
{ start && hex "$block $message $samples $fixation $tail"; } >hand.trk
{ start && hex "$block $message $unreadable $samples $fixation $tail"; } >odd.trk

"$trk" dump hand.trk | tr '\t' ' ' >hand.txt
header="kind time start end eye gaze_x_left gaze_y_left pupil_size_left gaze_x_right gaze_y_right \
pupil_size_right start_gaze_x start_gaze_y end_gaze_x end_gaze_y avg_gaze_x avg_gaze_y avg_pupil_size \
peak_velocity input buttons sample_rate text"
{ echo "$header" && cat; } <<'END' | diff - hand.txt || fail "dump of all kinds"
recording_start 1000 . . left . . . . . . . . . . . . . . . . 1000 .
samples_start 1000 1000 1000 . . . . . . . . . . . . . . . . . 1000 .
events_start 1000 1000 1000 . . . . . . . . . . . . . . . . . 1000 .
fixation_start 1000 1000 . left . . . . . . . . . . . . . . . . . .
sample 1000 . . left 960.4 540.1 1200 . . . . . . . . . . . 7 . . .
message 1001 1001 . . . . . . . . . . . . . . . . . . . G0\t\\\x00\n.!
sample 1001 . . left . . 0 . . . . . . . . . . . . . . .
sample 1002 . . left 960.8 539.7 1201 . . . . . . . . . . . 9 . . .
dummy 1003 . . both . . . . . . . . . . . . . . . . . .
dummy 1004 . . both . . . . . . . . . . . . . . . . . .
sample 1005 . . left 960.9 539.7 1201 . . . . . . . . . . . 9 . . .
fixation_end 1005 1000 1005 left . . . . . . . . . . 960.6 539.9 1200 . . . . .
samples_end 1006 1006 1006 . . . . . . . . . . . . . . . . . . .
events_end 1006 1006 1006 . . . . . . . . . . . . . . . . . . .
recording_end 1006 . . left . . . . . . . . . . . . . . . . 1000 .
END

# One kind at a time has the columns of that kind; several have those of the whole table.
"$trk" dump --kind messages hand.trk >messages.txt
[ "$(tr '\t\n' ' |' <messages.txt)" = 'kind time length text|message 1001 8 G0\t\\\x00\n.!|' ] || fail "messages"
"$trk" dump --kind recordings hand.trk >recordings.txt
grep -qx 'recording_start 1000 left 1000 samples+events 0x8540 0x0000 10 0 0 1 0 176 190 0' \
    <(tr '\t' ' ' <recordings.txt) || fail "recordings"
"$trk" dump --kind samples hand.trk >samples.txt
[ "$(cells samples.txt flags | tr '\n' ' ')" = "0xa541 0x8541 0x8541 0xc000 0xc000 0x8541 " ] ||
    fail "sample flags"
"$trk" dump --kind events hand.trk >events.txt
[ "$(cells events.txt avg_pupil_size | tr '\n' ' ')" = ". . . 1200 . . " ] || fail "event values"
"$trk" dump --kind samples,messages --kind recordings hand.trk | tr '\t' ' ' >several.txt
grep -vE '^(samples_|events_|fix)' hand.txt | diff - several.txt || fail "several kinds"
"$trk" dump --from 1001 --to 1002 hand.trk | cut -f1,2 | tail -n +2 >window.txt
[ "$(tr '\t\n' '  ' <window.txt)" = "message 1001 sample 1001 sample 1002 " ] || fail "--from and --to"
[ "$("$trk" dump --check basic hand.trk | grep -c dummy)" = 0 ] || fail "--check basic fills gaps"
"$trk" dump -o written.txt hand.trk >out
[ ! -s out ] && tr '\t' ' ' <written.txt | cmp - hand.txt || fail "-o"

# ---- info ----

"$trk" info hand.trk >info.txt 2>err && [ ! -s err ] || fail "info"
has info.txt '^hand.trk$'
has info.txt '^  container +plain$'
has info.txt '^  tracker +model 3 \(LX\), file revision 7$'
has info.txt '^  recorded +0\.006 s in 1 block, from 1000 to 1006 ms \(0\.006 s\)$'
has info.txt '^  SUBJECT:\\ta\\\\b$'
has info.txt '^Items: 15$'
has info.txt '^  samples +6  2 of them dummies in place of lost ones, 0 with a repeated time stamp$'
has info.txt '^  gaze missing +50\.00 % +\.$' # 1001 and the two dummies, of six
has info.txt '^  fixations +1 +0$'
has info.txt '^    mean ms +5\.0 +\.$'
has info.txt '^  1 x  Missing 3 samples\. Inserting dummy samples$'
has info.txt '^  1 +1000 +1006 +0\.006 +left +1000 +6 +3 +samples\+events$'
has info.txt '^  samples hold +gaze, pupil size, input$'
has info.txt '^  block starts and ends +6$'

# ---- What cannot be read ----

: >empty.trk
echo "no recording" >bad.trk
size=$(wc -c <hand.trk)
head -c $((size - 40)) hand.trk >cut.trk
refuses 1 '^trk: none.trk: No such file' "$trk" dump none.trk
refuses 1 '^trk: \.: Is a directory' "$trk" dump .
refuses 1 '^trk: empty.trk: file is empty' "$trk" dump empty.trk
refuses 1 '^trk: bad.trk: Bad magic' "$trk" dump -o kept.txt bad.trk
[ ! -e kept.txt ] || fail "-o made a file for a bad recording"
refuses 1 '^trk: cut.trk: recording is damaged (.*--tolerant' "$trk" dump cut.trk
refuses 1 '^trk: odd.trk: 1 item could not be read (Read error)' "$trk" dump odd.trk
tr '\t' ' ' <out | cmp - hand.txt || fail "the items beside an unreadable one"
refuses 1 'hand.trk: is the recording itself' "$trk" dump -o hand.trk hand.trk
refuses 1 'No space left' bash -c '"$0" dump hand.trk >/dev/full' "$trk"
refuses 1 '^trk: standard output: ' bash -c '"$0" dump hand.trk >&-' "$trk"
for usage in "" "dump" "dump --kind saccades hand.trk" "dump --from -1 hand.trk" "info"; do
    status=0
    "$trk" $usage >out 2>err || status=$?
    [ "$status" -eq 2 ] && [ -s err ] && [ ! -s out ] || fail "usage error '$usage': status $status"
done
"$trk" dump --tolerant cut.trk | tr '\t' ' ' >cut.txt
head -n 9 hand.txt | cmp - cut.txt || fail "--tolerant" # up to 1002; the next sample breaks off
refuses 1 '^trk: none.trk: ' "$trk" info none.trk cut.trk hand.trk
has out 'recording is damaged: shows the items before the damage'
tail -n "$(wc -l <info.txt)" out | cmp - info.txt || fail "info goes on after an unreadable file"

# ---- The example recording ----

"$make_example" plain.trk
"$make_example" compressed.trk --compressed
for file in plain compressed; do
    "$trk" dump $file.trk >$file.txt
    "$trk" info $file.trk >$file.info
    has $file.info "^  container +$file\$"
done
cmp plain.txt compressed.txt || fail "plain and compressed differ"
[ "$(awk -F'\t' '{ print NF }' plain.txt | sort -u)" = 23 ] || fail "a line with another number of cells"
lines=$(($(wc -l <plain.txt) - 1))
has plain.info "^Items: $lines\$"
sum=0
for kind in samples events messages recordings; do
    sum=$((sum + $("$trk" dump --kind $kind plain.trk | tail -n +2 | wc -l)))
done
[ "$sum" -eq "$lines" ] || fail "kinds do not add up: $sum of $lines"
# A reader that has seen enough is no failure.
"$trk" dump plain.trk 2>err | head -n 1 >out && [ ! -s err ] || fail "closed pipe"
cmp out <(head -n 1 plain.txt) || fail "header line through a pipe"
