"""Photon-HDF5, version 0.5: an open container of photon time stamps.

A T3 recording has ``timestamps`` in sync periods and ``nanotimes``; a T2 recording ``timestamps`` alone. ``detectors``
are the channel numbers of the recording, markers among them. What the format has no field for is in ``/user/tessel``:
device, last run, ledger and header tags as JSON, and that detectors are channel numbers, so that a file goes back into
the same recording.
"""

from __future__ import annotations

import datetime
import json
import math
from pathlib import Path
from types import TracebackType
from typing import Any, Dict, Iterator, List, Optional, Sequence, Type

import numpy as np

from .._version import VERSION
from ..blocks import Events
from ..device import Device
from ..results import optional_package
from .source import BLOCK, Block, Source

FORMAT, FORMAT_VERSION = "Photon-HDF5", "0.5"
FORMAT_URL = "http://photon-hdf5.org/"
_GROWS = 1 << 18  # events of a chunk of the file


def _hdf5() -> Any:
    return optional_package("h5py", "Photon-HDF5")


def _text(value: Any) -> str:
    value = value[()] if hasattr(value, "shape") else value
    if isinstance(value, np.ndarray):
        value = value.ravel()[0] if value.size else b""
    return value.decode("utf-8", "replace") if isinstance(value, bytes) else str(value)


def _scalar(group: Any, name: str) -> Optional[float]:
    return float(np.ravel(group[name][()])[0]) if name in group else None


def read(path: Path, spot: Optional[int] = None) -> Source:
    """A Photon-HDF5 file as a source of events.

    Parameters
    ----------
    path : pathlib.Path
        The file.
    spot : int, optional
        Which of several ``/photon_dataN``.

    Returns
    -------
    Source

    Raises
    ------
    ValueError
        It is no such file, lacks a field that a recording needs, or has several spots and none was chosen.
    """
    h5py = _hdf5()
    try:
        file = h5py.File(path, "r")
    except OSError as problem:
        raise ValueError(f"{path}: can't be read as HDF5 ({problem})") from None
    with file:
        name = _group_name(file, path, spot)
        group = file[name]
        for field in ("timestamps", "timestamps_specs/timestamps_unit"):
            if field not in group:
                raise ValueError(f"{path}: /{name}/{field} is missing")
        unit = _scalar(group, "timestamps_specs/timestamps_unit") or 0.0
        if not 0 < unit < math.inf:
            raise ValueError(f"{path}: timestamps_unit is {unit} s")
        width = _scalar(group, "nanotimes_specs/tcspc_unit") if "nanotimes" in group else None
        if "nanotimes" in group and (width is None or not 0 < width < 1):
            raise ValueError(f"{path}: /{name}/nanotimes has no tcspc_unit")
        sizes = {field: len(group[field]) for field in ("timestamps", "detectors", "nanotimes") if field in group}
        if len(set(sizes.values())) > 1:
            raise ValueError(f"{path}: arrays of different length, {sizes}")
        is_ours = "user/tessel" in file and bool(file["user/tessel"].attrs.get("detectors_are_channels", False))
        source = Source(
            str(path),
            lambda: _blocks(path, name),
            tick_ps=_clean(unit * 1e12),
            resolution_ps=None if width is None else _clean(width * 1e12),
            codes=is_ours,
            comment=_text(file["description"]) if "description" in file else "",
        )
        known = {"photon_data", "setup", "identity", "provenance", "user", "acquisition_duration", "description"}
        left = sorted(each for each in file if each not in known and each != name)
        if left:
            source.notes.append(f"not kept: {', '.join('/' + each for each in left)}")
        if not is_ours:
            there = [each for each in ("setup", "identity", "provenance", "user") if each in file]
            specs = [f"{name}/measurement_specs"] if "measurement_specs" in group else []
            if there + specs:
                source.notes.append(f"not kept: {', '.join('/' + each for each in there + specs)}")
    return source


def _clean(ps: float) -> float:
    """Seconds as floats miss whole picoseconds by a rounding."""
    return float(round(ps)) if round(ps) >= 1 and abs(ps - round(ps)) < 1e-9 * ps else ps


def _group_name(file: Any, path: Path, spot: Optional[int]) -> str:
    spots = sorted((each for each in file if each.startswith("photon_data")), key=lambda each: (len(each), each))
    if not spots:
        raise ValueError(f"{path}: not a Photon-HDF5 file, it has no /photon_data")
    if spot is not None:
        name = f"photon_data{spot}"
        if name not in spots:
            raise ValueError(f"{path}: there is no /{name}, but {', '.join(spots)}")
        return name
    if len(spots) > 1:
        raise ValueError(f"{path}: several spots, {', '.join(spots)}; spot=0 chooses one")
    return str(spots[0])


def _blocks(path: Path, name: str) -> Iterator[Block]:
    with _hdf5().File(path, "r") as file:
        group = file[name]
        stamps, detectors, fine = (group.get(field) for field in ("timestamps", "detectors", "nanotimes"))
        for start in range(0, len(stamps), BLOCK):
            part = slice(start, start + BLOCK)
            times = stamps[part]
            channels = np.zeros(len(times), np.uint8) if detectors is None else detectors[part]
            yield Block(times, channels, None if fine is None else fine[part])


class Writer:
    """Writes the events of a recording as they come."""

    def __init__(
        self,
        path: Path,
        target: Path,
        device: Device,
        *,
        description: str = "",
        author: str = "",
        measurement_type: str = "generic",
        excitation_wavelengths: Optional[Sequence[float]] = None,
        compression: Optional[str] = None,
    ) -> None:
        if device.path is None:
            raise ValueError("a recording is converted")
        if device.mode == "T3" and not device.sync_period:
            raise ValueError(f"{device.path}: has no sync period, which is the unit of the time stamps")
        self._file = _hdf5().File(path, "w")
        self._device = device
        self._is_t3 = device.mode == "T3"
        self._resolution = device.dtime_width if self._is_t3 else device.resolution
        # The unit of a time stamp, s.
        self._unit = device.sync_period * 1e-12 if self._is_t3 else self._resolution * 1e-12
        self._most_dtime = -1
        self._last = 0
        self._target = target
        self._notes: List[str] = []
        self._wavelengths = excitation_wavelengths
        self._about = {"author": author, "measurement_type": measurement_type}
        self._describe(description)
        group = self._file.create_group("photon_data")
        kinds: Dict[str, Any] = {"timestamps": np.int64, "detectors": np.uint8}
        if self._is_t3:
            kinds["nanotimes"] = np.uint16
        self._arrays = {
            name: group.create_dataset(
                name, (0,), kind, maxshape=(None,), chunks=(_GROWS,), compression=compression
            )
            for name, kind in kinds.items()
        }

    def write(self, events: Events) -> None:
        if not len(events):
            return
        columns: Dict[str, Any] = {"detectors": events.channels}
        if self._is_t3:
            columns.update(timestamps=events.syncs.view(np.int64), nanotimes=events.dtimes)
            self._most_dtime = max(self._most_dtime, int(columns["nanotimes"].max()))
        else:
            columns["timestamps"] = (events.times // np.uint64(self._resolution)).view(np.int64)
        self._last = int(columns["timestamps"][-1])
        for name, column in columns.items():
            array = self._arrays[name]
            size = len(array)
            array.resize(size + len(column), axis=0)
            array[size:] = column

    def finish(self, events: int) -> List[str]:
        """Writes what is known at the end, and says what wasn't kept."""
        group = self._file["photon_data"]
        group.create_dataset("timestamps_specs/timestamps_unit", data=self._unit)
        self._file.create_dataset("acquisition_duration", data=self._last * self._unit)
        specs = group.create_group("measurement_specs")
        specs["measurement_type"] = self._about["measurement_type"]
        inputs = np.arange(1, self._device.num_inputs + 1, dtype=np.uint8)
        specs.create_group("detectors_specs").create_dataset("spectral_ch1", data=inputs)
        if self._is_t3:
            period = self._device.sync_period
            bins = max(self._most_dtime + 1, math.ceil(period / self._resolution))
            width = self._resolution * 1e-12
            nano = group.create_group("nanotimes_specs")
            for name, value in (("tcspc_unit", width), ("tcspc_range", bins * width), ("tcspc_num_bins", bins)):
                nano.create_dataset(name, data=value)
            specs.create_dataset("laser_repetition_rate", data=1e12 / period)
        self._setup()
        notes = list(self._notes)
        notes.append("overflow records aren't kept: the times have them in them")
        return notes

    def _describe(self, description: str) -> None:
        device, file = self._device, self._file
        now = datetime.datetime.now().strftime("%Y-%m-%d %H:%M:%S")
        tags = {each["name"]: each["value"] for each in device.tags["tags"] if each["idx"] < 0}
        file.attrs["format_name"], file.attrs["format_version"] = FORMAT, FORMAT_VERSION
        about = str(device.config.get("Comment") or "") or f"{device.mode} recording {Path(str(device.path)).name}"
        file["description"] = description or f"{about}. Detectors are the inputs from 1, 129 to 143 are markers."
        identity = {"software": "Tessel", "software_version": VERSION, "creation_time": now}
        identity.update(format_name=FORMAT, format_version=FORMAT_VERSION, format_url=FORMAT_URL)
        identity.update(filename=self._target.name, author=self._about["author"])
        origin = {"filename": str(device.path), "software": str(tags.get("CreatorSW_Name", ""))}
        origin["creation_time"] = str(tags.get("File_CreatingTime", "")).replace("T", " ")[:19]
        for name, fields in (("identity", identity), ("provenance", origin)):
            for key, value in fields.items():
                if value:
                    file[f"{name}/{key}"] = value
        own = file.create_group("user/tessel")
        own.attrs["detectors_are_channels"] = True
        for key, what in (("config", device.config), ("description", device.description), ("tags", device.tags["tags"])):
            own[key] = json.dumps(what)
        own["losses"] = json.dumps(device.losses)

    def _setup(self) -> None:
        if self._wavelengths is None:
            self._notes.append("/setup is left out: excitation_wavelengths=[...] (m) writes it")
            return
        setup = self._file.create_group("setup")
        waves = np.array(sorted(self._wavelengths), np.float64)
        for name in ("num_pixels", "num_spots", "num_spectral_ch", "num_polarization_ch", "num_split_ch"):
            setup.create_dataset(name, data=self._device.num_inputs if name == "num_pixels" else 1)
        setup.create_dataset("modulated_excitation", data=False)
        setup.create_dataset("lifetime", data=self._is_t3)
        setup.create_dataset("excitation_wavelengths", data=waves)
        setup.create_dataset("excitation_cw", data=np.full(len(waves), not self._is_t3))

    def __enter__(self) -> "Writer":
        return self

    def __exit__(
        self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        path = Path(self._file.filename)
        self._file.close()
        if kind is None:
            path.replace(self._target)
        else:
            path.unlink()
