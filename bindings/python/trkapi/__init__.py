"""Recordings of Pupilon video eye trackers as NumPy arrays and pandas DataFrames.

>>> with trkapi.open(path) as recording:
...     samples = recording.samples(start=recording.start, stop=recording.start + 5000)
...     fixations = recording.fixations
>>> len(samples), samples.units["gaze_x_left"], fixations.units["duration"]
(5000, 'display pixels', 'ms')

`open` gives a :class:`Recording`; `read_samples` and `read` give a DataFrame at once, `read_many` and `dask_frame`
those of many recordings. `quality` measures data quality, `plot` draws. docs/python.md has recipes.

Importing this loads nothing: NumPy and the shared library come with the first use.
"""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

__version__ = "4.3.0"

if TYPE_CHECKING:
    from . import plot
    from ._columns import SampleColumn, sample_columns
    from ._errors import (
        Damage,
        DamagedRecording,
        DamageKind,
        DamageWarning,
        ErrorCode,
        RecordingError,
        RecordingNotFound,
    )
    from ._many import Many, dask_frame, read, read_many, read_samples
    from ._quality import quality
    from ._recording import Options, Recording, open
    from ._report import report
    from ._stretch import Stretch
    from ._table import Column, Table
    from ._trials import Trial, Trials

_HOMES = {
    "_columns": ("SampleColumn", "sample_columns"),
    "_errors": (
        *("Damage", "DamageKind", "DamageWarning", "DamagedRecording"),
        *("ErrorCode", "RecordingError", "RecordingNotFound"),
    ),
    "_many": ("Many", "dask_frame", "read", "read_many", "read_samples"),
    "_quality": ("quality",),
    "_recording": ("Options", "Recording", "open"),
    "_report": ("report",),
    "_stretch": ("Stretch",),
    "_table": ("Column", "Table"),
    "_trials": ("Trial", "Trials"),
}
_HOME_OF = {name: home for home, names in _HOMES.items() for name in names}

__all__ = ["__version__", "plot", *_HOME_OF]  # noqa: PLE0604


def __getattr__(name: str) -> Any:
    import importlib

    if name == "plot":
        return importlib.import_module(".plot", __name__)
    if name not in _HOME_OF:
        raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
    value = getattr(importlib.import_module(f".{_HOME_OF[name]}", __name__), name)
    globals()[name] = value
    return value


def __dir__() -> list[str]:
    return sorted([*globals(), *__all__])
