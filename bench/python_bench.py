#!/usr/bin/env python3
"""Speeds of the Python package, each beside the limit that it has to keep, measured in one run.

    PYTHONPATH=python python3 bench/python_bench.py [--events MILLIONS]

Import and replay are ratios of turns that alternate; the best turn of each counts. Conversions are events per second
of processor time, the library's threads included, and of elapsed time, which depends on what else the machine does.
"""

from __future__ import annotations

import argparse
import ctypes
import os
import re
import subprocess
import sys
import tempfile
import time
from pathlib import Path
from typing import Any, Callable, Dict, List, Tuple

import numpy as np

import tessel
from tessel import capi

TURNS = 9


def show(what: str, measured: str, limit: str, kept: bool) -> None:
    print(f"{what:<42} {measured:<46} {limit:<18} {'kept' if kept else 'NOT KEPT'}", flush=True)


def import_times() -> None:
    """In ms, as the interpreter itself measures them; NumPy's own part is in the whole."""
    best = {"tessel": 1e9, "numpy": 1e9}
    for _ in range(TURNS):
        done = subprocess.run([sys.executable, "-X", "importtime", "-c", "import tessel"], capture_output=True, text=True)
        for name in best:
            (line,) = re.findall(rf"\|\s+(\d+) \|\s+{name}\n", done.stderr)
            best[name] = min(best[name], int(line) / 1e3)
    show("import", f"{best['tessel']:.0f} ms, of it numpy {best['numpy']:.0f} ms", "150 ms", best["tessel"] < 150)


def c_histogram(name: str) -> Any:
    capi.initAPI(b"settings.ini")
    capi.tessel_openFile(os.fsencode(os.path.abspath(name)), None, 0)
    rows, bins = ctypes.c_uint64(), ctypes.c_uint64()
    capi.tessel_getResultShape(None, 8, ctypes.byref(rows), ctypes.byref(bins), None)
    counts = np.zeros((rows.value, bins.value), np.uint32)
    capi.getHistogram(None, 0, 1, 0, counts, None)
    capi.exitAPI()
    return counts


def histogram(name: str) -> Any:
    with tessel.open(name) as dev:
        return dev.histogram().wait().counts


def replays() -> None:
    """A whole replay, from opening to closing, by the C functions alone and by the package."""
    Path("settings.ini").write_text("[Log]\nFile=false\nConsole=false\n[Params]\nBufferSize=8\n")
    for name in ("short.tgx", "t3.tgx", "t2.tgx"):
        ways: Dict[Callable[[str], Any], float] = {c_histogram: 1e9, histogram: 1e9}
        sums = set()
        for _ in range(TURNS):
            for way in ways:
                start = time.perf_counter()
                counts = way(name)
                ways[way] = min(ways[way], time.perf_counter() - start)
                sums.add(int(counts.sum()))
        assert len(sums) == 1, "the ways differ"
        bare, package = ways.values()
        measured = f"{1e3 * package:.1f} ms, C {1e3 * bare:.1f} ms, ratio {package / bare:.3f}"
        show(f"replay of {name}", measured, "1.05 x C + 20 ms", package <= 1.05 * bare + 0.02)


CONVERSIONS: List[Tuple[str, Dict[str, Any], float]] = [
    ("h5", {}, 5.0),
    ("npz", {}, 5.0),
    ("u64", {"channels": "t3.channels.u8", "dtimes": "t3.dtimes.u16"}, 5.0),
    ("csv", {}, 5.0),
]


def conversions() -> None:
    for ending, options, least in CONVERSIONS:
        if ending != "h5":
            options = {**options, "sync_period": "25ns", "resolution": "25ps"}
        for source, target, given in (("t3.tgx", f"t3.{ending}", {}), (f"t3.{ending}", "back.tgx", options)):
            start = time.process_time()
            done = tessel.convert(source, target, overwrite=True, **given)
            million = done.events / 1e6
            busy = million / (time.process_time() - start)
            measured = f"{busy:.1f} M events/s of work, {million / done.seconds:.1f} elapsed"
            show(f"{source} to {target}", measured, f"{least:.0f} M events/s", busy >= least)


def main() -> None:
    parser = argparse.ArgumentParser(description="Speeds of the Python package")
    parser.add_argument("--events", type=float, default=8.0, metavar="MILLIONS", help="events of each recording")
    seconds = parser.parse_args().events / 8
    with tempfile.TemporaryDirectory() as folder:
        os.environ["PYTHONPATH"] = os.pathsep.join(os.path.abspath(each) for each in sys.path if each)
        os.chdir(folder)
        tessel.simulate("short.tgx", rate="100kcps", duration="100ms")
        tessel.simulate("t3.tgx", rate="4Mcps,4Mcps", duration=f"{seconds}s")
        tessel.simulate("t2.tgx", mode="t2", rate="4Mcps,4Mcps", duration=f"{seconds}s")
        import_times()
        replays()
        conversions()


if __name__ == "__main__":
    main()
