#!/bin/bash
# The Dask recipe, against the tables of trk: dask.sh TRK SCRATCH PYTHON LIBRARY
. "$(dirname "${BASH_SOURCE[0]}")/recordings.sh"
trk convert recordings -o tables --salvage --what events,trials --start TRIALID --end 'TRIAL OK' \
    --variable 'VAR (set_size) (.*)' --check basic >out 2>&1 || [ $? = 1 ] || fail "$(cat out)"
echo text >recordings/text.trk
eval "$(commands '## Dask')" 2>err
grep -q '^recordings/text.trk was left out: .* is not a recording' err || fail "$(cat err)"
python3 - <<'END'
from pathlib import Path

import pandas

parts = []
for path in Path("tables").glob("*_trials.tsv"):
    trials = pandas.read_csv(path, sep="\t")
    events = pandas.read_csv(str(path).replace("_trials", "_events"), sep="\t")
    if "set_size" in trials:
        parts.append(events[events["kind"] == "fixation"].merge(trials[["trial", "set_size"]], on="trial"))
groups = pandas.concat(parts).groupby(["set_size", "eye"])["duration"]
wanted = groups.agg(["count", "mean"]).rename(columns={"count": "fixations", "mean": "mean_duration"})
found = pandas.read_csv("durations.tsv", sep="\t").set_index(["condition", "eye"]).sort_index()
assert len(wanted) == 6 and wanted["fixations"].sum() > 400, wanted
pandas.testing.assert_frame_equal(found, wanted.rename_axis(found.index.names), atol=0.001)
END
