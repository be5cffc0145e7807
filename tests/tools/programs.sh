#!/bin/bash
# Runs the programs as a user does: programs.sh TRK SCRATCH QUALITY
. "$(dirname "$0")/head.bash"
quality=$3
header_file=$here/../../include/trkapi/trkapi.h

mkdir big && "$trk" synth big/plain.trk
big=big/plain.trk

# ---- A recording by hand: left eye, 1000 samples/s, gaze divisor 10, lost samples at 1003 and 1004 ----

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
{ start 'SUBJECT:\ta\\b\n' && hex "$block $message $samples $fixation $tail"; } >hand.trk
{ start 'SUBJECT:\ta\\b\n' && hex "$block $message $unreadable $samples $fixation $tail"; } >odd.trk

"$trk" dump hand.trk | tr '\t' ' ' >hand.txt
header="kind time start end eye gaze_x_left gaze_y_left pupil_size_left gaze_x_right gaze_y_right \
pupil_size_right start_gaze_x start_gaze_y end_gaze_x end_gaze_y avg_gaze_x avg_gaze_y avg_pupil_size \
peak_velocity input buttons sample_rate text block trial button button_value button_state"
{ echo "$header" && cat; } <<'END' | diff - hand.txt || fail "dump of all kinds"
recording_start 1000 . . left . . . . . . . . . . . . . . . . 1000 . 1 1 . . .
samples_start 1000 1000 1000 . . . . . . . . . . . . . . . . . 1000 . 1 1 . . .
events_start 1000 1000 1000 . . . . . . . . . . . . . . . . . 1000 . 1 1 . . .
fixation_start 1000 1000 . left . . . . . . . . . . . . . . . . . . 1 1 . . .
sample 1000 . . left 960.4 540.1 1200 . . . . . . . . . . . 7 . . . 1 1 . . .
message 1001 1001 . . . . . . . . . . . . . . . . . . . "G0 \␀
.!" 1 1 . . .
sample 1001 . . left . . . . . . . . . . . . . . . . . . 1 1 . . .
sample 1002 . . left 960.8 539.7 1201 . . . . . . . . . . . 9 . . . 1 1 . . .
dummy 1003 . . both . . . . . . . . . . . . . . . . . . 1 1 . . .
dummy 1004 . . both . . . . . . . . . . . . . . . . . . 1 1 . . .
sample 1005 . . left 960.9 539.7 1201 . . . . . . . . . . . 9 . . . 1 1 . . .
fixation_end 1005 1000 1005 left . . . . . . . . . . 960.6 539.9 1200 . . . . . 1 1 . . .
samples_end 1006 1006 1006 . . . . . . . . . . . . . . . . . . . 1 1 . . .
events_end 1006 1006 1006 . . . . . . . . . . . . . . . . . . . 1 1 . . .
recording_end 1006 . . left . . . . . . . . . . . . . . . . 1000 . 1 1 . . .
END

# One kind at a time has the columns of that kind; several have those of the whole table.
"$trk" dump --kind messages hand.trk >messages.txt
[ "$(tr '\t\n' ' |' <messages.txt)" = 'kind time length text block trial|message 1001 8 "G0 \␀|.!" 1 1|' ] || fail "messages"
"$trk" dump --kind recordings hand.trk >recordings.txt
grep -qx 'recording_start 1000 left 1000 samples+events 34112 0 10 0 0 1 0 176 190 0 1 1' \
    <(tr '\t' ' ' <recordings.txt) || fail "recordings"
"$trk" dump --kind samples hand.trk >samples.txt
[ "$(cells samples.txt flags | tr '\n' ' ')" = "42305 34113 34113 49152 49152 34113 " ] ||
    fail "sample flags"
for name in $(head -n 1 samples.txt); do # as the library names its columns
    [[ $name =~ ^(kind|eye|trial)$ ]] || grep -q "TRK_COLUMN_${name^^} =" "$header_file" || fail "column $name"
done
"$trk" dump --kind events hand.trk >events.txt
[ "$(cells events.txt avg_pupil_size | tr '\n' ' ')" = ". . . 1200 . . " ] || fail "event values"
"$trk" dump --kind samples,messages --kind recordings hand.trk | tr '\t' ' ' >several.txt
grep -vE '^(samples_|events_|fix)' hand.txt | diff - several.txt || fail "several kinds"
"$trk" dump --kind samples,events --from 1001 --to 1002 hand.trk | cut -f1,2 | tail -n +2 >window.txt
[ "$(tr '\t\n' '  ' <window.txt)" = "sample 1001 sample 1002 " ] || fail "--from and --to"
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

# ---- Trials, message log and raw data: two blocks of 1000 samples/s, a log whose clock is 800 ms behind ----

# Camera window at (160, 240), centre (248, 335); from there pupil at (+250, -125)/250, CR at (+12500, 0)/250;
# areas 314 and 100. Without pupil size, the library takes both eyes for present.
raw="a451 000003f4 2584 1519 3c28 88 00fa ff83 30d4 0000 013a 0064 2423 0c0d"
mkdir logged
{
    start && hex "$(message_at 1000 'TRIALID 1') $(block_at 1002) a501 000003ea 2584 1519 04b0
        a501 000003eb 2584 1519 04b0 $(message_at 1004 'TRIAL OK') $(message_at 1004 'note') $(end_at 1006)
        $(message_at 1010 'TRIALID 2') $(block_at 1012 8450) $raw $(end_at 1020) $(message_at 1022 'bye') 0000"
} >logged/trials.trk
printf '%s\n' '0 started' '100 TRACKER_TIME 1 900' '208 gap' '216 flip' '300 Quit logger' >logged/xq_messages.log
trials() { "$trk" trials logged/trials.trk "$@" | cut -f1-13 | tr '\t\n' ' |'; }
table='trial block first_item last_item start end duration own_end eyes sample_rate text samples gaze_missing_left|'
# The first trial ends with its end message, though another message has the same time; the second has none.
texts=(--start TRIALID --end 'TRIAL OK')
[ "$(trials "${texts[@]}")" = "${table}1 1 0 6 1000 1004 4 1 left 1000 TRIALID 1 2 0|\
2 2 11 18 1010 1020 10 0 left 1000 TRIALID 2 1 0|" ] || fail "texts"
[ "$(trials)" = "${table}1 1 1 10 1002 1006 4 1 left 1000 . 2 0|2 2 12 18 1012 1020 8 1 left 1000 . 1 0|" ] ||
    fail "trials by blocks"
# A trial that the library drops, for want of an end, has ended the one before.
[ "$(trials --start bye)" = "${table}1 1 1 10 1002 1006 4 0 left 1000 . 2 0|2 2 12 18 1012 1022 10 1 left 1000 . 1 0|" ] ||
    fail "dropped trial"
refuses 1 'trials.trk: nothing starts a trial by "nothing"$' "$trk" trials --start nothing logged/trials.trk
refuses 1 'trials.trk: an empty text ends no trial$' "$trk" trials --start TRIALID --end '' logged/trials.trk

"$trk" dump logged/trials.trk >whole.txt
"$trk" dump --trial 2 "${texts[@]}" logged/trials.trk >trial.txt
cmp <(cut -f1-24 trial.txt) <(sed -n '1p; 13,20p' whole.txt | cut -f1-24) || fail "--trial" # items 11 to 18
"$trk" dump --trial 2 --raw --kind samples logged/trials.trk >raw.txt
for cell in raw_pupil_x_left:249 raw_pupil_y_left:334.5 raw_pupil_area_left:314 raw_pupil_width_left:35 \
    raw_pupil_height_left:36 raw_cr_x_left:298 raw_cr_y_left:335 raw_cr_area_left:100 raw_cr2_x_left:. \
    pupil_minus_cr_x_left:-54.96 pupil_minus_cr_y_left:-7.2 raw_pupil_x_right:. pupil_minus_cr_y_right:. \
    raw_cr_width:13 raw_cr_height:12; do
    [ "$(cells raw.txt "${cell%:*}")" = "${cell#*:}" ] || fail "$cell, not $(cells raw.txt "${cell%:*}")"
done
"$trk" dump --raw logged/trials.trk | cut -f1-28 | cmp - whole.txt || fail "--raw adds to the end"

"$trk" dump --kind messages --columns time,text --log logged/trials.trk | tr '\t\n' ' |' >log.txt
[ "$(cat log.txt)" = 'time text|900 "900 TRACKER_TIME 1 900|"|1000 TRIALID 1|1004 TRIAL OK|1004 note|'\
'1008 "1008 gap|"|1010 TRIALID 2|1016 "1016 flip|"|1022 bye|' ] || fail "--log"
cp logged/xq_messages.log other.log
"$trk" dump --kind messages --log-file other.log --trial 2 "${texts[@]}" --columns text logged/trials.trk >flip.txt
[ "$(tr '\n' '|' <flip.txt)" = 'text|TRIALID 2|"1016 flip|"|' ] || fail "--log-file in a trial"
"$trk" dump --kind messages --log-file other.log --trial 1 --columns text logged/trials.trk >first.txt
[ "$(tr '\n' '|' <first.txt)" = 'text|TRIAL OK|note|' ] || fail "log messages behind a trial"
"$trk" info "${texts[@]}" logged/trials.trk >logged.info
has logged.info '^  trials +2 from "TRIALID" to "TRIAL OK"$'
has logged.info '^  input data +0 events, 1 sample with an input value$'
has logged.info '^  message log +logged/xq_messages.log: 3 messages; --log merges 3 and leaves out 0 items$'
grep -v Quit other.log >logged/xq_messages.log
"$trk" info logged/trials.trk >logged.info
has logged.info '^  trials +2 by recording blocks$'
has logged.info 'xq_messages.log: 3 messages, not merged: the end line is missing$'
refuses 1 'nothing of the message log logged/xq_messages.log was merged' "$trk" dump --log logged/trials.trk
cmp out whole.txt || fail "the items beside a log that is not merged"
refuses 1 'trials.trk has no trial 3: it has 2, counted from 1' "$trk" dump --trial 3 logged/trials.trk
refuses 3 'the message log logged cannot be read: Is a directory' "$trk" dump --log-file logged hand.trk
refuses 3 'the message log xq_messages.log cannot be read: No such file' "$trk" dump --log hand.trk
refuses 3 'xq_messages.log is an input' "$trk" dump -o logged/xq_messages.log logged/trials.trk

# ---- Buttons, inputs and times in trials: three buttons that there are, one without a number, one too many ----

button_at() { printf '1900 21%08x 55%04x 56%04x 00' "$@"; }
{
    start && hex "$(message_at 990 'TRIALID 1') $(message_at 991 '') $(block_at 1000) $(button_at 1001 2 2)
        1c00 21000003ea 550007 00 $(button_at 1003 0 2) $(button_at 1004 1 0) $(button_at 1005 65535 17)
        $(message_at 1006 'TRIAL OK') $(end_at 1020) 0000"
} >buttons.trk
"$trk" dump buttons.trk "${texts[@]}" --kind events,messages --columns \
    kind,time,trial_time,input,button,button_value,button_state,text >buttons.txt
grep -v _ buttons.txt | tr '\t\n' ' |' >out # without the marks of the block
[ "$(cat out)" = 'message 990 0 . . . . TRIALID 1|message 991 1 . . . . |button 1001 11 . 2 2 1 .|'\
'input 1002 12 7 . . . .|button 1003 13 . 2 0 0 .|button 1004 14 . 0 1 . .|button 1005 15 . 17 65535 . .|'\
'message 1006 16 . . . . TRIAL OK|' ] || fail "buttons: $(cat out)"
[ "$(grep -c '^[a-z]*_[a-z]*.1020.\.' buttons.txt)" = 2 ] || fail "behind a trial there is no time in it"
"$trk" convert buttons.trk -o buttons "${texts[@]}" >out
for column in button:2//2/0/17 button_value:2//0/1/65535 button_state:1//0// input:/7/// \
    trial_time:11/12/13/14/15; do
    [ "$(cells buttons/buttons_events.tsv "${column%:*}" | paste -sd/)" = "${column#*:}" ] || fail "${column%:*}"
done
[ "$("$trk" trials buttons.trk --start inPut_type_7 --end 7 --columns start,end | tr '\t\n' ' |')" = \
    'start end|1000 1002|1002 1020|' ] || fail "trials by inputs"
for text in '--start nothing' '--start TRIALID --end nothing' '--start inPut_type_9' \
    '--start inPut_type_7 --end 8'; do
    refuses 1 '^trk: buttons.trk: nothing \(starts\|ends\) a trial by "' "$trk" info $text buttons.trk
    has out '^  trials +0 from "'
done

# ---- What cannot be read ----

: >empty.trk
echo "no recording" >bad.trk
size=$(wc -c <hand.trk)
head -c $((size - 40)) hand.trk >cut.trk
refuses 3 '^trk: none.trk cannot be read: No such file' "$trk" dump none.trk
refuses 3 '^trk: \. cannot be read: Is a directory' "$trk" dump .
refuses 3 '^trk: empty.trk is empty' "$trk" dump empty.trk
printf 'no\n"' >$'bad\n.trk'
refuses 3 '^trk: bad?.trk is not a recording: it begins with "no\\x0A\\x22"$' "$trk" dump $'bad\n.trk'
refuses 3 '^trk: bad.trk is not a recording: it begins with "no recording' "$trk" dump -o kept.txt bad.trk
[ ! -e kept.txt ] || fail "-o made a file for a bad recording"
refuses 1 '^trk: cut.trk is damaged at byte .*--tolerant.*--salvage' "$trk" dump cut.trk
"$trk" dump odd.trk >out 2>err && fail "an unreadable item is no failure"
has err '^trk: odd.trk: 1 item could not be read \(item [0-9]+ is of a kind that is not known\)$'
tr '\t' ' ' <out | cmp - hand.txt || fail "the items beside an unreadable one"
refuses 3 'hand.trk is an input' "$trk" dump -o hand.trk hand.trk
refuses 3 'No space left' bash -c '"$0" dump hand.trk >/dev/full' "$trk"
refuses 3 '^trk: standard output cannot' bash -c '"$0" dump hand.trk >&-' "$trk"
"$trk" >out 2>err && fail "no command is no error"
[ ! -s out ] && [ "$(sed -n 2p err)" = "  trk info s07.trk" ] || fail "the first screen"
for usage in "dump" "dump --kind saccades hand.trk" "dump --from -1 hand.trk" "info" "trials" "frobnicate" \
    "dump --trial -1 hand.trk" "dump --raw --kind events hand.trk" "check --colour x" "info --check 2 hand.trk"; do
    refuses 2 '^trk: .*--help)$' "$trk" $usage
    [ ! -s out ] || fail "usage error '$usage' prints"
done
refuses 2 "no column gaze; nearest is gaze_x_left; --columns help" "$trk" dump --columns gaze hand.trk
refuses 2 "no encoding klingon" "$trk" dump --encoding klingon hand.trk
refuses 2 "needs two groups" "$trk" trials --variable "VAR (.*)" hand.trk
head -n 10 hand.txt >intact.txt # up to 1002; the next sample breaks off
for way in --tolerant --salvage; do
    refuses 1 '^trk: cut.trk is damaged in 1 place, .* cannot be saved; the recording breaks off there, ' "$trk" dump $way cut.trk
    # Without the block's end there is no trial.
    tr '\t' ' ' <out | sed 's/ \. \. \. \.$/ 1 . . ./' | cmp - intact.txt || fail "$way"
done
status=0
"$trk" info none.trk cut.trk hand.trk >out 2>err || status=$?
[ $status = 3 ] && [ "$(cut -d' ' -f1-4 err | tr '\n' '|')" = 'trk: none.trk cannot be|trk: cut.trk is damaged|' ] ||
    fail "info of files that cannot be read or are damaged: $(cat err)"
has out '^  DAMAGED +in 1 place, '
tail -n "$(wc -l <info.txt)" out | cmp - info.txt || fail "info goes on after an unreadable file"

# ---- check, and what programs read ----

expect_check() { # STATUS LINE FILE...
    local expected=$1 line=$2 status=0
    shift 2
    "$trk" check "$@" >out 2>err || status=$?
    [ $status = "$expected" ] && [ ! -s err ] || fail "check $*: status $status, $(cat err)"
    has out "$line"
}
head -c $((size - 2)) hand.trk >unended.trk
expect_check 0 '^hand.trk: repaired: gaps of 2 samples, filled: 1$' hand.trk
expect_check 0 '^logged/trials.trk: sound$' logged/trials.trk
expect_check 1 '^unended.trk: damaged in 1 place, ' hand.trk unended.trk
expect_check 3 '^bad.trk: not readable: bad.trk is not a recording' cut.trk bad.trk hand.trk
[ "$(wc -l <out)" = 3 ] || fail "a line for each file"
"$trk" check --json cut.trk $'caf\xe9.trk' hand.trk >out && fail "check --json has a status"
json() { python3 -c "import json, sys; print($1)" <out; }
[ "$(json '[entry["status"] for entry in json.load(sys.stdin)]')" = "['damaged', 'not readable', 'repaired']" ] ||
    fail "check --json"
"$trk" info --json "${texts[@]}" logged/trials.trk >out
[ "$(json '[(e["trials"], e["items"]["samples"], e["eyes"]["left"]["gaze_missing"], len(e["blocks"]))
    for e in json.load(sys.stdin)]')" = "[(2, 3, 0, 2)]" ] || fail "info --json"

# ---- Output is whole or not there ----

echo old >kept.txt
(ulimit -f 1 && exec "$trk" dump -o kept.txt "$big") >out 2>err && fail "a full disk"
has err '^trk: kept.txt cannot be written: File too large$'
# Ended by a signal while it writes, unless it was done before.
ended() {
    "$trk" dump --raw -o kept.txt "$big" &
    until [ -e kept.txt.part ] || ! kill -0 $! 2>/dev/null; do sleep 0.01; done
    kill $! 2>/dev/null && ! wait $!
}
for try in 1 2 3 4 5; do
    ended && break
    [ $try != 5 ] && echo old >kept.txt || fail "could not be ended"
done
[ "$(cat kept.txt)" = old ] && ! compgen -G 'kept.txt.*' >/dev/null || fail "what stood there, and nothing else"
ln -s kept.txt link.txt && chmod 600 kept.txt && "$trk" dump -o link.txt hand.trk
ln -s nowhere/else astray.txt && refuses 3 'astray.txt cannot be written' "$trk" dump -o astray.txt hand.trk
[ -L astray.txt ] && [ -L link.txt ] && cmp kept.txt written.txt && [ "$(stat -c %a kept.txt)" = 600 ] || fail "-o through a link"

# ---- The example recording ----

"$trk" synth plain.trk --log xq_messages.log
"$trk" synth compressed.trk --compressed
for file in plain compressed; do
    "$trk" dump $file.trk >$file.txt
    "$trk" info $file.trk >$file.info
    has $file.info "^  container +$file\$"
done
cmp plain.txt compressed.txt || fail "plain and compressed differ"
# What cannot be inflated takes the rest with it: no sample behind it tells how much.
{ head -c 800000 compressed.trk && head -c 100 /dev/zero && tail -c +800101 compressed.trk; } >spoilt.trk
expect_check 1 ' items or [1-9][0-9]*\.[0-9]* s, cannot be saved' spoilt.trk
{ head -n 6 plain.trk && tail -c +2000 plain.trk; } >headless.trk # without the start of the first block
expect_check 1 ' bytes, an unknown number of items, cannot be saved$' headless.trk
[ "$(awk -F'\t' '{ print NF }' plain.txt | sort -u)" = 28 ] || fail "a line with another number of cells"
lines=$(($(wc -l <plain.txt) - 1))
has plain.info "^Items: $lines\$"
# 12 lines pair the clocks, each with a message of the recording; two messages a trial and one at the end.
has plain.info '^  message log +xq_messages.log: 37 messages; --log merges 25 and leaves out 12 items$'
sum=0
for kind in samples events messages recordings; do
    sum=$((sum + $("$trk" dump --kind $kind plain.trk | tail -n +2 | wc -l)))
done
[ "$sum" -eq "$lines" ] || fail "kinds do not add up: $sum of $lines"
# A reader that has seen enough is no failure.
"$trk" dump plain.trk 2>err | head -n 1 >out && [ ! -s err ] || fail "closed pipe"
cmp out <(head -n 1 plain.txt) || fail "header line through a pipe"

# ---- The example program quality ----

"$quality" hand.trk >quality.txt || fail "a repaired recording: status $?"
has quality.txt '^repaired: gaps of 2 samples, filled: 1$'
has quality.txt '^trial 1: left gaze missing in 50\.00 % of 6 samples$'
"$quality" compressed.trk >quality.txt || fail "the example recording: status $?"
[ "$(grep -c '^trial [0-9]*: left gaze missing in [0-9.]* % of [0-9]* samples, right ' quality.txt)" = 12 ] ||
    fail "quality of the example: $(cat quality.txt)"
{ head -c 20000 plain.trk && tail -c +20101 plain.trk; } >torn.trk
status=0
"$quality" torn.trk >quality.txt || status=$?
[ "$status" -eq 1 ] || fail "quality of a damaged recording: status $status"
has quality.txt '^damage at byte [0-9]+, [0-9]+ bytes long, behind [0-9]+ ms: [a-z ]+$'
refuses 3 '^quality: none.trk cannot be read: No such file' "$quality" none.trk
refuses 2 '^usage: quality FILE$' "$quality"

# ---- The example program fixations ----

"$(dirname "$quality")/fixations" compressed.trk TRIALID 'TRIAL OK' >fixations.txt || fail "fixations: status $?"
"$trk" trials compressed.trk --start TRIALID --end 'TRIAL OK' --columns start,fixations_left,fixations_right |
    awk 'NR > 1 { print $1 " ms: " $2 + $3 " fixations" }' >expected.txt
cmp expected.txt <(sed 's/ of all eyes.*//' fixations.txt) || fail "fixations of the example"
