"""Events as record words, and recordings made of them.

Bits, highest first: T2 ``s cccccc`` and 25 bits of time, T3 ``s cccccc``, 15 bits of dtime, 10 bits of sync number.
An overflow word, s = 1 and c = 63, says how often the last field has wrapped since the word before.
"""

from __future__ import annotations

import ctypes
import math
import os
from types import TracebackType
from typing import Any, Optional, Sequence, Tuple, Type

import numpy as np
from numpy.typing import NDArray

from . import _library, capi
from .errors import TesselError
from .results import PathLike
from .units import Time, exact_picoseconds, picoseconds

Whole = NDArray[np.uint64]
Codes = NDArray[np.uint8]
Dtimes = NDArray[np.uint16]

MOST_INPUTS = 64
MOST_DTIME = 32767
_SPECIAL = np.uint32(1 << 31)
_OVERFLOW = np.uint32(1 << 31 | 63 << 25)
_AT_ONCE = 1 << 18  # events that are encoded together


def _first_bits() -> NDArray[np.uint32]:
    """s and c of each channel code; 0 where a recording has no such channel, which ``check`` refuses."""
    bits = np.zeros(256, np.uint32)
    bits[0] = _SPECIAL
    bits[1 : MOST_INPUTS + 1] = np.arange(MOST_INPUTS, dtype=np.uint32) << 25
    bits[129:144] = _SPECIAL | np.arange(1, 16, dtype=np.uint32) << 25
    return bits


_BITS = _first_bits()


def encode(
    fields: Whole, channels: Codes, dtimes: Optional[Dtimes], wraps: int, field_bits: int
) -> Tuple[NDArray[np.uint32], int]:
    """Events as record words.

    Parameters
    ----------
    fields : (n,) uint64
        T2 time tag, T3 sync number, since the start; each at or after the last one, to within a wrap of the field.
    channels : (n,) uint8
        Codes: 0 sync (T2), 1 to 64 inputs, 129 to 143 markers.
    dtimes : (n,) uint16 or None
        T3: below 32768.
    wraps : int
        How often the field has wrapped in what was encoded before.
    field_bits : {25, 10}
        Of T2, of T3.

    Returns
    -------
    words : uint32 array
    wraps : int
        For the next call.
    """
    most = (1 << field_bits) - 1
    words = _BITS[channels] | (fields & np.uint64(most)).astype(np.uint32)
    if dtimes is not None:
        words |= dtimes.astype(np.uint32) << np.uint32(10)
    high = (fields >> np.uint64(field_bits)).astype(np.int64)
    gaps = np.diff(high, prepend=wraps)
    if gaps.size and gaps.min() < 0:
        raise ValueError("an event is earlier than the one before")
    extra = -(-gaps // most)  # overflow words before each event
    if not extra.any():
        return words, wraps
    places = np.arange(len(words)) + np.cumsum(extra)
    result = np.full(len(words) + int(extra.sum()), _OVERFLOW | np.uint32(most), np.uint32)
    late = extra > 0
    result[places[late] - 1] = _OVERFLOW | (gaps[late] - (extra[late] - 1) * most).astype(np.uint32)
    result[places] = words
    return result, int(high[-1])


class Recorder:
    """A recording in the making; a ``with`` block closes it, and removes it if an error leaves the block.

    Parameters
    ----------
    path : path
        The recording (.tgx); a file that is there is replaced.
    num_inputs : int
        1 to 64.
    time_unit : time
        T2: unit of the times, whole ps.
    resolution : time, optional
        T3: width of a dtime, which may have a fraction of a ps. Given, the recording is T3.
    sync_rate : float
        T3: syncs per second, whose period a replay goes by. T2: 0, or for the header alone.
    duration_ms : int
        For the header.
    rates : sequence of float, optional
        Counts per second of each input, for the header.
    comment : str
        For the header.

    Raises
    ------
    TesselError
        A parameter is out of range, or the file can't be written.
    """

    def __init__(
        self,
        path: PathLike,
        *,
        num_inputs: int,
        time_unit: Time = 1,
        resolution: Optional[Time] = None,
        sync_rate: float = 0.0,
        duration_ms: int = 0,
        rates: Optional[Sequence[float]] = None,
        comment: str = "",
    ) -> None:
        self.path = os.path.abspath(path)
        self.is_t3 = resolution is not None
        self._wraps = 0
        self._handle: Optional[int] = None
        unit = float(picoseconds(time_unit, "time_unit"))
        params = capi.RecordingParams(
            size=ctypes.sizeof(capi.RecordingParams),
            measMode=3 if self.is_t3 else 2,
            family=0,
            numChannels=num_inputs,
            baseResolution=unit,
            resolution=unit if resolution is None else exact_picoseconds(resolution, "resolution"),
            syncRate=sync_rate,
            acqTime=min(duration_ms, 2**31 - 1),
            inputRates=None if rates is None else (ctypes.c_double * num_inputs)(*rates),
            serial=b"converted",
            comment=comment.encode(),
        )
        _library.use()
        with _library.lock:
            self._handle = capi.tessel_recordingCreate(os.fsencode(self.path), ctypes.byref(params))
            why = _library.last_error()
        if not self._handle:
            _library.leave()
            raise TesselError(f"{path}: can't be created: {why}")

    def write(self, times: Whole, channels: Codes, dtimes: Optional[Dtimes] = None) -> None:
        """Appends events.

        Parameters
        ----------
        times : (n,) uint64
            T2: units of the time since the start. T3: sync number. They don't go back.
        channels : (n,) uint8
            1 to 64 the inputs, 0 the sync (T2), 129 to 143 markers.
        dtimes : (n,) uint16, optional
            T3: below 32768.

        Raises
        ------
        ValueError
            An event is so much earlier than the one before that a recording can't say it, or its channel or dtime has
            no place in one.
        TesselError
            The disc takes no more.
        """
        if len(channels) != len(times) or (dtimes is not None and len(dtimes) != len(times)):
            raise ValueError("times, channels and dtimes: as many of each")
        if (dtimes is None) == self.is_t3:
            raise ValueError("dtimes: T3 has them, T2 hasn't")
        for start in range(0, len(times), _AT_ONCE):
            part = slice(start, start + _AT_ONCE)
            self._write(times[part], channels[part], None if dtimes is None else dtimes[part])

    def _write(self, times: Whole, channels: Codes, dtimes: Optional[Dtimes]) -> None:
        known = np.zeros(256, bool)
        known[int(self.is_t3) : MOST_INPUTS + 1] = known[129:144] = True
        if not known[channels].all():
            raise ValueError(f"channel {channels[~known[channels]][0]}: a recording has inputs 1 to 64, T2 also a sync")
        if dtimes is not None and dtimes.size and int(dtimes.max()) > MOST_DTIME:
            raise ValueError(f"dtime {dtimes.max()}: at most {MOST_DTIME}")
        bits = 10 if self.is_t3 else 25
        words, self._wraps = encode(times, channels, dtimes, self._wraps, bits)
        self.write_words(words)

    def write_words(self, words: NDArray[np.uint32]) -> None:
        """Appends record words as they are.

        Parameters
        ----------
        words : (n,) uint32
            Theirs; see docs/file-format.md.

        Raises
        ------
        TesselError
            The disc takes no more.
        """
        if not capi.tessel_recordingWrite(self._handle, words, len(words)):
            raise TesselError(_library.with_reason(f"{self.path}: can't be written"))

    def close(self) -> None:
        """Writes the number of records into the header, and closes the file."""
        if self._handle is None:
            return
        handle, self._handle = self._handle, None
        closed = capi.tessel_recordingClose(handle)
        why = _library.last_error()
        _library.leave()
        if not closed:
            raise TesselError(f"{self.path}: can't be completed: {why}")

    def __enter__(self) -> "Recorder":
        return self

    def __exit__(
        self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        self.close()
        if kind is not None:
            os.remove(self.path)


def write(
    path: PathLike,
    times: Any,
    channels: Any,
    dtimes: Any = None,
    *,
    time_unit: Time = 1,
    resolution: Optional[Time] = None,
    sync_period: Optional[Time] = None,
    num_inputs: Optional[int] = None,
    comment: str = "",
) -> str:
    """Writes a recording of one's own events.

    Parameters
    ----------
    path : path
        The recording (.tgx); a file that is there is replaced.
    times : (n,) integers
        T2: times since the start in units of `time_unit`, ascending. T3 (with `dtimes`): sync numbers. What goes back
        a little is kept so, and a measurement warns of it (``chain.sort``).
    channels : (n,) integers
        1 to 64 the inputs, 0 the sync (T2 only), 129 to 143 markers.
    dtimes : (n,) integers, optional
        T3: time since the sync in units of `resolution`, below 32768.
    time_unit : time
        T2: the unit of the times, whole ps.
    resolution : time, optional
        T3: the unit of the dtimes; it may have a fraction of a ps.
    sync_period : time, optional
        T3: time from sync to sync; it may have one too.
    num_inputs : int, optional
        Inputs of the recording; by default up to the last that has events.
    comment : str
        For the header.

    Returns
    -------
    str
        The path, for ``tessel.open``.

    Raises
    ------
    ValueError
        Times go back beyond the last wrap of a recording's time field, or a channel or dtime has no place in one.

    Examples
    --------
    >>> _ = tessel.write("own.tgx", [0, 1500, 4000], [1, 2, 1])
    >>> with tessel.open("own.tgx") as dev:
    ...     dev.unfold().read().times
    array([   0, 1500, 4000], dtype=uint64)
    """
    stamps, codes = _integers(times, np.uint64, "times"), _integers(channels, np.uint8, "channels")
    fine = None if dtimes is None else _integers(dtimes, np.uint16, "dtimes")
    inputs = codes[(codes >= 1) & (codes <= MOST_INPUTS)]
    unit: float = picoseconds(time_unit, "time_unit")
    rate = 0.0
    if fine is not None:
        if resolution is None or sync_period is None:
            raise ValueError("dtimes: resolution and sync_period are wanted too")
        unit = exact_picoseconds(sync_period, "sync_period")
        rate = 1e12 / unit
    length_ps = math.ceil(int(stamps[-1]) * unit) if len(stamps) else 0
    counts = np.bincount(inputs, minlength=1 + (num_inputs or 1))[1:]
    with Recorder(
        path,
        num_inputs=len(counts),
        time_unit=1 if fine is not None else unit,
        resolution=None if fine is None else resolution,
        sync_rate=rate,
        duration_ms=-(-length_ps // 10**9),
        rates=[min(2e9, each * 1e12 / length_ps) if length_ps else 0.0 for each in counts],
        comment=comment,
    ) as recorder:
        recorder.write(stamps, codes, fine)
    return os.fspath(path)


def _integers(values: Any, kind: Any, what: str) -> NDArray[Any]:
    array = np.ascontiguousarray(values)
    if array.size == 0:
        return np.zeros(0, kind)
    if array.dtype.kind not in "ui":
        raise ValueError(f"{what}: integers are wanted, not {array.dtype}")
    if array.ndim != 1 or int(array.min()) < 0 or int(array.max()) > np.iinfo(kind).max:
        raise ValueError(f"{what}: a row of numbers from 0 to {np.iinfo(kind).max} is wanted")
    return array.astype(kind, copy=False)
