"""Finding and opening devices; the simulated instruments; the program, which simulates recordings."""

from __future__ import annotations

import atexit
import ctypes
import json
import os
import tempfile
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Dict, Iterable, List, Optional, Tuple, Union

from . import _library, capi
from .device import Device
from .errors import DeviceError, LibraryMissing, TesselError
from .results import PathLike

Simulated = Union[bool, PathLike, Dict[str, Any]]

_MODES = {"histogram": 0, "t2": 2, "t3": 3}
_IDS = 8192  # bytes that hold any id


@dataclass(frozen=True)
class DeviceInfo:
    """An instrument that was found.

    Attributes
    ----------
    id : str
        Its serial number, as ``open`` takes it.
    model : str
        Empty until it has been opened.
    num_inputs : int
        0 until it has been initialised.
    busy : bool
        Another program has it.
    """

    id: str
    model: str
    num_inputs: int
    busy: bool


def _beside_library(*ways: str) -> Optional[Path]:
    folder = capi.path().parent
    for way in ways:
        if (folder / way).exists():
            return (folder / way).resolve()
    return None


def program() -> Path:
    """The ``tessel`` program: ``TESSEL_PROGRAM``, beside the library, or on the path.

    Returns
    -------
    pathlib.Path

    Raises
    ------
    LibraryMissing
        It isn't there.
    """
    named = os.environ.get("TESSEL_PROGRAM")
    found = Path(named) if named else _beside_library("../bin/tessel", "../../bin/tessel", "cli/tessel")
    if found is None:
        import shutil  # here and below, since they take long

        on_path = shutil.which("tessel")
        found = Path(on_path) if on_path else None
    if found is None or not os.access(found, os.X_OK):
        raise LibraryMissing(f"the tessel program isn't found ({found or 'set TESSEL_PROGRAM'})")
    return found


def _use_simulated(simulated: Simulated) -> None:
    """Makes this process look for simulated instruments, as ``tessel --sim`` does; for the rest of its life, since a
    library of instruments stays loaded."""
    folder = _beside_library("tessel/instruments", "sim/instruments")
    if folder is None:
        raise LibraryMissing(f"there are no simulated instruments beside {capi.path()}")
    os.environ["TESSEL_INSTRUMENT_PATH"] = str(folder)
    if isinstance(simulated, dict):
        with tempfile.NamedTemporaryFile("w", prefix="tessel-", suffix=".json", delete=False) as file:
            json.dump(simulated, file)
        atexit.register(os.unlink, file.name)  # the instruments look at it again whenever they are opened
        os.environ["TESSEL_SIM_INSTRUMENTS"] = file.name
    elif not isinstance(simulated, bool):
        if not Path(simulated).is_file():
            raise FileNotFoundError(f"{simulated}: no such description of instruments")
        os.environ["TESSEL_SIM_INSTRUMENTS"] = str(Path(simulated).absolute())


def _scan() -> List[str]:
    """Ids of the instruments; the library is in use, the lock held."""
    buffer = ctypes.create_string_buffer(_IDS)
    capi.getDeviceIDs(buffer)  # a list that is too long is asked for below
    error = _library.last_error()
    ids = [each for each in _library.text_of(capi.TEXT_DEVICE_IDS) if _config(each)["DeviceType"] == 0]
    if not ids and error:
        raise DeviceError(error)
    return ids


def _served(host: str) -> List[str]:
    """Ids of the instruments that another computer serves; the library is in use, the lock held."""
    _library.connect(host)
    return [each for each in _library.text_of(capi.TEXT_DEVICE_IDS) if _config(each)["DeviceType"] == 2]


def _config(device_id: str) -> Dict[str, Any]:
    config: Dict[str, Any] = _library.text_of(capi.TEXT_DEVICE, capi.wide(device_id))
    return config


def devices(simulated: Simulated = False, *, host: Optional[str] = None) -> List[DeviceInfo]:
    """The instruments that there are; blocks while every port of every instrument library is looked at.

    Parameters
    ----------
    simulated : bool, path or dict
        Look for simulated ones: True the one that comes with the program, a path or a dict those that it describes
        (docs/simulated-instruments.md).
    host : str, optional
        Look at those that this computer serves (``tessel serve``): a name or address, with ``:PORT`` if it isn't 55000.

    Returns
    -------
    list of DeviceInfo

    Raises
    ------
    DeviceError
        A description is wrong, and the text says where; or the other computer can't be reached.
    """
    if simulated is not False:
        _use_simulated(simulated)
    with _library.lock:
        _library.use()
        try:
            found = [(each, _config(each)) for each in (_scan() if host is None else _served(host))]
        finally:
            _library.leave()
    return [
        DeviceInfo(each, config["Model"], int(config["NumChans"]), config["Error"] == -2 and not config["IsOpen"])
        for each, config in found
    ]


def open(  # noqa: A001 - tessel.open is meant to read like open
    name: Optional[PathLike] = None,
    *,
    mode: str = "t3",
    clock: int = 0,
    simulated: Simulated = False,
    host: Optional[str] = None,
    settings: Optional[PathLike] = None,
    log: bool = False,
) -> Device:
    """Opens a recording, or an instrument.

    Parameters
    ----------
    name : path or str, optional
        A recording (its name ends in .tgx, or there is such a file), else the id of an instrument; by default the
        first instrument that can be opened.
    mode : {"t3", "t2", "histogram"}
        Of an instrument; a recording keeps its own.
    clock : int
        Reference clock of an instrument: 0 internal, else the instrument's number.
    simulated : bool, path or dict
        Open a simulated instrument, see ``devices``.
    host : str, optional
        Open an instrument that this computer serves, see ``devices``. It can be looked at, its trigger levels set and a
        measurement started (``Device.start``); its events stay there.
    settings : path, optional
        Settings file of the library; counts for the first device that is open. Without it the library writes no log.
    log : bool
        Show the library's log on standard output; counts for the first device that is open.

    Returns
    -------
    Device
        Close it, or use it in a ``with`` block.

    Raises
    ------
    FileNotFoundError
        There is no such recording.
    DeviceError
        It can't be opened or initialised, or isn't a recording.

    Examples
    --------
    >>> with tessel.open("decay.tgx") as dev:
    ...     dev.mode, dev.num_inputs, dev.resolution
    ('T3', 2, 25)
    """
    if mode.lower() not in _MODES:
        raise ValueError(f"mode: one of {', '.join(_MODES)}, not {mode!r}")
    is_file = name is not None and simulated is False and host is None and (Path(name).suffix == ".tgx" or Path(name).is_file())
    if is_file and not Path(name or "").is_file():
        raise FileNotFoundError(f"{name}: no such recording")
    if simulated is not False:
        _use_simulated(simulated)
    _library.use(settings, log)
    try:
        with _library.lock:
            if is_file:
                return _open_file(Path(name or ""))
            if host is not None:
                return _open_served(None if name is None else os.fspath(name), host)
            return _open_instrument(None if name is None else os.fspath(name), _MODES[mode.lower()], clock)
    except BaseException:
        _library.leave()
        raise


def _open_file(path: Path) -> Device:
    absolute = path.absolute()
    text, folder = _plain_name(absolute)
    header = _library.file_text(capi.tessel_getFileTags, str(text))
    if not 0 < header["dataStart"] <= header["fileSize"]:
        raise DeviceError(f"{path}: isn't a recording (its header can't be read)")
    buffer = ctypes.create_string_buffer(_IDS)
    opened = capi.tessel_openFile(os.fsencode(text), buffer, len(buffer))
    why = _library.last_error()
    if why and opened:
        capi.closeDevice(0)
    if why or not opened:
        raise DeviceError(f"{path}: {why or 'can not be opened'}")
    return Device(buffer.value.decode(), absolute, folder, header)


def _plain_name(path: Path) -> Tuple[Path, Optional[Any]]:
    """The library takes a backslash for a separator, and a name as UTF-8. A name that it can't take gets another one
    by a link in a folder of its own, which is returned too."""
    try:
        if "\\" not in str(path) and str(path).encode("utf-8"):
            return path, None
    except UnicodeEncodeError:
        pass
    folder = tempfile.TemporaryDirectory(prefix="tessel-")
    link = Path(folder.name) / "recording.tgx"
    link.symlink_to(path)
    losses = path.with_suffix(".losses.json")
    if losses.exists():
        link.with_suffix(".losses.json").symlink_to(losses)
    return link, folder


def _open_instrument(wanted: Optional[str], mode: int, clock: int) -> Device:
    known = _scan()
    if wanted is not None and wanted not in known:
        raise DeviceError(f"{wanted}: no such recording or instrument (found: {', '.join(known) or 'none'})")
    if not known:
        missing = [each["file"] for each in _library.text_of(capi.TEXT_LIBRARIES) if not each["loaded"]]
        raise DeviceError(f"no instrument found; libraries not found: {', '.join(missing) or 'none'}")
    why = ""
    for each in known if wanted is None else [wanted]:
        buffer = ctypes.create_string_buffer(each.encode(), _IDS)
        if capi.getDevice(buffer):
            opened = buffer.value.decode()
            if not capi.initDevice(mode, clock):
                why = _library.with_reason(f"{opened}: can't be initialised")
                capi.getNumAllChans(capi.wide(opened))
                capi.closeDevice(0)
                raise DeviceError(why)
            return Device(opened, None)
        why = _library.with_reason(f"{each}: can't be opened")
    raise DeviceError(why)


def _open_served(wanted: Optional[str], host: str) -> Device:
    known = [each for each in _served(host) if int(_config(each)["Index"]) >= 0]
    if wanted is None and len(known) == 1:
        wanted = known[0]
    if wanted not in known or wanted is None:
        raise DeviceError(f"{host}: which instrument? It serves {', '.join(known) or 'none'}, not {wanted}")
    return Device(wanted, None, host=host)


def simulate(path: PathLike, *, overwrite: bool = False, **options: Any) -> Path:
    """Writes a recording of simulated light with known answers, by the ``tessel`` program.

    Parameters
    ----------
    path : path
        The recording to write (.tgx).
    overwrite : bool
        Replace a file that is there.
    **options
        Those of ``tessel simulate``, with underscores: ``mode="t2"``, ``light="antibunched"``, ``rate="300kcps"``,
        ``lifetime=["0.8ns", "1.6ns"]``, ``duration="10s"``, ``seed=7``. A list has a value for each channel.

    Returns
    -------
    pathlib.Path
        The recording.

    Raises
    ------
    TesselError
        The program refuses an option; the text is its own.
    FileExistsError
        There is such a file.

    Examples
    --------
    >>> tessel.simulate("short.tgx", duration="10ms", seed=7).name
    'short.tgx'
    """
    import subprocess

    if Path(path).exists() and not overwrite:
        raise FileExistsError(f"{path}: is there already")
    command = [str(program()), "--quiet", "simulate", os.fspath(path)] + (["--force"] if overwrite else [])
    for name, value in options.items():
        text = ",".join(str(each) for each in value) if _is_list(value) else str(value)
        command.append(f"--{name.replace('_', '-')}={text}")
    try:
        done = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=False)
    except KeyboardInterrupt:
        Path(path).unlink(missing_ok=True)
        raise
    if done.returncode != 0:
        raise TesselError(done.stderr.strip() or f"tessel simulate ended with {done.returncode}")
    return Path(path)


def _is_list(value: Any) -> bool:
    return isinstance(value, Iterable) and not isinstance(value, str)
