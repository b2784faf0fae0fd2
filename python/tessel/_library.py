"""The one library of the process: started with the first user, ended with the last.

Owned here, all of it under ``lock``: how many users there are, and the memory that runs write to.

  I1  Memory whose finished byte is 0 is in ``_written``, and so alive, whoever else has dropped it.
  I2  The library has a current device for the whole process. What acts on it picks the device under ``lock``.

The finished byte is 1 before a run starts; the library sets it to 0 within the call that starts the run, and to 1 as
its last write. So an exception on either side of the call breaks neither.
"""

from __future__ import annotations

import atexit
import ctypes
import json
import os
import re
import tempfile
import threading
from pathlib import Path
from typing import Any, Dict, List, Optional, Union

import numpy as np
from numpy.typing import NDArray

from . import capi
from .errors import DeviceError, TesselError

lock = threading.RLock()
_users = 0
_pid = 0
_written: List["Memory"] = []

# No log file and no console; the smallest buffers, which are fast and start quickly.
_SETTINGS = "[Log]\nFile=false\nConsole={log}\n[Params]\nBufferSize=8\n"


_FORKED = "the library runs in the parent process; start processes by spawn, not fork"


class Memory:
    """What a run writes to, and the byte that says that it is done."""

    def __init__(self, **arrays: NDArray[Any]) -> None:
        self.arrays = arrays
        self.finished: NDArray[np.uint8] = np.ones(1, np.uint8)

    def is_free(self) -> bool:
        return bool(self.finished[0])


def start_writing(memory: Memory, call: Any) -> None:
    """Makes the call that starts a run on this memory."""
    with lock:
        _written[:] = [each for each in _written if not each.is_free()]
        _written.append(memory)
        call()


def use(settings: Optional[Union[str, "os.PathLike[str]"]] = None, log: bool = False) -> None:
    """Counts one user more; the first starts the library. Each call needs one of ``leave``."""
    global _users, _pid
    with lock:
        if _users and _pid != os.getpid():
            raise TesselError(_FORKED)
        if not _users:
            _start(settings, log)
            _pid = os.getpid()
        _users += 1


def _start(settings: Optional[Union[str, "os.PathLike[str]"]], log: bool) -> None:
    if settings is not None:
        if not Path(settings).is_file():
            raise FileNotFoundError(f"{settings}: no such settings file")
        capi.initAPI(os.fsencode(settings))
        return
    with tempfile.NamedTemporaryFile("w", suffix=".ini") as file:
        file.write(_SETTINGS.format(log="true" if log else "false"))
        file.flush()
        capi.initAPI(os.fsencode(file.name))


def leave() -> None:
    """Counts one user less; the last ends the library, with every run and device."""
    global _users
    with lock:
        if not _users:  # ended with the process
            return
        _users -= 1
        if not _users and _pid == os.getpid():
            capi.exitAPI()
            _written[:] = [each for each in _written if not each.is_free()]


def _at_exit() -> None:
    global _users
    if not _users or _pid != os.getpid():
        return
    capi.exitAPI()
    _users = 0
    for each in _written:  # a run that hangs in its instrument may still write: its memory outlives Python
        if not each.is_free():
            ctypes.pythonapi.Py_IncRef(ctypes.py_object(each))


atexit.register(_at_exit)


def is_used() -> bool:
    """The library runs, in this process."""
    return _users > 0 and _pid == os.getpid()


def check_used() -> None:
    """What was made before a fork, or outlived the library, works no more."""
    if _users and _pid != os.getpid():
        raise DeviceError(_FORKED)
    if not _users:
        raise DeviceError("the library has ended")


# No thread has the lock at a fork, so the child can take it.
os.register_at_fork(before=lock.acquire, after_in_parent=lock.release, after_in_child=lock.release)


def last_error() -> str:
    """What the last call of this thread logged as an error; empty if nothing."""
    text = ctypes.create_string_buffer(4097)
    capi.tessel_lastError(text, len(text))
    return text.value.decode("utf-8", "replace")


def with_reason(text: str) -> str:
    """The text, with the last error of this thread behind it."""
    why = last_error()
    return f"{text}: {why}" if why else text


def connect(host: str) -> None:
    """Asks another computer, ``HOST`` or ``HOST:PORT``, for its instruments; it has read all that was sent before."""
    match = re.fullmatch(r"(\[[^]]+\]|[^:]+)(?::(\d{1,5}))?", host)
    if not match or not 0 < int(match.group(2) or 1) < 1 << 16:
        raise ValueError(f"host: HOST or HOST:PORT, with an address like [::1] in brackets, not {host!r}")
    if not capi.tessel_connect(match.group(1).strip("[]").encode(), int(match.group(2) or 0)):
        raise DeviceError(with_reason(f"{host}: can't be reached"))


def text_of(which: int, wide_id: Optional[bytes] = None) -> Any:
    """One of the library's JSON texts, parsed."""
    needed = ctypes.c_uint64()
    size = 4096
    while True:
        buffer = ctypes.create_string_buffer(size)
        if capi.tessel_getText(wide_id, which, buffer, size, ctypes.byref(needed)):
            return json.loads(buffer.value.decode("utf-8", "replace"))
        if needed.value <= size:
            raise DeviceError(with_reason(f"the library gives no text {which}"))
        size = needed.value


def file_text(call: Any, path: str) -> Dict[str, Any]:
    """The JSON text that a call gives of a recorded file, parsed."""
    needed = ctypes.c_uint64()
    size = 1 << 16
    while True:
        buffer = ctypes.create_string_buffer(size)
        if call(path.encode(), buffer, size, ctypes.byref(needed)):
            parsed: Dict[str, Any] = json.loads(buffer.value.decode("utf-8", "replace"))
            return parsed
        if needed.value <= size:
            raise DeviceError(with_reason(f"{path}: can't be read"))
        size = needed.value
