"""How good the data of a recording are: loss, effective frequency, precision, accuracy."""

from __future__ import annotations

import math
from dataclasses import dataclass
from typing import Any, Iterable, Iterator, Mapping, Optional, Sequence

import numpy as np

from ._recording import Recording, checked_scale
from ._stretch import Stretch
from ._table import Column, Table
from ._trials import Trials

Array = np.ndarray[Any, np.dtype[Any]]

BCEA_SHARE = 0.68  # of the gaze positions, that the ellipse holds
_K = -math.log(1.0 - BCEA_SHARE)

_MEASURES = {
    "rms": ("degrees", "RMS of sample-to-sample distances"),
    "std": ("degrees", "standard deviation of the gaze position, ddof 1"),
    "bcea": ("square degrees", "bivariate contour ellipse area, P = 0.68"),
}
_PLACES = {"fixation": "median over fixations", "window": "median over moving windows"}
_NO_VALUE = "NaN without enough gaze or scale"

QUALITY_COLUMNS = [
    Column("trial", "i8", "", "number of the trial, from 1; 0 for all"),
    Column("block", "i8", "", "number of the recording block, from 1; 0 for all"),
    Column("eye", "U5", "", "left or right"),
    Column("duration", "f8", "ms", "time recorded: what lies inside of recording blocks"),
    Column("expected", "f8", "samples", "duration x nominal rate"),
    Column("valid", "i8", "samples", "samples with a gaze position"),
    Column("data_loss", "f8", "", "(expected - valid) / expected, 0 to 1", "NaN when nothing was expected"),
    Column("loss_in_blinks", "f8", "", "samples without gaze inside of blinks / expected", "NaN likewise"),
    Column("nominal_rate", "f8", "samples per second", "as the recording states it", "NaN"),
    Column("effective_frequency", "f8", "samples per second", "valid samples / duration", "NaN"),
    Column("fixations", "i8", "", "number of fixations that were measured"),
    *(
        Column(f"{measure}_{place}", "f8", unit, f"{meaning}, {where}", _NO_VALUE)
        for place, where in _PLACES.items()
        for measure, (unit, meaning) in _MEASURES.items()
    ),
    Column("accuracy", "f8", "degrees", "mean distance of gaze from the targets given", "NaN without targets"),
    Column("targets", "i8", "", "number of targets that were measured"),
]


@dataclass(frozen=True)
class _Target:
    start: float
    end: float
    x: float
    y: float


@dataclass
class _Part:
    """Samples of one eye in one recording block, whatever they are missing."""

    time: Array
    x: Array
    y: Array
    res_x: Array
    res_y: Array
    rate: float
    block: Stretch
    eye: str

    def __post_init__(self) -> None:
        self.valid = np.isfinite(self.x) & np.isfinite(self.y)
        # Whether the next sample follows at once; times come in whole or half ms.
        self.goes_on = np.append(np.diff(self.time) * self.rate < 1500.0, False)[: len(self.time)]

    def events(self, what: str) -> Table:
        """The "fixations" or "blinks" of this eye whose start is known."""
        table: Table = getattr(self.block, what)
        own: Table = table[(table["eye"] == self.eye) & np.isfinite(table["duration"])]
        return own

    def lost_in_blinks(self) -> int:
        """Samples without gaze inside of blinks."""
        blinks = self.events("blinks")
        first, end = self.ranges_between(blinks["start"], blinks["end"])
        depth = np.zeros(len(self.time) + 1, "i8")
        np.add.at(depth, first, 1)
        np.add.at(depth, end, -1)
        return int(np.count_nonzero((np.cumsum(depth)[:-1] > 0) & ~self.valid))

    def ranges_between(self, starts: Array, ends: Array) -> tuple[Array, Array]:
        """First and end sample of stretches of time, both ends included."""
        return np.searchsorted(self.time, starts, "left"), np.searchsorted(self.time, ends, "right")

    def windows(self, ms: float) -> tuple[Array, Array]:
        """All moving windows of a length that hold no missing sample and no gap."""
        length = max(round(ms * self.rate / 1000.0), 2)
        first = np.arange(max(len(self.time) - length + 1, 0))
        whole = _over(self.valid, first, first + length) == length
        whole &= _over(self.goes_on, first, first + length - 1) == length - 1
        return first[whole], first[whole] + length


def _over(values: Array, first: Array, end: Array) -> Array:
    """Sums over ranges."""
    total = np.concatenate([[0.0], np.cumsum(values, dtype="f8")])
    return np.asarray(total[end] - total[first])


def _precision(part: _Part, first: Array, end: Array) -> dict[str, Array]:
    """RMS, standard deviation and BCEA of the gaze within ranges, in degrees; NaN where two samples are not there.

    Distances are measured in pixels and divided by the mean resolution of the range, since the resolution of
    single samples comes in steps.
    """
    valid, count = part.valid, _over(part.valid, first, end)
    centred, pixels, squared_steps = {}, {}, {}
    followed = part.goes_on & valid & np.append(valid[1:], False)[: len(valid)]
    for axis, place, scale in (("x", part.x, part.res_x), ("y", part.y, part.res_y)):
        middle = np.median(place[valid]) if valid.any() else 0.0
        centred[axis] = np.where(valid, place.astype("f8") - middle, 0.0)
        known = np.isfinite(scale)
        with np.errstate(all="ignore"):
            pixels[axis] = _over(np.where(known, scale, 0.0), first, end) / _over(known, first, end)
        steps = np.append(np.diff(centred[axis]), 0.0)[: len(valid)]
        # The last sample of a range is followed by one that is not of it.
        squared_steps[axis] = _over(np.where(followed, steps**2, 0.0), first, np.maximum(end - 1, first))
    steps_counted = _over(followed, first, np.maximum(end - 1, first))
    with np.errstate(all="ignore"):
        mean = {axis: _over(centred[axis], first, end) / count for axis in "xy"}

        def covariance(a: str, b: str) -> Array:
            total = _over(centred[a] * centred[b], first, end) - count * mean[a] * mean[b]
            return np.asarray(np.where(count > 1, total / (count - 1) / (pixels[a] * pixels[b]), np.nan))

        xx, yy, xy = np.maximum(covariance("x", "x"), 0), np.maximum(covariance("y", "y"), 0), covariance("x", "y")
        squares = sum(squared_steps[axis] / pixels[axis] ** 2 for axis in "xy")
        return {
            "rms": np.where(steps_counted > 0, np.sqrt(squares / steps_counted), np.nan),
            "std": np.sqrt(xx + yy),
            "bcea": 2.0 * _K * math.pi * np.sqrt(np.maximum(xx * yy - xy**2, 0)),
        }


def _sums(part: _Part, targets: Sequence[_Target]) -> Array:
    """For each target what lies in the part: counts and sums of gaze x, y, and of the resolution of each axis."""
    first, end = (np.searchsorted(part.time, [getattr(t, side) for t in targets]) for side in ("start", "end"))
    columns = []
    for place, of in ((part.x, part.valid), (part.y, part.valid), (part.res_x, None), (part.res_y, None)):
        known = np.isfinite(place) if of is None else of
        columns += [
            _over(values, first, np.maximum(first, end)) for values in (known, np.where(known, place, 0.0))
        ]
    return np.column_stack(columns)


def _distances(sums: Array, targets: Sequence[_Target]) -> Array:
    """Distance of the mean gaze from each target that can be measured, in degrees."""
    with np.errstate(all="ignore"):
        x, y, res_x, res_y = sums[:, 1::2].T / sums[:, ::2].T
        away = np.hypot(
            (x - [target.x for target in targets]) / res_x, (y - [target.y for target in targets]) / res_y
        )
    return np.asarray(away[np.isfinite(away)])


def _targets(targets: Any) -> list[_Target]:
    if targets is None:
        return []
    if hasattr(targets, "to_dict"):  # a DataFrame
        rows: Iterable[Any] = targets.to_dict("records")
    elif getattr(getattr(targets, "dtype", None), "names", None):
        rows = [dict(zip(targets.dtype.names, row.item())) for row in targets]
    else:
        rows = targets
    names = ("start", "end", "x", "y")
    made = []
    for row in rows:
        if isinstance(row, Mapping) and set(names) <= set(row):
            row = [row[name] for name in names]
        elif isinstance(row, Mapping) or len(row) != len(names):
            raise ValueError(f"a target is start and end (ms), x and y (pixels), not {row!r}")
        made.append(_Target(*(float(value) for value in row)))
    return made


def _parts(stretch: Stretch, eye: str, scale: Optional[tuple[float, float]]) -> Iterator[_Part]:
    """The samples of each recording block in a stretch."""
    names = ["time_exact", f"gaze_x_{eye}", f"gaze_y_{eye}", "res_x", "res_y"]
    recording = stretch.recording
    rows = recording.blocks
    overlapping = (rows["first_item"] < stretch.end_item) & (rows["end_item"] > stretch.first_item)
    for row in rows[overlapping & np.isin(rows["eyes"], (eye, "both"))]:
        first, end = max(stretch.first_item, int(row["first_item"])), min(stretch.end_item, int(row["end_item"]))
        part = Stretch(recording, first, end)
        time, x, y, res_x, res_y = part._arrays(names).values()
        if scale is not None:
            res_x, res_y = (np.full(len(time), value, "f8") for value in scale)
        yield _Part(time, x, y, res_x, res_y, float(row["sample_rate"]), part, eye)


def _recorded(recording: Recording, block: int, eye: str, start: float, end: float) -> tuple[float, float, float]:
    """Recorded time of an eye between two times in ms, the samples expected there, and the nominal rate."""
    rows = recording.blocks
    rows = rows if block == 0 else rows[block - 1 : block]
    rows = rows[np.isin(rows["eyes"], (eye, "both"))]
    starts, ends = rows["start"].astype("f8"), rows["end"].astype("f8")
    inside = np.maximum(np.minimum(ends, end) - np.maximum(starts, start), 0.0)
    expected = float((inside * rows["sample_rate"] / 1000.0).sum())
    duration = float(inside.sum())
    return duration, expected, expected / duration * 1000.0 if duration else math.nan


def _median(groups: Sequence[Array]) -> float:
    values = np.concatenate([np.empty(0), *groups])
    values = values[np.isfinite(values)]
    return float(np.median(values)) if len(values) else math.nan


def _row(
    stretch: Stretch,
    eye: str,
    times: tuple[float, float],
    block: int,
    window_ms: float,
    scale: Optional[tuple[float, float]],
    targets: Sequence[_Target],
) -> dict[str, Any]:
    duration, expected, rate = _recorded(stretch.recording, block, eye, *times)
    valid, lost_in_blinks, measured = 0, 0, 0
    found: dict[str, list[Array]] = {f"{m}_{p}": [] for m in _MEASURES for p in _PLACES}
    sums = np.zeros((len(targets), 8))
    for part in _parts(stretch, eye, scale):
        valid += int(part.valid.sum())
        lost_in_blinks += part.lost_in_blinks()
        fixations = part.events("fixations")
        measured += len(fixations)
        ranges = part.ranges_between(np.maximum(fixations["start"], times[0]), fixations["end"])
        for place, (first, end) in (("fixation", ranges), ("window", part.windows(window_ms))):
            for measure, values in _precision(part, first, end).items():
                found[f"{measure}_{place}"].append(values)
        sums += _sums(part, targets)
    distances = _distances(sums, targets)
    return {
        "eye": eye,
        "duration": duration,
        "expected": expected,
        "valid": valid,
        "data_loss": max(expected - valid, 0.0) / expected if expected else math.nan,
        "loss_in_blinks": lost_in_blinks / expected if expected else math.nan,
        "nominal_rate": rate,
        "effective_frequency": valid / duration * 1000.0 if duration else math.nan,
        "fixations": measured,
        **{name: _median(groups) for name, groups in found.items()},
        "accuracy": float(np.mean(distances)) if len(distances) else math.nan,
        "targets": len(distances),
    }


def _stretches(
    recording: Recording, by: str, trials: Optional[Trials]
) -> Iterator[tuple[int, int, Stretch, float, float]]:
    """Trial, block, items and times of each row."""
    start, end = float(recording.start or 0), float(recording.end or 0)
    if by == "recording":
        yield 0, 0, recording, start, end
        return
    chosen = recording.trials() if trials is None else trials
    for row in recording.blocks:
        number, block_end = int(row["number"]), float(row["end"])
        block = recording.block(number)
        if by == "block":
            yield 0, number, block, float(row["start"]), block_end
            continue
        table = chosen.table
        overlapping = (table["first_item"] < block.end_item) & (table["end_item"] > block.first_item)
        for trial in (chosen[place] for place in np.flatnonzero(overlapping)):
            part = Stretch(recording, max(trial.first_item, block.first_item), min(trial.end_item, block.end_item))
            inside = max(float(trial.start), float(row["start"])), min(float(trial.end), block_end)
            yield (trial.number, number, part, *inside)


def quality(
    recording: Recording,
    *,
    trials: Optional[Trials] = None,
    by: str = "trial",
    window_ms: float = 200.0,
    pixels_per_degree: Optional[tuple[float, float]] = None,
    targets: Any = None,
) -> Table:
    r"""Data quality, one row for each trial, recording block and eye.

    Parameters
    ----------
    recording : Recording
    trials : Trials, optional
        As ``recording.trials("TRIALID", "TRIAL OK")`` gives them; by default each recording block is one.
    by : {"trial", "block", "recording"}
        One row for each trial (in each block that it has part in), for each block, or for all, and eye.
    window_ms : float
        Length of the moving windows.
    pixels_per_degree : (float, float), optional
        Horizontal and vertical, in place of the resolution that samples carry. Without either, all that is in
        degrees is NaN.
    targets : DataFrame, structured array, or iterable of (start, end, x, y), optional
        Where the participant did look: from `start` on and before `end` (ms of the tracker's clock) at `x`, `y`
        (pixels). A target counts in every row that has samples of its time, by those samples.

    Returns
    -------
    Table
        trial, block, eye, duration (ms), expected, valid, data_loss, loss_in_blinks, nominal_rate,
        effective_frequency (samples per second), fixations, then rms, std (degrees) and bcea (square degrees) each
        "_fixation" (median over the fixations) and "_window" (median over all moving windows in which no sample is
        missing), accuracy (degrees), targets.

    Notes
    -----
    Of one eye, :math:`n` samples with gaze at :math:`x_i, y_i` in degrees, which are pixels divided by the mean
    resolution of the fixation or window; :math:`T` the time recorded in s, :math:`f` the nominal rate.

    - data loss :math:`= (T f - n) / (T f)` [2]_: samples without gaze, and those that were never recorded. Blinks
      count as loss; ``loss_in_blinks`` is the part of them that has a sample.
    - effective frequency :math:`= n / T`, samples with gaze per second [2]_.
    - accuracy :math:`= \frac{1}{q} \sum_j \sqrt{(\bar x_j - X_j)^2 + (\bar y_j - Y_j)^2}` over :math:`q` targets
      at :math:`X_j, Y_j`, with the mean gaze position :math:`\bar x_j, \bar y_j` while each was shown [2]_.
    - RMS-S2S :math:`= \sqrt{\frac{1}{m} \sum (x_{i+1} - x_i)^2 + (y_{i+1} - y_i)^2}` over the :math:`m` pairs of
      samples with gaze of which one follows the other without a gap [1]_.
    - STD :math:`= \sqrt{s_x^2 + s_y^2}` with sample variances :math:`s^2`, ddof 1: divided by :math:`n - 1` [1]_.
    - BCEA :math:`= 2 k \pi s_x s_y \sqrt{1 - \rho^2}`, :math:`k = -\ln(1 - P)`, :math:`P = 0.68`, :math:`\rho` the
      correlation of x and y: the area of the ellipse that holds 68 % of the positions when they are normally
      distributed [1]_.

    RMS-S2S, STD and BCEA come from each fixation and from each moving window; a row has their medians [1]_.

    References
    ----------
    .. [1] Niehorster, Zemblys, Beelders & Holmqvist (2020). Characterizing gaze position signals and synthesizing
       noise during fixations in eye-tracking data. Behavior Research Methods. doi 10.3758/s13428-020-01400-9
    .. [2] Dunn et al. (2023). Minimal reporting guideline for research involving eye tracking (2023 edition).
       Behavior Research Methods. doi 10.3758/s13428-023-02187-1

    Examples
    --------
    >>> table = trkapi.quality(recording, by="recording")
    >>> table["eye"].tolist(), bool((table["data_loss"] < 0.2).all()), table.units["rms_window"]
    (['left', 'right'], True, 'degrees')
    """
    if not isinstance(recording, Recording):
        raise TypeError(f"quality() takes a recording, as trkapi.open gives it, not {recording!r}")
    if by not in ("trial", "block", "recording"):
        raise ValueError(f"by={by!r}: choose 'trial', 'block' or 'recording'")
    if not 0 < window_ms < math.inf:
        raise ValueError(f"window_ms={window_ms}: a window is longer than 0 ms, and ends")
    scale = checked_scale("pixels_per_degree", pixels_per_degree)
    if trials is not None:
        recording._check_own(trials, "trials")
    wanted = _targets(targets)
    rows = []
    for trial, block, stretch, start, end in _stretches(recording, by, trials):
        for eye in recording.eyes:
            row = _row(stretch, eye, (start, end), block, window_ms, scale, wanted)
            rows.append({"trial": trial, "block": block, **row})
    return Table.of(
        {column.name: [row[column.name] for row in rows] for column in QUALITY_COLUMNS}, QUALITY_COLUMNS
    )
