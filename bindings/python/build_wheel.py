"""Builds the wheel and the source archive: what pip asks for (PEP 517, PEP 660), and ``python build_wheel.py``.

    python build_wheel.py FOLDER [--library LIBTRKAPI]

With a library, which can also be named in the environment variable TRKAPI_WHEEL_LIBRARY, the wheel has it inside
and is one for this platform and every Python 3; without it the wheel is for every platform, and loads the library
that is installed. Needs nothing but Python.
"""

from __future__ import annotations

import argparse
import base64
import hashlib
import os
import re
import sysconfig
import tarfile
import zipfile
from pathlib import Path
from typing import Any, Optional

HERE = Path(__file__).resolve().parent
PACKAGE = HERE / "trkapi"
LIBRARY_NAME = "libtrkapi.so.4"
# Files of an archive bear one date, so that the same content makes the same bytes.
DATE = (2020, 1, 1, 0, 0, 0)


def _version() -> str:
    match = re.search(r'^__version__ = "(.*)"$', (PACKAGE / "__init__.py").read_text("utf-8"), re.M)
    assert match is not None
    return match[1]


def _metadata() -> str:
    lines = [
        "Metadata-Version: 2.1",
        "Name: trkapi",
        f"Version: {_version()}",
        "Summary: Recordings of video eye trackers as NumPy arrays and pandas DataFrames",
        "Requires-Python: >=3.9",
        "Requires-Dist: numpy>=1.22",
    ]
    extras = {"pandas": ["pandas"], "plot": ["matplotlib"], "dask": ["pandas", "dask[dataframe]", "distributed"]}
    for extra, needed in extras.items():
        lines += [f"Provides-Extra: {extra}", *(f'Requires-Dist: {name}; extra == "{extra}"' for name in needed)]
    return "\n".join(lines) + "\n"


class _Wheel:
    """A wheel that is being written, and its list of files."""

    def __init__(self, folder: str, tag: str) -> None:
        self._info = f"trkapi-{_version()}.dist-info"
        self._tag = tag
        self.name = f"trkapi-{_version()}-{tag}.whl"
        self._archive = zipfile.ZipFile(Path(folder) / self.name, "w", zipfile.ZIP_DEFLATED)
        self._record: list[str] = []

    def add(self, name: str, content: bytes, mode: int = 0o644) -> None:
        entry = zipfile.ZipInfo(name, DATE)
        entry.external_attr = (0o100000 | mode) << 16
        entry.compress_type = zipfile.ZIP_DEFLATED
        self._archive.writestr(entry, content)
        digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=").decode()
        self._record.append(f"{name},sha256={digest},{len(content)}")

    def finish(self) -> str:
        pure = "true" if self._tag.endswith("-any") else "false"
        facts = f"Wheel-Version: 1.0\nGenerator: trkapi\nRoot-Is-Purelib: {pure}\nTag: {self._tag}\n"
        self.add(f"{self._info}/METADATA", _metadata().encode())
        self.add(f"{self._info}/WHEEL", facts.encode())
        record = f"{self._info}/RECORD"
        self._archive.writestr(zipfile.ZipInfo(record, DATE), "\n".join([*self._record, f"{record},,"]) + "\n")
        self._archive.close()
        return self.name


def _tag(library: Optional[str]) -> str:
    return "py3-none-" + (re.sub(r"[^\w]", "_", sysconfig.get_platform()) if library else "any")


def _sources() -> list[Path]:
    return sorted(path for path in PACKAGE.rglob("*") if path.suffix == ".py" or path.name == "py.typed")


def build_wheel(
    wheel_directory: str, config_settings: Any = None, metadata_directory: Optional[str] = None
) -> str:
    """Write the wheel into a folder; returns its file name."""
    library = (config_settings or {}).get("library") or os.environ.get("TRKAPI_WHEEL_LIBRARY")
    wheel = _Wheel(wheel_directory, _tag(library))
    for path in _sources():
        wheel.add(path.relative_to(HERE).as_posix(), path.read_bytes())
    if library:
        wheel.add(f"trkapi/{LIBRARY_NAME}", Path(library).read_bytes(), 0o755)
    return wheel.finish()


def build_editable(
    wheel_directory: str, config_settings: Any = None, metadata_directory: Optional[str] = None
) -> str:
    """Write a wheel that points at this folder."""
    wheel = _Wheel(wheel_directory, _tag(None))
    wheel.add("trkapi.pth", f"{HERE}\n".encode())
    return wheel.finish()


def build_sdist(sdist_directory: str, config_settings: Any = None) -> str:
    """Write the source archive; returns its file name."""
    base = f"trkapi-{_version()}"
    with tarfile.open(Path(sdist_directory) / f"{base}.tar.gz", "w:gz", format=tarfile.PAX_FORMAT) as archive:
        information = Path(sdist_directory) / "PKG-INFO"
        information.write_text(_metadata(), "utf-8")
        archive.add(information, f"{base}/PKG-INFO")
        information.unlink()
        for path in [HERE / "pyproject.toml", HERE / "build_wheel.py", *_sources()]:
            archive.add(path, f"{base}/{path.relative_to(HERE).as_posix()}")
    return f"{base}.tar.gz"


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description="Builds the wheel of trkapi.")
    parser.add_argument("folder")
    parser.add_argument("--library", help="the shared library to put inside")
    arguments = parser.parse_args()
    Path(arguments.folder).mkdir(parents=True, exist_ok=True)
    print(Path(arguments.folder) / build_wheel(arguments.folder, {"library": arguments.library}))
