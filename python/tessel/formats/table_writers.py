"""Recordings as plain tables of events: NPZ, CSV, binary arrays, Parquet and Arrow."""

from __future__ import annotations

import json
import shutil
import zipfile
from pathlib import Path
from types import TracebackType
from typing import Any, Dict, List, Optional, Tuple, Type

import numpy as np

from ..blocks import Events
from ..device import Device
from ..results import optional_package
from .digits import rows_of_text

_npy: Any = np.lib.format  # without types of its own

_ROWS = 1 << 16  # rows that are written at a time, few enough for the caches


def _columns(events: Events) -> Dict[str, Any]:
    """The columns of a table: T2 times in ps; T3 the sync number and the dtime."""
    if events.mode == "T2":
        return {"times": events.times, "channels": events.channels}
    return {"times": events.syncs, "channels": events.channels, "dtimes": events.dtimes}


class _TableWriter:
    """What the writers of tables share. A target is there when it is whole."""

    def __init__(self, path: Path, target: Path, device: Device) -> None:
        self._path = path
        self._target = target
        self._units: Dict[str, Any] = {"mode": device.mode, "times": "ps"}
        if device.mode == "T3":
            self._units.update(times="sync number", sync_period_ps=device.sync_period)
            self._units.update(dtimes="resolution_ps", resolution_ps=device.dtime_width)
        self._kinds: Dict[str, Any] = {"times": np.uint64, "channels": np.uint8}
        if device.mode == "T3":
            self._kinds["dtimes"] = np.uint16
        self._open()

    def _open(self) -> None:
        raise NotImplementedError

    def _close(self, failed: bool) -> None:
        raise NotImplementedError

    def finish(self, events: int) -> List[str]:
        return ["device, header and overflow records aren't kept; the units are: " + json.dumps(self._units)]

    def __enter__(self) -> Any:
        return self

    def __exit__(
        self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        self._close(kind is not None)
        if kind is None:
            self._path.replace(self._target)
        else:
            self._path.unlink(missing_ok=True)


class CsvWriter(_TableWriter):
    """A line an event, below a comment with the units and a line of names."""

    def _open(self) -> None:
        self._file = self._path.open("wb")
        self._file.write(f"# {json.dumps(self._units)}\n{','.join(self._kinds)}\n".encode())

    def write(self, events: Events) -> None:
        columns = list(_columns(events).values())
        for start in range(0, len(events), _ROWS):
            self._file.write(rows_of_text([column[start : start + _ROWS] for column in columns]))

    def _close(self, failed: bool) -> None:
        self._file.close()


class BinaryWriter(_TableWriter):
    """``NAME.u64`` with the times, beside it ``NAME.channels.u8``, in T3 ``NAME.dtimes.u16``, and ``NAME.json`` with
    the units. Little endian, no headers."""

    def _open(self) -> None:
        beside = {"channels": ".channels.u8", "dtimes": ".dtimes.u16"}
        self._paths = {name: self._target.with_suffix(beside[name]) for name in self._kinds if name in beside}
        self._paths["times"] = self._path
        self._files = {name: path.open("wb") for name, path in self._paths.items()}

    def write(self, events: Events) -> None:
        for name, column in _columns(events).items():
            self._files[name].write(np.ascontiguousarray(column).data)

    def _close(self, failed: bool) -> None:
        for file in self._files.values():
            file.close()
        if failed:
            for path in self._paths.values():
                path.unlink(missing_ok=True)
            return
        self._target.with_suffix(".json").write_text(json.dumps(self._units))


class NpzWriter(_TableWriter):
    """Arrays ``times``, ``channels``, ``dtimes`` and ``json`` with the units. An NPZ file says lengths in front, so the
    arrays are collected in files beside it first."""

    def _open(self) -> None:
        self._parts = {name: self._path.with_suffix(f".{name}.part") for name in self._kinds}
        self._files = {name: path.open("wb") for name, path in self._parts.items()}
        self._count = 0

    def write(self, events: Events) -> None:
        self._count += len(events)
        for name, column in _columns(events).items():
            self._files[name].write(np.ascontiguousarray(column).data)

    def _close(self, failed: bool) -> None:
        for file in self._files.values():
            file.close()
        if not failed:
            with zipfile.ZipFile(self._path, "w", allowZip64=True) as archive:
                for name, part in self._parts.items():
                    with archive.open(f"{name}.npy", "w", force_zip64=True) as member, part.open("rb") as data:
                        _npy_header(member, (self._count,), np.dtype(self._kinds[name]))
                        shutil.copyfileobj(data, member, 1 << 20)
                with archive.open("json.npy", "w") as member:
                    _npy.write_array(member, np.array(json.dumps(self._units)))
        for part in self._parts.values():
            part.unlink(missing_ok=True)


def _npy_header(file: Any, shape: Tuple[int, ...], kind: Any) -> None:
    about = {"descr": _npy.dtype_to_descr(kind), "fortran_order": False, "shape": shape}
    _npy.write_array_header_1_0(file, about)


class ArrowWriter(_TableWriter):
    """Parquet, or an Arrow file, by the ending; needs pyarrow."""

    def _open(self) -> None:
        pyarrow = optional_package("pyarrow", f"writing {self._target.suffix}")
        units = {"tessel": json.dumps(self._units)}
        self._schema = pyarrow.schema(
            [(name, pyarrow.from_numpy_dtype(kind)) for name, kind in self._kinds.items()], metadata=units
        )
        if self._target.suffix == ".parquet":
            self._writer = optional_package("pyarrow.parquet", "Parquet").ParquetWriter(str(self._path), self._schema)
        else:
            self._writer = pyarrow.ipc.new_file(str(self._path), self._schema)

    def write(self, events: Events) -> None:
        pyarrow = optional_package("pyarrow", "Arrow")
        arrays = [pyarrow.array(column) for column in _columns(events).values()]
        self._writer.write_batch(pyarrow.record_batch(arrays, schema=self._schema))

    def _close(self, failed: bool) -> None:
        self._writer.close()
