#!/bin/bash
# The Snakemake recipe: snakemake.sh TRK SCRATCH PYTHON LIBRARY
if ! command -v snakemake >/dev/null; then
    echo "skipped: needs snakemake"
    exit 77
fi
. "$(dirname "${BASH_SOURCE[0]}")/recordings.sh"
run() { (eval "$(commands "$1")") >log 2>&1; }
jobs_of() { grep -cE "^rule $1:\$" log || true; }

# ---- Killed when a part is done, and gone on with ----

# What was written and not yet noted as done is made again: a job for each core.
setsid snakemake --cores 2 --keep-going >log 2>&1 &
killed=$!
until compgen -G 'study.outcome/1*.txt' >/dev/null || ! kill -0 $killed 2>/dev/null; do sleep 0.05; done
kill -9 -- -$killed || fail "$(cat log)" # its group: with its jobs
wait $killed 2>/dev/null || true
done=$(find study.outcome -name '*.txt' | wc -l)
run '### After a kill' || fail "$(cat log)"
[ "$(jobs_of recording)" -le $((42 - done)) ] || fail "done again: $(jobs_of recording) behind $done"
mkdir whole
for recording in recordings/*.trk; do
    subject=$(basename "$recording" .trk)
    trk convert "$recording" -o whole/study --format bids --sub "$subject" --task search --salvage --screen-size 53x30cm \
        --screen-resolution 1920x1080 --screen-distance 60cm >out 2>&1 || [ $? = 1 ] || fail "$(cat out)"
    [ -s "reports/$subject/$subject.trk.html" ] || fail "no report of $subject"
done
sums whole/study >wanted
sums study >now
diff wanted now || fail "something else than one run after the other"
[ "$(awk -F'\t' '$2 == 0' outcome.tsv | wc -l) $(wc -l <outcome.tsv)" = "37 41" ] || fail "$(cat outcome.tsv)"
row outcome.tsv 26.trk | grep -q '^1|no rows|damaged in 1 place.*breaks off' || fail "$(row outcome.tsv 26.trk)"

# ---- Again; one more; one that cannot be read ----

run '## Snakemake' && grep -q '^Nothing to be done' log || fail "a second run: $(cat log)"
trk synth recordings/sub-41_ses-a_run-2.trk --minutes 0.05 --trials 1
run '## Snakemake' && [ "$(jobs_of recording) $(jobs_of all)" = "1 1" ] || fail "one more recording: $(cat log)"
[ -s study/sub-41/ses-a/beh/sub-41_ses-a_task-search_run-2_recording-eye1_physio.tsv.gz ] || fail "$(find study/sub-41)"
echo text >recordings/42.trk
! run '## Snakemake' && [ "$(jobs_of recording)" = 1 ] && [ ! -e study.outcome/42.trk.txt ] || fail "$(cat log)"
touch recordings/01.trk
! run '## Snakemake' && [ "$(jobs_of recording)" = 2 ] && grep -q ': --force replaces it' log &&
    [ ! -e study.outcome/01.trk.txt ] || fail "$(cat log)"
