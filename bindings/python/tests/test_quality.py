"""Data quality against the definitions, written out."""

from __future__ import annotations

import math
from dataclasses import replace
from pathlib import Path
from typing import Any

import numpy as np
import pytest

import trkapi
from conftest import LOST, SAMPLES, TRIALS, write_recording
from trkapi import _quality


def defined(x: Any, y: Any) -> tuple[float, float, float]:
    """RMS-S2S, STD and BCEA as the papers write them."""
    steps = np.diff(x) ** 2 + np.diff(y) ** 2
    sd_x, sd_y, rho = x.std(ddof=1), y.std(ddof=1), np.corrcoef(x, y)[0, 1]
    area = 2 * -math.log(0.32) * math.pi * sd_x * sd_y * math.sqrt(1 - rho**2)
    return math.sqrt(steps.mean()), math.hypot(sd_x, sd_y), area


def in_blinks(time: Any, part: Any) -> Any:
    blinks = part.blinks[part.blinks["eye"] == "left"]
    return np.any([(time >= blink["start"]) & (time <= blink["end"]) for blink in blinks], axis=0)


def test_figures_are_as_defined(recording: trkapi.Recording) -> None:
    row = trkapi.quality(recording, by="block", window_ms=100)[0]
    block = recording.block(1)
    samples = block.samples(["time", "gaze_x_left", "gaze_y_left", "res_x", "res_y"], dtypes={"gaze_x_left": "f8"})
    time, x, y, res_x, res_y = (samples[name].astype("f8") for name in samples.dtype.names)
    found = []
    for fixation in block.fixations[block.fixations["eye"] == "left"]:
        inside = (time >= fixation["start"]) & (time <= fixation["end"])
        scale = np.nanmean(res_x[inside]), np.nanmean(res_y[inside])
        found.append(defined(x[inside] / scale[0], y[inside] / scale[1]))
    in_fixations = [row[f"{name}_fixation"] for name in ("rms", "std", "bcea")]
    assert in_fixations == pytest.approx(np.nanmedian(found, axis=0), rel=1e-4) and row["fixations"] == len(found)
    windows = [
        defined(x[n : n + 100] / np.nanmean(res_x[n : n + 100]), y[n : n + 100] / np.nanmean(res_y[n : n + 100]))
        for n in range(len(x) - 99)
        if np.isfinite(x[n : n + 100]).all() and time[n + 99] - time[n] == 99
    ]
    in_windows = [row[f"{name}_window"] for name in ("rms", "std", "bcea")]
    assert in_windows == pytest.approx(np.median(windows, axis=0), rel=1e-3)
    assert (row["eye"], row["block"], row["expected"]) == ("left", 1, recording.blocks["duration"][0])
    lost, expected = np.isnan(x), recording.blocks["duration"][0]
    gap = expected - len(x)
    assert gap > 0 and row["data_loss"] == pytest.approx((lost.sum() + gap) / expected)
    assert row["loss_in_blinks"] == pytest.approx((lost & in_blinks(time, block)).sum() / expected)
    assert row["effective_frequency"] == pytest.approx(1000 * np.isfinite(x).sum() / expected)


@pytest.mark.parametrize("rate", (250, 500, 1000, 2000))
def test_windows_hold_no_lost_sample(rate: int, tmp_path: Path) -> None:
    path = write_recording(tmp_path / "a.trk", "--minutes=0.5", "--blocks=1", "--dropout=20", f"--rate={rate}")
    (part,) = _quality._parts(trkapi.open(path), "left", None)
    names = ("time", "x", "y", "res_x", "res_y")
    part = replace(part, **{name: np.delete(getattr(part, name), [300, 777]) for name in names})
    first, end = part.windows(20)
    assert set(end - first) == {rate / 50}
    spans = part.time[rate // 50 - 1 :] - part.time[: len(part.time) - rate // 50 + 1]
    lost = [np.isnan(part.x[n : n + rate // 50]).any() for n in range(len(spans))]
    assert first.tolist() == np.flatnonzero((spans == 20 - 1000 / rate) & ~np.array(lost)).tolist()


def test_rows_losses_and_targets(recording: trkapi.Recording) -> None:
    whole = trkapi.quality(recording, by="recording")
    gap = recording.blocks["duration"].sum() - SAMPLES
    assert whole["valid"].tolist() == [SAMPLES - LOST] * 2 and whole["expected"][0] == SAMPLES + gap
    assert whole["data_loss"][0] == pytest.approx((LOST + gap) / (SAMPLES + gap))
    blinking = in_blinks(recording.samples("time")["time"], recording).sum()
    assert 0 < blinking < LOST and whole["loss_in_blinks"][0] == pytest.approx(blinking / (SAMPLES + gap))
    by_trial = trkapi.quality(recording, trials=recording.trials("TRIALID", "TRIAL OK"))
    assert by_trial["trial"].tolist() == [n for n in range(1, TRIALS + 1) for _ in range(2)]
    by_block = trkapi.quality(recording, by="block")
    assert np.array_equal(by_trial["rms_window"], by_block["rms_window"]) and np.isnan(by_trial["accuracy"]).all()
    fixation = recording.fixations[2]
    targets = [(fixation["start"], fixation["end"], fixation["x"] - 40, fixation["y"])]
    near = trkapi.quality(recording, by="recording", targets=targets, pixels_per_degree=(40, 40))
    assert near["accuracy"][0] == pytest.approx(1, abs=0.01) and near["targets"].tolist() == [1, 1]
    trials = recording.trials("TRIALID", "TRIAL OK")  # each begins before its block does
    targets = [(trial.start, trial.end, 960, 540) for trial in trials]
    by_trial = trkapi.quality(recording, trials=trials, targets=targets, pixels_per_degree=(40, 40))
    gaze = trials[0].samples(["gaze_x_left", "gaze_y_left"], stop=trials[0].end)
    x, y = (np.nanmean(gaze[name], dtype="f8") for name in gaze.dtype.names)
    assert set(by_trial["targets"]) == {1} and by_trial["accuracy"][0] * 40 == pytest.approx(
        math.hypot(x - 960, y - 540)
    )
    for targets, of_all in ((targets, TRIALS), ([(0, trials[-1].end, 960, 540)], 1)):
        counts = [trkapi.quality(recording, by=by, targets=targets)["targets"] for by in ("recording", "block")]
        assert set(counts[0]) == {of_all} and set(counts[1]) == {1}
    with pytest.raises(ValueError, match="start and end"):
        trkapi.quality(recording, targets=[(1, 2, 3)])
    with pytest.raises(ValueError, match="choose"):
        trkapi.quality(recording, by="eye")
