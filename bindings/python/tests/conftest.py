"""What the tests share: the library of the build tree, and recordings made for them."""

from __future__ import annotations

import os
import struct
import subprocess
import sys
from pathlib import Path
from typing import Any, Callable, Iterator, Mapping, Sequence

import pytest

BUILD = Path(os.environ.get("TRKAPI_BUILD", Path(__file__).parents[3] / "build" / "release"))
os.environ.setdefault("TRKAPI_LIBRARY", str(BUILD / "libtrkapi.so.4"))
os.environ["MPLBACKEND"] = "Agg"
PACKAGE = str(Path(__file__).parents[1])
sys.path.insert(0, PACKAGE)
os.environ["PYTHONPATH"] = PACKAGE  # for the processes that tests start

import trkapi  # noqa: E402 - finds its library by the environment

# What write_recording makes, to be changed with it: times of the first and of the last sample (ms), samples, those
# of them without gaze of the left eye, trials.
FIRST, LAST, SAMPLES, LOST, TRIALS = 250100, 369331, 112404, 3486, 12


def write_recording(path: Path, *options: str) -> Path:
    """Write a binocular recording of two minutes; the one place where test recordings come from."""
    subprocess.run([BUILD / "tools" / "trk", "synth", path, *options], check=True)
    return path


def write_raw(
    path: Path, eye: int, times: Sequence[int], messages: Mapping[int, bytes], ended: bool = True
) -> Path:
    """Write what a whole recording rarely is: one eye (0x8000 left, 0x4000 right) at 500 samples per second."""

    def event(code: int, time: int, fields: bytes = b"") -> bytes:
        return struct.pack(">HBI", eye | code << 8, 0x21, time) + fields + b"\0"

    records = [event(24, time, struct.pack(">BH", 0x5E, len(text)) + text) for time, text in messages.items()]
    if times:
        facts = struct.pack(">BHBHBIBH", 0x30, 1, 0x51, 1, 0x41, 500 << 16, 0xB4, eye | 0x0500)
        records.append(event(15, times[0], facts))
        records += [struct.pack(">HIhhh", eye | 0x2501, time, time % 700, 300, 1000) for time in times]
        records += [event(16, times[-1] + 2)] if ended else []
    head = b"QM_OPTICORE_COMBFILE\nVERSION: PUPILON V2 5\nSOURCE: PUPILON LX\nENDP:\n"
    path.write_bytes(head + b"".join(records) + b"\0\0")
    return path


@pytest.fixture(scope="session")
def path(tmp_path_factory: Any) -> Path:
    return write_recording(tmp_path_factory.mktemp("recordings") / "s07.trk")


@pytest.fixture
def recording(path: Path) -> Iterator[trkapi.Recording]:
    with trkapi.open(path) as opened:
        yield opened


@pytest.fixture(scope="session")
def damage(path: Path) -> Callable[[Path], Path]:
    """A function that writes the test recording with 100 bytes in its middle zeroed."""

    def write(target: Path) -> Path:
        content = bytearray(path.read_bytes())
        middle = len(content) // 2
        content[middle : middle + 100] = bytes(100)
        target.write_bytes(content)
        return target

    return write
