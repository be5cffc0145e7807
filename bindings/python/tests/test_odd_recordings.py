"""Recordings that lack something: one eye, no samples, nothing at all, no end."""

from __future__ import annotations

import warnings
from pathlib import Path
from typing import Any

import matplotlib.pyplot as plt
import numpy as np
import pytest
from conftest import write_raw

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
