"""Recordings that lack something: one eye, no samples, nothing at all, no end."""

from __future__ import annotations

import csv
import subprocess
import warnings
from pathlib import Path
from typing import Any

import matplotlib.pyplot as plt
import numpy as np
import pytest
from conftest import BUILD, write_raw, write_recording

import trkapi
from trkapi import plot

LEFT, RIGHT = 0x8000, 0x4000
# Eye, times of the samples, messages, whether the block has an end; eyes, samples, duration and texts to be read.
ODD: dict[str, Any] = {
    "right eye": (
        (RIGHT, range(1000, 2000, 2), {990: b"caf\xe9", 991: "naïve\0".encode()}),
        ("right",),
        500,
        1000,
    ),
    "messages": ((LEFT, (), {5: b"", 6: b'$a "b"\t\n$'}), (), 0, 0),
    "nothing": ((LEFT, (), {}), (), 0, 0),
    "no end": ((LEFT, range(1000, 1100, 2), {}, False), ("left",), 50, 98),
    "late": ((LEFT, range(2**32 - 600, 2**32 - 100, 2), {}), ("left",), 250, 500),
}


@pytest.mark.parametrize("name", ODD)
def test_all_can_be_read_measured_and_drawn(name: str, tmp_path: Path, capfd: Any) -> None:
    written, eyes, samples, duration = ODD[name]
    path = write_raw(tmp_path / f"{name}.trk", *written)
    for check in ("check", "fill", "none"):
        recording = trkapi.open(path, on_damage="salvage", check=check)
        assert (recording.eyes, recording.sample_count, recording.duration) == (eyes, samples, duration)
        assert bool(recording.damages) == (name == "no end") == any(recording.blocks["end_lost"])
        gaze = recording.samples("gaze")
        for eye in ("left", "right"):
            assert (
                np.isfinite(gaze[f"gaze_x_{eye}"]).all() if eye in eyes else np.isnan(gaze[f"gaze_x_{eye}"]).all()
            )
        assert sum(map(len, recording.chunks(seconds=0.1))) == samples
        for what in ("events", "fixations", "saccades", "blinks", "messages", "buttons", "inputs", "blocks"):
            table = getattr(recording, what)
            assert len(table.to_pandas()) == len(table) and f"{len(table)} rows" in repr(table)
        quality = trkapi.quality(recording, by="block", pixels_per_degree=(40, 40))
        assert quality["eye"].tolist() == list(eyes) and not quality["data_loss"].any()
    texts = {"right eye": ["café", "naïve"], "messages": ["", '$a "b"\t\n$']}.get(name, [])
    assert recording.messages["text"].tolist() == texts and "\t" not in repr(recording.messages)
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        for draw in (plot.trace, plot.scanpath, plot.heatmap, plot.main_sequence, plot.timeline):
            axes = draw(recording)
            np.atleast_1d(axes)[0].figure.canvas.draw()
            plt.close("all")
    page = trkapi.report([path], tmp_path / "pages", workers=1)[str(path)]
    assert page.duration == duration and (tmp_path / "pages" / f"{name}.trk.html").exists()
    assert capfd.readouterr() == ("", "")


# What trk writes as tables: 2000 samples per second of one eye, some lost; late clocks; no resolution; no samples.
WRITTEN: dict[str, Any] = {
    "fast": ("--rate", "2000", "--eyes", "right", "--minutes", "0.2", "--trials", "2", "--dropout", "10"),
    "slow": ("--rate", "250", "--minutes", "0.4", "--trials", "4", "--blocks", "2", "--blinks", "40"),
    "late": (
        RIGHT,
        [*range(400000000, 400000100, 2), *range(400000120, 400000200, 2)],
        {399999990: b"a", 400000050: b"TRIALID a"},
    ),
    "latest": (
        LEFT,
        range(2**32 - 600, 2**32 - 100, 2),
        {2**32 - 590: b"TRIALID", 2**32 - 101: b"TRIAL OK"},
    ),
    "messages": (LEFT, (), {5: b"", 6: b'$a "b"\t\n$', 2**32 - 1: b"caf\xe9 \x00"}),
}


def written_columns(path: Path) -> dict[str, list[str]]:
    """The columns of a table that trk wrote, by their names."""
    with path.open(newline="", encoding="utf-8") as file:
        names, *rows = csv.reader(file, delimiter="\t", strict=True)
    return {name: [row[place] for row in rows] for place, name in enumerate(names)}


def assert_same(cells: list[str], values: Any, name: str) -> None:
    if values.dtype.kind in "OU":
        assert cells == values.tolist(), name
    else:
        dtype = values.dtype if values.dtype == "f4" else "f8"
        numbers = np.array([float(cell) if cell else np.nan for cell in cells], dtype)
        np.testing.assert_array_equal(numbers, values.astype(dtype), err_msg=name)


@pytest.mark.parametrize("name", WRITTEN)
@pytest.mark.parametrize("check", ["full", "none"])
def test_trk_writes_the_same_values(name: str, check: str, tmp_path: Path) -> None:
    path, given = tmp_path / f"{name}.trk", WRITTEN[name]
    _ = write_recording(path, *given) if isinstance(given[0], str) else write_raw(path, *given)
    # The trial of the late one has no end of its own.
    marks = {"late": ("TRIALID", None), "messages": (None, None)}.get(name, ("TRIALID", "TRIAL OK"))
    words = [word for option, text in zip(("--start", "--end"), marks) if text for word in (option, text)]
    trk = BUILD / "tools" / "trk"
    command = [trk, "convert", path, "-o", tmp_path, "--columns", "*", "--check", check, *words]
    subprocess.run(command, check=True, capture_output=True)
    recording = trkapi.open(path, check="fill" if check == "full" else check)

    tables = {what: written_columns(tmp_path / f"{name}_{what}.tsv") for what in ("samples", "events", "messages")}
    samples = recording.samples("*")
    trial = tables["samples"].pop("trial"), tables["samples"].pop("trial_time")
    assert list(tables["samples"]) == list(samples.columns)
    for column, cells in tables["samples"].items():
        assert_same([cell or "0" for cell in cells] if column == "block" else cells, samples[column], column)
    trials = recording.trials(*marks)
    for own in trials:
        inside = np.array(trial[0]) == str(own.number)
        assert samples["item"][inside].tolist() == own.samples("item")["item"].tolist()
        assert_same(np.array(trial[1])[inside].tolist(), samples["time_exact"][inside] - own.start, "trial_time")
    assert trial[0].count("") + sum(len(own.samples("item")) for own in trials) == len(samples)

    events = recording.events[np.isin(recording.events["kind"], ["fixation_end", "saccade_end", "blink_end"])]
    is_eyes = [kind in ("fixation", "saccade", "blink") for kind in tables["events"]["kind"]]
    for column in set(tables["events"]) & set(recording.events.columns) - {"kind"}:
        cells = [cell for cell, wanted in zip(tables["events"][column], is_eyes) if wanted]
        assert_same(cells, events[column], column)
    assert len(is_eyes) - sum(is_eyes) == len(recording.buttons) + len(recording.inputs)
    assert_same(tables["messages"]["time"], recording.messages["time"], "time")
    texts = [text.rstrip("\u2400") for text in tables["messages"]["text"]]  # Python leaves out zeros at the end
    assert texts == recording.messages["text"].tolist()
    for what, own in (("trials", trials.table), ("blocks", recording.blocks)):
        cells_by_name = written_columns(tmp_path / f"{name}_{what}.tsv")
        for column in set(own.columns) & set(cells_by_name):
            assert_same(cells_by_name[column], own[column], f"{what} {column}")
        assert_same(cells_by_name["last_item"], own["end_item"] - 1, what)
