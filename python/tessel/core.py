"""What every device has: its state, its settings, its life, and how a run on it begins and ends."""

from __future__ import annotations

import ctypes
import dataclasses
import os
import threading
import time
from pathlib import Path
from types import TracebackType
from typing import Any, Callable, Dict, Optional, Tuple, Type, TypeVar, Union

import numpy as np

from . import _library, capi
from ._library import Memory
from .chain import Chain
from .errors import DeviceError, RunError, SettingError, TesselError
from .results import PathLike, Result, RunInfo
from .run import Run, nothing_held
from .settings import Input, Inputs, Settings, Sync
from ._version import VERSION
from .units import Time, milliseconds

R = TypeVar("R", bound=Result)
C = TypeVar("C", bound="Core")

_NO_INDEX = 0xFFFFFFFF
_KINDS = {"histogram": 8, "trace": 4, "correlation": 16, "hist2d": 64}


class Core:
    """A device without its measurements; ``Device`` documents the attributes."""

    def __init__(
        self,
        device_id: str,
        path: Optional[Path],
        folder: Any = None,
        tags: Optional[Dict[str, Any]] = None,
        host: Optional[str] = None,
    ) -> None:
        # Made by open(), which counted a user of the library for it, and read the header of a recording.
        self.id = device_id
        self.path = path
        self._folder = folder
        self._wide = capi.wide(device_id)
        self._closed = False
        self._run: Optional[Run[Any]] = None
        self._tags = tags
        self._host = host
        self.settings = Settings(self)
        self.inputs = Inputs(self.settings)
        self.sync = Sync(self.settings)
        self.chain = Chain(self)

    # ------------------------------------------------------------------------------------- what the device is

    @property
    def is_file(self) -> bool:
        """The device is a recording."""
        return self.path is not None

    @property
    def is_remote(self) -> bool:
        """The device is an instrument of another computer."""
        return self._host is not None

    @property
    def config(self) -> Dict[str, Any]:
        """Model, channels, mode, resolution and all parameters, as ``getDeviceConfig`` gives them."""
        config: Dict[str, Any] = self._text(capi.TEXT_DEVICE)
        if self.path is not None:
            config["FileDevicePath"] = str(self.path)
        return config

    @property
    def description(self) -> Dict[str, Any]:
        """The run that goes on, or else the last one, as ``getMeasDescription`` gives it."""
        description: Dict[str, Any] = self._text(capi.TEXT_DESCRIPTION)
        return description

    @property
    def losses(self) -> Dict[str, Any]:
        """The ledger of the run that goes on, or else of the last one: verdict, and what was lost by place."""
        losses: Dict[str, Any] = self._text(capi.TEXT_LOSSES)
        return losses

    @property
    def mode(self) -> str:
        """``"T2"``, ``"T3"``, or ``"histogram"`` where the instrument counts by itself."""
        return {2: "T2", 3: "T3"}.get(self.config["MeasMode"], "histogram")

    @property
    def num_inputs(self) -> int:
        """Number of inputs, without the sync."""
        return int(self.config["NumChans"])

    @property
    def resolution(self) -> int:
        """Width of a dtime (T3), or unit of a time (T2), ps; of a recording the whole ps that a replay goes by."""
        config = self.config
        return int(round(config["BaseResolution"] if config["MeasMode"] == 2 else config["Resolution"]))

    @property
    def dtime_width(self) -> float:
        """T3: width of a dtime, ps, with the fraction that a recording of another program may have."""
        made = self._header_ps("MeasDesc_Resolution")
        return self.resolution if made in (0, self.resolution) else made

    @property
    def sync_period(self) -> float:
        """Period of the sync, ps; 0 where there is none."""
        if self.is_file:
            rate = float(self.description["AveSyncRate"])
            made = self._header_ps("MeasDesc_GlobalResolution") if self.mode == "T3" else 0.0
            return made or (1e12 / rate if rate > 0 else 0.0)
        rate = float(self.rates[0])
        return 1e12 / rate if rate > 0 else 0.0

    def _header_ps(self, tag: str) -> float:
        """A tag of a recording that is in seconds; 0 without it."""
        found = [each["value"] for each in self.tags["tags"] if each["name"] == tag] if self.is_file else []
        # What a double of seconds adds after the 15th digit wasn't meant.
        return float(f"{found[0] * 1e12:.15g}") if found and isinstance(found[0], float) else 0.0

    @property
    def rates(self) -> Tuple[int, ...]:
        """Counts per second now: of the sync, then of each input. Of a recording those that it was made with."""
        with _library.lock:
            sync = ctypes.c_int32()
            rates = np.zeros(64, np.int32)
            self._select()
            count = capi.getCountRates(ctypes.byref(sync), rates)
        return (sync.value, *(int(each) for each in rates[:count]))

    @property
    def channels(self) -> Tuple[str, ...]:
        """Name of each row of a result: the sync, the inputs, the channels of the chain."""
        names = ["Sync"]
        for number, each in enumerate(self.config["ChansCfg"], start=1):
            names.append(each.get("Name") or f"Channel {number}")
        return (*names, *self.chain.channel_names())

    @property
    def tags(self) -> Dict[str, Any]:
        """Header of the recording: ``tags`` with name, index, type and value, version, size."""
        if self._tags is None:
            raise DeviceError(f"{self.id}: an instrument has no header")
        return self._tags

    @property
    def records(self) -> int:
        """Records of the recording, overflows included; 0 for an instrument."""
        if self.path is None:
            return 0
        return max(0, int(self.tags["fileSize"]) - int(self.tags["dataStart"])) // 4

    # ---------------------------------------------------------------------------------------------- its life

    def close(self) -> None:
        """Stops a run, waits for its end, and closes the device. Its results stay."""
        if self._closed or not _library.is_used():
            return
        try:
            self._end_run()
        finally:
            self._closed = True
            self._run = None  # its handle, if anybody holds it, has the result
            with _library.lock:
                capi.getNumAllChans(self._wide)
                capi.closeDevice(0)
            _library.leave()
            if self._folder is not None:
                self._folder.cleanup()

    def __enter__(self: C) -> C:
        self._check_open()
        return self

    def __exit__(
        self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        self.close()

    def __del__(self) -> None:
        # Anywhere, also between two calls that belong together: another thread waits until these are done.
        # At the end of the process there is none, and the library has ended.
        if not getattr(self, "_closed", True) and _library.is_used():
            threading.Thread(target=self.close).start()

    def __repr__(self) -> str:
        if self._closed:
            return f"<Device {self.id}: closed>"
        return f"<Device {self.id}: {self.config['Model']}, {self.mode}, {self.num_inputs} inputs>"

    # -------------------------------------------------------------------------------- what measurements share

    def _begin(
        self,
        kind: str,
        parameters: Dict[str, Any],
        memory: Memory,
        start: Callable[[Memory, int, int], None],
        build: Callable[[RunInfo], R],
        duration: Optional[Time],
        record: Optional[PathLike],
    ) -> Run[R]:
        ms = 0 if duration is None else milliseconds(duration)
        if self._host is not None:
            raise DeviceError(f"{self.id}: events stay at the computer that serves it; start() begins a measurement there")
        self._end_run()
        with _library.lock:
            self._check_open()
            path = None if record is None else self._new_recording(record)
            info = RunInfo(
                source=str(self.path or self.id),
                parameters={"kind": kind, "duration_ms": ms, **parameters},
                config=self.config,
                description=self.description,
                chain=self.chain.stages,
                channels=self.channels,
                recorded=path,
                version=VERSION,
            )
            run = Run(self, memory, build, info, ms)
            self._run = run
            _library.start_writing(memory, lambda: start(memory, ms, 0 if path is None else 1))
            why = _library.last_error()
        if why:
            self._end_run()
            raise RunError(f"{info.source}: {why}", run.result)
        return run

    def _end_run(self) -> None:
        run = self._run
        if run is None or self._closed:
            return
        run.stop()
        while not run.done:
            if not run._drain():
                time.sleep(0.001)
        run._drain = nothing_held  # with it goes the memory of its blocks
        run.result  # takes what the library says of this run while it is the last one

    def _info_of_run(self, info: RunInfo, running: bool, stopped: bool, before: Dict[str, Any]) -> RunInfo:
        description = self.description
        ledger = self.losses
        if running:
            complete = False
        elif self.is_file:
            complete = int(description["NumRecs"]) == self.records and not stopped
        else:
            endless = info.parameters["duration_ms"] == 0
            complete = description["StopReason"] in ("TimeOver", "OverFlow") or (endless and stopped)
        return dataclasses.replace(
            info,
            description=description,
            losses=ledger["losses"],
            verdict=ledger["verdict"],
            order=ledger.get("order", {}),
            recording=ledger["recording"],
            complete=complete,
            running=running,
        )

    def _new_recording(self, record: PathLike) -> str:
        if self.is_file:
            raise ValueError("record: an instrument's stream is recorded, a recording isn't")
        path = Path(record).absolute()
        if path.suffix != ".tgx" or "\\" in str(path):
            raise ValueError(f"{path}: the name of a recording ends in .tgx and has no backslash")
        if path.exists() or path.with_suffix(".losses.json").exists():
            raise FileExistsError(f"{path}: is there already")
        if not os.access(path.parent, os.W_OK | os.X_OK):
            raise PermissionError(f"{path.parent}: no file can be made here")
        self._select()
        capi.setTGXFilePath(os.fsencode(path))
        return str(path)

    def _length_ps(self) -> int:
        """How long the recording is: as its header says, or, if it doesn't, by a look at all of its records."""
        ms = float(self.description["StopAfter"])
        return int((ms if ms > 0 else self._read_ms()) * 1e9)

    def _read_ms(self) -> float:
        """How long the recording is, by a look at all of its records."""
        return float(_library.file_text(capi.tessel_verifyFile, self._known_path())["durationMs"] or 0.0)

    def _shape(self, kind: str) -> Tuple[int, int]:
        rows, columns = ctypes.c_uint64(), ctypes.c_uint64()
        ok = self._call("tessel_getResultShape", _KINDS[kind], ctypes.byref(rows), ctypes.byref(columns), None)
        if not ok:
            raise ValueError(_library.with_reason(f"{kind}: no run of this device has such a result, or it is too big"))
        return rows.value, columns.value

    def _check_channel(self, channel: int, what: str) -> None:
        rows = self._call("getNumAllChans")
        if isinstance(channel, float):
            raise TypeError(f"{what}: a channel is a whole number, not {channel!r}")
        if not 0 <= channel < rows:
            raise ValueError(f"{what}: channels go from 0 (sync) to {rows - 1}, not {channel}")

    # --------------------------------------------------------------------------- what else a device can be told

    def tag(self, **values: Union[bool, int, float, str, None]) -> None:
        """Adds tags to the header of what this device records; they stay until ``clear_tags``.

        Parameters
        ----------
        **values
            Name, of at most 31 bytes, and value of each.
        """
        kinds = {bool: "addBoolTag", int: "addIntTag", float: "addDblTag"}
        with _library.lock:
            self._select()
            for name, value in values.items():
                if value is None:
                    capi.addEmptyTag(name.encode(), _NO_INDEX)
                elif isinstance(value, str):
                    capi.addStringTag(name.encode(), value.encode(), _NO_INDEX)
                else:
                    getattr(capi, kinds[type(value)])(name.encode(), value, _NO_INDEX)

    def clear_tags(self) -> None:
        """Removes the tags that ``tag`` added."""
        with _library.lock:
            self._select()
            capi.clearTags()

    def clear(self) -> None:
        """Sets the result of the run that goes on to 0."""
        self._call("clearMeasure")

    def load_ini(self, path: PathLike) -> None:
        """Sets the parameters of an INI file (docs/ini.md) on an instrument.

        Raises
        ------
        SettingError
            The last parameter wasn't set, or the file can't be read.
        """
        with _library.lock:
            self._select()
            if not capi.loadIniConfig(os.fsencode(path)):
                raise SettingError(_library.with_reason(f"{path}: not all was set"))

    def serve(self, address: str = "127.0.0.1", port: int = 55000) -> None:
        """Serves the instrument to other computers, until ``stop_serving`` or ``close``. Whoever reaches the port
        reads its configuration and starts its measurement: there is no authentication.

        Raises
        ------
        DeviceError
            The address and port can't be had.
        """
        if not self._call("tessel_serve", address.encode(), port):
            raise DeviceError(_library.with_reason(f"{self.id}: can't be served at {address}, port {port}"))

    def start(self, duration: Time) -> None:
        """Starts a measurement of an instrument of another computer, and returns when that has read the command; its
        own log says whether the instrument has started.

        Parameters
        ----------
        duration : time
            Whole ms.

        Raises
        ------
        DeviceError
            It isn't such an instrument, or is no longer reached.
        """
        if self._host is None:
            raise DeviceError(f"{self.id}: is here; a measurement starts it")
        ended, count = np.zeros(1, np.uint8), np.zeros(1, np.uint64)
        with _library.lock:
            self._call("rawMeasure", milliseconds(duration), 1, 0, None, count, 0, ended)
            why = _library.last_error()
            if why:
                raise DeviceError(f"{self.id}: {why}")
            _library.connect(self._host)

    def stop_serving(self) -> None:
        """Closes the port and every connection to it."""
        self._call("tessel_stopServing")

    # ------------------------------------------------------------------------------------------ to the library

    def _check_open(self) -> None:
        if self._closed:
            raise DeviceError(f"{self.id}: the device is closed")
        _library.check_used()

    def _call(self, name: str, *arguments: Any) -> Any:
        """A function whose first argument is the id."""
        with _library.lock:
            self._check_open()
            return getattr(capi, name)(self._wide, *arguments)

    def _set(self, name: str, *arguments: Any) -> None:
        if self._call(name, *arguments) is False:
            raise TesselError(_library.with_reason(f"{self.id}: {name} was refused"))

    def _select(self) -> None:
        """Makes this the current device; the lock is held."""
        self._check_open()
        capi.getNumAllChans(self._wide)

    def _text(self, which: int) -> Any:
        with _library.lock:
            self._check_open()
            return _library.text_of(which, self._wide)

    def _stop(self) -> None:
        if not self._closed:
            self._call("stopMeasure")

    def _known_path(self) -> str:
        return str(self.path) if self._folder is None else str(next(Path(self._folder.name).glob("*.tgx")))
