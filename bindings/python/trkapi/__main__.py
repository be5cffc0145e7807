"""The command ``python -m trkapi``."""

from __future__ import annotations

import argparse
import sys
from typing import Optional, Sequence

from . import __version__

_WELL, _DAMAGED, _NOT_READABLE = 0, 1, 3


def _screen(text: str) -> tuple[float, float]:
    try:
        width, height = (float(word) for word in text.lower().split("x"))
    except ValueError:
        raise argparse.ArgumentTypeError(f"{text!r} is no size such as 1920x1080") from None
    return width, height


def _processes(text: str) -> int:
    if not text.isdecimal() or int(text) < 1:
        raise argparse.ArgumentTypeError(f"{text!r} is no number of processes")
    return int(text)


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(prog="python -m trkapi", description="Reports about recordings.")
    parser.add_argument("--version", action="version", version=f"trkapi {__version__}")
    commands = parser.add_subparsers(required=True, metavar="COMMAND")
    report = commands.add_parser(
        "report",
        help="write an HTML page for each recording, and an index",
        epilog="Exit status: 0 all is well, 1 a recording is damaged, 2 usage, 3 a recording cannot be read.",
    )
    report.add_argument("files", nargs="+", metavar="FILE")
    report.add_argument("-o", "--output", required=True, metavar="FOLDER", help="where the pages go")
    report.add_argument("--start", metavar="TEXT", help="messages with this text start trials")
    report.add_argument("--end", metavar="TEXT", help="messages with this text end trials")
    report.add_argument("--screen", type=_screen, metavar="WxH", help="size of the display in pixels")
    report.add_argument(
        "--workers", type=_processes, metavar="N", help="number of processes (default: of processors)"
    )
    return parser


def main(arguments: Optional[Sequence[str]] = None) -> int:
    """Run the command; returns its exit status."""
    options = _parser().parse_args(arguments)
    from ._many import Failure
    from ._report import report

    try:
        entries = report(
            options.files,
            options.output,
            trials=(options.start, options.end),
            screen=options.screen,
            workers=options.workers,
        )
    except OSError as error:
        print(f"trkapi: {error}", file=sys.stderr)
        return _NOT_READABLE
    status = _WELL
    for path, entry in entries.items():
        if isinstance(entry, Failure):
            print(f"trkapi: {path}: {entry.text}", file=sys.stderr)
            status = _NOT_READABLE
        elif entry.damages:
            damages = "1 damage" if entry.damages == 1 else f"{entry.damages} damages"
            print(f"trkapi: {path}: {damages}, see {entry.page}", file=sys.stderr)
            status = max(status, _DAMAGED)
    return status


if __name__ == "__main__":
    sys.exit(main())
