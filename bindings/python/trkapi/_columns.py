"""The columns of samples: what there are, and which of them the caller means."""

from __future__ import annotations

import ctypes
import fnmatch
import functools
from dataclasses import dataclass, replace
from typing import Any, Iterable, Mapping, Optional, Union

import numpy as np

from . import _library as c
from ._table import Column, hint

ColumnNames = Union[str, Iterable[str]]

# What samples() reads when it is not told what to.
DEFAULT = ("time", "time_exact", "gaze", "pupil_size")
DEFAULT_VELOCITIES = "gaze_vel_*"

_DTYPES = {
    c.TRK_TYPE_FLOAT: "f4",
    c.TRK_TYPE_DOUBLE: "f8",
    c.TRK_TYPE_UINT8: "u1",
    c.TRK_TYPE_UINT16: "u2",
    c.TRK_TYPE_UINT32: "u4",
    c.TRK_TYPE_INT64: "i8",
}
_TYPES = {np.dtype(name): type_ for type_, name in _DTYPES.items()}
_TYPES[np.dtype(bool)] = c.TRK_TYPE_UINT8
_FLAGS = frozenset({"dummy", "in_blink_left", "in_blink_right"})


@dataclass(frozen=True)
class SampleColumn(Column):
    """A column of samples.

    Attributes
    ----------
    group : str
        What to ask for together: "item", "gaze", "pupil_size", "href", "pupil", "resolution", "velocity", "words",
        "extension".
    """

    group: str = ""
    _id: int = 0

    def with_dtype(self, dtype: Any) -> SampleColumn:
        """The same column with values of another type."""
        name = np.dtype(dtype).str[1:]
        if np.dtype(name) not in _TYPES:
            raise ValueError(
                f"column {self.name} cannot be read as {name}: choose one of {', '.join(_DTYPES.values())}"
            )
        return replace(self, dtype=name)

    @property
    def type(self) -> int:
        """The TRK_TYPE of its values."""
        return _TYPES[np.dtype(self.dtype)]


def _column(record: c.TRK_COLUMN_DESCRIPTION) -> SampleColumn:
    name, group, unit, description, missing = (
        text.decode() for text in (record.name, record.group, record.unit, record.description, record.missing)
    )
    dtype = "?" if name in _FLAGS else _DTYPES[record.type]
    can_be_missing = bool(missing) and name != "block"
    # Differences of unsigned numbers would wrap around: of times above all.
    if record.type == c.TRK_TYPE_UINT32:
        dtype = "i8"
    # Words that can be missing are read as float, which holds all of them and NaN.
    if can_be_missing and record.type == c.TRK_TYPE_UINT16:
        dtype = "f4"
    return SampleColumn(name, dtype, unit, description, "NaN" if can_be_missing else missing, group, record.id)


@functools.lru_cache(maxsize=None)
def sample_columns() -> Mapping[str, SampleColumn]:
    """All columns that samples have, by name.

    Returns
    -------
    dict of str to SampleColumn
        In the order in which tables have them.

    Examples
    --------
    >>> trkapi.sample_columns()["gaze_vel_x_left"].unit
    'degrees per second'
    """
    columns: dict[str, SampleColumn] = {}
    record = c.TRK_COLUMN_DESCRIPTION()
    while c.library().trk_describe_column(len(columns) + 1, ctypes.byref(record)) == 0:
        column = _column(record)
        columns[column.name] = column
    return columns


def _matching(name: str) -> list[str]:
    columns = sample_columns()
    if name in columns:
        return [name]
    found = [column.name for column in columns.values() if column.group == name]
    found = found or fnmatch.filter(columns, name)
    if not found:
        words = [*columns, *{column.group for column in columns.values()}]
        meant = hint(name, words, "trkapi.sample_columns() has all of them")
        raise ValueError(f"samples have no column, group or pattern {name!r}: {meant}")
    return found


def select(
    names: Optional[ColumnNames], velocities: bool = False, dtypes: Optional[Mapping[str, Any]] = None
) -> list[SampleColumn]:
    """The columns that names, groups and patterns mean, each once, in the order in which they were named."""
    try:
        asked = [names] if isinstance(names, str) else list(DEFAULT if names is None else names)
    except TypeError:
        asked = [names]  # type: ignore[list-item]
    if not all(isinstance(name, str) for name in asked):
        raise TypeError(f"columns={names!r}: names of columns, groups or patterns")
    if velocities:
        asked.append(DEFAULT_VELOCITIES)
    chosen = dict.fromkeys(name for word in asked for name in _matching(word))
    if not chosen:
        raise ValueError("no columns were named")
    types = dict(dtypes or {})
    columns = sample_columns()
    selected = [columns[name].with_dtype(types.pop(name)) if name in types else columns[name] for name in chosen]
    if types:
        raise ValueError(f"dtypes names columns that are not read: {', '.join(types)}")
    return selected
