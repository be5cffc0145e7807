"""Pictures, and pages as a browser shows them."""

from __future__ import annotations

import re
import shutil
import subprocess
from pathlib import Path
from typing import Any, Callable

import matplotlib.pyplot as plt
import numpy as np
import pytest

import trkapi
from conftest import FIRST, LAST
from trkapi import _report, plot
from trkapi.__main__ import main

LOOK = """<script>window.onload = () => { document.title = "pictures "
+ [...document.images].filter(i => i.naturalWidth > 0 && i.complete).length + " width "
+ document.documentElement.scrollWidth; };</script>"""


def test_trials_that_are_not_there_are_blocks(recording: trkapi.Recording) -> None:
    trials, note = _report._trials_of(recording, _report.Settings("", ("NOWHERE", None)))
    assert len(trials) == len(recording.blocks) and "no message that contains 'NOWHERE'" in note


def test_thinned_traces_keep_their_extremes() -> None:
    time = np.arange(1_000_000) * 0.5
    values = np.sin(time / 9000)
    values[123_456], values[300_000:400_000] = 50, np.nan
    thin_time, thin = plot.thinned(time, values, 500)
    assert len(thin) <= 1010 and np.nanmax(thin) == 50 and np.nanmin(thin) == np.nanmin(values)
    assert np.isnan(thin[(thin_time > 155_000) & (thin_time < 195_000)]).all()
    paused = np.where(time < 250_000, time, time + 100_000)
    assert np.isnan(plot.thinned(paused, np.ones(len(time)), 500)[1]).sum() == 1
    assert np.array_equal(plot.thinned(time[:9], values[:9], 5), (time[:9], values[:9]))


def test_pictures(recording: trkapi.Recording) -> None:
    trial = recording.trials("TRIALID", "TRIAL OK")[1]
    axes = plot.trace(trial)
    assert len(axes) == 3 and axes[2].get_xlabel().startswith("time (s)") and len(axes[0].lines) >= 2
    assert plot.screen_of(recording) == (0, 0, 1920, 1080) == plot.screen_of(recording, (1920, 1080))
    fixations = trial.fixations[trial.fixations["eye"] == "right"]
    ax = plot.scanpath(trial, eye="right")
    assert np.array_equal(ax.lines[0].get_xdata(), fixations["x"]) and ax.get_ylim() == (1080, 0)
    assert plot.trace(trial, values=["x"], ax=ax) is ax
    one = plot.trace(trial, ax=plt.figure().subplots(), eye="left", messages=False)
    gaze = trial.samples(["gaze_x_left", "gaze_y_left"])
    for line, column in zip(one.lines, gaze.dtype.names):
        assert (np.nanmax(line.get_ydata()), line.get_label()) == (
            np.nanmax(gaze[column]),
            f"left eye {column[5]}",
        )
    assert len(one.lines) == 2 and one.get_ylabel() == "gaze (pixels)"
    with pytest.raises(ValueError, match="axes of their own"):
        plot.trace(trial, values=("x", "pupil"), ax=one)
    image = plot.heatmap(trial, sigma=20).images[0].get_array()
    seen = np.isfinite(trial.samples("gaze_x_left")["gaze_x_left"]).mean() * trial.samples().size / 1000
    assert image.sum() == pytest.approx(seen, rel=0.02)
    points = plot.main_sequence(recording).collections[0].get_offsets()
    saccades = recording.saccades
    assert len(points) == ((saccades["eye"] == "left") & ~saccades["blink"]).sum()
    assert [tick.get_text() for tick in plot.timeline(recording).get_yticklabels()][:2] == ["blocks", "trials"]
    for pixels, loss in ((1, trkapi.quality(recording, by="recording")["data_loss"][0]), (4000, 0)):
        shares = plot.timeline(recording, pixels=pixels).images[0].get_array().ravel()
        assert np.ma.median(shares) == pytest.approx(loss)
    centers = FIRST + (np.arange(4000) + 0.5) * (LAST + 1 - FIRST) / 4000
    blocks = recording.blocks
    inside = [((blocks["start"] <= time) & (blocks["end"] > time)).any() for time in centers]
    assert np.ma.getmaskarray(shares).sum() == pytest.approx(4000 - sum(inside), abs=12)
    nothing = recording.between(0, 5)
    for draw in (plot.trace, plot.scanpath, plot.heatmap, plot.main_sequence, plot.timeline):
        draw(nothing)


def test_pages(path: Path, damage: Callable[[Path], Path], tmp_path: Path, capsys: Any) -> None:
    broken, folder = damage(tmp_path / "dämaged #1 <b>.trk"), tmp_path / "pages"
    (tmp_path / "text.trk").write_text("no recording")
    options = ["-o", str(folder), "--start", "TRIALID", "--end", "TRIAL OK", "--screen", "1920x1080"]
    assert main(["report", str(path), str(broken), str(tmp_path / "text.trk"), *options]) == 3
    told = capsys.readouterr()
    assert "text.trk is not a recording" in told.err and ": 1 damage, see" in told.err and not told.out
    for wrong in ("--screen=1920", "--workers=0"):
        with pytest.raises(SystemExit, match="2"):
            main(["report", str(path), *options, wrong])
    pages = sorted(folder.iterdir())
    assert [page.name for page in pages] == ["dämaged #1 <b>.trk.html", "index.html", "s07.trk.html"]
    assert not any(re.search(r'(src|href)="(?!data:|[^:"]*\.html")', page.read_text()) for page in pages)
    index = pages[1].read_text()
    assert "text.trk is not a recording" in index and "<b>" not in index and index.count("<img") == 2
    browser = shutil.which("chromium")
    if browser is None:
        pytest.skip("no chromium to look at the pages")
    for page, pictures in zip(pages, (16, 2)):  # the third is as the first, without damage
        text = page.read_text().replace("<details>", "<details open>") + LOOK
        page.write_text(text)
        for width in (1280, 420):
            command = [
                browser,
                "--headless",
                "--no-sandbox",
                "--disable-gpu",
                "--enable-logging=stderr",
                "--dump-dom",
            ]
            done = subprocess.run(
                [*command, f"--window-size={width},900", page.as_uri()], capture_output=True, text=True
            )
            seen = re.search(r"<title>pictures (\d+) width (\d+)", done.stdout)
            assert seen and int(seen[1]) == pictures and "CONSOLE" not in done.stderr
            assert int(seen[2]) <= max(width, 500)  # nothing wider than the window, which is never below 500
