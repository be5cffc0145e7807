"""A stretch of a recording, and what can be read of it."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any, Iterator, Mapping, Optional, Sequence

import numpy as np

from . import _library as c
from ._columns import ColumnNames, select
from ._table import Table

if TYPE_CHECKING:
    from ._recording import Recording


class Stretch:
    """Items of a recording, from one to another: a trial, a recording block, what lies between two times.

    Attributes
    ----------
    first_item, end_item : int
        The first item, and one past the last.
    """

    def __init__(self, recording: Optional[Recording], first_item: int, end_item: int) -> None:
        self._recording = recording
        self.first_item = first_item
        self.end_item = max(first_item, end_item)

    def __repr__(self) -> str:
        return f"<items {self.first_item} to {self.end_item} of {self._home._name}>"

    @property
    def _home(self) -> Recording:
        assert self._recording is not None
        return self._recording

    @property
    def recording(self) -> Recording:
        """The recording that it is part of."""
        return self._home

    @property
    def sample_count(self) -> int:
        """How many samples there are, those included that stand for lost ones."""
        return self.recording._count(self.first_item, self.end_item, c.REC_SAMPLE)

    def _part(
        self,
        start: Optional[float],
        stop: Optional[float],
        items: Optional[tuple[int, int]],
        trial: Optional[Stretch],
        block: Optional[int],
    ) -> tuple[int, int]:
        """First and end item of what lies in this stretch and in all that is named."""
        parts = [(self.first_item, self.end_item)]
        if items is not None:
            if np.shape(items) != (2,):
                raise ValueError(f"items={items!r}: the first item, and one past the last")
            parts.append((int(items[0]), int(items[1])))
        if trial is not None:
            self.recording._check_own(trial, "trial")
            parts.append((trial.first_item, trial.end_item))
        if block is not None:
            parts.append(self.recording._items_of_block(block))
        if start is not None or stop is not None:
            parts.append(self.recording._items_between(start, stop))
        first, end = max(part[0] for part in parts), min(part[1] for part in parts)
        return first, max(first, end)

    def samples(
        self,
        columns: Optional[ColumnNames] = None,
        *,
        start: Optional[float] = None,
        stop: Optional[float] = None,
        items: Optional[tuple[int, int]] = None,
        trial: Optional[Stretch] = None,
        block: Optional[int] = None,
        velocities: bool = False,
        dtypes: Optional[Mapping[str, Any]] = None,
    ) -> Table:
        """Samples, those of all parts that are named together.

        Parameters
        ----------
        columns : str or iterable of str, optional
            Names of columns ("gaze_x_left"), groups ("gaze", "pupil_size", "velocity") or patterns ("*_left"); see
            :func:`sample_columns`. By default times, gaze and pupil size of both eyes.
        start, stop : float, optional
            Times in ms of the tracker's clock: samples from `start` on and before `stop`, in whole milliseconds,
            rounded up.
        items : (int, int), optional
            First item, and one past the last, counted from 0.
        trial : Trial or Stretch, optional
        block : int, optional
            Number of a recording block, counted from 1, as tables have it.
        velocities : bool
            Add the smoothed velocities of the gaze.
        dtypes : dict of str to dtype, optional
            Other types for columns, where they hold all values: ``{"gaze_x_left": "f8", "status": "u2"}``.

        Returns
        -------
        Table
            A structured array of shape (samples,), none where nothing lies in the parts; units in ``.units``.
            Times are ms, gaze is display pixels, velocities are degrees per second. Float columns are NaN where a
            value is missing or was not recorded, pupil sizes of 0 included. Words (input, status, ...) come as
            floats, so that they can be NaN, unless `dtypes` says otherwise: then 32768 stands for one that was not
            recorded.

        Raises
        ------
        ValueError
            For names that match no column, for a trial of another recording, and when the recording is closed.
        RecordingError
            When samples cannot be read.

        Examples
        --------
        >>> start = recording.start
        >>> samples = recording.samples(["time", "gaze_x_left"], start=start + 400, stop=start + 403)
        >>> (samples["time"] - start).tolist()
        [400, 401, 402]
        >>> samples.units["gaze_x_left"]
        'display pixels'
        """
        self.recording._check_open()
        chosen = select(columns, velocities, dtypes)
        first, end = self._part(start, stop, items, trial, block)
        return self.recording._read_samples(first, end, chosen)

    def _arrays(self, names: Sequence[str]) -> dict[str, Any]:
        return self.recording._read_arrays(self.first_item, self.end_item, select(names))

    def chunks(
        self,
        columns: Optional[ColumnNames] = None,
        *,
        seconds: float = 60,
        velocities: bool = False,
        dtypes: Optional[Mapping[str, Any]] = None,
    ) -> Iterator[Table]:
        """Samples piece by piece, for recordings that do not fit in memory.

        Parameters
        ----------
        seconds : float
            Length of a piece, at least 0.001. Pieces without samples are left out.
        columns, velocities, dtypes
            As for :meth:`samples`.

        Yields
        ------
        Table
            Together all samples of the stretch, each once, in order.

        Examples
        --------
        >>> sum(len(chunk) for chunk in recording.chunks("time", seconds=7)) == recording.sample_count
        True
        """
        self.recording._check_open()
        if not seconds >= 0.001:
            raise ValueError(f"seconds={seconds}: a piece is at least a millisecond long")
        return self._chunks(select(columns, velocities, dtypes), seconds * 1000.0)

    def _chunks(self, chosen: list[Any], length: float) -> Iterator[Table]:
        begin = self.first_item
        time: Optional[float] = None
        while begin < self.end_item:
            next_sample = self.recording._first_sample_time(begin, self.end_item)
            if next_sample is None:
                return
            # Pieces keep to the beat of the first one, and those in a pause are passed over.
            time = next_sample if time is None else time + length * max((next_sample - time) // length, 0)
            end = min(self.recording._items_between(None, time + length)[1], self.end_item)
            if end <= begin:  # items of a recording that was not put into order
                end = self.end_item
            chunk = self.recording._read_samples(begin, end, chosen)
            if chunk.size:
                yield chunk
            begin, time = end, time + length

    def _events(self, what: str) -> Table:
        return self.recording._read_events(self.first_item, self.end_item, what)

    @property
    def events(self) -> Table:
        """All events, one row each: item, kind, eye, time, start, end, positions, words, text.

        Quantities that a record does not carry are NaN. "time" is where the event stands in the walk: ends of eye
        events at their end, all others at their start.
        """
        return self._events("events")

    @property
    def fixations(self) -> Table:
        """One row for each fixation that ends here: eye, start, end, duration (ms), x, y (pixels), pupil, ..."""
        return self._events("fixations")

    @property
    def saccades(self) -> Table:
        """One row for each saccade that ends here: eye, times (ms), places (pixels), peak velocity, amplitude, ...

        Amplitudes are in degrees of visual angle, by the resolution that the saccade's record states; where it
        states none, by the median of the samples' resolution in the recording. Trackers write a saccade around
        each blink, in which the lid moves more than the eye: leave those out that have "blink" set.
        """
        return self._events("saccades")

    @property
    def blinks(self) -> Table:
        """One row for each blink that ends here: eye, start, end, duration (ms)."""
        return self._events("blinks")

    @property
    def messages(self) -> Table:
        """One row for each message: item, time (ms), text. Texts are UTF-8, or Latin-1 where they are not."""
        return self._events("messages")

    @property
    def buttons(self) -> Table:
        """One row for each button event: item, time (ms), button, button_state (1 when pressed), button_value."""
        return self._events("buttons")

    @property
    def inputs(self) -> Table:
        """One row for each change of the input port: item, time (ms), input (its value)."""
        return self._events("inputs")
