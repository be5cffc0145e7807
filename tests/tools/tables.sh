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
for table in tsv/deep/*.tsv csv/*.csv; do
    packed=${table/\//.gz/}.gz
    zcat "$packed" | cmp - "$table" || fail "$packed"
done
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
diff -r killed whole || fail "a killed run, gone on with, differs"
mkdir -p moved/too && cp raw/deep/example.trk moved/too && "$trk" convert moved/too -o elsewhere --velocities >/dev/null
! diff -r elsewhere whole | grep -v '^Only in whole' || fail "a recording from another folder differs"
(ulimit -f 100 && exec "$trk" convert raw/deep -o full >out 2>err) && fail "a full disk"
grep -q 'example_.* cannot be written: File too large' err && ! compgen -G 'full/*example_samples*' || fail "$(cat err)"

# ---- Texts and names ----

mkdir hand
long=$(printf 'a%.0s' {1..60})
{
    start && hex "$(block_at 1000) $(message_at 1001 'gr\xfc\xdfe') $(message_at 1002 'grüße')
        $(message_at 1003 '€ \xe2\x82') $(message_at 1004 'VAR na/me 1') $(message_at 1005 'VAR na,me 2')
        $(message_at 1006 'VAR .h \xdc') $(message_at 1007 'VAR größe NA') $(message_at 1008 'VAR text .')
        $(message_at 1009 'VAR z\x00z') $(message_at 1010 "VAR $long!")
        $(message_at 1011 "$(printf '\\x80%.0s' {1..498})") $(end_at 1020) 0000"
} >hand/var.trk
latin=$'gr\xc3\x83\xc2\xbc\xc3\x83\xc2\x9fe' both=$'\xc3\xa2\xc2\x82\xc2\xac \xc3\xa2\xc2\x82'
while read -r encoding doubtful texts; do
    "$trk" dump --kind messages --columns text --to 1003 --missing NA hand/var.trk \
        ${encoding:+--encoding "${encoding#any}"} 2>err | tail -n +2 | tr '\n' '|' >out
    [ "$(cat out)" = "$texts" ] && [ "$(cut -d' ' -f2 err)" = "${doubtful#0}" ] || fail "$encoding: $(cat out err)"
done <<END
any 2 grüße|grüße|$both|
latin1 0 grüße|$latin|$both|
cp1252 0 grüße|grÃ¼ÃŸe|â‚¬ â‚|
utf-8 2 gr��e|grüße|€ ��|
END
# The longest of all grows when it is converted.
"$trk" dump --columns text --from 1011 --to 1011 hand/var.trk --encoding cp1252 | grep -o '€' >out
[ "$(wc -l <out)" = 498 ] || fail "a long text"
variables=(--variable 'VAR (\w*[^ ]\w*) ?(.*)')
"$trk" trials hand/var.trk --missing NA --columns 'text,na/me,na?me,.h,gr*,var_text,z*' "${variables[@]}" 2>err |
    tr '\t\n' ' |' >out
[ "$(cat out)" = 'text na/me na,me .h größe var_text z␀z|NA 1 2 Ü "NA" . |' ] || fail "variables: $(cat out)"
"$trk" trials hand/var.trk --missing '' --columns 'text,z*' "${variables[@]}" 2>err | tail -n 1 >out
[ "$(cat out)" = $'\t""' ] || fail "an empty value beside a missing one: $(cat out)"
"$trk" convert hand/var.trk -o names --format hdf5 "${variables[@]}" 2>err >out || fail "HDF5: $(cat out err)"
"$python" - <<'END' || fail "HDF5 of odd names"
import sys
try:
    import h5py
except ImportError:
    sys.exit(print("h5py is not there: not tried"))
trials = h5py.File("names/var.h5")["trials"]
names = trials.attrs["columns"].split(",")
assert names[11:17] == ["na_me", "na_me_", "_.h", "größe", "var_text", "z␀z"], names
assert set(names) == set(trials)
assert [trials[name][0] for name in ["text", *names[11:17]]] == [b"", b"1", b"2", "Ü".encode(), b"NA", b".", b""]
END
refuses 2 'no regular expression, at character 13: missing closing parenthesis' \
    "$trk" convert hand -o names --variable 'VAR (\w+ (.*'
slow=(--variable '((?:a+)+)(x?)$')
refuses 2 '^trk: the pattern .* cannot be searched for in the message "VAR aaa.*limit' timeout 20 \
    "$trk" trials hand/var.trk "${slow[@]}"
cp raw/texts.trk hand/sound.trk
[ "$(status_of timeout 20 "$trk" convert hand -o slow "${slow[@]}")" = 3 ] || fail "a pattern without an end"
[ "$(last)" = "2 recordings: 1 converted, 1 failed" ] || fail "a pattern without an end: $(cat out err)"

mkdir odd
for name in 'a b' $'line\nend' $'caf\xe9' -o 'q"u,ote' $'tab\there' UP; do
    cp hand/sound.trk "odd/$name.trk"
done
mv odd/UP.trk odd/UP.TRK
"$trk" convert odd odd/UP.TRK ./odd/../odd/-o.trk -o renamed >out 2>err || fail "odd names: $(cat err)"
[ "$(wc -l <out)" = 8 ] && [ "$(last)" = "7 recordings: 7 converted" ] || fail "odd names: $(cat out)"
stems() { find "$1" -name "$2" -printf '%f\0' | sed -z 's/\.[a-zA-Z]*$//' | sort -z; }
cmp <(stems odd '*.[tT][rR][kK]') <(stems renamed '*.json') || fail "odd names: $(ls renamed)"
(cd odd && "$trk" dump --kind messages --columns file,item -- *) 2>err >files
iconv -f UTF-8 -t UTF-8 files >out && [ "$(cut -f1 files | sort -u | wc -l)" = 8 ] || fail "names in a table"

# ---- Trouble ----

nobody=(setpriv --reuid 65534 --regid 65534 --clear-groups)
mkdir -p barred/shut for_all && chmod 777 for_all
cp raw/texts.trk barred/open.trk && cp raw/texts.trk barred/shut
if "${nobody[@]}" "$trk" --version >/dev/null 2>&1 && "${nobody[@]}" test -w "$PWD/for_all"; then
    chmod 700 barred/shut
    [ "$(status_of "${nobody[@]}" "$trk" convert barred -o for_all)" = 3 ] || fail "an unreadable folder"
    has err '^trk: barred/shut cannot be read: Permission denied$'
    [ "$(last)" = "1 recording: 1 converted" ] || fail "beside an unreadable folder: $(cat out)"
    chmod 000 barred/open.trk
    [ "$(status_of "${nobody[@]}" "$trk" convert barred/open.trk -o for_all)" = 3 ] || fail "one that is barred"
    has err '^trk: barred/open.trk cannot be read: Permission denied'
    refuses 3 '^trk: the folder barred/x cannot be made: Permission denied$' \
        "${nobody[@]}" "$trk" convert raw/texts.trk -o barred/x
else
    echo "there is no way to be somebody else: not tried"
fi
refuses 3 '^trk: the folder files/in cannot be made: Not a directory$' "$trk" convert raw/texts.trk -o files/in
refuses 2 'hand/sound.trk and .*would both become' "$trk" convert hand/sound.trk "$PWD/hand/sound.trk" -o twice

# A process that hangs, in a recording that nobody writes, is ended. The others are done before.
mkdir hang && mkfifo hang/fifo.trk && cp raw/texts.trk hang/sound.trk
"$trk" convert hang/fifo.trk hang/sound.trk -o hung --jobs 2 >ended.txt 2>err &
run=$!
for try in {1..600}; do
    grep -qs 'sound.trk: converted' ended.txt && break
    sleep 0.05
done
kill -9 $(pgrep -P $run)
wait $run && fail "a killed process is no failure"
[ "$(sed -n '2,$p' ended.txt | tr '\n' '|')" = 'hang/fifo.trk: failed: its process was ended: Killed|'\
'2 recordings: 1 converted, 1 failed|' ] || fail "a killed process: $(cat ended.txt)"

# ^C while a recording is written. A background process heeds it under job control only.
interrupted() {
    set -m
    "$trk" convert raw/deep/example.trk -o stopped --format "$1" --velocities >out 2>err &
    set +m
    until compgen -G "stopped/*$2*.part" >/dev/null || ! kill -0 $! 2>/dev/null; do sleep 0.01; done
    kill -INT -- -$! 2>/dev/null && ! wait $! && [ ! -e stopped/example.json ]
}
for format in tsv:samples tsv.gz:samples hdf5:h5; do
    for try in 1 2 3 4 5; do
        rm -rf stopped
        interrupted "${format%:*}" "${format#*:}" && break
        [ $try != 5 ] || fail "$format could not be interrupted"
    done
    for try in {1..100}; do # the process that writes ends by itself
        compgen -G 'stopped/*.part' >/dev/null || break
        [ "$try" != 100 ] || fail "left behind: $(ls stopped)"
        sleep 0.05
    done
    ! compgen -G "stopped/*${format#*:}*" >/dev/null || fail "half of $format: $(ls stopped)"
done

# A full disk, of its own where that can be.
cat >fill.sh <<'END'
[ "$own_mounts" -gt 0 ] && mount -t tmpfs -o size=600k none disk 2>/dev/null || ulimit -f 200
"$1" convert raw/deep/example.trk -o disk/out "${@:2}"
echo $?
find disk -name '*.part' -o -name '*_samples*' -o -name '*.h5' -o -name '*_physio.tsv.gz' -o -name example.json
END
mkdir disk && alone=()
unshare -m true 2>/dev/null && alone=(unshare -m)
export own_mounts=${#alone[@]} # else what is mounted would stay
for format in tsv csv.gz hdf5 'bids --sub 1 --task a'; do
    ${alone[@]+"${alone[@]}"} bash fill.sh "$trk" --format $format >out 2>err
    [ "$(sed -n '3,$p' out)" = 3 ] && has err '^trk: disk/.* cannot be written: (No space left|File too large)' ||
        fail "a full disk, $format: $(cat out err)"
    rm -rf disk/out
done
for command in 'info' 'check --json' 'trials' 'dump --columns help' 'convert -o unheard'; do # nobody reads it
    { sleep 0.1 && "$trk" $command raw/texts.trk; } 2>err | true || fail "$command into a closed pipe: $(cat err)"
done
[ -e unheard/texts.json ] || fail "what nobody hears of is not converted"

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
"$trk" dump --kind samples --columns 'gaze_[xy]_right,ti?e,gaze_y_right' packed.trk | head -n 1 >out
[ "$(cat out)" = $'gaze_x_right\tgaze_y_right\ttime' ] || fail "patterns: $(cat out)"
for command in dump 'convert -o few'; do
    refuses 2 'no column gaze_x_lefd; nearest is gaze_x_left; --columns help' \
        "$trk" $command --columns time,gaze_x_lefd late.trk
    refuses 2 'no column b\*k_x; nearest is ' "$trk" $command --columns +b*k_x late.trk
done
refuses 2 'no column mean_gaze; nearest is mean_gaze_x_left' "$trk" trials --columns mean_gaze late.trk
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
bids packed.trk --sub 01 --run 2 && bids right.trk --sub 01 --run 3 || fail "more runs: $(cat out err)"
eyes_of() { find study/sub-01 -name "*_run-$1_*_physio.tsv.gz" | sed 's/.*-\(eye.\)_.*/\1/' | sort | tr '\n' ' '; }
[ "$(eyes_of 2)$(eyes_of 3)" = "eye1 eye2 eye2 " ] || fail "eyes of runs: $(eyes_of 2)$(eyes_of 3)"
bids right.trk --sub 01 --run 2 --force && [ "$(eyes_of 2)" = "eye2 " ] || fail "an eye fewer: $(eyes_of 2)"
mkdir both # by eight at once
for number in {1..8}; do
    "$trk" convert rates.trk -o both --format bids --task a --sub "$number" >"both.$number" 2>&1 &
done
wait && [ "$(sort both/participants.tsv | tr '\n' ' ')" = "participant_id $(printf 'sub-%s ' {1..8})" ] ||
    fail "several runs at once: $(cat both/participants.tsv both.*)"
[ "$(find both -name '*.gz' | wc -l)" = 32 ] && ! find both -name '*.part' | grep . || fail "several runs at once"
for usage in "--sub x_1" "" "--sub 1 --screen-size 3x4cm" "--sub 1 --screen-size 3 --screen-resolution 1x1 --screen-distance 1m"; do
    status=0
    bids raw/deep/example.trk $usage || status=$?
    [ $status = 2 ] && [ "$(wc -l <err)" = 1 ] || fail "usage '$usage': $(cat err)"
done
