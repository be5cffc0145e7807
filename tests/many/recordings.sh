# shellcheck shell=bash
# To be sourced by the tests of this folder, as SCRIPT TRK SCRATCH PYTHON: a clean scratch folder with 40 recordings
# in raw/, three of them damaged, and the recipes at hand as a user has them.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
recipes=$here/../../examples/many
trk=$(realpath "$1") scratch=$(realpath -m "$2") python=$(command -v "$3")
rm -rf "$scratch"
mkdir -p "$scratch/bin" "$scratch/raw"
cd "$scratch"
ln -s "$trk" bin/trk
ln -s "$python" bin/python3
PATH=$PWD/bin:$PATH

fail() {
    echo "FAILED: $1" >&2
    exit 1
}
# Subject 1 to 40 of two seconds and two trials, in the plain and the compressed way.
for subject in {01..40}; do
    options=()
    case $subject in 13) options=(--damage hole) ;; 26) options=(--damage cut) ;; 39) options=(--damage zero) ;; esac
    [ $((10#$subject % 2)) = 1 ] || options+=(--compressed)
    trk synth "raw/$subject.trk" --seed $((10#$subject)) --minutes 0.1 --trials 2 --blocks 2 "${options[@]}" 2>>synth.log
done
