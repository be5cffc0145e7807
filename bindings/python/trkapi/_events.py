"""Tables of what happened: events of all kinds, fixations, saccades, blinks, messages, buttons, inputs."""

from __future__ import annotations

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
_ENDS = (c.REC_EBLINK, c.REC_ESACC, c.REC_EFIX)
_EYE_EVENTS = (c.REC_SBLINK, c.REC_SSACC, c.REC_SFIX, *_ENDS)
_BLOCK_MARKS = (c.REC_STARTSAMPLES, c.REC_ENDSAMPLES, c.REC_STARTEVENTS, c.REC_ENDEVENTS)


@dataclass(frozen=True)
class _Quantity:
    """When a record carries a quantity: the bits of read_flags that have to be set, one of each."""

    part: int
    what: int
    zero_is_missing: bool  # the part's bits stand for other things, too: a zero was not recorded


_GAZE = c.TRK_EVENT_GAZE | c.TRK_EVENT_RAW
_MEANINGS = {
    "gaze_x": (_GAZE, "display pixels", "gaze position, horizontal"),
    "gaze_y": (_GAZE, "display pixels", "gaze position, vertical"),
    "href_x": (c.TRK_EVENT_HREF, "HREF units", "head-referenced position, horizontal"),
    "href_y": (c.TRK_EVENT_HREF, "HREF units", "head-referenced position, vertical"),
    "pupil_size": (c.TRK_EVENT_PUPIL_SIZE, "tracker units", "pupil size"),
    "velocity": (c.TRK_EVENT_VELOCITY, "degrees per second", "velocity"),
    "res_x": (c.TRK_EVENT_RESOLUTION, "pixels per degree", "resolution, horizontal"),
    "res_y": (c.TRK_EVENT_RESOLUTION, "pixels per degree", "resolution, vertical"),
}
_PARTS = {
    "start": (c.TRK_EVENT_START_POSITION, c.TRK_EVENT_AT_START, "at the start"),
    "end": (c.TRK_EVENT_END_POSITION, c.TRK_EVENT_AT_END, "at the end"),
    "avg": (c.TRK_EVENT_AVERAGE_POSITION, c.TRK_EVENT_AT_AVERAGE, "average"),
    "peak": (0, c.TRK_EVENT_AT_AVERAGE, "highest"),
}


def _quantities() -> tuple[dict[str, _Quantity], list[Column]]:
    rules, columns = {}, []
    for part, (position, at, words) in _PARTS.items():
        for what, (bits, unit, meaning) in _MEANINGS.items():
            name = f"{part}_{what}"
            if name in (RECORD.names or ()):
                is_position = what[:4] in ("gaze", "href")
                rules[name] = _Quantity(position if is_position else at, bits, not is_position)
                columns.append(Column(name, "f4", unit, f"{meaning}, {words}", "NaN"))
    return rules, columns


_RULES, _QUANTITIES = _quantities()

_ITEM = Column("item", "i8", "", "number of the item, from 0")
_TIME = Column("time", "f8", "ms", "when the event stands among the items, on the tracker's clock")
_START = Column("start", "f8", "ms", "start, on the tracker's clock", "NaN when it was never recorded")
_END = Column("end", "f8", "ms", "end, on the tracker's clock", "NaN")
_DURATION = Column("duration", "f8", "ms", "end - start", "NaN")
_EYE = Column("eye", "U5", "", "left or right", "empty for events of no eye")
_TEXT = Column("text", "O", "", "text of the message", "empty")

EVENTS = [
    _ITEM,
    Column("kind", "U14", "", f"what happened: {', '.join(KIND_NAMES.values())}, or event and a number"),
    _TIME,
    _EYE,
    _START,
    _END,
    _DURATION,
    *_QUANTITIES,
    Column("status", "i8", "", "status bits, as the tracker wrote them"),
    Column("word1", "i8", "", "first word of a button or input event; of an input, the value of the port"),
    Column("word2", "i8", "", "second word of a button or input event"),
    _TEXT,
]

_EYE_EVENT = [_ITEM, _EYE, _START, _END, _DURATION]


def _part(name: str, source: str) -> tuple[Column, str]:
    """A column of EVENTS by another name."""
    column = next(column for column in EVENTS if column.name == source)
    return replace(column, name=name), source


_FIXATION = [
    _part("x", "avg_gaze_x"),
    _part("y", "avg_gaze_y"),
    _part("pupil", "avg_pupil_size"),
    _part("href_x", "avg_href_x"),
    _part("href_y", "avg_href_y"),
]
_SACCADE = [
    _part("start_x", "start_gaze_x"),
    _part("start_y", "start_gaze_y"),
    _part("end_x", "end_gaze_x"),
    _part("end_y", "end_gaze_y"),
    _part("peak_velocity", "peak_velocity"),
    _part("avg_velocity", "avg_velocity"),
]
_AMPLITUDE = Column("amplitude", "f4", "degrees", "distance from start to end", "NaN without positions or scale")
_DIRECTION = Column("direction", "f4", "degrees", "0 to the right, 90 up, -90 down", "NaN without positions")
_BLINK = Column("blink", "?", "", "whether a blink of the same eye overlaps: then the lid moved, not the eye")
_WORDS = [_part("word1", "word1"), _part("word2", "word2")]
_WORD_FIELDS = {"status": "status_word", "word1": "aux_word1", "word2": "aux_word2"}


def time_of(records: Array) -> Array:
    """When events stand among the items: ends of eye events at their end, all others at their start."""
    return np.where(np.isin(records["type"], _ENDS), records["end_time"], records["start_time"]).astype("f8")


def _quantity(records: Array, name: str) -> Array:
    rule = _RULES[name]
    values: Array = records[name]
    carried = (records["read_flags"] & rule.part != 0) & (records["read_flags"] & rule.what != 0)
    carried &= ~np.isin(records["type"], _BLOCK_MARKS) & (values != np.float32(c.MISSING_DATA))
    if rule.zero_is_missing:
        carried &= values != 0
    return np.where(carried, values, np.float32(np.nan))


def _value(name: str, records: Array, items: Array) -> Array:
    """A column of EVENTS but the text."""
    if name == "item":
        return items
    if name == "time":
        return time_of(records)
    if name == "kind":
        known, positions = np.unique(records["type"], return_inverse=True)
        names = [KIND_NAMES.get(int(code), f"event{code}") for code in known]
        return np.array(names or [""], "U14")[positions]
    if name == "eye":
        is_eye_event = np.isin(records["type"], _EYE_EVENTS)
        return np.where(is_eye_event, np.where(records["eye"] == 0, "left", "right"), "")
    if name in _RULES:
        return _quantity(records, name)
    if name in _WORD_FIELDS:
        words: Array = records[_WORD_FIELDS[name]]
        return words
    start, end = records["start_time"].astype("f8"), records["end_time"].astype("f8")
    has_end = end != 0
    # An end whose start was never recorded can come with a start time past its end.
    start[has_end & (start > end)] = np.nan
    end[~has_end] = np.nan
    times: dict[str, Array] = {"start": start, "end": end, "duration": end - start}
    return times[name]


def decode(text: bytes) -> str:
    """The text of a message: UTF-8, or Latin-1 where it is not; zero bytes at its end are no part of it."""
    text = text.rstrip(b"\0")
    try:
        return text.decode("utf-8")
    except UnicodeDecodeError:
        return text.decode("latin-1")


def table(records: Array, items: Array, texts: Array, columns: Sequence[tuple[Column, str]]) -> Table:
    """The chosen columns of events."""
    values: Mapping[str, Any] = {
        column.name: texts if source == "text" else _value(source, records, items) for column, source in columns
    }
    return Table.of(values, [column for column, _ in columns])


def _same(columns: Sequence[Column]) -> list[tuple[Column, str]]:
    return [(column, column.name) for column in columns]


COLUMNS_OF = {
    "events": _same(EVENTS),
    "blinks": _same(_EYE_EVENT),
    "fixations": _same(_EYE_EVENT) + _FIXATION,
    "saccades": _same(_EYE_EVENT) + _SACCADE,
    "messages": _same([_ITEM, _TIME, _TEXT]),
    "buttons": _same([_ITEM, _TIME]) + _WORDS,
    "inputs": _same([_ITEM, _TIME]) + [(Column("value", "i8", "", "value of the input port"), "word1")],
}
CODE_OF = {
    "blinks": c.REC_EBLINK,
    "fixations": c.REC_EFIX,
    "saccades": c.REC_ESACC,
    "messages": c.REC_MESSAGE,
    "buttons": c.REC_BUTTON,
    "inputs": c.REC_INPUT,
}


def table_of(what: str, records: Array, items: Array, texts: Array) -> Table:
    """The table `what`: a key of COLUMNS_OF."""
    if what in CODE_OF:
        chosen = records["type"] == CODE_OF[what]
        records, items, texts = records[chosen], items[chosen], texts[chosen]
    return table(records, items, texts, COLUMNS_OF[what])


@dataclass(frozen=True)
class Scale:
    """Pixels per degree, for saccades whose own record states none."""

    x: float
    y: float


def with_measures(saccades: Table, records: Array, scale: Optional[Scale], blinks: Table) -> Table:
    """Saccades with what their records do not say: amplitude, direction, and whether a blink overlaps."""
    records = records[records["type"] == c.REC_ESACC]
    across = saccades["end_x"] - saccades["start_x"]
    down = saccades["end_y"] - saccades["start_y"]
    pixels_x = _resolution(records, "x", np.nan if scale is None else scale.x)
    pixels_y = _resolution(records, "y", np.nan if scale is None else scale.y)
    values = {name: saccades[name] for name in saccades.dtype.names or ()}
    values["amplitude"] = np.hypot(across / pixels_x, down / pixels_y)
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


def _resolution(records: Array, axis: str, otherwise: float) -> Array:
    both = np.stack([_quantity(records, f"{part}_res_{axis}") for part in ("start", "end")])
    known = np.isfinite(both)
    total = np.where(known, both, 0).sum(axis=0)
    return np.where(known.any(axis=0), total / np.maximum(known.sum(axis=0), 1), otherwise)


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
    columns = [column for column, _ in COLUMNS_OF[what]]
    return [*columns, _AMPLITUDE, _DIRECTION, _BLINK] if what == "saccades" else columns
