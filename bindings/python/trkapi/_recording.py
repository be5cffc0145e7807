"""An open recording, and stretches of it."""

from __future__ import annotations

import ctypes
import html
import inspect
import math
import operator
import os
import warnings
from dataclasses import dataclass
from typing import Any, Callable, Generic, Mapping, NoReturn, Optional, Sequence, SupportsIndex, TypeVar, Union

import numpy as np

from . import _events as events_of
from . import _library as c
from ._columns import SampleColumn, select
from ._errors import Damage, DamagedRecording, DamageWarning, damaged
from ._session import Session, error_of
from ._stretch import Stretch
from ._table import Column, Table
from ._trials import TRIAL_COLUMNS, Trials

T = TypeVar("T")
TrialMark = Union[str, SupportsIndex, None]
StrPath = Union[str, "os.PathLike[str]"]

_CHECKS = {"none": c.TRK_OPEN_NO_CHECK, "check": c.TRK_OPEN_CHECK, "fill": c.TRK_OPEN_CHECK_AND_FILL}
_ON_DAMAGE = {"raise": 0, "warn": c.TRK_OPEN_TOLERANT, "salvage": c.TRK_OPEN_SALVAGE}
_EYES = {c.TRK_EYE_NONE: "none", c.TRK_EYE_LEFT: "left", c.TRK_EYE_RIGHT: "right", c.TRK_EYE_BOTH: "both"}
_RECORD_TYPES = {
    c.TRK_BLOCK_SAMPLES: "samples",
    c.TRK_BLOCK_EVENTS: "events",
    c.TRK_BLOCK_SAMPLES_AND_EVENTS: "samples+events",
}
_MODELS = {1: "model 1", 2: "model 2 (V2)", 3: "model 3 (LX)"}
_LAST_TIME = 2**32 - 1
_INPUT_PREFIX = "inPut_type_"
_LAST_TRIAL_VALUE = 999  # the library takes three digits


@dataclass(frozen=True)
class Options:
    """How a recording is opened; see :func:`open`."""

    on_damage: str = "raise"
    check: str = "check"
    resolution: Optional[tuple[float, float]] = None
    message_offsets: bool = False
    keep_times: bool = True
    temporary_folder: Optional[str] = None

    def __post_init__(self) -> None:
        _ = self.flags  # raises for a word that is none of the choices
        object.__setattr__(self, "resolution", checked_scale("resolution", self.resolution))

    @property
    def flags(self) -> int:
        """The TRK_OPEN flags."""
        flags = _one_of(_CHECKS, "check", self.check) | _one_of(_ON_DAMAGE, "on_damage", self.on_damage)
        flags |= c.TRK_OPEN_MESSAGE_OFFSETS if self.message_offsets else 0
        return flags | (c.TRK_OPEN_KEEP_TIMES if self.keep_times else 0)


class Lazy(Generic[T]):
    """A property that is worked out once, and raises when the recording is closed.

    Unlike cached_property it has no lock that all recordings share.
    """

    def __init__(self, function: Callable[[Any], T]) -> None:
        self._function = function
        self._place = f"{function.__name__} kept"  # not its own name, which would be found before this
        self.__doc__ = function.__doc__

    def __get__(self, instance: Any, owner: Any = None) -> T:
        if instance is None:
            return self  # type: ignore[return-value]
        instance._check_open()
        if self._place not in instance.__dict__:
            instance.__dict__[self._place] = self._function(instance)
        value: T = instance.__dict__[self._place]
        return value


def _one_of(choices: Mapping[str, int], name: str, value: str) -> int:
    if not isinstance(value, str) or value not in choices:
        raise ValueError(f"{name}={value!r}: choose one of {', '.join(map(repr, choices))}")
    return choices[value]


def checked_scale(name: str, value: Any) -> Optional[tuple[float, float]]:
    """A resolution, horizontal and vertical; raises for what is none."""
    if value is None:
        return None
    try:
        across, down = (float(number) for number in value)
    except (TypeError, ValueError):
        across = down = math.nan
    if not (0 < across < math.inf and 0 < down < math.inf):
        raise ValueError(f"{name}={value!r}: pixels per degree are two numbers above 0, horizontal and vertical")
    return across, down


def _whole_ms(time: Optional[float], otherwise: int) -> int:
    """A time as the library takes it: whole milliseconds, rounded up, in the range of the clock."""
    if time is None:
        return otherwise
    if math.isnan(time):
        raise ValueError("a time is NaN")
    return math.ceil(min(max(time, 0), _LAST_TIME + 1))


def _trial_mark(name: str, mark: TrialMark) -> Union[str, int, None]:
    """What starts or ends trials: numbers of any kind as int, but truth values, which mean something else."""
    if mark is None or isinstance(mark, str):
        return mark
    if isinstance(mark, (bool, np.bool_)) or not hasattr(mark, "__index__"):
        raise TypeError(f"{name}={mark!r}: a text, or a value of the input port as an integer")
    return operator.index(mark)


def trial_marks(start: TrialMark, end: TrialMark) -> tuple[Union[str, int, None], Union[str, int, None]]:
    """What starts and ends trials: both texts, or both integers."""
    start, end = _trial_mark("start", start), _trial_mark("end", end)
    if end is not None and start is None:
        raise ValueError("trials with an end need a start")
    if isinstance(start, int) and isinstance(end, str):
        if not end.isdecimal():
            raise TypeError(f"trials that start by a value of the input port do not end by a text: {end!r}")
        end = int(end)
    if isinstance(start, str) and isinstance(end, int):
        raise TypeError(f"trials that start by a text do not end by a value of the input port: {end}")
    return start, end


def check_times(*times: Optional[float]) -> None:
    """Raise for what is no time."""
    for time in times:
        _whole_ms(time, 0)


def check_keywords(keywords: Mapping[str, Any]) -> None:
    """Raise for keywords with which :func:`open` opens nothing."""
    inspect.signature(open).bind("", **keywords)
    Options(**keywords)


BLOCK_COLUMNS = [
    Column("number", "i8", "", "number of the recording block, from 1"),
    Column("start", "i8", "ms", "start, on the tracker's clock"),
    Column("end", "i8", "ms", "end, on the tracker's clock; when it was lost, the time of the last sample"),
    Column("end_lost", "?", "", "whether the end was lost"),
    Column("duration", "i8", "ms", "end - start"),
    Column("first_item", "i8", "", "its start, from 0"),
    Column("end_item", "i8", "", "one past its end"),
    Column("eyes", "U5", "", "eyes recorded: left, right, both, none"),
    Column("sample_rate", "f4", "samples per second", "as the recording states it"),
    Column("content", "U14", "", "what was recorded: samples, events, samples+events"),
    Column("samples", "i8", "", "number of samples"),
    Column("gaze_divisor", "f4", "", "divisor of the gaze values in the file", "NaN"),
    Column("filter_level", "i8", "", "level of the tracker's filter"),
    Column("pupil_mode", "i8", "", "1 when the file states a pupil mode other than 1"),
]


class Recording(Stretch):
    """An open recording; see :func:`open`.

    It may be used from several threads: calls wait for each other. Two recordings are read at the same time. It
    can be pickled: what arrives opens the same absolute path with the same options. Tables and arrays live on
    when it is closed.

    Attributes
    ----------
    path : str
    options : Options
    first_item, end_item : int
    """

    def __init__(self, path: StrPath, options: Options = Options()) -> None:
        self.path = os.fsdecode(path)
        self.options = options
        self._name = os.path.basename(self.path)
        # Two that are opened alike have the same items, so that a trial fits both.
        self._identity = os.path.abspath(self.path), options
        try:
            self._session = Session(self.path, options.flags, options.resolution, options.temporary_folder)
        except DamagedRecording as error:
            self._refuse(error)
        self._damages = self._session.damages()
        with self._session.use() as handle:
            super().__init__(None, 0, int(c.library().trk_get_element_count(handle)))
        self._tell_of_damage()

    def _refuse(self, error: DamagedRecording) -> NoReturn:
        """Raise for a recording that does not open, with all that is wrong with it."""
        try:
            other = Session(
                self.path, self.options.flags | c.TRK_OPEN_SALVAGE, None, self.options.temporary_folder
            )
        except OSError:
            raise error from None
        lost = [damage for damage in other.damages() if not damage.is_repair]
        other.close()
        raise self._damaged(lost, error.offset) from None

    def _damaged(self, lost: Sequence[Damage], offset: Optional[int]) -> DamagedRecording:
        """The error, with the offset of its first damage, or else that at which opening ended."""
        advice = (
            f'{self._told(lost)}. Open it with on_damage="salvage" for all that can be saved, '
            'or with on_damage="warn" for what can be read as it stands, wrong times included'
        )
        offset = lost[0].offset if lost and lost[0].offset >= 0 else offset
        return damaged(advice, self.path, offset, lost)

    def _told(self, lost: Sequence[Damage]) -> str:
        first = lost[0].text if lost else "it breaks off"
        more = f" (and {len(lost) - 1} more, see .damages)" if len(lost) > 1 else ""
        return f"{self._name} is damaged: {first}{more}"

    def _tell_of_damage(self) -> None:
        damages = self.damages
        if not damages or self.options.on_damage == "salvage":
            return
        if self.options.on_damage == "warn":
            advice = 'Times and values in it may be wrong: on_damage="salvage" leaves those out'
            warnings.warn(f"{self._told(damages)}. {advice}", DamageWarning, stacklevel=4)
            return
        self.close()
        raise self._damaged(damages, None)

    # ---- Life ----

    def close(self) -> None:
        """Close it. Tables that were read stay; all but its attributes and `closed` raises ValueError from now on.

        Closing again does nothing.
        """
        self._session.close()

    @property
    def closed(self) -> bool:
        """Whether it is closed."""
        return self._session.closed

    def _check_open(self) -> None:
        self._session.check()

    def __enter__(self) -> Recording:
        self._check_open()
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def __reduce__(self) -> tuple[Any, ...]:
        self._check_open()
        return Recording, self._identity  # other processes may work in other folders

    @property
    def recording(self) -> Recording:
        """Itself: a recording is the stretch of all of its items."""
        self._check_open()
        return self

    def _check_own(self, parts: Any, name: str) -> None:
        """Raise for what are no trials, or those of another recording, whose items mean something else here."""
        if not isinstance(parts, Trials if name == "trials" else Stretch):
            given = "recording.trials(...)" if name == "trials" else "recording.trials(...)[3]"
            raise TypeError(f"{name}={parts!r}: give it what {given} gives")
        other = parts.recording
        if other is not self and other._identity != self._identity:
            raise ValueError(f"{name}= is of {other.path}, or of one opened otherwise, not of {self.path}")

    # ---- Facts ----

    @property
    def name(self) -> str:
        """The file's name without its folder."""
        self._check_open()
        return self._name

    @property
    def item_count(self) -> int:
        """Number of items: samples, events, messages, starts and ends of blocks."""
        self._check_open()
        return self.end_item

    @property
    def damages(self) -> tuple[Damage, ...]:
        """What is wrong with it: each stretch in which it gives less, or other, than its bytes promise."""
        self._check_open()
        return tuple(damage for damage in self._damages if not damage.is_repair)

    @property
    def repairs(self) -> tuple[Damage, ...]:
        """What was repaired that the tracker itself got wrong or lost."""
        self._check_open()
        return tuple(damage for damage in self._damages if damage.is_repair)

    @Lazy
    def preamble(self) -> str:
        """The text before the records, at most 1999 characters."""
        with self._session.use() as handle:
            size = int(c.library().trk_get_preamble_text_length(handle))
            buffer = ctypes.create_string_buffer(max(size, 1))
            c.library().trk_get_preamble_text(handle, buffer, len(buffer))
        lines = events_of.decode(buffer.value).splitlines()
        return "\n".join(line[3:] if line.startswith("** ") else line for line in lines)

    @Lazy
    def model(self) -> int:
        """Tracker model that the preamble states: 1, 2 (V2) or 3 (LX)."""
        with self._session.use() as handle:
            return int(c.library().trk_get_pupilon_revision(handle))

    @Lazy
    def revision(self) -> int:
        """File format revision that the preamble states; 0 when it states none."""
        with self._session.use() as handle:
            return int(c.library().trk_get_revision(handle))

    @Lazy
    def compressed(self) -> bool:
        """Whether the file is compressed."""
        with self._session.use() as handle:
            return bool(c.library().trk_is_compressed(handle) == 1)

    @property
    def start(self) -> Optional[int]:
        """Start of the first recording block, ms; None without blocks."""
        return int(self._blocks["start"][0]) if len(self._blocks) else None

    @property
    def end(self) -> Optional[int]:
        """End of the last recording block, ms; None without blocks."""
        return int(self._blocks["end"].max()) if len(self._blocks) else None

    @property
    def duration(self) -> int:
        """From the start of the first recording block to the end of the last, pauses included, ms."""
        return 0 if self.start is None or self.end is None else self.end - self.start

    @property
    def eyes(self) -> tuple[str, ...]:
        """The eyes of which something was recorded: "left", "right"."""
        seen = set(self._blocks["eyes"])
        return tuple(eye for eye in ("left", "right") if seen & {eye, "both"})

    @property
    def sample_rates(self) -> tuple[float, ...]:
        """The rates of the recording blocks, samples per second, each once."""
        return tuple(sorted({float(rate) for rate in self._blocks["sample_rate"]}))

    @property
    def blocks(self) -> Table:
        """One row for each recording block: number (from 1), start, end, duration (ms), items, eyes, rate, ..."""
        return self._blocks.copy()

    @property
    def facts(self) -> dict[str, str]:
        """What there is to know at a glance, as texts."""
        rates = ", ".join(f"{rate:g}" for rate in self.sample_rates)
        items = f"{self.item_count}, of them {self.sample_count} samples"
        lost, repaired = (", ".join(damage.text for damage in group) for group in (self.damages, self.repairs))
        return {
            "tracker": _MODELS.get(self.model, str(self.model)) + (", compressed file" if self.compressed else ""),
            "duration": _clock(self.duration) + (f" from {self.start} ms on" if self.start is not None else ""),
            "blocks": str(len(self._blocks)),
            "rate": f"{rates} samples per second" if rates else "none",
            "eyes": " and ".join(self.eyes) or "none",
            "items": items,
            "damage": lost or "none",
            **({"repaired": repaired} if repaired else {}),
        }

    def __repr__(self) -> str:
        if self.closed:
            return f"<closed recording {self.path}>"
        return "\n".join([f"Recording {self.path}", *(f"  {name:9} {text}" for name, text in self.facts.items())])

    def _repr_html_(self) -> str:
        if self.closed:
            return f"<p>{html.escape(repr(self))}</p>"
        rows = (f"<tr><th>{name}<td>{html.escape(text)}" for name, text in self.facts.items())
        return f"<table><caption>{html.escape(self.path)}</caption>{''.join(rows)}</table>"

    # ---- Parts ----

    def between(self, start: Optional[float] = None, stop: Optional[float] = None) -> Stretch:
        """What lies from `start` on and before `stop`, ms of the tracker's clock.

        Examples
        --------
        >>> recording.between(recording.start, recording.start + 2000).sample_count
        2000
        """
        return Stretch(self, *self._items_between(start, stop))

    def block(self, number: int) -> Stretch:
        """Recording block `number`, counted from 1. Raises IndexError when there is none."""
        return Stretch(self, *self._items_of_block(number))

    def trials(self, start: TrialMark = None, end: TrialMark = None) -> Trials:
        """The trials: the recording blocks, or what lies between messages or values of the input port.

        Parameters
        ----------
        start, end : str or int, optional
            A message that contains the text `start` starts a trial and one that contains `end` ends it; messages
            that contain "!V" do neither. Numbers, 0 to 999, are values of the input port instead: `start` starts a
            trial and `end` ends it, by default 0. Without `start` each recording block is a trial.
            With it, a block that begins while no trial is open starts one as well: its text is empty.

        Returns
        -------
        Trials
            A sequence, counted from 0; each trial has a `number`, counted from 1.

        Raises
        ------
        ValueError
            When no message contains a text that is asked for, or the input port never had the value.
        TypeError
            When only one of the two is a number.

        Examples
        --------
        >>> trial = recording.trials("TRIALID", "TRIAL OK")[3]
        >>> trial.number, trial.text, trial.duration > 0
        (4, 'TRIALID 4', True)
        """
        self._check_open()
        start, end = trial_marks(start, end)
        if isinstance(start, int):
            for value in (start, end):
                if isinstance(value, int):
                    self._check_trial_value(value)
            # Values of the input port stay the rule of a handle for good: it gets one of its own.
            with Recording(*self._identity) as other:
                return Trials(self, other._trial_table(f"{_INPUT_PREFIX}{start}", str(end or 0)))
        texts = [None if text is None else str(text) for text in (start, end)]
        for text in texts:
            if text is not None:
                self._check_trial_text(text)
        return Trials(self, self._trial_table(*texts))

    def _check_trial_value(self, value: int) -> None:
        values = sorted(set(self.inputs["input"].tolist()))
        if value not in values:
            shown = ", ".join(map(str, values[:8])) if values else "no values"
            raise ValueError(f"the input port of {self._name} never has the value {value}; it has: {shown}")
        if value > _LAST_TRIAL_VALUE:
            raise ValueError(f"{value}: values of the input port choose trials up to {_LAST_TRIAL_VALUE} only")

    def _check_trial_text(self, text: str) -> None:
        if _INPUT_PREFIX in text:
            raise ValueError(f"{text!r}: values of the input port are given as numbers")
        texts = self.messages["text"]
        if not text or not any(text in message and "!V" not in message for message in texts):
            known = sorted({message.split(" ")[0] for message in texts})
            shown = ", ".join(map(repr, known[:8])) if known else "there are no messages"
            raise ValueError(f"{self._name} has no message that contains {text!r}; messages begin with: {shown}")

    def _trial_table(self, start: Optional[str], end: Optional[str]) -> Table:
        texts = [None if text is None else os.fsencode(text) for text in (start, end)]
        library = c.library()
        with self._session.use() as handle:
            self._trial_texts = texts  # the handle keeps their addresses
            library.trk_set_trial_identifier(handle, *texts)
            count = max(int(library.trk_get_trial_count(handle)), 0)
            table = Table.empty(count, TRIAL_COLUMNS)
            for number in range(count):
                self._fill_trial(handle, number, table)
        messages = self.messages
        by_item = dict(zip(messages["item"].tolist(), messages["text"])) if start is not None else {}
        table["text"] = [by_item.get(int(item), "") for item in table["first_item"]]
        return table

    @staticmethod
    def _fill_trial(handle: int, number: int, table: Table) -> None:
        header, first, end = c.TRIAL(), ctypes.c_uint(), ctypes.c_uint()
        library = c.library()
        library.trk_jump_to_trial(handle, number)
        library.trk_get_trial_header(handle, ctypes.byref(header))
        library.trk_get_trial_range(handle, number, ctypes.byref(first), ctypes.byref(end))
        block = header.recording.contents if header.recording else c.FRECORDING()
        own_end = header.duration > 0 or header.end_time <= header.start_time
        duration = max(header.end_time - header.start_time, 0)
        table[number] = (
            *(number + 1, header.start_time, header.end_time, duration, own_end, first.value, end.value),
            *(_EYES.get(block.eye, "none"), block.sample_rate, ""),
        )

    # ---- Reading ----

    def _count(self, first: int, end: int, code: int) -> int:
        with self._session.use() as handle:
            return int(c.library().trk_count_items(handle, first, end, code))

    def _items_of(self, first: int, end: int, code: int) -> np.ndarray[Any, np.dtype[Any]]:
        items = np.empty(self._count(first, end, code), "u4")
        with self._session.use() as handle:
            c.library().trk_list_items(handle, first, end, code, items.ctypes.data, items.size)
        return items

    def _items_between(self, start: Optional[float], stop: Optional[float]) -> tuple[int, int]:
        first, end = _whole_ms(start, 0), _whole_ms(stop, _LAST_TIME + 1)
        with self._session.use() as handle:
            places = [
                int(c.library().trk_find_time(handle, ms)) if ms <= _LAST_TIME else self.item_count
                for ms in (first, end)
            ]
        return places[0] if first > 0 else 0, places[1]

    def _items_of_block(self, number: int) -> tuple[int, int]:
        if not hasattr(number, "__index__"):
            raise TypeError(f"block={number!r}: recording blocks are called by their number, from 1")
        if not 1 <= number <= len(self._blocks):
            raise IndexError(
                f"{self._name} has no recording block {number}: they are numbered 1 to {len(self._blocks)}"
            )
        row = self._blocks[number - 1]
        return int(row["first_item"]), int(row["end_item"])

    def _first_sample_time(self, first: int, end: int) -> Optional[float]:
        row = np.empty(1, "f8")
        (time,) = select("time_exact")
        return float(row[0]) if self._fill([(time, row)], 1, first, end) else None

    def _fill(
        self, places: Sequence[tuple[SampleColumn, events_of.Array]], rows: int, first: int, end: int
    ) -> int:
        """Read samples, each column into an array with any stride, by one call; returns how many there were."""
        library, error = c.library(), c.TRK_ERROR()
        done = 0
        columns = (c.TRK_COLUMN * len(places))()
        with self._session.use() as handle:
            while first < end and done < rows:
                for (column, array), place in zip(places, columns):
                    place.id, place.type, place.stride = column._id, column.type, array.strides[0]
                    place.data = array.ctypes.data + done * array.strides[0]
                got = library.trk_read_samples(
                    *(handle, first, end, columns, len(places), rows - done),
                    *(c.TRK_READ_NAN, ctypes.byref(error)),
                )
                done += max(int(got), 0)
                first = self._go_on_from(error, first, end)
        return done

    def _go_on_from(self, error: c.TRK_ERROR, first: int, end: int) -> int:
        """The item from which a reading that ended goes on; raises where a loss is an error."""
        if error.code == c.TRK_OK:
            return max(int(error.item), first)
        if error.code != c.TRK_ERROR_DAMAGED or self.options.on_damage == "raise" or error.item < first:
            raise error_of(error, self.path)
        return min(int(error.item) + 1, end)

    def _read_samples(self, first: int, end: int, chosen: Sequence[SampleColumn]) -> Table:
        table = Table.empty(self._count(first, end, c.REC_SAMPLE), chosen)
        rows = self._fill([(column, table[column.name]) for column in chosen], len(table), first, end)
        read: Table = table[:rows]
        return read

    def _read_arrays(self, first: int, end: int, chosen: Sequence[SampleColumn]) -> dict[str, events_of.Array]:
        """The same as arrays of their own, for what goes over whole columns."""
        count = self._count(first, end, c.REC_SAMPLE)
        arrays = {column.name: np.empty(count, column.dtype) for column in chosen}
        rows = self._fill([(column, arrays[column.name]) for column in chosen], count, first, end)
        return {name: array[:rows] for name, array in arrays.items()}

    def _read_events(self, first: int, end: int, what: str) -> Table:
        records, items, texts = self._all_events
        part = slice(*np.searchsorted(items, (first, end)))
        table = events_of.table_of(what, records[part], items[part], texts[part])
        if what != "saccades":
            return table
        blinks = events_of.table_of("blinks", records, items, texts)  # those that go on behind the part, too
        return events_of.with_measures(table, records[part], self._scale, blinks)

    @Lazy
    def _all_events(self) -> tuple[events_of.Array, events_of.Array, events_of.Array]:
        """Records, item numbers and texts of all events.

        They are kept: ends depend on starts, and so each reading of a part that lies before the last one would
        begin at the first item.
        """
        library, error = c.library(), c.TRK_ERROR()
        first, end = 0, self.item_count
        items = self._items_of(first, end, 0)
        messages = self._count(first, end, c.REC_MESSAGE)
        pieces, texts, kept = [np.empty(0, events_of.RECORD)], [np.empty(0, object)], [items[:0]]
        with self._session.use() as handle:
            while first < end:
                records, buffer, offsets = events_of.room_for(len(items), messages)
                got = library.trk_read_events(
                    *(handle, first, end, records.ctypes.data, len(records)),
                    *(buffer.ctypes.data, buffer.size),
                    *(offsets.ctypes.data, ctypes.byref(error)),
                )
                got = max(got, 0)
                pieces.append(records[:got])
                texts.append(events_of.texts_of(buffer, offsets[: got + 1]))
                begin = int(np.searchsorted(items, first))
                kept.append(items[begin : begin + got])
                first = self._go_on_from(error, first, end)
        return np.concatenate(pieces), np.concatenate(kept), np.concatenate(texts)

    @Lazy
    def _scale(self) -> Optional[events_of.Scale]:
        """Median resolution of the samples, from stretches spread over the recording."""
        ends = np.linspace(0, self.item_count, 41).astype(int)
        parts = [self.samples(["res_x", "res_y"], items=(end, end + 250)) for end in ends]
        x, y = (np.concatenate([part[name] for part in parts]) for name in ("res_x", "res_y"))
        known = np.isfinite(x) & np.isfinite(y)
        return events_of.Scale(float(np.median(x[known])), float(np.median(y[known]))) if known.any() else None

    @Lazy
    def _blocks(self) -> Table:
        rows: list[dict[str, Any]] = []
        with self._session.use() as handle:
            for item in self._items_of(0, self.item_count, c.REC_RECORDING).tolist():
                block = self._boundary(handle, item)
                if block is None:
                    continue
                if block.state == c.TRK_BLOCK_START:
                    rows.append(_block_row(len(rows) + 1, item, block))
                elif rows and rows[-1]["end_lost"]:
                    rows[-1].update(end=block.time, end_item=item + 1, end_lost=False)
        following = [row["first_item"] for row in rows[1:]] + [self.item_count]
        for row, behind in zip(rows, following):
            row["end_item"] = row["end_item"] or behind
            row["samples"] = self._count(row["first_item"], row["end_item"], c.REC_SAMPLE)
            if row["end_lost"] and row["samples"]:
                last = self._items_of(row["first_item"], row["end_item"], c.REC_SAMPLE)[-1]
                row["end"] = int(self._first_sample_time(int(last), int(last) + 1) or row["start"])
            row["duration"] = max(row["end"] - row["start"], 0)
        return Table.of({col.name: [row[col.name] for row in rows] for col in BLOCK_COLUMNS}, BLOCK_COLUMNS)

    @staticmethod
    def _boundary(handle: int, item: int) -> Optional[c.FRECORDING]:
        """A start or end of a recording block; valid until the next fetch."""
        c.library().trk_goto_item(handle, item)
        c.library().trk_get_next_data(handle)
        record = c.library().trk_get_float_data(handle)
        return record.contents.recording if record else None


def _block_row(number: int, item: int, block: c.FRECORDING) -> dict[str, Any]:
    return {
        "number": number,
        "start": block.time,
        "end": block.time,
        "end_lost": True,
        "first_item": item,
        "end_item": 0,
        "eyes": _EYES.get(block.eye, "none"),
        "sample_rate": block.sample_rate,
        "content": _RECORD_TYPES.get(block.record_type, ""),
        "gaze_divisor": block.gaze_prescaler or math.nan,
        "filter_level": block.filter_level,
        "pupil_mode": block.pupil_mode,
    }


def _clock(ms: float) -> str:
    seconds = ms / 1000.0
    if seconds < 60:
        return f"{seconds:.3f} s"
    minutes, seconds = divmod(round(seconds), 60)
    hours, minutes = divmod(minutes, 60)
    return (f"{hours} h " if hours else "") + f"{minutes} min {seconds} s"


def open(  # noqa: A001 - as for other files
    path: StrPath,
    *,
    on_damage: str = "raise",
    check: str = "check",
    resolution: Optional[tuple[float, float]] = None,
    message_offsets: bool = False,
    keep_times: bool = True,
    temporary_folder: Optional[StrPath] = None,
) -> Recording:
    """Open a recording: index only, facts at once, data when they are asked for.

    Reads the records twice: once for the index, and once to see that nothing is damaged.

    Parameters
    ----------
    path : str or path-like
    on_damage : {"raise", "warn", "salvage"}
        What to do with a damaged recording: raise DamagedRecording; warn with DamageWarning and give what can be
        read as it stands, times and values that the damage made included, so that a duration of days can come of
        one wrong time; or leave the damaged stretches out and read on behind them, with times that the sound part
        confirms. With the last two ``recording.damages`` says what is wrong. To analyse, salvage.
    check : {"check", "fill", "none"}
        "check" drops samples outside of recording blocks and moves eye events onto the nearest block; "fill" also
        fills gaps with samples that are marked as "dummy", joins blinks within one saccade, and blanks gaze inside
        of blinks; "none" repairs nothing. The program ``trk`` says "basic", "full" and "none", and takes "full"
        by default: numbers of items, and gaze in blinks, are the same with "fill".
    resolution : (float, float), optional
        Pixels per degree, horizontal and vertical, for all velocities in place of each sample's own.
    message_offsets : bool
        A number before a message text is an offset that is subtracted from its time.
    keep_times : bool
        Leave times as the tracker wrote them. False moves those of recordings that start late on its clock, but
        not those of trials.
    temporary_folder : path-like, optional
        Where compressed recordings of more than 64 MiB are inflated.

    Returns
    -------
    Recording
        A context manager; closed by close(), at the end of a with block, or when nothing refers to it.

    Raises
    ------
    RecordingError
        When it cannot be read: RecordingNotFound where there is none, DamagedRecording where it is damaged.

    Examples
    --------
    >>> with trkapi.open(path) as recording:
    ...     recording.eyes, recording.sample_rates, len(recording.blocks)
    (('left', 'right'), (1000.0,), 12)
    """
    folder = None if temporary_folder is None else os.fspath(temporary_folder)
    return Recording(path, Options(on_damage, check, resolution, message_offsets, keep_times, folder))
