"""DataFrames at once: of one recording, of many on this machine, of many on a cluster."""

from __future__ import annotations

import functools
import logging
import os
from concurrent.futures import Future, ProcessPoolExecutor
from concurrent.futures.process import BrokenProcessPool
from dataclasses import asdict, dataclass, fields
from typing import TYPE_CHECKING, Any, Callable, Iterable, Mapping, NamedTuple, Optional, Sequence

import numpy as np

from . import _events as events_of
from ._columns import ColumnNames, select
from ._quality import QUALITY_COLUMNS, quality
from ._recording import (
    BLOCK_COLUMNS,
    Recording,
    StrPath,
    TrialMark,
    check_keywords,
    check_times,
    open,
    trial_marks,
)
from ._table import Table, need
from ._trials import TRIAL_COLUMNS

if TYPE_CHECKING:
    import pandas

TrialTexts = tuple[TrialMark, TrialMark]

logger = logging.getLogger("trkapi")

_FIXED = {"blocks": BLOCK_COLUMNS, "trials": TRIAL_COLUMNS, "quality": QUALITY_COLUMNS}
WHAT = ("samples", *events_of.WHAT, *_FIXED)


@dataclass(frozen=True)
class _Request:
    """What to read of each recording; travels to other processes."""

    what: str
    columns: Optional[tuple[str, ...]]
    arguments: Mapping[str, Any]
    trials: TrialTexts
    options: Mapping[str, Any]

    def empty(self) -> Table:
        """The table that a recording with nothing in it gives."""
        if self.what == "samples":
            dtypes = self.arguments.get("dtypes")
            return Table.empty(0, select(self.columns, bool(self.arguments.get("velocities")), dtypes))
        columns = _FIXED.get(self.what) or events_of.columns_of(self.what)
        return self._chosen(Table.empty(0, columns))

    def read(self, path: str) -> Table:
        with open(path, **self.options) as recording:
            return self._of(recording)

    def _of(self, recording: Recording) -> Table:
        if self.what == "samples":
            return recording.samples(self.columns, **self.arguments)
        if self.what == "quality":
            return self._chosen(quality(recording, trials=recording.trials(*self.trials)))
        if self.what == "trials":
            return self._chosen(recording.trials(*self.trials).table)
        part = recording.between(**self.arguments) if self.arguments else recording
        table: Table = getattr(part, self.what)
        return self._chosen(table)

    def _chosen(self, table: Table) -> Table:
        if self.columns is None:
            return table
        unknown = set(self.columns) - set(table.dtype.names or ())
        if unknown:
            names = ", ".join(table.dtype.names or ())
            raise ValueError(f"{self.what} have no column {', '.join(sorted(unknown))}: there are {names}")
        chosen: Table = table[list(self.columns)]
        return chosen


def _request(what: str, columns: Optional[ColumnNames], trials: TrialTexts, keywords: dict[str, Any]) -> _Request:
    if what not in WHAT:
        raise ValueError(f"what={what!r}: choose one of {', '.join(WHAT)}")
    names = (columns,) if isinstance(columns, str) else None if columns is None else tuple(columns)
    known = ("start", "stop", "velocities", "dtypes")
    arguments = {name: keywords.pop(name) for name in known if name in keywords}
    arguments = {name: value for name, value in arguments.items() if value is not None}
    takes = known if what == "samples" else () if what in _FIXED else ("start", "stop")
    ignored = [name for name in arguments if name not in takes]
    ignored += ["trials"] * (tuple(trials) != (None, None) and what not in ("trials", "quality"))
    if ignored:
        raise TypeError(f"{what} take no {', '.join(ignored)}")
    # A mistake in the call is told at once: no recording is at fault for it.
    check_keywords(keywords)
    check_times(arguments.get("start"), arguments.get("stop"))
    request = _Request(what, names, arguments, trial_marks(*trials), keywords)
    request.empty()
    return request


def names_of(paths: Iterable[StrPath]) -> list[str]:
    """The paths, none twice. One path alone, which would be taken for one of each letter, is refused."""
    if isinstance(paths, (str, bytes)):
        raise TypeError(f"paths={paths!r}: several paths are asked for; put one into a list")
    return list(dict.fromkeys(os.fsdecode(path) for path in paths))


def read(
    path: StrPath,
    what: str = "samples",
    columns: Optional[ColumnNames] = None,
    *,
    trials: TrialTexts = (None, None),
    **keywords: Any,
) -> pandas.DataFrame:
    """Read one table of a recording.

    Parameters
    ----------
    path : str or path-like
    what : str
        "samples", "events", "fixations", "saccades", "blinks", "messages", "buttons", "inputs", "blocks", "trials"
        or
        "quality".
    columns : str or iterable of str, optional
        Which columns; of samples also groups and patterns.
    trials : (str or int, str or int), optional
        Texts, or values of the input port, that start and end trials, for "trials" and "quality".
    **keywords
        `velocities` and `dtypes` of samples, `start` and `stop` of samples and events of all kinds, as for
        Recording.samples; all others as for :func:`open`.

    Returns
    -------
    pandas.DataFrame
        Units in ``.attrs["units"]``.

    Examples
    --------
    >>> trkapi.read(path, "messages", ["time", "text"]).columns.tolist()
    ['time', 'text']
    """
    return _request(what, columns, trials, keywords).read(os.fspath(path)).to_pandas()


def read_samples(path: StrPath, columns: Optional[ColumnNames] = None, **keywords: Any) -> pandas.DataFrame:
    """Read the samples of a recording; see :func:`read`.

    Examples
    --------
    >>> trkapi.read_samples(path, "gaze").columns.tolist()
    ['gaze_x_left', 'gaze_y_left', 'gaze_x_right', 'gaze_y_right']
    """
    return read(path, "samples", columns, **keywords)


class Many(NamedTuple):
    """What :func:`read_many` gives.

    Attributes
    ----------
    table : pandas.DataFrame
        The rows of all recordings that could be read, one behind the other, after a categorical column "file".
    errors : pandas.DataFrame
        One row for each recording that could not: file, error (its type), text, code, offset.
    """

    table: pandas.DataFrame
    errors: pandas.DataFrame


Read = Callable[[str], Any]


@dataclass(frozen=True)
class Failure:
    """Why a recording could not be read."""

    file: str
    error: str
    text: str
    code: Optional[str] = None
    offset: Optional[int] = None

    @classmethod
    def of(cls, path: str, error: BaseException) -> Failure:
        code = getattr(error, "code", None)
        code = None if code is None else getattr(code, "name", str(code))
        return cls(path, type(error).__name__, str(error), code, getattr(error, "offset", None))


def _attempt(read: Read, path: str) -> Any:
    try:
        return read(path)
    except Exception as error:
        return Failure.of(path, error)


def _alone(read: Read, path: str) -> Any:
    """A recording in a process of its own, which may die."""
    with ProcessPoolExecutor(1) as pool:
        try:
            return pool.submit(_attempt, read, path).result()
        except BrokenProcessPool as error:
            return Failure.of(path, error)


def each(read: Read, paths: Sequence[str], workers: Optional[int]) -> list[Any]:
    """What `read` gives for each path, in several processes, or the Failure."""
    if workers is not None and workers < 1:
        raise ValueError(f"workers={workers}: at least one process")
    count = min(len(paths), workers or os.cpu_count() or 1)
    if count <= 1:
        return [_attempt(read, path) for path in paths]
    results: dict[str, Any] = {}
    with ProcessPoolExecutor(count) as pool:
        try:
            futures: dict[str, Future[Any]] = {path: pool.submit(_attempt, read, path) for path in paths}
            for path, future in futures.items():
                results[path] = future.result()
        except BrokenProcessPool:
            pass
        except BaseException:
            pool.shutdown(wait=False, cancel_futures=True)
            raise
    # Where a process died, for want of memory perhaps, and took the pool along: the rest one by one, so that one
    # recording costs no other.
    return [results[path] if path in results else _alone(read, path) for path in paths]


def read_many(
    paths: Iterable[StrPath],
    what: str = "samples",
    columns: Optional[ColumnNames] = None,
    *,
    workers: Optional[int] = None,
    trials: TrialTexts = (None, None),
    **keywords: Any,
) -> Many:
    """Read one table of many recordings, in several processes of this machine.

    Parameters
    ----------
    paths : iterable of str or path-like
    what, columns, trials, **keywords
        As for :func:`read`.
    workers : int, optional
        Number of processes; by default that of the processors. With 1 all is read in this one.

    Returns
    -------
    Many
        ``.table``, all rows with a column "file" before them, and ``.errors``, one row for each recording that
        could not be read. A recording that cannot be read stops nothing; a mistake in the call raises.

    Examples
    --------
    >>> fixations, errors = trkapi.read_many([path, "nowhere.trk"], "fixations", workers=1)
    >>> list(fixations.columns[:3]), errors["error"].tolist()
    (['file', 'item', 'eye'], ['RecordingNotFound'])
    """
    pandas = need("pandas", "read_many()")
    names = names_of(paths)
    request = _request(what, columns, trials, keywords)
    frames, errors = [], []
    for name, result in zip(names, each(request.read, names, workers)):
        if isinstance(result, Failure):
            errors.append(asdict(result))
        else:
            frames.append(_with_file(result, name, names))
    table = pandas.concat(frames or [_with_file(request.empty(), "", names)], ignore_index=True)
    return Many(table, pandas.DataFrame(errors, columns=[field.name for field in fields(Failure)]))


def _with_file(table: Table, name: str, names: Sequence[str]) -> pandas.DataFrame:
    pandas = need("pandas", "a table of many recordings")
    frame = table.to_pandas()
    codes = np.full(len(frame), names.index(name) if name in names else -1, "i4")
    frame.insert(0, "file", pandas.Categorical.from_codes(codes, categories=list(names)))
    return frame


def _partition(path: str, *, request: _Request, names: Sequence[str], on_error: str) -> pandas.DataFrame:
    try:
        table = request.read(path)
    except Exception as error:
        if on_error == "raise":
            raise
        logger.warning("%s was left out: %s", path, error)
        table = request.empty()
    return _with_file(table, path, names)


def dask_frame(
    paths: Iterable[StrPath],
    what: str = "samples",
    columns: Optional[ColumnNames] = None,
    *,
    on_error: str = "raise",
    trials: TrialTexts = (None, None),
    **keywords: Any,
) -> Any:
    """One table of many recordings as a Dask DataFrame, one recording a partition; nothing is read yet.

    Parameters
    ----------
    paths : iterable of str or path-like
        Names that are good on all machines of the cluster.
    what, columns, trials, **keywords
        As for :func:`read`.
    on_error : {"raise", "skip"}
        What a recording that cannot be read does: end the computation, or give no rows and a warning in the log of
        the worker.

    Returns
    -------
    dask.dataframe.DataFrame
        A categorical column "file", then those of the table.

    Examples
    --------
    >>> frame = trkapi.dask_frame([path], "fixations", ["eye", "duration"])
    >>> frame.npartitions, list(frame.columns), sorted(frame["eye"].unique().compute(scheduler="sync"))
    (1, ['file', 'eye', 'duration'], ['left', 'right'])
    """
    if on_error not in ("raise", "skip"):
        raise ValueError(f"on_error={on_error!r}: choose 'raise' or 'skip'")
    names = names_of(paths)
    if not names:
        raise ValueError("no recordings were named")
    request = _request(what, columns, trials, keywords)
    function = functools.partial(_partition, request=request, names=names, on_error=on_error)
    frames = need("dask.dataframe", "dask_frame()")
    return frames.from_map(function, names, meta=_with_file(request.empty(), "", names), label=f"trkapi-{what}")
