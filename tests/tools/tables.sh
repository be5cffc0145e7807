#!/bin/bash
# What trk convert writes, read back with other means: tables.sh TRK SCRATCH
. "$(dirname "$0")/head.bash"

# The Python that has the most of what is read with here; what none has is skipped with a word.
python=python3
for candidate in python3 /usr/bin/python3; do
    "$candidate" -c 'import pandas, h5py' 2>/dev/null && python=$candidate && break
done
last() { tail -n 1 out; }

mkdir -p raw/deep
python3 "$here/odd_texts.py" >raw/texts.trk
"$trk" synth raw/deep/example.trk
"$trk" synth packed.trk --compressed
trials=(--start TRIALID --end 'TRIAL OK' --variable 'VAR (\w+) (.*)')

# ---- Formats ----

for format in tsv csv tsv.gz csv.gz hdf5; do
    "$trk" convert raw packed.trk -o "$format" --format "$format" "${trials[@]}" --jobs 2 >out 2>err && fail "no trials"
    [ "$(last)" = "3 recordings: 2 converted, 1 converted in part" ] || fail "$format: $(cat out err)"
    grep -q '^trk: raw/texts.trk: nothing starts a trial by "TRIALID"$' err || fail "$(cat err)"
done
"$python" "$here/read_back.py" "$trk" raw/deep/example.trk
zcat tsv.gz/deep/example_samples.tsv.gz | cmp - tsv/deep/example_samples.tsv || fail "gzip"
cmp tsv/deep/example_samples.tsv tsv/packed_samples.tsv || fail "plain and compressed differ"
if command -v Rscript >/dev/null; then
    Rscript "$here/read_back.R" || fail "R reads other texts"
else
    echo "Rscript is not there: not tried"
fi
if command -v octave-cli >/dev/null; then
    lost=$(awk -F'\t' 'NR > 1 && $4 == ""' tsv/deep/example_samples.tsv | wc -l)
    octave-cli --eval "table = importdata('tsv/deep/example_samples.tsv', \"\\t\", 1);
        assert(strcmp(table.colheaders{4}, 'gaze_x_left') && sum(isnan(table.data(:, 4))) == $lost)" || fail "Octave"
else
    echo "octave-cli is not there: not tried"
fi

# ---- Many recordings, one after the other run ----

head -c 3000 packed.trk >raw/broken.trk
echo nothing >raw/none.trk
status=0
"$trk" convert raw -o tsv "${trials[@]}" >out 2>err || status=$?
[ $status = 3 ] && [ "$(last)" = "4 recordings: 2 failed, 2 there already" ] || fail "$(cat out err)"
! compgen -G 'tsv/broken*' || fail "a file of what cannot be read"
"$trk" convert raw/texts.trk -o tsv "${trials[@]}" >out && fail "the status of an earlier run"
"$trk" convert raw/texts.trk -o tsv >out && "$trk" convert raw/texts.trk -o tsv >out
grep -q 'there already$' out || fail "made again"
sleep 0.01 && touch raw/texts.trk && "$trk" convert raw/texts.trk -o tsv >out && grep -q ': converted: ' out || fail "older"
"$trk" convert raw/texts.trk -o tsv --missing NA >out && grep -q ': converted: ' out || fail "other options"
cp raw/texts.trk raw/deep/texts.trk
"$trk" convert raw/texts.trk raw/deep/texts.trk -o tsv >out 2>err && fail "two files for one name"
grep -q 'would both become' err || fail "$(cat err)"
mkdir other && cp packed.trk other/texts.trk
"$trk" convert other/texts.trk -o tsv >out 2>err && fail "another recording of the same name"
grep -q 'made from another recording' err || fail "$(cat err)"
# A run that is killed leaves whole files only, and the next one ends with the same bytes.
for try in 1 2 3 4 5 6 7 8; do
    "$trk" convert raw/deep -o killed --velocities --jobs 1 >/dev/null 2>&1 &
    sleep 0.0$((try * 3))
    kill -9 $! 2>/dev/null
    wait $! 2>/dev/null || true
    for file in $(find killed -name '*.json' 2>/dev/null); do
        python3 -m json.tool "$file" >/dev/null || fail "half of $file"
    done
done
"$trk" convert raw/deep -o killed --velocities >/dev/null
"$trk" convert raw/deep -o whole --velocities >/dev/null
find killed -name '*.part' -delete # of processes that could not remove them
diff -r killed whole || fail "a killed run, gone on with, differs"
(ulimit -f 100 && exec "$trk" convert raw/deep -o full >out 2>err) && fail "a full disk"
grep -q 'example_.* cannot be written: File too large' err && ! compgen -G 'full/*example_samples*' || fail "$(cat err)"

# ---- Columns, dump of several files ----

"$trk" convert raw/deep/example.trk -o few --what samples,trials --columns 'time,gaze_?_left,trial_time' >out
[ "$(ls few | tr '\n' ' ')" = "example.json example_samples.tsv example_trials.tsv " ] || fail "--what"
"$trk" convert raw/deep/example.trk -o few --what blocks,trials --columns 'time,gaze_?_left,trial_time' >out
[ "$(python3 -c 'import json; print(*sorted(json.load(open("few/example.json"))["tables"]))')" = "blocks samples trials" ] ||
    fail "the description forgets tables"
python3 "$here/odd_texts.py" 500 400000000 >late.trk
"$trk" convert late.trk -o late --what samples,trials --columns +trial_time >out
[ "$(cut -f10 late/late_samples.tsv | tr '\n' ' ')" = "trial_time 1 2 3 4 1 2 3 4 " ] || fail "a late recording"
[ "$(cut -f5 late/late_trials.tsv | tr '\n' ' ')" = "start 400000000 400002000 " ] || fail "trials of a late recording"
[ "$(head -n 1 few/example_samples.tsv)" = $'time\tgaze_x_left\tgaze_y_left\ttrial_time' ] || fail "--columns"
"$trk" dump --kind messages raw/deep/example.trk packed.trk | cut -f1 | sort | uniq -c | tr -s ' \n' ' ' >files
[ "$(cat files)" = " 1 file 84 packed.trk 84 raw/deep/example.trk " ] || fail "files: $(cat files)"

# ---- BIDS ----

bids() { "$trk" convert -o study --format bids --task search "$@" >out 2>err; }
screen=(--screen-size 53x30cm --screen-resolution 1920x1080 --screen-distance 600mm)
bids raw/deep/example.trk --sub 01 --velocities || fail "$(cat out err)"
grep -q -- '--screen-size' err || fail "no word on what is missing"
bids packed.trk --sub 02 --ses a --run 1 "${screen[@]}" --start TRIALID --end 'TRIAL OK' || fail "$(cat out err)"
python3 "$here/odd_texts.py" 500 >rates.trk
bids raw/texts.trk rates.trk --sub 03 || fail "$(cat out err)"
bids raw/broken.trk --sub 04 --salvage && fail "a damaged recording has a status"
"$trk" synth right.trk --eyes right --rate 2000 --minutes 0.4 --dropout 5
bids right.trk --sub 05 || fail "$(cat out err)"
for kind in bit zero hole cut; do
    "$trk" synth $kind.trk --eyes left --rate 250 --minutes 1 --damage $kind 2>err
    bids $kind.trk --sub "06$kind" --salvage || [ $? = 1 ] || fail "$kind: $(cat out err)"
done
python3 "$here/bids_check.py" study 9 || fail "the data set"
[ "$(python3 -c 'import glob, json
print(*sorted(json.load(open(name))["StartTime"] for name in glob.glob("study/sub-03/**/*run-2*_physio.json", recursive=True)))')" = "0.0 2.0" ] ||
    fail "StartTime of a second rate"
bids packed.trk --sub 01 --velocities && fail "another recording under the same labels"
grep -q 'says something else: --force' err || fail "$(cat err)"
cp -a study before
bids raw/deep/example.trk --sub 01 --velocities && diff -r before study || fail "a second run"
bids raw/deep/example.trk --sub 01 "${screen[@]}" && fail "replaced what says something else"
bids raw/deep/example.trk --sub 01 "${screen[@]}" --start TRIALID --end "TRIAL OK" --force && python3 "$here/bids_check.py" study 9 || fail "--force"
for usage in "--sub x_1" "" "--sub 1 --screen-size 3x4cm" "--sub 1 --screen-size 3 --screen-resolution 1x1 --screen-distance 1m"; do
    status=0
    bids raw/deep/example.trk $usage || status=$?
    [ $status = 2 ] && [ "$(wc -l <err)" = 1 ] || fail "usage '$usage': $(cat err)"
done
