"""Pictures of recordings, with matplotlib: each function draws into `ax`, or a new one, and returns its Axes.

>>> axes = trkapi.plot.scanpath(recording.block(1))
>>> axes.get_xlabel()
'x (display pixels)'
"""

from __future__ import annotations

from typing import TYPE_CHECKING, Any, Optional, Sequence, Union

import numpy as np

from ._stretch import Stretch
from ._table import Table, need, shown

if TYPE_CHECKING:
    from ._recording import Recording

Array = np.ndarray[Any, np.dtype[Any]]
Screen = Union[tuple[float, float], tuple[float, float, float, float]]

COLORS = {"left": "#0072b2", "right": "#d55e00"}
SHADES = {"fixations": "#cfe8cf", "saccades": "#f7d9a8", "blinks": "#c9c9c9"}
_PAUSE = "#d0d0d0"
_LABELS = {"x": "x (display pixels)", "y": "y (display pixels)"}
_SHORT_LABELS = {"x": "x (pixels)", "y": "y (pixels)", "pupil": "pupil (units)"}
_COLUMNS = {"x": "gaze_x", "y": "gaze_y", "pupil": "pupil_size"}
_COMMON_SCREENS = ((1024, 768), (1280, 720), (1280, 1024), (1600, 1200), (1920, 1080), (1920, 1200), (2560, 1440))
# More messages are not marked, or have no text: they could not be told apart.
_MOST_MESSAGES = 200
_MOST_TEXTS = 25
_LONGEST_TEXT = 40  # characters


def _axes(ax: Any, **keywords: Any) -> Any:
    if ax is not None:
        return ax
    return need("matplotlib.pyplot", "trkapi.plot").subplots(layout="constrained", **keywords)[1]


def _recording_of(stretch: Stretch) -> Recording:
    if not isinstance(stretch, Stretch):
        raise TypeError(f"a recording, as trkapi.open gives it, a trial or a block is drawn, not {stretch!r}")
    return stretch.recording


def _eyes(stretch: Stretch, eye: Optional[str]) -> tuple[str, ...]:
    recording = _recording_of(stretch)
    if eye not in (None, "left", "right"):
        raise ValueError(f"eye={eye!r}: choose 'left', 'right', or none for all that were recorded")
    return recording.eyes if eye is None else (eye,)


def _one_eye(stretch: Stretch, eye: Optional[str]) -> str:
    return (_eyes(stretch, eye) or ("left",))[0]


def thinned(time: Array, values: Array, pixels: int) -> tuple[Array, Array]:
    """The lowest and the highest value in each of so many stretches of time, in the order in which they come.

    Parameters
    ----------
    time : array of shape (n,)
        Rising.
    values : array of shape (n,)
        NaN for missing. A stretch without any value is NaN, and so is a pause, so that lines are broken there.
    pixels : int
        Number of stretches.

    Returns
    -------
    time, values : arrays
        All of them when there are fewer than 4 values for a pixel.
    """
    if len(time) <= 4 * pixels or time[-1] <= time[0]:
        return _broken_at_pauses(time, values)
    edges = np.linspace(time[0], time[-1], pixels, endpoint=False)
    starts = np.searchsorted(time, edges)
    filled = np.flatnonzero(np.diff(starts, append=len(time)))  # the others lie in pauses
    starts = starts[filled]
    both = np.column_stack([np.fmin.reduceat(values, starts), np.fmax.reduceat(values, starts)]).ravel()
    times = np.repeat(np.asarray(time[starts], "f8"), 2)
    behind = 2 * np.flatnonzero(np.diff(filled) > 1) + 2
    return np.insert(times, behind, times[behind - 1]), np.insert(both, behind, np.nan)


def _broken_at_pauses(time: Array, values: Array) -> tuple[Array, Array]:
    """With a NaN in each pause, so that no line is drawn across."""
    steps = np.diff(time)
    pauses = np.flatnonzero(steps > 5 * np.median(steps)) + 1 if len(steps) else np.empty(0, "i8")
    return np.insert(np.asarray(time, "f8"), pauses, time[pauses]), np.insert(values.astype("f8"), pauses, np.nan)


def _seconds(ms: Any, zero: float) -> Any:
    return (np.asarray(ms, "f8") - zero) / 1000.0


def _shade(axes: Sequence[Any], stretch: Stretch, eye: str, zero: float, most: int) -> None:
    """Shade events, those kinds of which there are not too many to be told apart."""
    for what, color in SHADES.items():
        events = getattr(stretch, what)
        events = events[(events["eye"] == eye) & np.isfinite(events["duration"])]
        if len(events) > most:
            continue
        bars = np.column_stack([_seconds(events["start"], zero), _seconds(events["end"], zero)])
        x, y = np.repeat(bars, 2), np.tile([0, 1, 1, 0], len(bars))
        for ax in axes:
            ax.fill(x, y, transform=ax.get_xaxis_transform(), color=color, lw=0, zorder=0, label=what, aa=False)


def _mark_messages(axes: Sequence[Any], messages: Table, zero: float) -> None:
    if len(messages) > _MOST_MESSAGES:
        return
    for row in messages:
        time = float(_seconds(row["time"], zero))
        for ax in axes:
            ax.axvline(time, color="#888888", lw=0.6, ls=":")
        if len(messages) <= _MOST_TEXTS:
            text = shown(row["text"], _LONGEST_TEXT).replace("$", r"\$")  # no formula
            place = {
                "rotation": 90,
                "va": "top",
                "ha": "right",
                "fontsize": 6,
                "clip_on": True,
                "color": "#444444",
            }
            axes[0].text(time, 0.98, text, transform=axes[0].get_xaxis_transform(), **place)


def trace(
    stretch: Stretch,
    *,
    eye: Optional[str] = None,
    values: Optional[Sequence[str]] = None,
    events: bool = True,
    messages: bool = True,
    pixels: int = 2000,
    ax: Any = None,
) -> Any:
    """Gaze and pupil over time, with fixations, saccades and blinks shaded and messages marked.

    Parameters
    ----------
    stretch : Recording, Trial or Stretch
    eye : {"left", "right"}, optional
        By default all eyes; events are those of the first.
    values : sequence of {"x", "y", "pupil"}, optional
        One row of axes each. By default all three, and gaze x and y alone when one Axes is given.
    events, messages : bool
        Whether to shade and mark them. Kinds of which there are more than a quarter of `pixels` are not shaded;
        more than 200 messages are not marked, more than 25 have no text.
    pixels : int
        Longer traces are drawn by their lowest and highest value in each of so many stretches.
    ax : Axes or sequence of Axes, optional
        One Axes for all of `values`, in which y is dashed and no pupil stands beside gaze; or one for each.

    Returns
    -------
    Axes, or numpy.ndarray of Axes
        The Axes given or, of one value, made; an array, one for each value, where several were given or made.
        Time in seconds from the first sample, gaze in display pixels, pupil size in tracker units. Missing values
        leave gaps.
    """
    together = ax is not None and np.ndim(np.asarray(ax, dtype=object)) == 0
    if values is None:
        values = ("x", "y") if together else tuple(_COLUMNS)
    unknown = set(values) - set(_COLUMNS)
    if unknown or not len(values):
        raise ValueError(f"values={values!r}: choose of {', '.join(_COLUMNS)}")
    if ax is None:
        ax = _axes(None, nrows=len(values), sharex=True, squeeze=False, figsize=(11, 1.2 + 1.8 * len(values)))
    axes = list(np.atleast_1d(np.asarray(ax, dtype=object)).ravel())
    groups: list[Sequence[str]] = [values] if together else [(value,) for value in values]
    if len(axes) != len(groups):
        raise ValueError(f"{len(values)} values need as many axes or one, not {len(axes)}")
    if together and "pupil" in values and len(set(values)) > 1:
        raise ValueError(
            f"values={values!r}: gaze and pupil size have no unit in common, and need axes of their own"
        )
    eyes = _eyes(stretch, eye)
    names = [f"{_COLUMNS[value]}_{side}" for value in values for side in eyes]
    samples = stretch._arrays(["time_exact", *names])
    time = samples["time_exact"]
    zero = float(time[0]) if len(time) else 0.0
    for group, axis in zip(groups, axes):
        for value, side in ((value, side) for value in group for side in eyes):
            drawn = thinned(time, samples[f"{_COLUMNS[value]}_{side}"], pixels)
            style = {"color": COLORS[side], "lw": 0.8, "ls": "-" if value == group[0] else "--"}
            label = f"{side} eye" + (f" {value}" if len(group) > 1 else "")
            axis.plot(_seconds(drawn[0], zero), drawn[1], label=label, **style)
        axis.set_ylabel(_SHORT_LABELS[group[0]] if len(group) == 1 else "gaze (pixels)")
        axis.margins(x=0)
    if events and eyes:
        _shade(axes, stretch, eyes[0], zero, pixels // 4)
    if messages:
        _mark_messages(axes, stretch.messages, zero)
    axes[-1].set_xlabel(f"time (s) from {zero:.0f} ms")
    if eyes:
        axes[0].legend(loc="lower left", bbox_to_anchor=(0, 1), ncols=5, fontsize=7, frameon=False)
    return axes[0] if len(axes) == 1 else np.array(axes, dtype=object)


def screen_of(stretch: Stretch, screen: Optional[Screen] = None) -> tuple[float, float, float, float]:
    """The display: left, top, right and bottom in pixels.

    Parameters
    ----------
    stretch : Recording, Trial or Stretch
    screen : (width, height) or (left, top, right, bottom), optional
        By default what a message "DISPLAY_COORDS" or "GAZE_COORDS" of the recording says, else the smallest common
        display that holds 99 % of the fixations.
    """
    if screen is not None:
        if np.shape(screen) not in ((2,), (4,)):
            raise ValueError(f"screen={screen!r}: width and height, or left, top, right and bottom")
        left, top, right, bottom = (0.0, 0.0, *screen) if len(screen) == 2 else screen
        if not (right > left and bottom > top):
            raise ValueError(f"screen={screen!r} has no extent")
        return float(left), float(top), float(right), float(bottom)
    for text in stretch.recording.messages["text"]:
        words = text.split()
        place = next((n for n, word in enumerate(words) if word in ("DISPLAY_COORDS", "GAZE_COORDS")), None)
        if place is not None:
            try:
                left, top, right, bottom = (float(word) for word in words[place + 1 : place + 5])
                return left, top, right + 1, bottom + 1
            except ValueError:
                continue
    fixations = stretch.recording.fixations
    x, y = (fixations[name][np.isfinite(fixations[name])] for name in "xy")
    wide, high = (float(np.percentile(places, 99)) if len(places) else 0.0 for places in (x, y))
    for width, height in _COMMON_SCREENS:
        if wide <= width and high <= height:
            return 0.0, 0.0, float(width), float(height)
    return 0.0, 0.0, wide, high


def _as_screen(ax: Any, screen: tuple[float, float, float, float]) -> None:
    left, top, right, bottom = screen
    ax.set(xlim=(left, right), ylim=(bottom, top), aspect="equal", xlabel=_LABELS["x"], ylabel=_LABELS["y"])


def scanpath(
    stretch: Stretch,
    *,
    eye: Optional[str] = None,
    screen: Optional[Screen] = None,
    number: Optional[bool] = None,
    ax: Any = None,
) -> Any:
    """Fixations in the order in which they come, with an area by their duration, joined by lines.

    Parameters
    ----------
    stretch : Recording, Trial or Stretch
    eye : {"left", "right"}, optional
        By default the first that was recorded.
    screen : (width, height) or (left, top, right, bottom), optional
        In pixels; guessed when it is not given, see :func:`screen_of`.
    number : bool, optional
        Whether to number the fixations from 1; by default when there are at most 60.
    """
    side = _one_eye(stretch, eye)
    ax = _axes(ax)
    fixations = stretch.fixations
    fixations = fixations[(fixations["eye"] == side) & np.isfinite(fixations["x"]) & np.isfinite(fixations["y"])]
    ax.plot(fixations["x"], fixations["y"], color=COLORS[side], lw=0.7, alpha=0.6)
    size = np.nan_to_num(fixations["duration"], nan=50.0) / 2.0
    ax.scatter(fixations["x"], fixations["y"], s=size, color=COLORS[side], alpha=0.5, lw=0)
    if number if number is not None else len(fixations) <= 60:
        for count, row in enumerate(fixations, 1):
            ax.annotate(
                str(count), (row["x"], row["y"]), fontsize=6, ha="center", va="center", annotation_clip=True
            )
    _as_screen(ax, screen_of(stretch, screen))
    return ax


def heatmap(
    stretch: Stretch,
    *,
    eye: Optional[str] = None,
    screen: Optional[Screen] = None,
    sigma: float = 30.0,
    ax: Any = None,
) -> Any:
    """Where the gaze was, and for how long: samples on the screen, blurred.

    Parameters
    ----------
    stretch, eye, screen
        As for :func:`scanpath`.
    sigma : float
        Standard deviation of the blur, display pixels.
    """
    if not sigma > 0:
        raise ValueError(f"sigma={sigma}: it is more than 0 pixels")
    side = _one_eye(stretch, eye)
    area = screen_of(stretch, screen)
    ax = _axes(ax)
    left, top, right, bottom = area
    cell = max(sigma / 3.0, (right - left) / 1000.0)
    bins = [max(int((high - low) / cell), 1) for low, high in ((top, bottom), (left, right))]
    counts, period = np.zeros(bins), _period(stretch)
    for chunk in stretch.chunks([f"gaze_x_{side}", f"gaze_y_{side}"], seconds=600):
        x, y = chunk[f"gaze_x_{side}"], chunk[f"gaze_y_{side}"]
        seen = np.isfinite(x) & np.isfinite(y)
        counts += np.histogram2d(y[seen], x[seen], bins, ((top, bottom), (left, right)))[0]
    blurred = _blurred(counts * period, sigma / cell)
    picture = ax.imshow(blurred, extent=(left, right, bottom, top), cmap="magma", interpolation="bilinear")
    ax.figure.colorbar(picture, ax=ax, label=f"seconds in {cell:.0f} x {cell:.0f} pixels", shrink=0.8)
    _as_screen(ax, area)
    return ax


def _period(stretch: Stretch) -> float:
    rates = stretch.recording.sample_rates
    return 1.0 / rates[0] if rates and rates[0] > 0 else 0.001


def _blurred(counts: Array, sigma: float) -> Array:
    """Convolved with a Gaussian, which leaves what lies beyond the edges."""
    reach = max(int(4 * sigma), 1)
    kernel = np.exp(-0.5 * (np.arange(-reach, reach + 1) / sigma) ** 2)
    kernel /= kernel.sum()
    for axis in (0, 1):
        counts = np.apply_along_axis(
            lambda line: np.convolve(line, kernel)[reach : reach + len(line)], axis, counts
        )
    return counts


def main_sequence(stretch: Stretch, *, eye: Optional[str] = None, ax: Any = None) -> Any:
    """Peak velocity of the saccades of one eye over their amplitude, both axes logarithmic.

    Parameters
    ----------
    stretch, eye
        As for :func:`scanpath`. Saccades that a blink of this eye overlaps are left out, and those without
        amplitude or peak velocity.
    """
    side = _one_eye(stretch, eye)
    ax = _axes(ax)
    own = stretch.saccades
    own = own[(own["eye"] == side) & ~own["blink"] & (own["amplitude"] > 0) & (own["peak_velocity"] > 0)]
    style = {"s": 8, "alpha": 0.5, "lw": 0, "color": COLORS[side]}
    ax.scatter(own["amplitude"], own["peak_velocity"], label=f"{side} eye", **style)
    if not len(own):  # logarithmic axes need an extent
        ax.set(xlim=(0.1, 50), ylim=(5, 1000))
    ax.set(xscale="log", yscale="log")
    ticker = need("matplotlib.ticker", "trkapi.plot")
    for axis in (ax.xaxis, ax.yaxis):
        axis.set_major_locator(ticker.LogLocator(subs=(1, 2, 5)))
        axis.set_major_formatter(ticker.StrMethodFormatter("{x:g}"))
        axis.set_minor_formatter(ticker.NullFormatter())
    ax.set(xlabel="amplitude (degrees)", ylabel="peak velocity (degrees per second)")
    if len(own):
        ax.legend(fontsize=7)
    return ax


def timeline(stretch: Stretch, *, trials: Any = None, pixels: int = 1500, ax: Any = None) -> Any:
    """The whole session: recording blocks, trials, and where gaze is missing.

    Missing are samples without gaze and those that were never recorded, but not pauses between recording blocks.

    Parameters
    ----------
    stretch : Recording, Trial or Stretch
        The session is that of its recording.
    trials : Trials, optional
        By default each recording block is one.
    pixels : int
        Stretches of time into which the session is divided for the share of missing gaze.
    """
    recording = _recording_of(stretch)
    if trials is not None:
        recording._check_own(trials, "trials")
    ax = _axes(ax, figsize=(11, 2.2))
    zero = float(recording.start or 0)
    rows = recording.blocks
    _bars(ax, 0, _seconds(rows["start"], zero), _seconds(rows["end"], zero), ("#7f9fbf", "#a9bfd6"))
    table = (recording.trials() if trials is None else trials).table
    _bars(ax, 1, _seconds(table["start"], zero), _seconds(table["end"], zero), ("#8fb58f", "#b9d3b9"))
    labels = ["blocks", "trials"]
    last = float(_seconds(max(recording.end or 0, zero), zero)) or 1.0
    edges = zero + np.linspace(0, last, pixels + 1) * 1000.0
    for side in recording.eyes:
        missing = _missing_share(recording, side, edges)
        place = len(labels)
        extent = (0.0, last, place - 0.4, place + 0.4)
        ax.broken_barh([(0, last)], (place - 0.4, 0.8), color=_PAUSE, lw=0, zorder=-1)
        colors = {"cmap": "Reds", "vmin": 0, "vmax": 1, "interpolation": "nearest"}
        ax.imshow(missing[None, :], extent=extent, aspect="auto", **colors)
        labels.append(f"{side} gaze")
    ax.set(xlim=(0, last), ylim=(len(labels) - 0.5, -0.5), xlabel=f"time (s) from {zero:.0f} ms")
    ax.set_yticks(range(len(labels)), labels)
    patch = need("matplotlib.patches", "trkapi.plot").Patch
    meanings = {"all gaze missing": "#67000d", "none missing": "#fff5f0", "no recording": _PAUSE}
    keys = [patch(facecolor=color, edgecolor="#888888", lw=0.4, label=text) for text, color in meanings.items()]
    style = {"loc": "lower right", "bbox_to_anchor": (1, 1), "borderaxespad": 0, "fontsize": 7}
    ax.legend(handles=keys, ncols=3, frameon=False, **style)
    return ax


def _bars(ax: Any, place: int, starts: Array, ends: Array, colors: tuple[str, str]) -> None:
    """Bars of two colors by turns."""
    for turn, color in enumerate(colors):
        ax.broken_barh(list(zip(starts[turn::2], (ends - starts)[turn::2])), (place - 0.4, 0.8), color=color, lw=0)


def _missing_share(recording: Recording, eye: str, edges: Array) -> Array:
    """Share of the recorded time without gaze in each of the stretches between edges (ms); NaN in pauses.

    A sample stands for the time until the next one is due, so that samples that were never recorded are missing.
    """
    recorded, seen = np.zeros(len(edges)), np.zeros(len(edges))  # ms up to each edge
    for row in recording.blocks:
        if row["eyes"] not in (eye, "both"):
            continue
        recorded += np.clip(edges - row["start"], 0, row["duration"])
        period = 1000.0 / float(row["sample_rate"]) if row["sample_rate"] > 0 else 1.0
        for chunk in recording.block(int(row["number"])).chunks(["time_exact", f"gaze_x_{eye}"], seconds=600):
            times = chunk["time_exact"][np.isfinite(chunk[f"gaze_x_{eye}"])]
            before = np.searchsorted(times, edges)
            seen += before * period
            last = before > 0
            seen[last] -= np.maximum(period - (edges[last] - times[before[last] - 1]), 0)
    recorded, seen = np.diff(recorded), np.diff(seen)
    with np.errstate(invalid="ignore", divide="ignore"):
        return np.where(recorded > 0, np.clip(1.0 - seen / recorded, 0, 1), np.nan)
