# shellcheck shell=bash disable=SC2034
# To be sourced by the tests of this folder, as SCRIPT TRK SCRATCH PYTHON [LIBRARY]: makes a clean scratch folder its
# own, with 40 recordings in recordings/, three of them damaged, and the recipes beside it.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
trk=$(realpath "$1") scratch=$(realpath -m "$2") python=$(command -v "$3")
export TRKAPI_LIBRARY=${4-} PYTHONPATH=$here/../../bindings/python PYTHONDONTWRITEBYTECODE=1
rm -rf "$scratch"
mkdir -p "$scratch/bin" "$scratch/recordings"
cd "$scratch"
ln -s "$trk" bin/trk
ln -s "$python" bin/python3
PATH=$PWD/bin:$PATH
cp "$here"/../../examples/many/* .

fail() {
    echo "FAILED: $1" >&2
    exit 1
}
# The commands of the manual below a heading, as a user copies them.
commands() { awk -v heading="$1" '/^```$/{code = 0} on && code; !code && /^#/{on = $0 == heading} /^```sh$/{code = 1}' \
    "$here/../../docs/many-recordings.md"; }
# The bytes of all that is in a folder.
sums() { (cd "$1" && find . -type f -exec sha256sum {} + | sort -k 2); }
# What a table says of a recording: row TABLE RECORDING
row() { awk -F'\t' -v name="$2" '$1 == name { print $2 "|" ($4 > 0 ? "rows" : "no rows") "|" $5 }' "$1"; }

for subject in {01..40}; do
    options=()
    case $subject in 13) options=(--damage hole) ;; 26) options=(--damage cut) ;; 39) options=(--damage zero) ;; esac
    [ $((10#$subject % 2)) = 1 ] || options+=(--compressed)
    trk synth "recordings/$subject.trk" --seed $((10#$subject)) --minutes 0.05 --trials 1 "${options[@]}" 2>>synth.log
done
