"""Reads what convert wrote of odd_texts.py and of the example recording: read_back.py TRK EXAMPLE"""
import csv
import gzip
import io
import json
import math
import subprocess
import sys

from odd_texts import TEXTS


def decoded(text):
    try:
        return text.decode()
    except UnicodeDecodeError:
        return text.decode("latin-1")


TRK, EXAMPLE = sys.argv[1:]
EXPECTED = [decoded(text) for text in TEXTS]


def read(path):
    with open(path, "rb") as file:
        data = file.read()
    text = (gzip.decompress(data) if path.endswith(".gz") else data).decode()
    return list(csv.DictReader(io.StringIO(text, newline=""), delimiter="," if "csv" in path else "\t", strict=True))


for form in ("tsv", "csv", "tsv.gz", "csv.gz"):
    texts = [row["text"] for row in read(f"{form}/texts_messages.{form}")]
    assert texts == EXPECTED, (form, texts)

# Every table beside what the description says of it, and the samples beside the dump of the same recording.
description = json.load(open("tsv/deep/example.json"))
for name, table in description["tables"].items():
    rows = read("tsv/deep/" + table["file"])
    assert len(rows) == table["rows"] > 0, name
    assert list(rows[0]) == [column["name"] for column in table["columns"]], name
    assert all(column["description"] for column in table["columns"]), name
    for column in table["columns"]:
        for row in rows if column["type"] in ("integer", "float", "double") else []:
            cell = row[column["name"]]
            assert cell == "" or math.isfinite(float(cell)), (name, column, cell)
assert description["facts"]["status"] in ("sound", "repaired") and description["facts"]["damages"] == []
samples = read("tsv/deep/example_samples.tsv")
dump = subprocess.run([TRK, "dump", "--kind", "samples", EXAMPLE, "--start", "TRIALID", "--end", "TRIAL OK",
                       "--missing", ""], check=True, capture_output=True, text=True).stdout
dumped = list(csv.DictReader(io.StringIO(dump), delimiter="\t"))
assert len(dumped) == len(samples)
for one, other in zip(samples, dumped):
    assert all(one[name] == other[name] for name in one), (one, other)

# A trial's figures beside those of its rows.
trial = read("tsv/deep/example_trials.tsv")[2]
own = [row for row in samples if row["trial"] == "3"]
gaze = [float(row["gaze_x_left"]) for row in own if row["gaze_x_left"]]
assert trial["trial"] == "3" and int(trial["samples"]) == len(own)
assert math.isclose(float(trial["gaze_missing_left"]), 1 - len(gaze) / len(own), rel_tol=1e-5)
assert math.isclose(float(trial["mean_gaze_x_left"]), sum(gaze) / len(gaze), rel_tol=1e-5)
events = [row for row in read("tsv/deep/example_events.tsv") if row["trial"] == "3" and row["eye"] == "left"]
for kind in ("fixation", "saccade", "blink"):
    assert int(trial[kind + "s_left"]) == sum(row["kind"] == kind for row in events) > 0, kind
saccades = [row for row in events if row["kind"] == "saccade" and row["amplitude"]]
for row in saccades:
    span = math.hypot(float(row["end_gaze_x"]) - float(row["start_gaze_x"]),
                      float(row["end_gaze_y"]) - float(row["start_gaze_y"]))
    assert 0.7 < float(row["amplitude"]) / (span / float(row["start_res_x"] or 35)) < 1.4, row
    assert int(row["duration"]) == int(row["end"]) - int(row["start"])

try:
    import pandas
    frame = pandas.read_csv("tsv/texts_messages.tsv", sep="\t", keep_default_na=False, na_values=[""])
    assert list(frame["text"].fillna("")) == EXPECTED, list(frame["text"])
    assert len(pandas.read_csv("tsv/texts_messages.tsv", sep="\t")) == len(EXPECTED)
    frame = pandas.read_csv("tsv/deep/example_samples.tsv", sep="\t")
    assert frame["gaze_x_left"].dtype == "float64" and frame["time"].dtype == "int64"
except ImportError:
    print("pandas is not there: not tried")

try:
    import h5py
    with h5py.File("hdf5/deep/example.h5") as file:
        for name, table in description["tables"].items():
            assert file[name].attrs["columns"].split(",") == [column["name"] for column in table["columns"]]
            for column in table["columns"]:
                data = file[name][column["name"]]
                assert data.shape == (table["rows"],), data
                assert data.attrs["units"] == column["unit"] and data.attrs["description"] == column["description"]
        column = file["samples/gaze_x_left"]
        assert column.compression == "gzip" and column.shuffle
        for value, row in zip(column[:], samples):
            cell = row["gaze_x_left"]
            assert math.isnan(value) if cell == "" else value == type(value)(cell)
    with h5py.File("hdf5/texts.h5") as file:
        assert [text.decode() for text in file["messages/text"][:]] == EXPECTED
except ImportError:
    print("h5py is not there: not tried")
