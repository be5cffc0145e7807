#!/bin/bash
# A run of trk convert that is killed, or runs out of disk, and is started again ends with the bytes of one that was
# left alone: killed.sh TRK SCRATCH PYTHON
. "$(dirname "${BASH_SOURCE[0]}")/recordings.sh"
trk synth recordings/00.trk --minutes 4 --trials 2 # long enough to be hit in the middle of a file
sums() { (cd "$1" && find . -type f -exec sha256sum {} + | sort -k 2); }
# awaits PATTERN: until there is such a file, or the run has ended.
awaits() { until compgen -G "$1" >/dev/null || ! kill -0 $run 2>/dev/null; do sleep 0.001; done; }

for format in tsv hdf5; do
    convert=(trk convert recordings --format "$format" --salvage --jobs 2 -o)
    status=0
    "${convert[@]}" whole >out 2>err || status=$?
    [ "$status" = 1 ] && [ "$(tail -n 1 out)" = "41 recordings: 38 converted, 3 converted in part" ] || fail "$(cat out err)"
    sums whole >"whole.$format"

    # Its workers are killed in the middle of a file: the run goes on with the others.
    "${convert[@]}" killed >out 2>err &
    run=$!
    awaits 'killed/00[_.][sh]*.part'
    read -ra workers <"/proc/$run/task/$run/children" || [ "${#workers[@]}" -gt 0 ] || fail "no workers"
    kill -9 "${workers[@]}" 2>/dev/null || true
    status=0
    wait $run || status=$?
    [ $status = 3 ] && grep -q '^recordings/00.trk: failed: its process was ended: Killed$' out || fail "no worker was killed: $(cat out)"
    compgen -G 'killed/00*.part' >/dev/null || fail "a killed worker left nothing"
    sums killed >now
    ! cmp -s now "whole.$format" || fail "the kill did nothing"

    # The run itself is killed, with nothing there but what it had done.
    made=$(find killed -name '*.json' | wc -l)
    rm -f killed/2* killed/3*
    "${convert[@]}" killed >out 2>err &
    run=$!
    awaits 'killed/2*.json'
    kill -9 $run
    ! wait $run 2>/dev/null || fail "the run was not killed"
    sleep 0.5 # its workers end with it
    sums killed >now
    ! cmp -s now "whole.$format" || fail "it was done before it was killed"

    "${convert[@]}" killed >out 2>err || [ $? = 1 ] || fail "$(cat out err)"
    again=$(sed -nE 's/.* ([0-9]+) there already.*/\1/p' <<<"$(tail -n 1 out)")
    [ "${again:-0}" -ge $((made - 20)) ] || fail "all was made again: $(tail -n 1 out)"
    sums killed >now
    diff "whole.$format" now || fail "$format: killed and gone on with, it differs"
    rm -r killed whole
done

# The disk is full, and then it is not.
convert() { trk convert recordings -o disk/full --salvage --jobs 2 >out 2>err; }
mkdir disk
reason='No space left on device'
if mount -t tmpfs -o size=6m none disk 2>/dev/null; then
    trap 'umount "$scratch/disk"' EXIT
    convert && fail "the disk was not full"
    mount -o remount,size=100m disk
else
    echo "no file system can be mounted: files of at most 1 MiB in place of a full disk"
    reason='File too large'
    (ulimit -f 1024 && convert) && fail "the disk was not full"
fi
grep -q "^trk: disk/full/.* cannot be written: $reason\$" err || fail "$(cat err)"
! compgen -G 'disk/full/*.part' >/dev/null || fail "half a file"
for description in disk/full/*.json; do
    [ -s "${description%.json}_samples.tsv" ] || fail "$description tells of what is not there"
done
convert || [ $? = 1 ] || fail "$(cat out err)"
sums disk/full >now
diff whole.tsv now || fail "after a full disk it differs"
