"""tessel.capi against include/tessel.h: every function, every field of a structure, every constant."""

from __future__ import annotations

import ctypes
import re
from typing import Dict

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


@pytest.mark.parametrize(
    "name, made", [("tessel_loss", capi.Loss), ("tessel_losses", capi.Losses), ("tessel_recording_params", capi.RecordingParams)]
)
def test_every_field(name: str, made: type[ctypes.Structure]) -> None:
    (body,) = re.findall(rf"typedef struct {name}\s*{{(.*?)}}", HEADER, flags=re.S)
    declared = [re.fullmatch(r"(.+?)(\w+)(\[\d+\])?", each.strip()) for each in body.split(";") if each.strip()]
    types = {"size": "L", "i32": "i", "u64": "L", "f64": "d", "f64*": "LP_c_double", "char*": "z"}
    assert len(declared) == len(made._fields_)
    for match, (field, kind, *_) in zip(declared, made._fields_):
        assert match and match.group(2) == field
        found = getattr(kind, "_type_", None)
        wanted = "Loss" if match.group(3) else types[code(match.group(1))]
        assert wanted in (found, kind.__name__, getattr(found, "__name__", None)), field


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
