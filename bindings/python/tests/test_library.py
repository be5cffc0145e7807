"""The records and constants are those of the public header, and the package loads as it promises."""

from __future__ import annotations

import ctypes
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

import pytest
import trkapi
from trkapi import _library as c

ROOT = Path(__file__).parents[3]
HEADER = ROOT / "include" / "trkapi" / "trkapi.h"


def records() -> dict[str, type]:
    kinds = (ctypes.Structure, ctypes.Union)
    return {n: v for n, v in vars(c).items() if isinstance(v, type) and issubclass(v, kinds) and v not in kinds}


def test_records_and_constants_are_those_of_the_header(tmp_path: Path) -> None:
    expected = {}
    for name, record in records().items():
        expected[f"sizeof({name})"] = ctypes.sizeof(record)
        for field, *_ in record._fields_:
            place = getattr(record, field)
            expected[f"offsetof({name}, {field})"] = place.offset
            expected[f"sizeof((({name} *)0)->{field})"] = place.size
    constants = {
        n: v for n, v in vars(c).items() if re.match("(REC|TRK|MISSING)_", n) and isinstance(v, (int, float))
    }
    assert len(constants) > 60 and len(expected) > 140
    expected.update(constants)
    lines = (f'printf("%lld\\n", (long long)({what}));' for what in expected)
    source = tmp_path / "layout.c"
    source.write_text(
        f'#include "{HEADER}"\n#include <stdio.h>\nint main(void) {{ {" ".join(lines)} return 0; }}\n'
    )
    subprocess.run([os.environ.get("CC", "cc"), source, "-o", tmp_path / "layout"], check=True)
    printed = subprocess.run([tmp_path / "layout"], check=True, capture_output=True, text=True).stdout.split()
    assert dict(zip(expected, map(int, printed))) == expected


def test_columns_are_those_that_the_header_names() -> None:
    names = re.findall(r"TRK_COLUMN_(\w+) = (\d+)", HEADER.read_text())
    columns = trkapi.sample_columns()
    assert [(n.lower(), int(i)) for n, i in names] == [(col.name, col._id) for col in columns.values()]
    assert all(col.description for col in columns.values())
    version = re.search(r"project\(trkapi\s+VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text())
    assert version and version[1] == trkapi.__version__


def run(code: str, **environment: str) -> str:
    done = subprocess.run(
        [sys.executable, "-c", code], env={**os.environ, **environment}, capture_output=True, text=True
    )
    return done.stdout + done.stderr


def test_import_loads_nothing(path: Path) -> None:
    code = "import sys; before = set(sys.modules); import trkapi; print(*(set(sys.modules) - before))"
    assert not {"numpy", "ctypes", "logging"} & {name.split(".")[0] for name in run(code).split()}
    needing = "import trkapi; print(trkapi.open)"
    assert "TRKAPI_LIBRARY" in run("import trkapi; trkapi.sample_columns()", TRKAPI_LIBRARY="/nowhere.so")
    assert "function open" in run(needing, TRKAPI_LIBRARY="/nowhere.so")
    assert "older than this package" in run("import trkapi; trkapi.sample_columns()", TRKAPI_LIBRARY="libz.so.1")
    no_pandas = (
        "import sys; sys.modules['pandas'] = None; import trkapi; trkapi.open(sys.argv[1]).blocks.to_pandas()"
    )
    assert "pip install pandas" in run(f"import sys; sys.argv[1:] = [{str(path)!r}]; {no_pandas}")


def test_types(tmp_path: Path) -> None:
    mypy = shutil.which("mypy")
    if mypy is None:
        pytest.skip("no mypy")
    package = Path(trkapi.__file__).parents[1]
    done = subprocess.run([mypy, "--cache-dir", tmp_path], cwd=package, capture_output=True, text=True)
    assert done.returncode == 0, done.stdout
