"""Opening, reading and closing: values against an item-by-item walk, and everything that users do wrong."""

from __future__ import annotations

import ctypes
import gc
import logging
import math
import multiprocessing
import os
import pickle
import re
import shutil
import signal
import threading
from functools import partial
from pathlib import Path
from typing import Any, Callable

import numpy as np
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

import trkapi
from conftest import FIRST, LAST, SAMPLES, TRIALS
from trkapi import _library as c

NO_SCALES: tuple[Any, ...] = ((0, 0), (-40, 40), (math.nan, 40), (40, math.inf), (40,), (40, 40, 40), 40, "40")
Write = Callable[[Path], Path]
FIELD = re.compile("_(left|right)$|_[1-8]$")
NAMES = [name for name in trkapi.sample_columns() if hasattr(c.FSAMPLE_REC, FIELD.sub("", name))]


@pytest.fixture(scope="module")
def walked(path: Path) -> tuple[Any, list[c.FSAMPLE_REC], list[tuple[int, c.FEVENT, str]]]:
    """All samples and events, fetched item by item."""
    recording = trkapi.open(path)
    samples, events, library = [], [], c.library()
    with recording._session.use() as handle:
        number = 0
        while code := library.trk_get_next_data(handle):
            record = library.trk_get_float_data(handle).contents
            if code == c.REC_SAMPLE:
                samples.append((number, c.FSAMPLE_REC.from_buffer_copy(record.sample)))
            elif code != c.REC_RECORDING:
                event = c.FEVENT.from_buffer_copy(record.event)
                text = ctypes.string_at(event.message + 2).decode() if event.message else ""
                events.append((number, event, text))
            number += 1
    return recording, samples, events


def plain(sample: c.FSAMPLE_REC, name: str) -> float:
    """A field of a walked sample by the name of its column, missing values as they stand."""
    for suffix, index in (("_left", 0), ("_right", 1)):
        if name.endswith(suffix):
            return float(getattr(sample, name[: -len(suffix)])[index])
    return float(sample.ext_data[int(name[-1]) - 1] if name.startswith("ext_data") else getattr(sample, name))


@settings(max_examples=30, deadline=None)
@given(
    first=st.integers(-50, SAMPLES + 3000),
    length=st.integers(-5, 3000),
    names=st.lists(st.sampled_from(NAMES), min_size=1, max_size=6, unique=True),
    wide=st.booleans(),
)
def test_any_stretch_reads_as_the_walk(walked: Any, first: int, length: int, names: list[str], wide: bool) -> None:
    recording, samples, _ = walked
    names = [*names, "item"]
    table = recording.samples(names, items=(first, first + length), dtypes={n: "f8" for n in names if wide})
    expected = [(item, sample) for item, sample in samples if first <= item < first + length]
    assert table["item"].tolist() == [item for item, _ in expected]
    for name in set(names) - {"item"}:
        fields = np.array([plain(sample, name) for _, sample in expected], "f8")
        lost = np.isin(fields, (c.MISSING_DATA, -32768.0)) | (("pupil_size" in name) & (fields == 0))
        if name.startswith("ext_data"):  # a sample of a lost eye carries fewer words
            lost |= np.array([sample.ext_type & 15 < int(name[-1]) for _, sample in expected], bool)
        np.testing.assert_array_equal(table[name], np.where(lost, np.nan, fields), err_msg=name)


def test_events_read_as_the_walk(walked: Any) -> None:
    recording, _, events = walked
    table = recording.events
    assert table["item"].tolist() == [item for item, _, _ in events]
    assert table["text"].tolist() == [text for _, _, text in events]
    fixations = {item: event for item, event, _ in events if event.type == c.REC_EFIX}
    found = recording.fixations
    assert found["item"].tolist() == list(fixations)
    for row in found:
        event = fixations[row["item"]]
        assert (row["start"], row["end"], row["eye"]) == (
            event.start_time,
            event.end_time,
            ("left", "right")[event.eye],
        )
        assert row["x"] == np.float32(event.avg_gaze_x) and row["pupil"] == event.avg_pupil_size
    saccades = recording.saccades
    way = np.hypot(saccades["end_x"] - saccades["start_x"], saccades["end_y"] - saccades["start_y"])
    assert np.all(
        np.abs(saccades["amplitude"] * 40 / way - 1) < 0.15
    )  # about 40 pixels a degree, more at the edges
    up = saccades["start_y"] - saccades["end_y"]
    level = up == 0
    assert np.all(np.sign(saccades["direction"][~level]) == np.sign(up[~level]))
    leftwards = saccades["end_x"] < saccades["start_x"]
    assert level.any() and np.all(saccades["direction"][level] == np.where(leftwards[level], 180, 0))
    for eye in ("left", "right"):  # a blink lies inside of the saccade that is written around it
        kinds, own = table["kind"][table["eye"] == eye], saccades[saccades["eye"] == eye]
        around = kinds[:-1][kinds[1:] == "saccade_end"] == "blink_end"
        assert np.array_equal(own["blink"], around) and around.any()
    behind = saccades[saccades["blink"]][0]["end"]  # where the blink is over
    assert recording.between(behind).saccades["blink"][0]
    texts = recording.messages["text"]
    assert texts[0] == "TRIALID 1" and recording.inputs["input"][0] == 1 and len(recording.buttons) == 24
    assert np.array_equal(np.isfinite(table["start_pupil_size"]), table["kind"] == "fixation_end")
    assert set(table["kind"]) >= {"message", "blink_end", "button"}


def test_slices(recording: trkapi.Recording) -> None:
    times = recording.samples("time")["time"]
    assert times[0] - LAST < 0 and recording.blocks["start"][0] - LAST < 0  # nothing wraps around
    assert len(times) == recording.sample_count == recording.blocks["samples"].sum()
    for start, stop in (
        (FIRST + 5000, FIRST + 6000),
        (-3.5, FIRST + 99),
        (-math.inf, FIRST + 99),
        (None, FIRST + 9999.2),
        (LAST - 9, math.inf),
        (9, 3),
    ):
        low, high = -math.inf if start is None else start, math.inf if stop is None else stop
        got = recording.samples("time", start=start, stop=stop)["time"]
        assert got.tolist() == times[(times >= low) & (times < high)].tolist()
    trials = recording.trials("TRIALID", "TRIAL OK")
    assert [trial.number for trial in trials] == list(range(1, TRIALS + 1)) and len(trials[2:4]) == 2
    assert [trial.number for trial in trials[trials.table["number"] > 10]] == [11, 12]
    for some in (trials, recording.trials("TRIALID")):
        assert [trial.end - trial.start for trial in some] == some.table["duration"].tolist()
        assert [trial.own_end for trial in some] == [True] * (TRIALS - 1) + [some is trials]
    last = trials[-1].samples(block=TRIALS)
    assert last.size == recording.blocks["samples"][-1] and not trials[0].samples(block=TRIALS).size
    assert trials[3].samples(start=trials[3].start + 999)["time"][0] == trials[3].start + 999
    assert recording.samples(trial=trials[3]).tobytes() == trials[3].samples().tobytes()
    assert [len(trial.fixations) for trial in trials] == [
        len(recording.block(n + 1).fixations) for n in range(TRIALS)
    ]
    shown = recording.inputs[recording.inputs["input"] == 3]["time"][0]
    assert shown in recording.trials(3, 0).table["start"] and len(recording.trials()) == TRIALS
    assert recording.trials(np.int64(3), np.uint8(0)).table.tobytes() == recording.trials(3, "0").table.tobytes()
    zero, one = (set(recording.inputs["time"][recording.inputs["input"] == value]) for value in (0, 1))
    pairs = [(row["start"], row["end"]) for row in recording.trials(1, 0).table if row["start"] in one]
    assert pairs and all(end == min(time for time in zero if time > start) for start, end in pairs)
    for seconds in (0.137, 60, math.inf):
        chunks = list(recording.chunks("time", seconds=seconds))
        joined = np.concatenate(chunks)
        assert np.array_equal(joined["time"], times) and joined.units == chunks[0].units == {"time": "ms"}
        assert max(np.ptp(chunk["time"]) for chunk in chunks) < seconds * 1000
    assert next(recording.chunks(seconds=0.001)).size == 1


def test_columns(recording: trkapi.Recording) -> None:
    few = recording.samples(["time", "gaze", "*_vel_x_left", "time"], items=(0, 99))
    expected = ("time", "gaze_x_left", "gaze_y_left", "gaze_x_right", "gaze_y_right")
    assert few.dtype.names == (*expected, "gaze_vel_x_left", "href_vel_x_left", "pupil_vel_x_left")
    assert few.units["gaze_vel_x_left"] == "degrees per second" and type(few["time"]) is np.ndarray
    again = pickle.loads(pickle.dumps(few[3:5]))
    assert again.units == few.units and again.tobytes() == few[3:5].tobytes() and "rows" in repr(again)
    assert few.to_pandas().attrs["units"] == few.units and "<table>" in few._repr_html_()
    assert recording.samples(velocities=True, items=(0, 9)).dtype.names[-4:][0] == "gaze_vel_x_left"
    assert recording.samples(["status", "dummy"], dtypes={"status": "u2"}).dtype["status"] == np.dtype("u2")
    wrong = {"gaze_x_lft": "did you mean gaze_x_left", "": "sample_columns"}
    for name, hint in wrong.items():
        with pytest.raises(ValueError, match=hint):
            recording.samples(name)
    with pytest.raises(ValueError, match="did you mean gaze_x_left"):
        few["gaze_x"]
    for names, dtypes in ([], None), ("time", {"time": "f4"}), ("time", {"time": "S3"}), ("time", {"dummy": "u1"}):
        with pytest.raises(ValueError):
            recording.samples(names, dtypes=dtypes)


def test_what_users_do_wrong(path: Path, tmp_path: Path, capfd: Any) -> None:
    recording = trkapi.open(path)
    block, samples = recording.block(1), recording.samples(items=(0, 50))
    plain = ("path", "options", "closed", "close", "first_item", "end_item")
    kept = [name for name in dir(recording) if name[0] != "_" and name not in plain]
    methods = [name for name in kept if callable(getattr(recording, name))]  # reads each of the others
    for call in (lambda: recording.block(0), lambda: recording.samples(block=TRIALS + 1)):
        with pytest.raises(IndexError, match=f"numbered 1 to {TRIALS}"):
            call()
    for wrong in ("TRIALIDD", ""):
        with pytest.raises(ValueError, match="begin with: 'STIMULUS', 'TRACKER_TIME', 'TRIAL', 'TRIALID'"):
            recording.trials(wrong)
    for marks, error, hint in (
        ((999, 0), ValueError, "never has the value 999; it has: 0, 1, 2"),
        ((1, -1), ValueError, "never has the value -1"),
        (("TRIALID", 0), TypeError, "by a text"),
        ((1, "TRIAL OK"), TypeError, "by a value"),
        ((True, 0), TypeError, "start=True"),
        ((1, 0.0), TypeError, "end=0.0"),
        (("inPut_type_1", "0"), ValueError, "as numbers"),
    ):
        with pytest.raises(error, match=hint):
            recording.trials(*marks)
    calls: tuple[tuple[Callable[..., Any], dict[str, Any], str], ...] = (
        *((partial(trkapi.open, path), {"resolution": bad}, "resolution=.* above 0") for bad in NO_SCALES),
        *((partial(trkapi.quality, recording), {"pixels_per_degree": bad}, "above 0") for bad in NO_SCALES),
        (partial(trkapi.open, path), {"on_damage": "ignore"}, "'raise', 'warn', 'salvage'"),
        (recording.samples, {"start": math.nan}, "NaN"),
        (recording.samples, {"block": "1"}, "by their number"),
        (recording.samples, {"items": 3}, "one past the last"),
        (recording.samples, {"columns": 3}, "names of columns"),
        (recording.samples, {"trial": 3}, r"recording.trials\(...\)\[3\]"),
        (recording.chunks, {"seconds": 0}, "millisecond"),
        (trkapi.quality, {"recording": str(path)}, "takes a recording"),
        (partial(trkapi.quality, recording), {"trials": "TRIALID"}, "recording.trials"),
        (trkapi.plot.scanpath, {"stretch": str(path)}, "trkapi.open"),
        (partial(trkapi.plot.heatmap, recording), {"screen": 3}, "width and height"),
    )
    for function, arguments, hint in calls:
        with pytest.raises((TypeError, ValueError), match=hint):
            function(**arguments)
    recording.close()
    recording.close()
    with pytest.raises(ValueError, match="s07.trk is closed"):
        block.samples()
    positional = {"block": (1,)}
    for name in kept:
        with pytest.raises(ValueError, match="is closed"):
            getattr(recording, name)(*positional.get(name, ())) if name in methods else getattr(recording, name)
    for call in (recording.__enter__, lambda: pickle.dumps(recording), lambda: block.fixations, block.chunks):
        with pytest.raises(ValueError, match="is closed"):
            call()
    assert "s07.trk" in repr(block) and len(methods) == 5 and len(kept) > 25
    assert "closed" in repr(recording) and samples["time"][0] == FIRST
    recording, finalizer = trkapi.open(path), None
    samples, finalizer = recording.samples(), recording._session._finalizer
    del recording  # the last reference: closed without a collector
    assert not finalizer.alive and samples["time"][-1] == LAST
    empty, text = tmp_path / "empty", tmp_path / "text"
    empty.touch()
    text.write_text("TRIAL 1")
    with pytest.raises(FileNotFoundError) as missing:
        trkapi.open(tmp_path / "none.trk")
    assert isinstance(missing.value, trkapi.RecordingError) and missing.value.filename == str(
        tmp_path / "none.trk"
    )
    for wrong_file, code in ((tmp_path, "FILE"), (empty, "NOT_A_RECORDING"), (text, "NOT_A_RECORDING")):
        with pytest.raises(trkapi.RecordingError) as error:
            trkapi.open(wrong_file)
        assert error.value.code == trkapi.ErrorCode[code] and wrong_file.name in str(error.value)
        again = pickle.loads(pickle.dumps(error.value))
        assert (
            vars(again) == vars(error.value)
            and str(again) == str(error.value)
            and again.errno == error.value.errno
        )
    odd = tmp_path / "Größe und \udcff Leer zeichen"
    shutil.copy(path, odd)
    assert trkapi.open(str(odd)).sample_count == SAMPLES
    gc.collect()
    assert capfd.readouterr() == ("", "")


def test_trials_of_another_recording(recording: trkapi.Recording, path: Path, tmp_path: Path) -> None:
    other = trkapi.open(shutil.copy(path, tmp_path / "other.trk"))
    for foreign in (other.trials(), trkapi.open(path, check="none").trials()):
        for call in (
            lambda: recording.samples(trial=foreign[0]),
            lambda: trkapi.quality(recording, trials=foreign, by="block"),
            lambda: trkapi.plot.timeline(recording, trials=foreign),
        ):
            with pytest.raises(ValueError, match="opened otherwise, not of .*s07.trk"):
                call()
    trials = recording.trials()
    alike = pickle.loads(pickle.dumps(trials[1]))
    assert (
        alike == trials[1] and trials.index(alike) == 1 and {alike: 1}[trials[1]] and alike not in other.trials()
    )
    assert trials[1] not in (trials[0], recording.trials("TRIALID")[1], None)
    assert recording.samples(trial=alike).tobytes() == alike.samples().tobytes()


def test_another_folder(path: Path, tmp_path: Path, monkeypatch: Any) -> None:
    monkeypatch.chdir(path.parent)
    recording = trkapi.open(path.name)
    monkeypatch.chdir(tmp_path)
    again = pickle.loads(pickle.dumps(recording))
    assert recording.path == path.name and again.path == str(path) and again.options == recording.options
    assert len(recording.trials(3, 0)) == len(again.trials(3, 0)) > 0
    inherited = os.fork()
    if inherited == 0:
        try:
            os._exit(0 if recording.samples("time", items=(0, 99)).size else 1)
        finally:
            os._exit(2)
    assert os.waitpid(inherited, 0)[1] == 0


def test_damage(path: Path, damage: Write, tmp_path: Path, caplog: Any) -> None:
    broken = damage(tmp_path / "broken.trk")
    with pytest.raises(trkapi.DamagedRecording, match='on_damage="salvage"') as error:
        trkapi.open(broken)
    assert error.value.offset and error.value.damages[0].kind in trkapi.DamageKind and error.value.code == 3
    assert pickle.loads(pickle.dumps(error.value)).damages == error.value.damages
    with pytest.warns(trkapi.DamageWarning, match="broken.trk is damaged: .*may be wrong"):
        warned = trkapi.open(broken, on_damage="warn")
    salvaged = trkapi.open(broken, on_damage="salvage")
    assert 0 < warned.sample_count <= salvaged.sample_count < SAMPLES and salvaged.sample_count > SAMPLES - 100
    assert salvaged.damages and "damage    none" not in repr(salvaged)
    filled = trkapi.open(path, check="fill")
    assert filled.samples("dummy")["dummy"].sum() == 180 and filled.repairs and not filled.damages
    cut = tmp_path / "cut.trk"
    cut.write_bytes(path.read_bytes()[:700000])
    caplog.set_level(logging.INFO, "trkapi")
    assert trkapi.open(cut, on_damage="salvage").sample_count > 9000
    with pytest.raises(trkapi.DamagedRecording) as error:
        trkapi.open(cut)
    assert error.value.offset == error.value.damages[0].offset > 690000
    assert any("cut.trk" in record.getMessage() for record in caplog.records)


def test_an_interrupt_leaves_no_lock(recording: trkapi.Recording) -> None:
    def interrupt(*_: Any) -> None:
        raise KeyboardInterrupt

    interrupts, before = 0, signal.signal(signal.SIGALRM, interrupt)
    for number in range(400):
        try:
            signal.setitimer(signal.ITIMER_REAL, (number % 40 + 1) * 5e-5)
            for _ in range(20):
                recording.samples("time", items=(0, 200))
            signal.setitimer(signal.ITIMER_REAL, 0)
        except KeyboardInterrupt:
            interrupts += 1
    signal.setitimer(signal.ITIMER_REAL, 0)
    signal.signal(signal.SIGALRM, before)
    rows: list[int] = []
    thread = threading.Thread(target=lambda: rows.append(rows_of(recording)), daemon=True)
    thread.start()
    thread.join(30)
    assert rows == [SAMPLES] and interrupts > 10


def rows_of(recording: trkapi.Recording) -> int:
    return len(recording.samples("time"))


def test_threads_and_processes_share_a_recording(path: Path) -> None:
    recording = trkapi.open(path, check="fill")
    expected, got = recording.samples(start=FIRST + 50000).tobytes(), []
    threads = [
        threading.Thread(target=lambda: got.append(recording.between(FIRST + 50000).samples().tobytes()))
        for _ in range(8)
    ]
    for thread in threads:
        thread.start()
    inherited = os.fork()
    if inherited == 0:  # the child reads through a handle of its own
        os._exit(0 if recording.samples(start=FIRST + 50000).tobytes() == expected else 1)
    for thread in threads:
        thread.join()
    assert got == [expected] * 8 and os.waitpid(inherited, 0)[1] == 0
    with multiprocessing.get_context("spawn").Pool(2) as pool:
        assert pool.map(rows_of, [recording] * 4) == [recording.sample_count] * 4
    assert pickle.loads(pickle.dumps(recording)).options == recording.options
    recording.close()
