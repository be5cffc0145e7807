#!/usr/bin/env python3
"""Mean fixation duration by condition over many recordings, one of them in memory at a time and process.

    python3 fixation_durations.py recordings/*.trk --variable set_size -o durations.tsv

Conditions come from messages such as "VAR set_size 16" between the start and the end of a trial. The work is done by
two processes of this machine, or on the cluster whose scheduler --scheduler names.
"""

import argparse
import logging

import pandas
from distributed import Client, LocalCluster

import trkapi


def fixations_in_trials(events, start, end, variable):
    """The fixations of one recording in its whole trials, with the condition of the trial."""
    texts = events["text"].where(events["kind"] == "message", "")
    starts, ends = texts.str.contains(start, regex=False), texts.str.contains(end, regex=False)
    # From a start to the next end: 1, else 0 or, before the first of them, missing.
    inside = starts.astype("f8").where(starts | ends).ffill() == 1
    trial = starts.cumsum()
    inside &= ends.groupby(trial).transform("any")
    named = texts.where(inside).str.extract(rf"^VAR {variable} (.*)$", expand=False)
    fixations = events[inside & (events["kind"] == "fixation_end")]
    condition = trial[fixations.index].map(named.groupby(trial).last())
    return fixations[["eye", "duration"]].assign(condition=condition.astype("object"))


def show_warnings():
    logging.getLogger("trkapi").addHandler(logging.StreamHandler())


def main():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("recordings", nargs="+", metavar="FILE")
    parser.add_argument("--variable", required=True, metavar="NAME", help="what VAR messages call the condition")
    parser.add_argument("--start", default="TRIALID", metavar="TEXT", help="starts a trial (default: %(default)s)")
    parser.add_argument("--end", default="TRIAL OK", metavar="TEXT", help="ends a trial (default: %(default)s)")
    parser.add_argument("--scheduler", metavar="ADDRESS", help="of a cluster (default: processes of this machine)")
    parser.add_argument(
        "--workers", type=int, default=2, metavar="N", help="processes here (default: %(default)s)"
    )
    parser.add_argument("--memory", default="1GB", metavar="SIZE", help="of each of them (default: %(default)s)")
    parser.add_argument("-o", "--output", required=True, metavar="FILE", help="table to write")
    options = parser.parse_args()

    local = {
        "n_workers": options.workers,
        "threads_per_worker": 1,
        "memory_limit": options.memory,
        "dashboard_address": None,
    }
    with Client(options.scheduler or LocalCluster(**local)) as client:
        client.run(show_warnings)
        events = trkapi.dask_frame(
            options.recordings,
            "events",
            ["kind", "eye", "duration", "text"],
            on_damage="salvage",  # what can be saved of a damaged recording counts
            on_error="skip",  # one that cannot be read is told of, and left out
        )
        meta = pandas.DataFrame({"eye": ["left"], "duration": [0.0], "condition": ["16"]})
        fixations = events.map_partitions(
            fixations_in_trials, options.start, options.end, options.variable, meta=meta
        )
        groups = fixations.groupby(["condition", "eye"])["duration"]
        table = client.compute(groups.agg(["count", "mean"])).result().sort_index()
    table.columns = ["fixations", "mean_duration"]  # ms
    table.to_csv(options.output, sep="\t", float_format="%.3f")


if __name__ == "__main__":
    main()
