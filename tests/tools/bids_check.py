"""Holds a data set that convert wrote against the rules for eye tracking: bids_check.py FOLDER SUBJECTS"""
import csv
import gzip
import json
import pathlib
import re
import sys

NAME = re.compile(r"sub-[A-Za-z0-9]+(_ses-[A-Za-z0-9]+)?_task-[A-Za-z0-9]+(_acq-[A-Za-z0-9]+)?(_run-[A-Za-z0-9]+)?"
                  r"(_recording-eye[12]_(physio|physioevents)|_events)\.(tsv\.gz|json|tsv)$")
folder = pathlib.Path(sys.argv[1])


def rows(path):
    text = gzip.open(path).read().decode()
    assert "\r" not in text and '"\t' not in text and not text.startswith("timestamp"), path
    lines = text.split("\n")
    assert lines.pop() == "", path
    return [line.split("\t") for line in lines]


def number(cell):
    assert re.fullmatch(r"-?\d+(\.\d+)?(e[+-]\d+)?", cell), cell
    return float(cell)


def beside(path, old, new):
    return path.with_name(path.name.replace(old, new))


description = json.load(open(folder / "dataset_description.json"))
assert description["BIDSVersion"] == "1.11.1" and description["Name"]
assert (folder / "README").stat().st_size > 0
participants = list(csv.DictReader(open(folder / "participants.tsv"), delimiter="\t"))
subjects = sorted(path.name for path in folder.glob("sub-*"))
assert sorted(row["participant_id"] for row in participants) == subjects and len(subjects) == int(sys.argv[2])

for path in folder.glob("sub-*/**/*.*"):
    assert NAME.fullmatch(path.name), path
    assert path.relative_to(folder).parts[0] == path.name.split("_")[0] and path.parent.name == "beh"

count = 0
for path in folder.glob("sub-*/**/*_physio.tsv.gz"):
    count += 1
    facts = json.load(open(beside(path, ".tsv.gz", ".json")))
    columns = facts["Columns"]
    assert columns[:4] == ["timestamp", "x_coordinate", "y_coordinate", "pupil_size"], columns
    assert facts["PhysioType"] == "eyetrack" and isinstance(facts["StartTime"], (int, float))
    assert facts["RecordedEye"] == {"eye1": "left", "eye2": "right"}[re.search("recording-(eye.)", path.name)[1]]
    assert all(facts[name]["Units"] and facts[name]["Description"] for name in columns[:4])
    assert re.search("area|diameter", facts["pupil_size"]["Description"])
    assert len(set(columns)) == len(columns) and all(name in facts for name in columns)
    onscreen = facts["SampleCoordinateSystem"] == "gaze-on-screen"
    assert onscreen or facts["SampleCoordinateSystem"] == "custom"
    task = path.with_name(re.sub(r"(_acq-\d+Hz)?_recording-.*", "_events.json", path.name))
    assert task.exists() == onscreen and beside(task, ".json", ".tsv").exists() == onscreen
    if onscreen:
        screen = json.load(open(task))["StimulusPresentation"]
        assert 0 < screen["ScreenDistance"] < 10 and len(screen["ScreenOrigin"]) == 2
        assert all(0 < side < 10 for side in screen["ScreenSize"]) and screen["ScreenResolution"] == [1920, 1080]
        trials = list(csv.DictReader(open(beside(task, ".json", ".tsv")), delimiter="\t"))
        assert list(trials[0])[:2] == ["onset", "duration"] and len(trials) == 12
        assert trials[0]["message"] == "TRIALID 1" and all(float(row["duration"]) >= 0 for row in trials)

    samples = rows(path)
    assert samples and all(len(row) == len(columns) for row in samples), path
    times = [number(row[0]) for row in samples]
    assert times == sorted(times)
    assert all(cell == "n/a" or number(cell) is not None for row in samples for cell in row[1:4])
    assert any(row[1] != "n/a" for row in samples)
    steps = sorted(b - a for a, b in zip(times, times[1:]))
    if len(times) > 100:
        assert steps[len(steps) // 2] == 1000 / facts["SamplingFrequency"], path

    facts = json.load(open(beside(path, "physio.tsv.gz", "physioevents.json")))
    assert facts["Columns"] == ["onset", "duration", "trial_type", "message"] and facts["OnsetSource"] == "timestamp"
    assert facts["Description"]
    events = rows(beside(path, "physio.tsv.gz", "physioevents.tsv.gz"))
    assert all(len(row) == 4 for row in events), path
    onsets = [number(row[0]) for row in events]
    assert onsets == sorted(onsets) and all(row[1] == "n/a" or number(row[1]) >= 0 for row in events)
    assert {row[2] for row in events} <= {"fixation", "saccade", "blink", "n/a"}
    assert any(row[3] == "recording block 1 starts" for row in events) or "acq" in path.name
assert count >= 8, count
rates = {json.load(open(path))["SamplingFrequency"] for path in folder.glob("sub-03/**/*run-2*physio.json")}
assert rates == {1000, 500}, rates
texts = [row[3] for row in rows(next(folder.glob("sub-03/**/*run-1*physioevents.tsv.gz")))]
assert "'begins with a quote" in texts and "tab here" in texts and "grüße ✓" in texts and "gr\u00fc\u00dfe" in texts, texts
