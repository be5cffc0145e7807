"""One HTML page for each recording, and an index over all of them; nothing but files that open by themselves."""

from __future__ import annotations

import base64
import functools
import html
import io
import math
import os
from dataclasses import dataclass, replace
from pathlib import Path
from typing import Any, Callable, Optional, Sequence
from urllib.parse import quote

import numpy as np

from . import plot
from ._many import Failure, TrialTexts, each, names_of
from ._quality import quality
from ._recording import Recording, open
from ._table import Table, html_title, need
from ._trials import Trial, Trials

_STYLE = """
body { font: 15px/1.45 system-ui, sans-serif; margin: 0 auto; max-width: 1200px; padding: 0 1rem 3rem;
  color: #222 }
h1 { font-size: 1.5rem; overflow-wrap: anywhere } h2 { font-size: 1.15rem; margin: 2rem 0 .5rem }
table { border-collapse: collapse; font-size: .85rem } caption { text-align: left; padding: .3rem 0; color: #555 }
th, td { border-bottom: 1px solid #ddd; padding: .25rem .6rem; text-align: right;
  font-variant-numeric: tabular-nums }
th { text-align: right; font-weight: 600 } th:first-child, td:first-child, .text td, .text th { text-align: left }
small { color: #666; font-weight: 400 } .bad { background: #f9d7d3 } .wide { overflow-x: auto }
img { max-width: 100%; height: auto } figure { margin: .5rem 0 } figcaption { color: #555; font-size: .85rem }
details { border-bottom: 1px solid #ddd } summary { cursor: pointer; padding: .4rem 0 }
.pair { display: flex; flex-wrap: wrap; gap: 1rem } .pair figure { flex: 1 1 420px; min-width: 0 }
"""
# From where on a figure is marked: loss of gaze, RMS in degrees.
_MUCH_LOSS = 0.2
_MUCH_NOISE = 0.5
_QUALITY_SHOWN = (
    *("eye", "duration", "data_loss", "loss_in_blinks", "effective_frequency"),
    *("rms_fixation", "std_fixation", "bcea_fixation", "rms_window", "std_window", "bcea_window"),
)


@dataclass(frozen=True)
class Settings:
    """What a report shows."""

    folder: str
    trials: TrialTexts = (None, None)
    screen: Optional[plot.Screen] = None
    on_damage: str = "salvage"


@dataclass(frozen=True)
class _Entry:
    """A recording on the index page."""

    page: str
    duration: float
    trials: int
    loss: dict[str, float]
    noise: dict[str, float]
    frequency: dict[str, float]
    damages: int
    timeline: str


# ---- Pieces of a page ----


def _page(title: str, body: str) -> str:
    name = html.escape(title)
    head = f'<meta charset="utf-8"><meta name="viewport" content="width=device-width"><title>{name}</title>'
    # An icon of its own keeps browsers from asking a server for one.
    head += f'<link rel="icon" href="data:,"><style>{_STYLE}</style>'
    return f'<!DOCTYPE html><html lang="en"><head>{head}</head><body><h1>{name}</h1>{body}</body></html>\n'


def _picture(figure: Any, text: str, caption: bool = True, few_colors: bool = False) -> str:
    """A figure as HTML. Few colours make a third of the bytes, which counts where there are hundreds."""
    figure.dpi = 100
    canvas = need("matplotlib.backends.backend_agg", "a report").FigureCanvasAgg(figure)
    canvas.draw()
    width, height = canvas.get_width_height()
    images = need("PIL.Image", "a report")  # comes with matplotlib
    image = images.frombuffer("RGBA", (width, height), canvas.buffer_rgba(), "raw", "RGBA", 0, 1).convert("RGB")
    if few_colors:
        image = image.quantize(256, images.Quantize.FASTOCTREE, dither=images.Dither.NONE)
    buffer = io.BytesIO()
    image.save(buffer, "PNG")
    data = base64.b64encode(buffer.getvalue()).decode()
    picture = (
        f'<img src="data:image/png;base64,{data}" width="{width}" height="{height}" alt="{html.escape(text)}">'
    )
    return f"<figure>{picture}{f'<figcaption>{html.escape(text)}</figcaption>' if caption else ''}</figure>"


def _figure(width: float, height: float) -> tuple[Any, Any]:
    """A figure that no window system and no other thread knows of."""
    figure = need("matplotlib.figure", "a report").Figure((width, height), layout="constrained")
    return figure, figure.subplots()


def _number(value: Any) -> str:
    if isinstance(value, str):
        return html.escape(value)
    if not math.isfinite(value):
        return "–"
    return f"{value:.0f}" if abs(value) >= 1000 or value == int(value) else f"{value:.3g}"


def _is_bad(name: str, value: Any) -> bool:
    limit = {"data_loss": _MUCH_LOSS, "rms_fixation": _MUCH_NOISE}.get(name)
    return limit is not None and not value <= limit


def _rows(table: Table, names: Sequence[str]) -> str:
    units = table.units
    titles = "".join(html_title(name.replace("_", " "), units[name]) for name in names)
    cells = (
        "".join(f"<td{' class=bad' * _is_bad(name, row[name])}>{_number(row[name].item())}" for name in names)
        for row in table
    )
    body = "".join(f"<tr>{row}" for row in cells)
    return f'<div class="wide"><table><thead><tr>{titles}</thead><tbody>{body}</tbody></table></div>'


def _facts(recording: Recording, trials: Trials) -> str:
    facts = {"file": recording.path, **recording.facts, "trials": str(len(trials))}
    rows = (f"<tr><th>{name}<td>{html.escape(text)}" for name, text in facts.items())
    preamble = f"<details><summary>preamble</summary><pre>{html.escape(recording.preamble)}</pre></details>"
    return f'<table class="text">{"".join(rows)}</table>{preamble}'


def _damages(recording: Recording) -> str:
    if not (recording.damages or recording.repairs):
        return "<h2>Damages</h2><p>None.</p>"
    rows = (
        f"<tr><td>{html.escape(damage.text)}<td>{'repaired' if damage.is_repair else 'lost'}"
        f"<td>{'' if damage.is_repair else damage.offset}<td>{damage.time or ''}"
        for damage in (*recording.damages, *recording.repairs)
    )
    titles = "<tr><th>what<th>so it is<th>byte<th>about when (ms)"
    return f'<h2>Damages</h2><div class="wide"><table class="text">{titles}{"".join(rows)}</table></div>'


# ---- The page of a recording ----


def _timeline(recording: Recording, trials: Trials, height: float) -> Any:
    figure, ax = _figure(11.5, height)
    plot.timeline(recording, trials=trials, ax=ax)
    return figure


def _trial_picture(trial: Trial, screen: Any) -> str:
    # Places by hand: a layout that is worked out would cost as much as all of the drawing.
    figure = need("matplotlib.figure", "a report").Figure((14, 4.6))
    traces = [figure.add_axes((0.05, 0.68 - 0.285 * place, 0.56, 0.265)) for place in range(3)]
    for upper in traces[:2]:
        upper.tick_params(labelbottom=False)
        upper.sharex(traces[2])
    plot.trace(trial, ax=traces, pixels=900)
    plot.scanpath(trial, screen=screen, ax=figure.add_axes((0.67, 0.1, 0.32, 0.85)))
    text = f"Trial {trial.number}: gaze, pupil and events over time, and scanpath"
    return _picture(figure, text, caption=False, few_colors=True)


def _trial_title(trial: Trial, table: Table) -> str:
    own = table[table["trial"] == trial.number]
    losses = ", ".join(f"{row['eye']} {row['data_loss']:.1%}" for row in own if math.isfinite(row["data_loss"]))
    text = f" {html.escape(trial.text)}" if trial.text else ""
    loss = f" <small>missing: {losses}</small>" if losses else ""
    bad = ' class="bad"' if any(_is_bad("data_loss", row["data_loss"]) for row in own) else ""
    return f"<summary{bad}>Trial {trial.number}{text}, {trial.duration / 1000:.3f} s{loss}</summary>"


def _recording_page(recording: Recording, trials: Trials, note: str, settings: Settings) -> tuple[str, _Entry]:
    screen = plot.screen_of(recording, settings.screen)
    whole = quality(recording, by="recording")
    by_trial = quality(recording, trials=trials)
    parts = [f'<p class="bad">{html.escape(note)}</p>'] if note else []
    parts += [_facts(recording, trials), "<h2>Data quality</h2>", _rows(whole, _QUALITY_SHOWN)]
    everything = _rows(by_trial, ("trial", "block", *_QUALITY_SHOWN))
    parts.append(f"<details><summary>by trial</summary>{everything}</details>")
    parts.append("<h2>Session</h2>")
    parts.append(_picture(_timeline(recording, trials, 2.4), "Recording blocks, trials, share of gaze missing"))
    pictures = []
    drawings: dict[str, Callable[..., Any]] = {
        "Scanpath, all fixations of one eye": functools.partial(plot.scanpath, screen=screen, number=False),
        "Heat map, all samples of one eye": functools.partial(plot.heatmap, screen=screen),
        "Main sequence: peak velocity of saccades over amplitude, one eye, without blinks": plot.main_sequence,
    }
    for text, draw in drawings.items():
        figure, ax = _figure(7, 4.6)
        draw(recording, ax=ax)
        pictures.append(_picture(figure, text))
    parts.append(f'<h2>Gaze</h2><div class="pair">{"".join(pictures)}</div><h2>Trials</h2>')
    for trial in trials:
        parts.append(f"<details>{_trial_title(trial, by_trial)}{_trial_picture(trial, screen)}</details>")
    parts.append(_damages(recording))
    parts.append('<p><a href="index.html">All recordings</a></p>')

    def by_eye(name: str) -> dict[str, float]:
        return {row["eye"]: float(row[name]) for row in whole}

    small = _picture(_timeline(recording, trials, 1.9), f"Session of {recording.name}", caption=False)
    values = (by_eye("data_loss"), by_eye("rms_fixation"), by_eye("effective_frequency"))
    entry = _Entry("", recording.duration, len(trials), *values, len(recording.damages), small)
    return _page(recording.name, "".join(parts)), entry


def _trials_of(recording: Recording, settings: Settings) -> tuple[Trials, str]:
    """The trials that were asked for; or the recording blocks, and why."""
    try:
        return recording.trials(*settings.trials), ""
    except ValueError as error:
        return recording.trials(), f"{error}. Each recording block stands for a trial."


def _write_page(path: str, pages: dict[str, str], settings: Settings) -> _Entry:
    with open(path, on_damage=settings.on_damage) as recording:
        page, entry = _recording_page(recording, *_trials_of(recording, settings), settings)
    write_whole(Path(settings.folder) / pages[path], page)
    return replace(entry, page=pages[path])


def write_whole(path: Path, text: str) -> None:
    """Write a file so that it is there whole, or as it was."""
    part = path.with_name(path.name + ".part")
    part.write_text(text, "utf-8", "surrogateescape")
    os.replace(part, path)


# ---- The index ----


def _index(entries: dict[str, Any], pages: dict[str, str]) -> str:
    rows = []
    for path, entry in entries.items():
        name = html.escape(os.path.basename(path))
        if isinstance(entry, Failure):
            rows.append(
                f'<tr class="bad"><td>{name}<td colspan="6" style="text-align: left">{html.escape(entry.text)}'
            )
            continue
        cells = ["<td>" + f"{entry.duration / 60000:.1f}", f"<td>{entry.trials}"]
        for measure, values in (("data_loss", entry.loss), ("rms_fixation", entry.noise)):
            bad = " class=bad" * any(_is_bad(measure, value) for value in values.values())
            cells.append(f"<td{bad}>" + "<br>".join(f"{eye} {_number(value)}" for eye, value in values.items()))
        cells.append("<td>" + "<br>".join(_number(value) for value in entry.frequency.values()))
        cells.append(f"<td{' class=bad' * bool(entry.damages)}>{entry.damages}")
        link = quote(pages[path], errors="surrogateescape")
        rows.append(f'<tr><td><a href="{link}">{name}</a>{"".join(cells)}')
        rows.append(f'<tr><td colspan="7">{entry.timeline}')
    titles = "".join(
        html_title(title, unit)
        for title, unit in (
            *(("recording", ""), ("duration", "minutes"), ("trials", ""), ("gaze missing", "share")),
            *(("RMS in fixations", "degrees"), ("effective frequency", "samples per second"), ("damages", "")),
        )
    )
    note = f"<p>Marked: more than {_MUCH_LOSS:.0%} of gaze missing, RMS above {_MUCH_NOISE} degrees, damages.</p>"
    return _page("Recordings", f'{note}<div class="wide"><table><tr>{titles}{"".join(rows)}</table></div>')


def _page_names(paths: Sequence[str]) -> dict[str, str]:
    """A file name for each recording, none twice."""
    names: dict[str, str] = {}
    taken = {"index.html"}
    for path in paths:
        base, number = os.path.basename(path), 1
        name = f"{base}.html"
        while name.casefold() in taken:
            number += 1
            name = f"{base}-{number}.html"
        taken.add(name.casefold())
        names[path] = name
    return names


def report(
    paths: Sequence[Any],
    folder: Any,
    *,
    trials: TrialTexts = (None, None),
    screen: Optional[plot.Screen] = None,
    on_damage: str = "salvage",
    workers: Optional[int] = None,
) -> dict[str, Any]:
    """Write a page for each recording, and index.html over all of them, into a folder.

    Parameters
    ----------
    paths : sequence of str or path-like
    folder : str or path-like
        Made when it is not there. Pages of the same name are replaced.
    trials : (str, str), optional
        Texts that start and end trials.
    screen : (width, height) or (left, top, right, bottom), optional
        In pixels; guessed when it is not given, see :func:`trkapi.plot.screen_of`.
    on_damage : {"salvage", "warn", "raise"}
        As for :func:`trkapi.open`.
    workers : int, optional
        Number of processes; by default that of the processors.

    Returns
    -------
    dict
        For each path a summary, or the Failure that says why there is no page.
    """
    names = names_of(paths)
    Path(folder).mkdir(parents=True, exist_ok=True)
    settings = Settings(os.fspath(folder), trials, screen, on_damage)
    pages = _page_names(names)
    write = functools.partial(_write_page, pages=pages, settings=settings)
    with np.errstate(all="ignore"):
        entries = dict(zip(names, each(write, names, workers)))
    write_whole(Path(folder) / "index.html", _index(entries, pages))
    return entries
