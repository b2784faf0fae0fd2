"""The functions of ``tessel.h`` under their C names, by ctypes.

``tessel.capi.getHistogram(...)`` calls the C function of that name. The library is loaded at the first use of a
name. Every call gives up the interpreter's lock. Nothing here starts or stops the library: a host that calls
``initAPI`` itself doesn't use the rest of the package.

Arguments: texts are ``bytes``, device ids ``wide(text)`` or ``None``, arrays NumPy arrays of exactly the element
type (or anything of ctypes), a tuple of results ``ctypes.byref(...)``. A wrong element type is a ``TypeError``; the
size of an array is the caller's care, as in C.

Examples
--------
>>> from tessel import capi
>>> capi.PROTOTYPES["getNumAllChans"]
'i64(char16*)'
"""

from __future__ import annotations

import ctypes
import os
import re
from pathlib import Path
from typing import Any, Dict, Iterator, Optional

from .errors import LibraryMissing

SONAME = "libtessel.so.1"

# As in the header, in its order. A type with a star is a pointer.
PROTOTYPES: Dict[str, str] = {
    "initAPI": "bool(char*)",
    "exitAPI": "void()",
    "getDeviceIDs": "bool(char*)",
    "getDevice": "bool(char*)",
    "getFileDevice": "bool(char*)",
    "initDevice": "bool(i32, i32)",
    "closeDevice": "void(u8)",
    "logError": "void(char*)",
    "logExternal": "void(char*)",
    "setLogLevel": "void(i32, u8)",
    "setSyncDiv": "bool(char16*, i32)",
    "setSyncTrigMode": "bool(char16*, i32)",
    "setSyncEdgeTrig": "bool(char16*, i32, i32)",
    "setSyncCFD": "bool(char16*, i32, i32)",
    "setSyncChannelOffset": "bool(char16*, i32)",
    "setSyncChannelEnable": "bool(char16*, i32)",
    "setSyncDeadTime": "bool(char16*, i32)",
    "setInputTrigMode": "bool(char16*, i32, i32)",
    "setInputEdgeTrig": "bool(char16*, i32, i32, i32)",
    "setInputCFD": "bool(char16*, i32, i32, i32)",
    "setInputChannelOffset": "bool(char16*, i32, i32)",
    "setInputChannelEnable": "bool(char16*, i32, i32)",
    "setInputDeadTime": "bool(char16*, i32, i32)",
    "setInputHysteresis": "bool(char16*, i32)",
    "setTimingMode": "bool(char16*, i32)",
    "setStopOverflow": "bool(char16*, u32)",
    "setBinning": "bool(char16*, i32)",
    "setOffset": "bool(char16*, i32)",
    "setHistoLength": "bool(char16*, i32)",
    "clearHistMem": "bool(char16*)",
    "setMeasControl": "bool(char16*, i32, i32, i32)",
    "setTriggerOutput": "bool(char16*, i32)",
    "setMarkerEdges": "bool(char16*, i32, i32, i32, i32)",
    "setMarkerEnable": "bool(char16*, i32, i32, i32, i32)",
    "setMarkerHoldoffTime": "bool(char16*, i32)",
    "setOflCompression": "bool(char16*, i32)",
    "enableMainEventFilter": "bool(char16*, u8)",
    "setMainEventFilterChannels": "bool(char16*, i32, u32, u32)",
    "setMainEventFilterParams": "bool(char16*, i32, i32, u8)",
    "enableRowEventFilter": "bool(char16*, i32, u8)",
    "setRowEventFilter": "bool(char16*, i32, i32, i32, u8, u32, u32)",
    "setFilterTestMode": "bool(char16*, u8)",
    "getMainFilteredRates": "bool(char16*, i32*, i32*)",
    "getRowFilteredRates": "bool(char16*, i32*, i32*)",
    "WRabbitGetMAC": "bool(char16*, char*)",
    "WRabbitSetMAC": "bool(char16*, char*)",
    "WRabbitGetInitScript": "bool(char16*, char*)",
    "WRabbitSetInitScript": "bool(char16*, char*)",
    "WRabbitSetSFPData": "bool(char16*, char*, i32*, i32*, i32*)",
    "WRabbitGetSFPData": "bool(char16*, char*, i32*, i32*, i32*)",
    "WRabbitInitLink": "bool(char16*, i32)",
    "WRabbitSetMode": "bool(char16*, i32, i32, i32)",
    "WRabbitSetTime": "bool(char16*, u64)",
    "WRabbitGetTime": "bool(char16*, u64*, u32*)",
    "WRabbitGetStatus": "bool(char16*, i32*)",
    "WRabbitGetTermOutput": "bool(char16*, char*)",
    "stopMeasure": "bool(char16*)",
    "clearMeasure": "bool(char16*)",
    "gotNewData": "u8(char16*)",
    "waitNewData": "u8(char16*)",
    "setSequenceMode": "void(i32, u8, f64)",
    "getCountRates": "i32(i32*, i32*)",
    "getNumAllChans": "i64(char16*)",
    "getHistogram": "bool(char16*, u32, u8, u8, u32*, u8*)",
    "setHistoT2NumBins": "bool(char16*, u64)",
    "setHistoT2BinWidth": "bool(char16*, u64)",
    "setHistoT2RefChan": "bool(char16*, u8)",
    "getTimeTrace": "bool(char16*, u32, u8, u8, u32*, u64*, u8*)",
    "setTimeTraceNumBins": "bool(char16*, i32)",
    "setTimeTraceHistorySize": "bool(char16*, f64)",
    "get2dHistogram": "bool(char16*, u32, u8, u8, u32*, u8*)",
    "setHisto2dParams": "bool(char16*, u8, u8, u8, u64, u64, u64, u64, u64, u64)",
    "setHisto2dTotMode": "bool(char16*, u8, f64)",
    "setHisto2dRecoveryTimingCorrection": "bool(char16*, u64, u64, u64, u64, f64)",
    "rawMeasure": "bool(char16*, u32, u8, u8, u32*, u64*, u64, u8*)",
    "rawStartBlock": "bool(char16*, u32, u8, u32*, u64, u8*)",
    "rawGetBlock": "bool(char16*, u32*, u64*)",
    "ufMeasure": "bool(char16*, u32, u8, u8, u64*, u8*, u64*, u64, u8*)",
    "ufStartBlock": "bool(char16*, u32, u8, u64*, u8*, u64, u8*)",
    "ufGetBlock": "bool(char16*, u64*, u8*, u64*)",
    "exportStreamMeasure": "bool(char16*, u32, u8, u8, u8*)",
    "getTimesFromChannelUF": "bool(u8*, u64*, u64*, i32, u64*)",
    "setG2Params": "bool(char16*, u64, u64, f64, f64, u8)",
    "setFCSParams": "bool(char16*, u64, u64, u64*, f64, f64, u64)",
    "setFFCSParams": "bool(char16*, u64, u64, u64*, f64, f64, u64)",
    "getCorrelation": "bool(char16*, i32, u8, u8, f64*, f64*, u8*)",
    "tessel_setCorrelationFromStart": "bool(char16*, u8)",
    "tessel_getCorrelationCounts": "bool(char16*, tessel_correlation_counts*)",
    "addMCoincidence": "i32(char16*, i32*, i32, f64, u32, u32, u8)",
    "addMMerge": "i32(char16*, i32*, i32, u8)",
    "addMDelay": "i32(char16*, u8, f64, i8)",
    "addMHerald": "i32(char16*, u8, i32*, i32, i32, i32, u8, u8)",
    "addMImportStream": "i32(char16*, char16*, u8, i32*, i32, i32)",
    "addMCountRate": "i32(char16*, f64)",
    "getMCountRates": "bool(char16*, i32, u32*)",
    "addMSubStream": "void(char16*, u64, u64)",
    "tessel_addMSort": "bool(char16*, u64)",
    "deleteMani": "void(char16*, u32)",
    "clearManis": "void(char16*)",
    "addIntTag": "void(char*, i64, u32)",
    "addDblTag": "void(char*, f64, u32)",
    "addBoolTag": "void(char*, bool, u32)",
    "addEmptyTag": "void(char*, u32)",
    "addStringTag": "void(char*, char*, u32)",
    "addWStringTag": "void(char*, char16*, u32)",
    "addFloatArrayTag": "void(char*, f64*, u64, u32)",
    "addBBTag": "void(char*, u8*, u64, u32)",
    "clearTags": "void()",
    "setTGXFilePath": "void(char*)",
    "setMeasSubMode": "void(i32)",
    "getDeviceConfig": "bool(char*)",
    "getMeasDescription": "bool(char*)",
    "getManisConfig": "bool(char*)",
    "setIniConfig": "void(char*)",
    "loadIniConfig": "bool(char*)",
    "tessel_getText": "bool(char16*, i32, char*, u64, u64*)",
    "tessel_getLosses": "bool(char16*, tessel_losses*)",
    "tessel_openFile": "bool(char*, char*, u64)",
    "tessel_lastError": "i32(char*, u64)",
    "tessel_getResultShape": "bool(char16*, i32, u64*, u64*, u64*)",
    "tessel_setThreads": "bool(i32)",
    "tessel_recordingCreate": "tessel_recording*(char*, tessel_recording_params*)",
    "tessel_recordingWrite": "bool(tessel_recording*, u32*, u64)",
    "tessel_recordingSetDuration": "bool(tessel_recording*, i32)",
    "tessel_recordingClose": "bool(tessel_recording*)",
    "tessel_getFileTags": "bool(char*, char*, u64, u64*)",
    "tessel_verifyFile": "bool(char*, char*, u64, u64*)",
    "tessel_repairFile": "bool(char*, char*)",
    "tessel_serve": "bool(char16*, char*, u16)",
    "tessel_stopServing": "void(char16*)",
    "tessel_connect": "bool(char*, u16)",
}

TEXT_DEVICE, TEXT_DESCRIPTION, TEXT_CHAIN, TEXT_DEVICE_IDS = range(4)
TEXT_SETTINGS, TEXT_LIBRARIES, TEXT_LOSSES, TEXT_STAGES = range(4, 8)
CLEAN, LOSSY, INVALID = range(3)
LOSS_PLACES = 10


class Loss(ctypes.Structure):
    """``tessel_loss``."""

    _fields_ = [
        ("occasions", ctypes.c_uint64),
        ("lost", ctypes.c_uint64),
        ("first", ctypes.c_double),
        ("last", ctypes.c_double),
    ]


class Losses(ctypes.Structure):
    """``tessel_losses``; set ``size`` before a call."""

    _fields_ = [
        ("size", ctypes.c_size_t),
        ("verdict", ctypes.c_int32),
        ("recordingVerdict", ctypes.c_int32),
        ("places", Loss * 16),
    ]


class RecordingParams(ctypes.Structure):
    """``tessel_recording_params``; set ``size`` before a call."""

    _fields_ = [
        ("size", ctypes.c_size_t),
        ("measMode", ctypes.c_int32),
        ("family", ctypes.c_int32),
        ("numChannels", ctypes.c_int32),
        ("baseResolution", ctypes.c_double),
        ("resolution", ctypes.c_double),
        ("syncRate", ctypes.c_double),
        ("acqTime", ctypes.c_int32),
        ("inputRates", ctypes.POINTER(ctypes.c_double)),
        ("serial", ctypes.c_char_p),
        ("comment", ctypes.c_char_p),
    ]


class CorrelationCounts(ctypes.Structure):
    """``tessel_correlation_counts``; set ``size``, ``capacity`` and the arrays before a call."""

    _fields_ = [
        ("size", ctypes.c_size_t),
        ("capacity", ctypes.c_uint64),
        ("pairs", ctypes.POINTER(ctypes.c_uint64) * 4),
        ("edges", ctypes.POINTER(ctypes.c_uint64)),
        ("laterEvents", ctypes.POINTER(ctypes.c_uint64) * 2),
        ("earlierEvents", ctypes.POINTER(ctypes.c_uint64) * 2),
        ("bins", ctypes.c_uint64),
        ("mode", ctypes.c_int32),
        ("chan1", ctypes.c_uint64),
        ("chan2", ctypes.c_uint64),
        ("events", ctypes.c_uint64 * 2),
        ("first", ctypes.c_uint64 * 2),
        ("last", ctypes.c_uint64 * 2),
        ("selfPairs", ctypes.c_uint64),
    ]


def wide(text: Optional[str]) -> Optional[bytes]:
    """A device id as the ``const char16_t *`` that the functions take.

    Parameters
    ----------
    text : str or None
        The id; ``None`` is the current device.

    Returns
    -------
    bytes or None
        UTF-16 of this machine's byte order with a zero at the end.
    """
    return None if text is None else (text + "\0").encode("utf-16-le")


def candidates() -> Iterator[Path]:
    """Where the library is looked for, first come first served.

    Yields
    ------
    pathlib.Path
        ``TESSEL_LIBRARY`` (a file or a folder) alone if it is set. Else: inside the package, the ``lib`` folder that
        the package is installed in, and the release build of a source tree.
    """
    named = os.environ.get("TESSEL_LIBRARY")
    if named:
        yield Path(named) / SONAME if Path(named).is_dir() else Path(named)
        return
    package = Path(__file__).resolve().parent
    yield package / "prefix" / "lib" / SONAME
    for folder in package.parents:
        if folder.name.startswith("lib"):
            yield folder / SONAME
            yield from sorted(folder.glob("*-linux-gnu/" + SONAME))
    tree = package.parents[1]
    if (tree / "include" / "tessel.h").is_file():
        yield tree / "build" / "release" / SONAME


_NUMBERS: Dict[str, Any] = {
    "bool": ctypes.c_bool,
    "i8": ctypes.c_int8,
    "u8": ctypes.c_uint8,
    "u16": ctypes.c_uint16,
    "i32": ctypes.c_int32,
    "u32": ctypes.c_uint32,
    "i64": ctypes.c_int64,
    "u64": ctypes.c_uint64,
    "f64": ctypes.c_double,
}
_STRUCTURES: Dict[str, Any] = {
    "tessel_losses": ctypes.POINTER(Losses),
    "tessel_recording_params": ctypes.POINTER(RecordingParams),
    "tessel_correlation_counts": ctypes.POINTER(CorrelationCounts),
    "tessel_recording": ctypes.c_void_p,
    "char": ctypes.c_char_p,
    "char16": ctypes.c_char_p,
    "void": None,
}


def _array_of(code: str) -> Any:
    """An argument type that takes a NumPy array of the element type, or what ctypes takes as a pointer."""
    wanted = {"i": "i", "u": "u", "f": "f"}[code[0]] + str(int(code[1:]) // 8)

    class Array:
        @staticmethod
        def from_param(value: Any) -> Any:
            description = getattr(value, "__array_interface__", None)
            if description is None:
                return ctypes.c_void_p.from_param(value)
            if description["typestr"] not in (f"<{wanted}", f"|{wanted}"):
                raise TypeError(f"an array of {wanted} is wanted, not of {description['typestr']}")
            if not value.flags.c_contiguous:
                raise TypeError("an array without gaps is wanted")
            return ctypes.c_void_p(value.ctypes.data)

    return Array


_ARRAYS: Dict[str, Any] = {code: _array_of(code) for code in _NUMBERS if code != "bool"}


def _type_of(code: str) -> Any:
    name = code.rstrip("*")
    if name in _STRUCTURES:
        return _STRUCTURES[name]
    return _ARRAYS[name] if code.endswith("*") else _NUMBERS[name]


_loaded: Dict[str, ctypes.CDLL] = {}


def library() -> ctypes.CDLL:
    """The shared library, loaded at the first call.

    Returns
    -------
    ctypes.CDLL
        Its functions by their C names, with argument and result types.

    Raises
    ------
    LibraryMissing
        It isn't found, or can't be loaded; the text says where it was looked for.
    """
    if "tessel" in _loaded:
        return _loaded["tessel"]
    looked = []
    for path in candidates():
        looked.append(str(path))
        if path.is_file():
            return _load(str(path))
    try:
        return _load(SONAME)
    except LibraryMissing:
        where = "\n  ".join(looked)
        raise LibraryMissing(f"{SONAME} isn't found; set TESSEL_LIBRARY. Looked for:\n  {where}") from None


def _load(path: str) -> ctypes.CDLL:
    try:
        found = ctypes.CDLL(path)
    except OSError as problem:
        raise LibraryMissing(f"{path} can't be loaded: {problem}") from problem
    _loaded["tessel"] = found
    return found


def path() -> Path:
    """The file that the library was loaded from."""
    return Path(library()._name).resolve()


def __getattr__(name: str) -> Any:
    if name not in PROTOTYPES:
        raise AttributeError(f"tessel.h has no function {name!r}")
    function = getattr(library(), name)
    match = re.fullmatch(r"([\w*]+)\((.*)\)", PROTOTYPES[name])
    assert match
    result, arguments = match.groups()
    function.restype = ctypes.c_void_p if result.endswith("*") else _type_of(result)
    function.argtypes = [_type_of(code) for code in arguments.split(", ") if code]
    globals()[name] = function
    return function


def __dir__() -> list[str]:
    return sorted([*globals(), *PROTOTYPES])
