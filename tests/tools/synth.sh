#!/bin/bash
# trk synth, tried as a user does: synth.sh TRK SCRATCH QUALITY
. "$(dirname "$0")/head.bash"

# What was asked for is in the recording, and the table beside it.
options=(--minutes 0.5 --rate 500 --eyes left --trials 6 --blocks 2 --seed 5)
"$trk" synth a.trk "${options[@]}" --truth a.tsv --log a.log >out 2>&1
[ ! -s out ] || fail "says $(cat out)"
"$trk" info a.trk >info.txt
for line in 'eyes +left$' 'samples/s +500$' 'recorded .* in 2 blocks' 'input data +12 events'; do
    grep -qE "^  $line" info.txt || fail "info lacks '$line': $(cat info.txt)"
done
[ "$("$trk" trials a.trk --start TRIALID --end 'TRIAL OK' | wc -l)" = 7 ] || fail "six trials"
python3 - <<'END' || fail "truth and events"
import csv
truth = list(csv.DictReader(open("a.tsv"), delimiter="\t"))
fixations = [row for row in truth if row["kind"] == "fixation"]
assert {row["eye"] for row in truth} == {"left"} and len(fixations) > 40
assert all((row["amplitude_deg"] != "") == (row["kind"] == "saccade") for row in truth)
assert all(900 < float(row["mean_pupil"]) < 1100 and row["mean_x"] for row in fixations)
END
"$trk" dump a.trk --log-file a.log --kind messages | grep -q 'key 6 pressed' || fail "the message log"

# The same options make the same bytes, compressed or not the same items, and what stood there is replaced whole.
"$trk" synth b.trk "${options[@]}" && cmp a.trk b.trk || fail "bytes"
[ "$(status_of "$trk" synth b.trk)" = 3 ] && cmp a.trk b.trk || fail "a recording that is there is replaced"
"$trk" synth b.trk "${options[@]}" --compressed --force
cmp <("$trk" dump a.trk) <("$trk" dump b.trk) && [ "$(wc -c <b.trk)" -lt "$(wc -c <a.trk)" ] || fail "--compressed"

# Damage is told, and found: in compressed recordings each, in plain ones but for a bit.
for kind in bit zero hole cut hole,bit; do
    for seed in 1 2 3 4 5; do
        "$trk" synth c.trk --force --minutes 0.5 --compressed --seed $seed --damage $kind 2>err
        [ "$(wc -l <err)" = "$(wc -w <<<"${kind//,/ }")" ] || fail "--damage $kind says $(cat err)"
        [ "$(status_of "$trk" check c.trk)" = 1 ] || fail "compressed $kind $seed: $(cat out)"
        "$trk" synth d.trk --force --minutes 0.5 --seed $seed --damage $kind 2>err
        [ $kind = bit ] || [ "$(status_of "$trk" check d.trk)" = 1 ] || fail "plain $kind $seed: $(cat out)"
    done
done

# A wrong command line is told in one line and leaves nothing; nor does what cannot be written.
echo old >kept.trk
for usage in '--noise -1' '--noise nan' '--rate 300' '--trials 121' '--blocks 0' '--seed -1' '--eyes none' \
    '--damage foo' '--minutes x' '--dropout 21' '--truth ./kept.trk' '--truth t --log t'; do
    [ "$(status_of "$trk" synth kept.trk --force $usage)" = 2 ] && [ ! -s out ] && [ "$(wc -l <err)" = 1 ] ||
        fail "$usage: $(cat err)"
done
[ "$(status_of "$trk" synth kept.trk --force --truth /no/such/folder)" = 3 ] || fail "a truth that cannot be written"
[ "$( (ulimit -f 100 && status_of "$trk" synth kept.trk --force))" = 3 ] || fail "a full disk: $(cat err)"
[ "$(cat kept.trk)" = old ] && ! compgen -G '*.part' >/dev/null && [ ! -e t ] || fail "left: $(ls)"
"$trk" synth --help | head -n 2 | grep -qx '  trk synth [a-z.]*' || fail "help begins with examples"
