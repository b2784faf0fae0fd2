"""Data of other programs into recordings, and recordings into what other programs read.

``convert(source, target)`` goes by the endings of both names. Both ways hold a block of events at a time, whatever the
size of the file.
"""

from __future__ import annotations

import glob
import importlib
import os
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Dict, List, Optional, Tuple

import numpy as np

from .._open import open as open_device
from ..blocks import FIRST_MARKER, OVERFLOW
from ..results import PathLike
from ..units import Time
from ..words import MOST_DTIME, MOST_INPUTS, Recorder
from .source import Inputs, Scan, Source, codes_of, scan

# By ending, the module, which is imported when it is needed, and what of it.
_ENDINGS_IN: Dict[str, Tuple[str, str]] = {
    ".h5": ("photon_hdf5", "read"),
    ".hdf5": ("photon_hdf5", "read"),
    ".npz": ("tables", "read_npz"),
    ".npy": ("tables", "read_npy"),
    ".csv": ("tables", "read_csv"),
    ".txt": ("tables", "read_csv"),
    **{f".{kind}{bits}": ("tables", "read_binary") for kind in "ui" for bits in (16, 32, 64)},
}
_ENDINGS_OUT: Dict[str, Tuple[str, str]] = {
    ".h5": ("photon_hdf5", "Writer"),
    ".hdf5": ("photon_hdf5", "Writer"),
    ".npz": ("table_writers", "NpzWriter"),
    ".csv": ("table_writers", "CsvWriter"),
    ".u64": ("table_writers", "BinaryWriter"),
    ".parquet": ("table_writers", "ArrowWriter"),
    ".arrow": ("table_writers", "ArrowWriter"),
}


@dataclass(frozen=True)
class Converted:
    """What a conversion did.

    Attributes
    ----------
    source, target : str
        The files.
    events : int
        Events that were written.
    inputs : dict
        Into a recording: which channel of the source became which channel; 0 the sync, 1 to 64 inputs.
    notes : tuple of str
        What couldn't be kept, and what was changed.
    seconds : float
        How long it took.
    """

    source: str
    target: str
    events: int
    inputs: Dict[int, int]
    notes: Tuple[str, ...]
    seconds: float

    def __str__(self) -> str:
        rate = self.events / max(self.seconds, 1e-9) / 1e6
        lines = [f"{self.target}: {self.events} events in {self.seconds:.2f} s, {rate:.1f} M events/s"]
        changed = [f"{channel} is now {number}" for channel, number in self.inputs.items() if channel != number]
        if changed:
            lines.append("channels: " + ", ".join(changed[:8]) + (f" and {len(changed) - 8} more" if changed[8:] else ""))
        return "\n".join([*lines, *self.notes])


def convert(source: PathLike, target: PathLike, *, overwrite: bool = False, **options: Any) -> Converted:
    """Converts a file into a recording (target .tgx), or a recording into another file (source .tgx).

    Parameters
    ----------
    source, target : path
        One of them a recording, the other ``.h5`` or ``.hdf5`` (Photon-HDF5), ``.npz``, ``.csv``, plain binary
        (``.u64``, ``.i64``, ...), to read also ``.npy``, to write also ``.parquet`` and ``.arrow`` (with pyarrow).
    overwrite : bool
        Replace a target that is there.
    **options
        Into a recording: ``inputs`` maps channels of the source to 0 (sync), 1 to 64, or lists those that become
        inputs 1, 2, ...; the rest is left out. By default numbers from 1 to 64 stay, and numbers from 0 to 63 become
        one more. ``time_unit`` of the times (T2; default 1 ps), or ``sync_period`` and ``resolution`` (T3, where there
        are dtimes), each a time, which needn't be whole ps. ``times``, ``channels``, ``dtimes`` name the array (NPZ),
        the column (CSV) or the file (binary, NPY) of each. ``spot`` chooses one of several in Photon-HDF5.

        Into Photon-HDF5: ``description``, ``author``, ``measurement_type``, ``excitation_wavelengths`` (m), and
        ``compression`` ("gzip", "lzf").

    Returns
    -------
    Converted
        With ``notes`` on what couldn't be kept; print it.

    Raises
    ------
    FileExistsError
        The target is there.
    ValueError
        The kinds of files don't go together, or what the source holds makes no recording; the text says where.
    PackageMissing
        h5py or pyarrow is needed.

    Examples
    --------
    >>> done = tessel.convert("decay.tgx", "decay.h5")
    >>> tessel.convert("decay.h5", "again.tgx").events == done.events
    True
    """
    begin, end = Path(source), Path(target)
    if not begin.is_file():
        raise FileNotFoundError(f"{begin}: no such file")
    if end.exists() and not overwrite:
        raise FileExistsError(f"{end}: is there already")
    if (begin.suffix == ".tgx") == (end.suffix == ".tgx"):
        raise ValueError(f"{begin}, {end}: one of them has to be a recording (.tgx)")
    start = time.monotonic()
    try:
        if end.suffix == ".tgx":
            events, inputs, notes = _import(_known(begin, _ENDINGS_IN)(begin, **_source_options(options)), end, options)
        else:
            events, inputs, notes = _export(begin, end, options)
    except BaseException:
        for part in end.parent.glob(f"{glob.escape(end.name)}*.part"):
            part.unlink()
        raise
    return Converted(str(begin), str(end), events, inputs, tuple(notes), time.monotonic() - start)


def _known(path: Path, endings: Dict[str, Tuple[str, str]]) -> Any:
    if path.suffix not in endings:
        raise ValueError(f"{path}: the ending isn't one of {', '.join(endings)}")
    module, name = endings[path.suffix]
    return getattr(importlib.import_module(f".{module}", __name__), name)


def _source_options(options: Dict[str, Any]) -> Dict[str, Any]:
    return {name: value for name, value in options.items() if name not in ("inputs", "comment")}


def _import(source: Source, target: Path, options: Dict[str, Any]) -> Tuple[int, Dict[int, int], List[str]]:
    found = scan(source)
    wanted: Inputs = options.get("inputs")
    inputs = codes_of(source, found, wanted)
    seconds = found.last * source.tick_ps * 1e-12
    rates = _rates(inputs, found, seconds)
    part = target.with_name(target.name + ".part")
    with Recorder(
        part,
        num_inputs=len(rates),
        time_unit=1 if source.is_t3 else source.whole_unit(),
        resolution=source.dtime_width(found) if source.is_t3 else None,
        sync_rate=1e12 / source.tick_ps if source.is_t3 else 0.0,
        duration_ms=int(np.ceil(seconds * 1e3)),
        rates=rates,
        comment=options.get("comment", source.comment),
    ) as recorder:
        events = _record(recorder, source, found, inputs)
    os.replace(part, target)
    left_out = int(found.counts.sum()) - events
    left_out_notes = [f"{left_out} events of other channels were left out"] if left_out else []
    return events, inputs, [*source.notes, *left_out_notes, *source.rounding_notes(found)]


def _rates(inputs: Dict[int, int], found: Scan, seconds: float) -> List[float]:
    """Counts per second of each input, up to the last that there is; those that share one are added."""
    numbers = [number for number in inputs.values() if 1 <= number <= MOST_INPUTS]
    rates = [0.0] * max(numbers, default=1)
    for channel, number in inputs.items():
        if 1 <= number <= MOST_INPUTS and seconds > 0:
            rates[number - 1] = min(2e9, rates[number - 1] + float(found.counts[channel]) / seconds)
    return rates


def _record(recorder: Recorder, source: Source, found: Scan, inputs: Dict[int, int]) -> int:
    """Writes all events of these channels; how many there were."""
    codes = np.full(1 << 16, OVERFLOW, np.uint8)
    for channel, number in inputs.items():
        codes[channel] = number
    events = 0
    for block in source.blocks():
        channels = codes[block.channels]
        kept = channels != OVERFLOW
        if not kept.all():
            block, channels = block.where(kept), channels[kept]
        try:
            recorder.write(source.whole_times(block.times), channels, source.fitting_dtimes(block.dtimes, found))
        except ValueError as problem:
            raise ValueError(f"{source.name}: after {events} events: {problem}") from None
        events += len(channels)
    return events


def _export(source: Path, target: Path, options: Dict[str, Any]) -> Tuple[int, Dict[int, int], List[str]]:
    make = _known(target, _ENDINGS_OUT)
    events = markers = 0
    with open_device(source) as device:
        if device.mode not in ("T2", "T3"):
            raise ValueError(f"{source}: a recording of histograms has no events")
        part = target.with_name(target.name + ".part")
        with make(part, target, device, **options) as writer:
            for block in device.unfold():
                is_event = block.channels != OVERFLOW
                kept = block if is_event.all() else block._where(is_event)
                markers += int((kept.channels >= FIRST_MARKER).sum())
                events += len(kept)
                writer.write(kept)
            notes = list(writer.finish(events))
        verdict = device.losses["verdict"]
        recording = device.losses.get("recording") or {"verdict": "clean"}
    if markers:
        notes.append(f"{markers} markers have the channel numbers 129 to 143")
    if "clean" != verdict or recording["verdict"] != "clean":
        notes.append(f"the recording is {recording['verdict']}: something is missing from it")
    return events, {}, notes


__all__ = ["Converted", "MOST_DTIME", "Time", "convert"]
