"""The wheel, made by the build and installed into an empty virtual environment."""

from __future__ import annotations

import os
import subprocess
import sysconfig
import venv
from pathlib import Path
from typing import Any

import numpy
from conftest import BUILD, SAMPLES

READ = "import sys, trkapi; print(trkapi.__file__, len(trkapi.open(sys.argv[1]).samples()))"


def test_wheel_works_in_an_empty_environment(path: Path, tmp_path: Path) -> None:
    subprocess.run(["cmake", "--build", BUILD, "--target", "wheel"], check=True, stdout=subprocess.DEVNULL)
    (wheel,) = (BUILD / "wheel").glob("*.whl")
    assert wheel.name.endswith(f"-py3-none-{sysconfig.get_platform().replace('-', '_')}.whl")
    environment = tmp_path / "empty"
    venv.create(environment, with_pip=True)
    python = environment / "bin" / "python"
    clean = {name: value for name, value in os.environ.items() if name not in ("TRKAPI_LIBRARY", "PYTHONPATH")}
    # No network: NumPy is lent by this Python, alone in a folder.
    (tmp_path / "lent").mkdir()
    for part in Path(numpy.__file__).parents[1].glob("numpy*"):
        (tmp_path / "lent" / part.name).symlink_to(part)
    clean["PYTHONPATH"] = str(tmp_path / "lent")

    def run(*command: Any) -> str:
        done = subprocess.run(command, env=clean, cwd=tmp_path, check=True, capture_output=True, text=True)
        return done.stdout

    run(python, "-m", "pip", "install", "--no-index", "--no-deps", "-q", wheel)
    home, rows = run(python, "-c", READ, path).split()
    assert str(environment) in home and rows == str(SAMPLES)
    assert "RECORD" in run(python, "-m", "pip", "show", "-f", "trkapi")
    run(python, "-m", "pip", "uninstall", "-q", "-y", "trkapi")
    # From the sources, without any tool: a wheel that loads the library of the system.
    run(python, "-m", "pip", "install", "--no-index", "--no-deps", "-q", Path(__file__).parents[1])
    clean["TRKAPI_LIBRARY"] = os.environ["TRKAPI_LIBRARY"]
    assert run(python, "-c", READ, path).split()[1] == str(SAMPLES)
