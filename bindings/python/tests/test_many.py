"""Many recordings: in processes of this machine, and on a cluster."""

from __future__ import annotations

import math
import os
import signal
from pathlib import Path
from typing import Any, Callable

import pandas as pd
import pytest

import trkapi
from conftest import FIRST, SAMPLES, TRIALS
from trkapi import _many


@pytest.fixture
def paths(path: Path, damage: Callable[[Path], Path], tmp_path: Path) -> list[Path]:
    (tmp_path / "text.trk").write_text("no recording")
    return [path, damage(tmp_path / "broken.trk"), tmp_path / "text.trk", tmp_path / "none.trk"]


def test_a_bad_recording_is_a_row_in_the_errors(paths: list[Path]) -> None:
    names = [str(path) for path in paths]
    for workers in (1, 2):
        table, errors = trkapi.read_many(paths, "samples", ["time", "gaze"], workers=workers)
        assert errors["file"].tolist() == names[1:] and errors["code"].tolist() == [
            "DAMAGED",
            "NOT_A_RECORDING",
            "FILE",
        ]
        assert (
            errors["error"][0] == "DamagedRecording" and errors["offset"][0] > 0 and "salvage" in errors["text"][0]
        )
        assert len(table) == SAMPLES and set(table["file"]) == {names[0]}
        assert table["file"].cat.categories.tolist() == names
    salvaged, errors = trkapi.read_many(paths, "trials", trials=("TRIALID", "TRIAL OK"), on_damage="salvage")
    assert len(salvaged) == 2 * TRIALS and len(errors) == 2
    nothing = trkapi.read_many(paths[3:], "saccades", ["eye", "amplitude"])
    assert nothing.table.columns.tolist() == ["file", "eye", "amplitude"] and len(nothing.errors) == 1
    for what in _many.WHAT:  # what a cluster is told beforehand is what comes
        request = _many._request(what, None, (None, None), {})
        pd.testing.assert_series_equal(request.empty().to_pandas().dtypes, trkapi.read(paths[0], what).dtypes)
    early = trkapi.read_many(paths[:1], "messages", stop=FIRST + 9999).table
    assert 0 < len(early) == (trkapi.read(paths[0], "messages")["time"] < FIRST + 9999).sum()
    mistakes: list[dict[str, Any]] = [
        *({"what": "sample"}, {"columns": "gaz"}, {"what": "blinks", "columns": ["gaze"]}),
        *({"on_damage": "ignore"}, {"ondamage": "warn"}, {"start": math.nan}, {"resolution": (1, 2, 3)}),
        *({"what": what, "stop": 9} for what in ("trials", "blocks", "quality")),
        *({"what": "events", "dtypes": {"time": "f8"}}, {"what": "inputs", "trials": ("TRIALID", None)}),
        *({"what": "trials", "trials": ("TRIALID", 0)}, {"what": "trials", "trials": (None, "TRIAL OK")}),
    ]
    hints = "choose one of|did you mean|there are item|unexpected|NaN|above 0|take no|by a text|need a start"
    for wrong in mistakes:
        with pytest.raises((TypeError, ValueError), match=hints):
            trkapi.read_many(paths, workers=1, **wrong)
    with pytest.raises(TypeError, match="put one into a list"):
        trkapi.read_many(names[0])


def dying(name: str) -> str:
    if "broken" in name:
        os.kill(os.getpid(), signal.SIGKILL)
    return name


def test_a_process_that_dies_costs_one_recording(paths: list[Path]) -> None:
    names = [str(path) for path in paths]
    results = _many.each(dying, names, 2)
    assert results[:1] + results[2:] == names[:1] + names[2:] and results[1].error == "BrokenProcessPool"


def test_cluster(paths: list[Path]) -> None:
    distributed = pytest.importorskip("distributed")
    with distributed.LocalCluster(
        n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None
    ) as cluster, distributed.Client(cluster):
        frame = trkapi.dask_frame(paths, "samples", ["time", "gaze_x_left"], on_error="skip")
        assert frame.npartitions == 4 and frame["file"].cat.known
        counts = frame.groupby("file")["time"].count().compute()
        assert counts[str(paths[0])] == SAMPLES and counts.sum() == SAMPLES
        salvaged = trkapi.dask_frame(paths[:2], "samples", "time", on_damage="salvage")
        assert 2 * SAMPLES - 100 < len(salvaged) < 2 * SAMPLES
        with pytest.raises(trkapi.DamagedRecording) as error:
            trkapi.dask_frame(paths[:2]).compute()
        assert error.value.damages
        mean: Any = trkapi.dask_frame(paths[:1], "fixations")["duration"].mean().compute()
        assert mean == pytest.approx(trkapi.read(paths[0], "fixations")["duration"].mean())
