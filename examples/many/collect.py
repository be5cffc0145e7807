#!/usr/bin/env python3
"""One table of what became of the recordings that convert.sbatch was to convert.

    sbatch --dependency=afterany:JOB collect.py LIST TABLES OUTCOME.tsv

A row each: recording, exit status of trk ("none": its task was killed or did not run), seconds, rows in all its
tables, damage. Exit status: 0 when all are sound, 1 when some are damaged, 3 when some are not there.
"""

import csv
import json
import os
import sys
from pathlib import Path


def row_of(recording, tables):
    try:
        text = Path(f"{tables}.outcome", f"{recording}.txt").read_text("utf-8", "surrogateescape")
    except FileNotFoundError:
        return [recording, "none", "", "", ""]
    (first, *said) = text.splitlines()
    status, seconds = first.split("\t")
    told = [line for line in said if line.startswith("trk: ")] if status != "0" else []
    damage = [line.partition(recording)[2].strip(" :").removeprefix("is ") or line for line in told]
    rows = ""
    description = Path(tables, recording).with_suffix(".json")
    if not any(line.endswith(": failed") for line in said) and description.exists():  # BIDS has none
        made = json.loads(description.read_text("utf-8"))
        rows = sum(table["rows"] for table in made["tables"].values())
        damage = damage or [fact["text"] for fact in made["facts"]["damages"]] + made["notes"]
    return [recording, status, seconds, rows, "; ".join(damage)]


def main(list_name, tables, output):
    names = Path(list_name).read_text("utf-8", "surrogateescape").split("\n")
    rows = [row_of(name, tables.rstrip("/")) for name in names if name]
    part = f"{output}.part"
    with open(part, "w", encoding="utf-8", errors="surrogateescape", newline="") as file:
        writer = csv.writer(file, delimiter="\t", lineterminator="\n")
        writer.writerow(["recording", "status", "seconds", "rows", "damage"])
        writer.writerows(rows)
    os.replace(part, output)
    statuses = {row[1] for row in rows}
    return 0 if statuses <= {"0"} else 1 if statuses <= {"0", "1"} else 3


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
