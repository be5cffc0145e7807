"""The trials of a recording."""

from __future__ import annotations

import operator
from collections.abc import Sequence
from typing import TYPE_CHECKING, Any, Union, overload

import numpy as np

from ._stretch import Stretch
from ._table import Column, Table, html_table

if TYPE_CHECKING:
    from ._recording import Recording

Array = np.ndarray[Any, np.dtype[Any]]

TRIAL_COLUMNS = [
    Column("number", "i8", "", "number of the trial, from 1"),
    Column("start", "i8", "ms", "time of the item that starts it"),
    Column("end", "i8", "ms", "time of the item that ends it"),
    Column("duration", "i8", "ms", "end - start"),
    Column("own_end", "?", "", "whether a message or input ended it, and not its recording block"),
    Column("first_item", "i8", "", "the item that starts it, from 0"),
    Column("end_item", "i8", "", "one past its last item"),
    Column("eyes", "U5", "", "eyes of its recording block: left, right, both, none"),
    Column("sample_rate", "f4", "samples per second", "of its recording block"),
    Column("text", "O", "", "message that starts it", "empty"),
]


class Trial(Stretch):
    """A trial. Two are equal that have the same number and items in the same recording, opened alike.

    Attributes
    ----------
    number : int
        Counted from 1, as tables have it: ``trials[0].number == 1``.
    start, end, duration : int
        ms of the tracker's clock, and from start to end.
    own_end : bool
        Whether a message or input ended it; else its recording block did.
    text : str
        The message that started it; empty when something else did.
    """

    def __init__(self, recording: Recording, row: Any) -> None:
        super().__init__(recording, int(row["first_item"]), int(row["end_item"]))
        self.number, self.start, self.end = int(row["number"]), int(row["start"]), int(row["end"])
        self.duration, self.own_end = int(row["duration"]), bool(row["own_end"])
        self.text = str(row["text"])

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Trial):
            return NotImplemented
        mine, others = ((t.number, t.first_item, t.end_item, t._home._identity) for t in (self, other))
        return mine == others

    def __hash__(self) -> int:
        return hash((self.number, self.first_item, self._home._identity[0]))

    def __repr__(self) -> str:
        text = f" {self.text!r}" if self.text else ""
        return f"<trial {self.number}{text}: {self.start} to {self.end} ms of {self._home._name}>"


class Trials(Sequence[Trial]):
    """The trials of a recording, in order; ``trials[0]`` is trial number 1.

    Slices, lists of places and arrays of truth values choose several: ``trials[trials.table["duration"] > 500]``.

    Attributes
    ----------
    table : Table
        number, start, end, duration (ms), own_end, first_item, end_item, eyes, sample_rate, text; one row each.
    """

    def __init__(self, recording: Recording, table: Table) -> None:
        self.recording = recording
        self.table = table

    def __len__(self) -> int:
        return len(self.table)

    @overload
    def __getitem__(self, index: int) -> Trial:
        ...

    @overload
    def __getitem__(self, index: Union[slice, Sequence[int], Array]) -> Trials:
        ...

    def __getitem__(self, index: Any) -> Union[Trial, Trials]:
        if isinstance(index, slice) or np.ndim(index):
            return Trials(self.recording, self.table[index])
        return Trial(self.recording, self.table[operator.index(index)])

    def to_pandas(self) -> Any:
        """The table as a pandas DataFrame."""
        return self.table.to_pandas()

    def __repr__(self) -> str:
        return repr(self.table)

    def _repr_html_(self) -> str:
        return html_table(self.table)
