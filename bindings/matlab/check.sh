#!/bin/bash
# trkread in Octave, on recordings that trk makes: check.sh HEADERS LIBRARY-FOLDER TRK SCRATCH
set -euo pipefail
headers=$1 library=$2 trk=$3 scratch=$4
source=$(cd "$(dirname "$0")" && pwd)
rm -rf "$scratch"
mkdir -p "$scratch"
cd "$scratch"
"$trk" synth two.trk --minutes 0.3 --dropout 5
"$trk" synth fast.trk --minutes 0.2 --rate 2000 --eyes left --compressed --trials 3 --blocks 1
# With ends of events that have lost their starts.
"$trk" synth odd.trk --minutes 0.3 --blocks 2 --trials 4 --seed 8 \
    --damage hole,zero,hole,zero,hole,zero,hole,zero,hole 2>/dev/null
"$trk" convert two.trk fast.trk odd.trk -o . --start TRIALID --end 'TRIAL OK' --salvage 2>/dev/null || [ $? = 1 ]
middle=$(($(stat -c %s two.trk) / 2))
{ head -c "$middle" two.trk && tail -c +$((middle + 301)) two.trk; } >hole.trk
CFLAGS='-O2 -Wall -Wextra -Werror' mkoctfile --mex -I"$headers" "$source/trkread.c" "$source/../r/src/reader.c" \
    -L"$library" -ltrkapi -o trkread.mex
LD_LIBRARY_PATH=$library octave-cli --no-init-file --quiet "$source/check.m"
