"""Recorded files as files: checking and repairing one. Neither needs a device."""

from __future__ import annotations

import os
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Dict, Tuple

from . import _library, capi
from .errors import TesselError
from .results import PathLike


@dataclass(frozen=True)
class Verified:
    """What a check of a recording found.

    Attributes
    ----------
    verdict : {"clean", "lossy", "invalid"}
        "lossy": it replays, but something is missing or unsure. "invalid": a replay isn't what was measured.
    faults : tuple of str
        What is wrong, a text each.
    report : dict
        All of it, as ``tessel_verifyFile`` gives it: records, events by kind, durations, the first faulty record.
    """

    verdict: str
    faults: Tuple[str, ...]
    report: Dict[str, Any]


def verify(path: PathLike) -> Verified:
    """Reads a whole recording and says whether it can be trusted, some hundred million records a second.

    Parameters
    ----------
    path : path
        The recording.

    Returns
    -------
    Verified

    Raises
    ------
    FileNotFoundError
        There is no such file.
    DeviceError
        It can't be read.

    Examples
    --------
    >>> tessel.verify("decay.tgx").verdict
    'clean'
    """
    if not Path(path).is_file():
        raise FileNotFoundError(f"{path}: no such file")
    report = _library.file_text(capi.tessel_verifyFile, os.fspath(path))
    return Verified(report["verdict"], tuple(each["text"] for each in report["faults"]), report)


def repair(path: PathLike, repaired: PathLike, *, overwrite: bool = False) -> Verified:
    """Writes a whole recording of one that a crash cut off, and checks it.

    Parameters
    ----------
    path : path
        The recording; it is only read.
    repaired : path
        The new one.
    overwrite : bool
        Replace a file that is there.

    Returns
    -------
    Verified
        Of the new recording.

    Raises
    ------
    FileExistsError
        `repaired` is there.
    TesselError
        Nothing was cut off, or it is beyond repair.
    """
    if Path(repaired).exists() and not overwrite:
        raise FileExistsError(f"{repaired}: is there already")
    if not capi.tessel_repairFile(os.fsencode(path), os.fsencode(repaired)):
        raise TesselError(_library.with_reason(f"{path}: can't be repaired"))
    return verify(repaired)
