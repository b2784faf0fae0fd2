"""tessel.capi against include/tessel.h: every function, every field of a structure, every constant."""

from __future__ import annotations

import ctypes
import re
from typing import Any, Dict, Iterator, Tuple

import numpy as np
import pytest
from conftest import ROOT

from tessel import capi

HEADER = re.sub(r"/\*.*?\*/", "", (ROOT / "include" / "tessel.h").read_text(), flags=re.S)
SHORT = {"double": "f64", "int8_t": "i8", "char16_t": "char16", "size_t": "size"}
SHORT.update({f"uint{n}_t": f"u{n}" for n in (8, 16, 32, 64)})
SHORT.update({f"int{n}_t": f"i{n}" for n in (32, 64)})


def code(declared: str) -> str:
    plain = re.sub(r"\bconst\b|\s", " ", declared).replace(" ", "")
    return SHORT.get(plain.rstrip("*"), plain.rstrip("*")) + "*" * plain.count("*")


def test_every_function() -> None:
    declared: Dict[str, str] = {}
    for result, name, text in re.findall(r"TESSEL_API\s+([\w ]+?[\s*]+)(\w+)\((.*?)\);", HEADER, flags=re.S):
        arguments = [] if text.strip() == "void" else [re.sub(r"\w+$", "", each.strip()) for each in text.split(",")]
        declared[name] = f"{code(result)}({', '.join(map(code, arguments))})"
    assert len(declared) > 100
    assert capi.PROTOTYPES == declared
    for name in declared:
        assert callable(getattr(capi, name))


STRUCTURES = {
    "tessel_loss": capi.Loss,
    "tessel_losses": capi.Losses,
    "tessel_recording_params": capi.RecordingParams,
    "tessel_correlation_counts": capi.CorrelationCounts,
}


def declared_fields(name: str) -> Iterator[Tuple[str, str]]:
    """Name and type of each; an array has its length behind the type."""
    (body,) = re.findall(rf"typedef struct {name}\s*{{(.*?)}}", HEADER, flags=re.S)
    for line in filter(str.strip, body.split(";")):
        match = re.match(r"\s*((?:const )?\w+)\s*(.*)", line, re.S)
        assert match
        for each in match.group(2).split(","):
            parts = re.fullmatch(r"(\**)(\w+)(\[\d+\])?", each.strip())
            assert parts
            yield parts.group(2), code(match.group(1) + parts.group(1)) + (parts.group(3) or "")


def code_of(kind: Any) -> str:
    if hasattr(kind, "_length_"):
        return f"{code_of(kind._type_)}[{kind._length_}]"
    if hasattr(kind, "contents"):
        return code_of(kind._type_) + "*"
    plain = {ctypes.c_uint64: "u64", ctypes.c_int32: "i32", ctypes.c_double: "f64", ctypes.c_char_p: "char*"}
    return plain.get(kind, "tessel_loss")


@pytest.mark.parametrize("name", STRUCTURES)
def test_every_field(name: str) -> None:
    declared = [(field, kind.replace("size", "u64")) for field, kind in declared_fields(name)]
    assert [(each[0], code_of(each[1])) for each in STRUCTURES[name]._fields_] == declared


def test_constants() -> None:
    values = re.findall(r"TESSEL_((?:TEXT_|LOSS_PLACES|CLEAN|LOSSY|INVALID)\w*) = (\d+)", HEADER)
    assert len(values) >= 11
    assert {name: getattr(capi, name) for name, _ in values} == {name: int(value) for name, value in values}


def test_an_array_of_another_type_is_refused() -> None:
    channels, times = np.array([1, 2, 1], np.uint8), np.array([10, 20, 30], np.uint64)
    count = ctypes.c_uint64(3)
    result = np.zeros(3, np.uint64)
    capi.getTimesFromChannelUF(channels, times, result, 1, ctypes.byref(count))
    assert result[: count.value].tolist() == [10, 30]
    for wrong in (times.astype(np.int64), np.zeros(6, np.uint64)[::2]):
        with pytest.raises((TypeError, ctypes.ArgumentError)):
            capi.getTimesFromChannelUF(channels, wrong, result, 1, ctypes.byref(count))
