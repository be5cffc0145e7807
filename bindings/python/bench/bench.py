"""What the package costs beside the C call, and what two threads gain: python3 bench.py RECORDING

Compiles a C program that reads the same columns with one call into memory that it allocates, and prints a table.
"""

from __future__ import annotations

import os
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path
from typing import Callable

ROOT = Path(__file__).resolve().parents[3]
sys.path.insert(0, str(ROOT / "bindings" / "python"))
os.environ.setdefault("TRKAPI_LIBRARY", str(ROOT / "build" / "release" / "libtrkapi.so.4"))

import trkapi  # noqa: E402

NAMES = ["time", "time_exact", "gaze", "pupil_size"]
ROUNDS = 15

PROGRAM = """
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <trkapi/trkapi.h>

static double now(void) {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec + 1e-9 * (double)t.tv_nsec;
}

int main(int argc, char **argv) {
    static const int types[] = {TYPES};
    static const int ids[] = {IDS};
    static const size_t offsets[] = {OFFSETS};
    TRK_COLUMN columns[COUNT];
    _TRKFILE *recording = trk_open(argv[argc - 1], NULL, NULL);
    double best = 1e9;
    for (int round = 0; recording != NULL && round < ROUNDS; ++round) {
        double start = now();
        unsigned end = trk_get_element_count(recording);
        int64_t rows = trk_count_items(recording, 0, end, REC_SAMPLE);
        char *memory = malloc((size_t)rows * STRIDE);
        for (int i = 0; i < COUNT; ++i) {
            TRK_COLUMN column = {ids[i], types[i], memory + offsets[i], STRIDE};
            columns[i] = column;
        }
        trk_read_samples(recording, 0, end, columns, COUNT, rows, TRK_READ_NAN, NULL);
        free(memory);
        if (now() - start < best)
            best = now() - start;
    }
    printf("%.6f\\n", best);
    return trk_close_file(recording);
}
"""


def best_of(action: Callable[[], object], rounds: int = ROUNDS) -> float:
    """Seconds of the fastest of some rounds."""
    seconds = []
    for _ in range(rounds):
        start = time.perf_counter()
        action()
        seconds.append(time.perf_counter() - start)
    return min(seconds)


def in_c(path: str, recording: trkapi.Recording) -> float:
    """Seconds of the C program for the same columns at the same places."""
    table = recording.samples(NAMES, items=(0, 0))
    columns = [table.columns[name] for name in table.dtype.names or ()]
    fields = table.dtype.fields or {}
    program = PROGRAM
    for word, value in {
        "TYPES": ", ".join(str(column.type) for column in columns),  # type: ignore[attr-defined]
        "IDS": ", ".join(str(column._id) for column in columns),  # type: ignore[attr-defined]
        "OFFSETS": ", ".join(str(fields[column.name][1]) for column in columns),
        "STRIDE": str(table.dtype.itemsize),
        "COUNT": str(len(columns)),
        "ROUNDS": str(ROUNDS),
    }.items():
        program = program.replace(word, value)
    library = Path(os.environ["TRKAPI_LIBRARY"])
    with tempfile.TemporaryDirectory() as folder:
        source, binary = Path(folder) / "read.c", Path(folder) / "read"
        source.write_text(program)
        options = ["-O2", f"-I{ROOT / 'include'}", str(library), f"-Wl,-rpath,{library.parent}"]
        subprocess.run(["cc", str(source), *options, "-o", str(binary)], check=True)
        return float(subprocess.run([str(binary), path], check=True, capture_output=True).stdout)


def main() -> None:
    """Measure and print."""
    path = sys.argv[1]
    first, second = trkapi.open(path), trkapi.open(path)
    rows = first.sample_count
    opening = best_of(lambda: trkapi.open(path).close())
    floor = in_c(path, first)
    samples = best_of(lambda: first.samples(NAMES))
    velocities = best_of(lambda: first.samples(NAMES, velocities=True))
    frame = best_of(lambda: first.samples(NAMES).to_pandas())

    def one_after_the_other() -> None:
        for recording in (first, second):
            recording.samples(velocities=True)

    def at_once() -> None:
        threads = [threading.Thread(target=lambda r=r: r.samples(velocities=True)) for r in (first, second)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()

    # By turns, so that what else the machine does falls on both.
    rounds = [(best_of(one_after_the_other, 1), best_of(at_once, 1)) for _ in range(ROUNDS)]
    ratios = sorted(parallel / serial for serial, parallel in rounds)
    serial, parallel = (min(seconds) for seconds in zip(*rounds))
    print(f"{rows} samples, {os.cpu_count()} processors")
    for what, seconds in {
        "open": opening,
        "C call": floor,
        "samples()": samples,
        "velocities": velocities,
    }.items():
        print(f"{what:24} {seconds * 1000:9.1f} ms {seconds / rows * 1e9:8.1f} ns a sample")
    print(f"{'samples().to_pandas()':24} {frame * 1000:9.1f} ms")
    print(f"samples() / C call       {samples / floor:9.2f}")
    print(f"two threads / one        {parallel / serial:9.2f}    the best of each")
    print(f"  the middle round       {ratios[ROUNDS // 2]:9.2f}")


if __name__ == "__main__":
    main()
