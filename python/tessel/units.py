"""Quantities as numbers, texts or pint quantities, brought to whole units of the library.

A bare number is in the unit that the function names: picoseconds for every time. Texts are a number and a unit, as
the ``tessel`` program takes them: ``"2.5ns"``, ``"-100 mV"``, ``"80MHz"``.
"""

from __future__ import annotations

import datetime
import math
import numbers
import re
from decimal import ROUND_HALF_UP, Decimal
from typing import Any, Dict, Tuple, Union

#: A time: whole picoseconds, a text with a unit, a ``datetime.timedelta`` or a pint quantity.
Time = Union[int, float, str, datetime.timedelta, Any]

_TIMES = {"ps": 1, "ns": 10**3, "us": 10**6, "µs": 10**6, "μs": 10**6, "ms": 10**9, "s": 10**12}
_TIMES.update({"min": 60 * 10**12, "h": 3600 * 10**12})
_UNITS: Dict[str, Dict[str, Union[int, str]]] = {
    "ps": dict(_TIMES),
    "ns": {name: str(Decimal(factor) / 1000) for name, factor in _TIMES.items()},
    "ms": {name: str(Decimal(factor) / 10**9) for name, factor in _TIMES.items()},
    "mV": {"uV": "0.001", "µV": "0.001", "mV": 1, "V": 1000},
    "Hz": {"Hz": 1, "kHz": 10**3, "MHz": 10**6, "GHz": 10**9, "cps": 1, "kcps": 10**3, "Mcps": 10**6, "Gcps": 10**9},
    "": {"": 1},
}
_TEXT = re.compile(r"\s*([+-]?(?:\d+\.?\d*|\.\d+)(?:[eE][+-]?\d+)?)\s*(\S*)\s*")


def _number(value: Any, unit: str, what: str) -> Union[Decimal, float]:
    if isinstance(value, str):
        match = _TEXT.fullmatch(value)
        name = (match.group(2) or unit) if match else ""
        if not match or name not in _UNITS[unit]:
            known = ", ".join(name for name in _UNITS[unit] if name)
            raise ValueError(f"{what}: {value!r} isn't a number with a unit ({known})")
        return Decimal(match.group(1)) * Decimal(_UNITS[unit][name])
    if isinstance(value, datetime.timedelta):
        return _number(f"{value // datetime.timedelta(microseconds=1)}us", unit, what)
    if hasattr(value, "magnitude") and hasattr(value, "to"):
        return float(value.to(unit or "dimensionless").magnitude)
    if isinstance(value, numbers.Real) and not isinstance(value, bool):
        return Decimal(int(value)) if isinstance(value, numbers.Integral) else float(value)
    raise TypeError(f"{what}: a number, a text with a unit or a quantity is wanted, not {value!r}")


def whole(value: Any, unit: str, what: str = "value") -> int:
    """A quantity as a whole number of a unit.

    Parameters
    ----------
    value : int, float, str, datetime.timedelta or pint quantity
        A bare number counts units of `unit`.
    unit : {"ps", "ns", "ms", "mV", "Hz", ""}
        The unit of the result.
    what : str
        What the value is, for the text of an error.

    Returns
    -------
    int

    Raises
    ------
    ValueError
        The text can't be read, or the value isn't whole.

    Examples
    --------
    >>> whole("2.5ns", "ps"), whole("-0.1 V", "mV"), whole("2 s", "ms")
    (2500, -100, 2000)
    """
    number = _number(value, unit, what)
    if isinstance(number, Decimal):
        nearest = int(number.to_integral_value())
        exact = nearest == number
    else:
        if not math.isfinite(number):
            raise ValueError(f"{what}: {value!r} is no number")
        nearest = round(number)
        exact = abs(number - nearest) <= 1e-9 * max(1.0, abs(number))  # what a conversion of units leaves
    if not exact:
        raise ValueError(f"{what}: {value!r} isn't a whole number of {unit or 'units'}")
    return nearest


def exact_picoseconds(value: Time, what: str = "time") -> float:
    """A time above 0 as picoseconds, which needn't be whole.

    Parameters
    ----------
    value : int, float, str, datetime.timedelta or pint quantity
        The time; a bare number is picoseconds.
    what : str
        What the time is, for the text of an error.

    Returns
    -------
    float
        Picoseconds.

    Raises
    ------
    ValueError
        It can't be read, or isn't above 0.

    Examples
    --------
    >>> exact_picoseconds("12.5 ns"), exact_picoseconds(2.5)
    (12500.0, 2.5)
    """
    number = float(_number(value, "ps", what))
    if not 0 < number < math.inf:
        raise ValueError(f"{what}: a time above 0, not {value!r}")
    return number


def rounded_picoseconds(value: Time, what: str = "time", signed: bool = False) -> int:
    """A time as the nearest whole picoseconds, as the ``tessel`` program takes it.

    Parameters
    ----------
    value : int, float, str, datetime.timedelta or pint quantity
        The time; a bare number, also as a text, is picoseconds.
    what : str
        What the time is, for the text of an error.
    signed : bool
        It may be below 0.

    Returns
    -------
    int
        Picoseconds.

    Raises
    ------
    ValueError
        It can't be read, or is below 0.

    Examples
    --------
    >>> rounded_picoseconds("1.2345ns"), rounded_picoseconds(-3, signed=True)
    (1235, -3)
    """
    number = _number(value, "ps", what)
    if not math.isfinite(number) or (number < 0 and not signed):
        raise ValueError(f"{what}: a time{'' if signed else ' from 0 on'} is wanted, not {value!r}")
    return int(Decimal(number).to_integral_value(ROUND_HALF_UP))


def picoseconds(value: Time, what: str = "time", least: int = 1) -> int:
    """A time as whole picoseconds.

    Parameters
    ----------
    value : int, float, str, datetime.timedelta or pint quantity
        The time; a bare number is picoseconds.
    what : str
        What the time is, for the text of an error.
    least : int
        The least time that is allowed, ps.

    Returns
    -------
    int
        Picoseconds.

    Raises
    ------
    ValueError
        It can't be read, isn't whole, or is below `least`.

    Examples
    --------
    >>> picoseconds("12.5 ns"), picoseconds(300)
    (12500, 300)
    """
    result = whole(value, "ps", what)
    if result < least:
        raise ValueError(f"{what}: at least {least} ps, not {value!r}")
    return result


def milliseconds(value: Time, what: str = "duration") -> int:
    """A time as whole milliseconds, at least one: how long a run lasts.

    Parameters
    ----------
    value : int, float, str, datetime.timedelta or pint quantity
        The time; a bare number is picoseconds, as everywhere.
    what : str
        What the time is, for the text of an error.

    Returns
    -------
    int
        Milliseconds.

    Raises
    ------
    ValueError
        It isn't whole milliseconds; most often the unit was forgotten.

    Examples
    --------
    >>> milliseconds("10s")
    10000
    """
    ps = picoseconds(value, what)
    if ps % 10**9:
        raise ValueError(f'{what}: whole milliseconds are wanted, as "10s" or "250ms", not {value!r}')
    return ps // 10**9


def time_scale(range_ps: float) -> Tuple[float, str]:
    """The factor and the unit in which a range of picoseconds is easy to read.

    Examples
    --------
    >>> time_scale(25_000)
    (0.001, 'ns')
    """
    for factor, unit in ((1.0, "ps"), (1e-3, "ns"), (1e-6, "µs"), (1e-9, "ms")):
        if range_ps * factor < 2e3:
            return factor, unit
    return 1e-12, "s"
