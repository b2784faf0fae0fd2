"""Recordings that all tests share: simulated once, with known rates and seeds, in a folder that tests run in."""

from __future__ import annotations

import os
import re
import signal
from pathlib import Path
from typing import Any, Dict, Iterator, List

import pytest

import tessel

ROOT = Path(__file__).resolve().parents[2]
os.environ.setdefault("MPLBACKEND", "Agg")
signal.signal(signal.SIGINT, signal.default_int_handler)  # a shell starts what is in its background without one
os.environ["PYTHONPATH"] = os.pathsep.join([str(ROOT / "python"), os.environ.get("PYTHONPATH", "")])  # of children

# A slow one of each mode that a run takes long enough on to be looked at, and two short ones.
RECORDINGS: Dict[str, Dict[str, Any]] = {
    "decay.tgx": {"rate": ["500kcps", "300kcps"], "lifetime": ["0.8ns", "2.9ns"], "duration": "500ms", "seed": 1},
    "emitter.tgx": {"mode": "t2", "light": "antibunched", "rate": "300kcps", "recovery": "20ns", "duration": "500ms"},
    "cells.tgx": {"mode": "t2", "light": "diffusing", "rate": "100kcps", "molecules": 1, "duration": "2s"},
    "long.tgx": {"mode": "t2", "rate": "10Mcps", "duration": "1s"},
}


@pytest.fixture(scope="session")
def recordings(tmp_path_factory: pytest.TempPathFactory) -> Path:
    folder = tmp_path_factory.mktemp("recordings")
    for name, options in RECORDINGS.items():
        tessel.simulate(folder / name, **options)
    return folder


@pytest.fixture(autouse=True)
def in_folder(recordings: Path, tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Iterator[Path]:
    """A folder of its own for each test, in which the recordings are found by name."""
    for each in recordings.iterdir():
        (tmp_path / each.name).symlink_to(each)
    monkeypatch.chdir(tmp_path)
    yield tmp_path
    from tessel import _library

    assert _library._users == 0, "a test left a device open"
    assert not _library._written, "a run writes, and its device is closed"


def scripts(folder: str) -> List[Path]:
    found = sorted((ROOT / folder).glob("*.py"))
    assert found
    return found


def blocks_of(page: Path) -> List[str]:
    """The Python of a page."""
    return re.findall(r"```python\n(.*?)```", page.read_text(), flags=re.S)
