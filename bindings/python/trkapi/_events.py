"""Tables of what happened: events of all kinds, fixations, saccades, blinks, messages, buttons, inputs."""

from __future__ import annotations

import ctypes
import functools
from dataclasses import dataclass, replace
from typing import Any, Mapping, Optional, Sequence

import numpy as np

from . import _library as c
from ._table import Column, Table

Array = np.ndarray[Any, np.dtype[Any]]

RECORD = np.dtype(c.FEVENT)
LONGEST_TEXT = 500  # bytes of a message, with the zero byte behind it

KIND_NAMES = {
    c.REC_SBLINK: "blink_start",
    c.REC_EBLINK: "blink_end",
    c.REC_SSACC: "saccade_start",
    c.REC_ESACC: "saccade_end",
    c.REC_SFIX: "fixation_start",
    c.REC_EFIX: "fixation_end",
    c.REC_STARTSAMPLES: "samples_start",
    c.REC_ENDSAMPLES: "samples_end",
    c.REC_STARTEVENTS: "events_start",
    c.REC_ENDEVENTS: "events_end",
    c.REC_MESSAGE: "message",
    c.REC_BUTTON: "button",
    c.REC_INPUT: "input",
}
_EYE_EVENTS = (c.REC_SBLINK, c.REC_SSACC, c.REC_SFIX, c.REC_EBLINK, c.REC_ESACC, c.REC_EFIX)


_ITEM = Column("item", "i8", "", "number of the item, from 0")
_KIND = Column("kind", "U14", "", f"what happened: {', '.join(KIND_NAMES.values())}, or event and a number")
_EYE = Column("eye", "U5", "", "left or right", "empty for events of no eye")
_TEXT = Column("text", "O", "", "text of the message", "empty")
_DIRECTION = Column("direction", "f4", "degrees", "0 to the right, 90 up, -90 down", "NaN without positions")
_BLINK = Column("blink", "?", "", "whether a blink of the same eye overlaps: then the lid moved, not the eye")

# Tables of one kind have shorter names for what most ask for.
_SHORT = {
    "fixations": {"avg_gaze_x": "x", "avg_gaze_y": "y", "avg_pupil_size": "pupil", "avg_href_x": "href_x"}
    | {"avg_href_y": "href_y"},
    "saccades": {
        "start_gaze_x": "start_x",
        "start_gaze_y": "start_y",
        "end_gaze_x": "end_x",
        "end_gaze_y": "end_y",
    },
}
_EYE_EVENT = ("item", "eye", "start", "end", "duration")
_NAMES: dict[str, tuple[str, ...]] = {
    "blinks": _EYE_EVENT,
    "fixations": (*_EYE_EVENT, *_SHORT["fixations"]),
    "saccades": (*_EYE_EVENT, *_SHORT["saccades"], "peak_velocity", "avg_velocity", "amplitude"),
    "messages": ("item", "time", "text"),
    "buttons": ("item", "time", "button", "button_state", "button_value"),
    "inputs": ("item", "time", "input"),
}
_ALWAYS_THERE = ("input", "button", "button_value")  # where all events are of their kind
WHAT = ("events", *_NAMES)


@functools.lru_cache(maxsize=None)
def _known() -> Mapping[str, tuple[Column, int]]:
    """All columns of events by name, with the number by which the library knows each; 0 for ours."""
    library: dict[str, tuple[Column, int]] = {}
    record = c.TRK_COLUMN_DESCRIPTION()
    while c.library().trk_describe_event_column(len(library) + 1, ctypes.byref(record)) == 0:
        name, unit, description, missing = (
            text.decode() for text in (record.name, record.unit, record.description, record.missing)
        )
        # Times are numbers to reckon with, and words of what is no button or input are missing.
        dtype = "f8" if record.type == c.TRK_TYPE_UINT32 else "f4" if missing else "i8"
        library[name] = Column(name, dtype, unit, description, "NaN" if missing else ""), record.id
    front = {column.name: (column, 0) for column in (_ITEM, _KIND, _EYE)}
    return {**front, **library, "text": (_TEXT, 0)}


@functools.lru_cache(maxsize=None)
def _columns(what: str) -> Sequence[tuple[Column, str]]:
    """The columns that the table `what` has of its records, and their names in the table of all events."""
    columns = []
    for source in _NAMES.get(what, tuple(_known())):
        column, _ = _known()[source]
        if what in ("buttons", "inputs") and source in _ALWAYS_THERE:
            column = replace(column, dtype="i8", missing="")
        columns.append((replace(column, name=_SHORT.get(what, {}).get(source, source)), source))
    return columns


def _librarys(name: str, records: Array) -> Array:
    """A column of events that the library knows."""
    records = np.ascontiguousarray(records)
    values = np.empty(len(records))
    _, number = _known()[name]
    c.library().trk_get_event_column(records.ctypes.data, len(records), number, values.ctypes.data)
    return values


def time_of(records: Array) -> Array:
    """When events stand among the items."""
    return _librarys("time", records)


def _value(name: str, records: Array, items: Array, texts: Array) -> Array:
    """A column of all events."""
    if name == "item":
        return items
    if name == "text":
        return texts
    if name == "kind":
        known, positions = np.unique(records["type"], return_inverse=True)
        names = [KIND_NAMES.get(int(code), f"event{code}") for code in known]
        return np.array(names or [""], "U14")[positions]
    if name == "eye":
        is_eye_event = np.isin(records["type"], _EYE_EVENTS)
        return np.where(is_eye_event, np.where(records["eye"] == 0, "left", "right"), "")
    return _librarys(name, records)


def decode(text: bytes) -> str:
    """The text of a message: UTF-8, or Latin-1 where it is not; zero bytes at its end are no part of it."""
    text = text.rstrip(b"\0")
    try:
        return text.decode("utf-8")
    except UnicodeDecodeError:
        return text.decode("latin-1")


CODE_OF = {
    "blinks": c.REC_EBLINK,
    "fixations": c.REC_EFIX,
    "saccades": c.REC_ESACC,
    "messages": c.REC_MESSAGE,
    "buttons": c.REC_BUTTON,
    "inputs": c.REC_INPUT,
}


def table_of(what: str, records: Array, items: Array, texts: Array) -> Table:
    """The table `what`: one of WHAT."""
    if what in CODE_OF:
        chosen = records["type"] == CODE_OF[what]
        records, items, texts = records[chosen], items[chosen], texts[chosen]
    columns = _columns(what)
    values = {column.name: _value(source, records, items, texts) for column, source in columns}
    return Table.of(values, [column for column, _ in columns])


@dataclass(frozen=True)
class Scale:
    """Pixels per degree, for saccades whose own record states none."""

    x: float
    y: float


def with_measures(saccades: Table, records: Array, scale: Optional[Scale], blinks: Table) -> Table:
    """Saccades with what records do not say: direction, amplitude by a scale, and whether a blink overlaps."""
    records = records[records["type"] == c.REC_ESACC]
    across = saccades["end_x"] - saccades["start_x"]
    down = saccades["end_y"] - saccades["start_y"]
    values = {name: saccades[name] for name in saccades.dtype.names or ()}
    if scale is not None:
        unknown = np.isnan(values["amplitude"]) & (records["read_flags"] & c.TRK_EVENT_GAZE != 0)
        values["amplitude"] = np.where(unknown, np.hypot(across / scale.x, down / scale.y), values["amplitude"])
    values["direction"] = np.degrees(np.arctan2(0 - down, across))  # -0.0 would make left -180
    values["blink"] = _overlapping(saccades, blinks)
    return Table.of(values, columns_of("saccades"))


def _overlapping(events: Table, others: Table) -> Array:
    """Whether one of the others of the same eye overlaps; one without a start counts by its end."""
    overlaps = np.zeros(len(events), bool)
    for eye in ("left", "right"):
        own, theirs = events["eye"] == eye, others["eye"] == eye
        start, end = _extent(events[own])
        starts, ends = (np.sort(times) for times in _extent(others[theirs]))
        overlaps[own] = np.searchsorted(starts, end, "right") > np.searchsorted(ends, start, "left")
    return overlaps


def _extent(events: Table) -> tuple[Array, Array]:
    return np.where(np.isnan(events["start"]), events["end"], events["start"]), events["end"]


def room_for(events: int, messages: int) -> tuple[Array, Array, Array]:
    """Records, texts and text offsets with room for so many events."""
    return np.empty(events, RECORD), np.empty((messages + 1) * LONGEST_TEXT, "u1"), np.zeros(events + 1, "i8")


def texts_of(buffer: Array, offsets: Array) -> Array:
    """The decoded text of each event; empty for those that have none."""
    texts = np.full(len(offsets) - 1, "", dtype=object)
    for number in np.flatnonzero(np.diff(offsets)):
        texts[number] = decode(buffer[offsets[number] : offsets[number + 1] - 1].tobytes())
    return texts


def columns_of(what: str) -> list[Column]:
    """The columns of the table `what`."""
    columns = [column for column, _ in _columns(what)]
    return [*columns, _DIRECTION, _BLINK] if what == "saccades" else columns
