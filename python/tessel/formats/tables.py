"""Plain tables of events, read: NPZ and NPY, CSV, binary arrays."""

from __future__ import annotations

import re
import warnings
import zipfile
from contextlib import ExitStack
from pathlib import Path
from typing import IO, Any, Dict, Iterator, Optional, Sequence, Tuple

import numpy as np

from ..units import Time, exact_picoseconds
from .digits import table_of
from .source import BLOCK, Block, Source

_npy: Any = np.lib.format  # without types of its own

_TEXT = 1 << 22  # bytes of text that are read at a time

# Names by which a column is found, where none is given.
_NAMES = {
    "times": ("times", "time", "timestamps", "timestamp", "time_ps", "sync", "syncs", "macrotimes"),
    "channels": ("channels", "channel", "detectors", "detector"),
    "dtimes": ("dtimes", "dtime", "nanotimes", "nanotime", "microtimes", "microtime"),
}


def _source(
    path: Path, blocks: Any, is_t3: bool, time_unit: Time, sync_period: Optional[Time], resolution: Optional[Time]
) -> Source:
    if not is_t3:
        return Source(str(path), blocks, exact_picoseconds(time_unit, "time_unit"))
    if sync_period is None or resolution is None:
        raise ValueError(f"{path}: has dtimes; sync_period and resolution are wanted")
    return Source(str(path), blocks, exact_picoseconds(sync_period, "sync_period"), exact_picoseconds(resolution, "resolution"))


def _chosen(there: Sequence[str], given: Dict[str, Optional[str]], path: Path) -> Dict[str, str]:
    """Which name is the times, the channels, the dtimes. Only dtimes may be missing."""
    chosen = {}
    for what, name in given.items():
        if name is not None and name not in there:
            raise ValueError(f"{path}: there is no {name!r}, but {', '.join(there)}")
        found = name or next((each for each in _NAMES[what] if each in there), None)
        if found is not None:
            chosen[what] = found
        elif what != "dtimes":
            raise ValueError(f"{path}: which of {', '.join(there)} are the {what}? {what}=NAME says it")
    return chosen


class _Member:
    """An array of an NPZ file, or an NPY file, read from front to back."""

    def __init__(self, file: IO[bytes], name: str) -> None:
        version = _npy.read_magic(file)
        header = _npy.read_array_header_1_0 if version == (1, 0) else _npy.read_array_header_2_0
        shape, _, self.dtype = header(file)
        if len(shape) != 1 or self.dtype.kind not in "ui":
            raise ValueError(f"{name}: a row of integers is wanted, not {shape} of {self.dtype}")
        self.left = int(shape[0])
        self._file = file

    def take(self, count: int) -> Any:
        count = min(count, self.left)
        self.left -= count
        data = self._file.read(count * self.dtype.itemsize)
        if len(data) != count * self.dtype.itemsize:
            raise ValueError("the file is cut short")
        return np.frombuffer(data, self.dtype)


def _rows(members: Dict[str, _Member], path: Path) -> Iterator[Block]:
    lengths = {name: member.left for name, member in members.items()}
    if len(set(lengths.values())) != 1:
        raise ValueError(f"{path}: arrays of different length, {lengths}")
    while members["times"].left:
        parts = {name: member.take(BLOCK) for name, member in members.items()}
        yield Block(parts["times"], parts["channels"], parts.get("dtimes"))


def read_npz(
    path: Path,
    times: Optional[str] = None,
    channels: Optional[str] = None,
    dtimes: Optional[str] = None,
    time_unit: Time = 1,
    sync_period: Optional[Time] = None,
    resolution: Optional[Time] = None,
) -> Source:
    """Arrays of an NPZ file, compressed or not."""
    with zipfile.ZipFile(path) as archive:
        there = [each[:-4] for each in archive.namelist() if each.endswith(".npy")]
    names = _chosen(there, {"times": times, "channels": channels, "dtimes": dtimes}, path)

    def blocks() -> Iterator[Block]:
        with ExitStack() as stack:
            archive = stack.enter_context(zipfile.ZipFile(path))
            opened = {what: stack.enter_context(archive.open(f"{name}.npy")) for what, name in names.items()}
            yield from _rows({what: _Member(file, names[what]) for what, file in opened.items()}, path)

    return _source(path, blocks, "dtimes" in names, time_unit, sync_period, resolution)


def read_npy(
    path: Path,
    channels: str = "",
    dtimes: Optional[str] = None,
    time_unit: Time = 1,
    sync_period: Optional[Time] = None,
    resolution: Optional[Time] = None,
) -> Source:
    """An NPY file of times, with others of channels and dtimes."""
    files = _files(path, channels, dtimes)

    def blocks() -> Iterator[Block]:
        with ExitStack() as stack:
            opened = {what: stack.enter_context(file.open("rb")) for what, file in files.items()}
            yield from _rows({what: _Member(file, str(files[what])) for what, file in opened.items()}, path)

    return _source(path, blocks, dtimes is not None, time_unit, sync_period, resolution)


def _other(path: Path, name: str, what: str) -> Path:
    """A file that is named from here, or beside the times."""
    found = next((each for each in (Path(name), path.parent / name) if name and each.is_file()), None)
    if found is None:
        raise ValueError(f"{path}: {what}=FILE with the {what} is wanted{f', there is no {name}' if name else ''}")
    return found


def _files(path: Path, channels: str, dtimes: Optional[str]) -> Dict[str, Path]:
    """What each file of a recording holds."""
    files = {"times": path, "channels": _other(path, channels, "channels")}
    if dtimes is not None:
        files["dtimes"] = _other(path, dtimes, "dtimes")
    return files


def _dtype(path: Path) -> Any:
    match = re.fullmatch(r"\.([uif])(8|16|32|64)", path.suffix)
    if not match:
        raise ValueError(f"{path}: the ending says the type of the numbers: .u8, .u16, .u32, .u64, .i64, ...")
    return np.dtype(f"<{match.group(1)}{int(match.group(2)) // 8}")


def read_binary(
    path: Path,
    channels: str = "",
    dtimes: Optional[str] = None,
    time_unit: Time = 1,
    sync_period: Optional[Time] = None,
    resolution: Optional[Time] = None,
) -> Source:
    """Files of numbers without a header, little endian; the type is the ending, as in ``timestamps.u64``."""
    files = _files(path, channels, dtimes)
    kinds = {what: _dtype(file) for what, file in files.items()}
    sizes = {str(file): file.stat().st_size // kinds[what].itemsize for what, file in files.items()}
    if len(set(sizes.values())) != 1:
        raise ValueError(f"{path}: files of different length, {sizes}")

    def blocks() -> Iterator[Block]:
        with ExitStack() as stack:
            opened = {what: stack.enter_context(file.open("rb")) for what, file in files.items()}
            while True:
                parts = {what: np.fromfile(file, kinds[what], BLOCK) for what, file in opened.items()}
                if not len(parts["times"]):
                    return
                yield Block(parts["times"], parts["channels"], parts.get("dtimes"))

    return _source(path, blocks, dtimes is not None, time_unit, sync_period, resolution)


def read_csv(
    path: Path,
    times: Optional[str] = None,
    channels: Optional[str] = None,
    dtimes: Optional[str] = None,
    time_unit: Time = 1,
    sync_period: Optional[Time] = None,
    resolution: Optional[Time] = None,
    delimiter: str = ",",
) -> Source:
    """Columns of whole numbers; the first line that isn't a comment (#) names them."""
    with path.open("rb") as file:
        start, header = _header(file)
    there = [each.strip() for each in header.split(delimiter)]
    names = _chosen(there, {"times": times, "channels": channels, "dtimes": dtimes}, path)
    columns = [there.index(name) for name in names.values()]

    def blocks() -> Iterator[Block]:
        with path.open("rb") as file:
            file.seek(start)
            while text := file.read(_TEXT):
                text += file.readline()
                numbers = table_of(text, delimiter, len(there))
                table = _odd_lines(path, text, delimiter, columns) if numbers is None else numbers[:, columns]
                of = dict(zip(names, table.T))
                yield Block(of["times"], of["channels"], of.get("dtimes"))

    return _source(path, blocks, "dtimes" in names, time_unit, sync_period, resolution)


def _header(file: IO[bytes]) -> Tuple[int, str]:
    """The line of names, and where the one below it begins."""
    for line in iter(file.readline, b""):
        if line.strip() and not line.startswith(b"#"):
            return file.tell(), line.decode("utf-8-sig", "replace")
    return file.tell(), ""


def _odd_lines(path: Path, text: bytes, delimiter: str, columns: Sequence[int]) -> Any:
    """Lines among which there are comments, empty ones, columns of other things, or faulty ones, of which the error
    speaks."""
    lines = [line for line in text.decode("utf-8", "replace").splitlines() if line.strip() and not line.startswith("#")]
    if not lines:
        return np.zeros((0, len(columns)), np.int64)
    try:
        with warnings.catch_warnings():
            warnings.simplefilter("error")  # some versions cut 1.5 to 1, with a warning
            return np.loadtxt(lines, np.int64, delimiter=delimiter, usecols=columns, ndmin=2)
    except (ValueError, IndexError, Warning) as problem:
        raise ValueError(f"{path}: {problem}") from None
