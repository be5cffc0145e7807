"""The recipes of docs/python.md and the examples of the docstrings, run."""

from __future__ import annotations

import doctest
import importlib
import pkgutil
import re
import shutil
from itertools import groupby
from operator import attrgetter
from pathlib import Path
from typing import Any

import numpy as np
import pytest

import trkapi
from conftest import LOST, SAMPLES, TRIALS
from trkapi import _many

UNIT = attrgetter("unit")
DOCS = Path(__file__).parents[3] / "docs" / "python.md"


def test_recipes(path: Path, tmp_path: Path, monkeypatch: Any) -> None:
    monkeypatch.chdir(tmp_path)
    shutil.copy(path, "s07.trk")
    shutil.copy(path, "s08.trk")
    Path("empty.trk").touch()
    text = DOCS.read_text("utf-8")
    assert len(re.findall(r"^### \d+\.", text, re.M)) == 10
    names: dict[str, Any] = {"__name__": "recipes"}
    for block in re.findall(r"```python\n(.*?)```", text, re.S):
        exec(compile(block, DOCS.name, "exec"), names)
    assert names["errors"]["file"].tolist() == ["empty.trk"] and Path("scanpath.png").stat().st_size > 1000
    with trkapi.open(path) as recording:
        fixations, saccades = recording.fixations, recording.saccades
        texts = [text.split() for text in recording.messages["text"]]
        responses = [int(text[2]) for text in texts if text[:2] == ["VAR", "response_ms"]]
    assert len(names["fixations"]) == 2 * len(fixations) == sum(1 for _ in open("fixations.csv")) - 1
    times = names["reaction_times"]
    assert len(times) == TRIALS and list(times.values()) == responses
    assert 0 < sum(names["dwell"].values()) < 120000 and len(names["dwell"]) == TRIALS
    assert names["amplitudes"]["count"].sum() == ((saccades["eye"] == "left") & ~saccades["blink"]).sum()
    assert names["amplitudes"]["mean"].between(3, 10).all()
    assert len(names["changes"]) == TRIALS and np.isfinite(names["changes"]).all()
    assert (
        len(names["quality"]) == 2 * TRIALS
        and names["summary"]["data_loss"].between(0.03, 0.04).all()
        and not len(names["bad"])
    )
    of_left = names["quality"][names["quality"]["eye"] == "left"]
    lost_ms = LOST + of_left["duration"].sum() - SAMPLES  # samples without gaze, and those that are not there
    assert (of_left["data_loss"] * of_left["duration"]).sum() == pytest.approx(lost_ms)
    assert np.isfinite(names["mean_gaze"]).all() and names["mean_gaze"].shape == (600,)
    starts = names["starts"]
    near = [np.abs(saccades["start"] - start).min() < 25 for start in starts]
    assert len(starts) > 15 and np.mean(near) > 0.8
    assert (names["lost"], names["total"]) == (LOST, SAMPLES)
    mean = {eye: fixations["duration"][fixations["eye"] == eye].mean() for eye in ("left", "right")}
    assert names["means"].to_dict() == pytest.approx(
        {(f"s0{n}.trk", eye): mean[eye] for n in (7, 8) for eye in mean}
    )


def test_columns_are_those_of_the_tables() -> None:
    text = " ".join(DOCS.read_text("utf-8").split())
    for what in _many.WHAT[1:]:
        columns = _many._request(what, None, (None, None), {}).empty().columns.values()
        runs = [(unit, ", ".join(f"`{col.name}`" for col in run)) for unit, run in groupby(columns, UNIT)]
        assert f"- `{what}`: " + "; ".join(f"{names} ({unit})" if unit else names for unit, names in runs) in text


@pytest.mark.parametrize("name", ["trkapi", *(f"trkapi.{m.name}" for m in pkgutil.iter_modules(trkapi.__path__))])
def test_examples(name: str, recording: trkapi.Recording, path: Path) -> None:
    if name != "trkapi.__main__":
        module = importlib.import_module(name)
        failed, _ = doctest.testmod(module, extraglobs={"trkapi": trkapi, "recording": recording, "path": path})
        assert failed == 0
