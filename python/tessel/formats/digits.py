"""Whole numbers as text and back, a block of rows at a time, by array operations alone.

A column is written four digits at a time by a table, with leading zeros, which are then left out of all rows at once.
"""

from __future__ import annotations

import functools
import warnings
from typing import Any, List, Optional, Sequence

import numpy as np
from numpy.typing import NDArray

_MOST = np.iinfo(np.int64).max


@functools.lru_cache(maxsize=1)
def _quads() -> NDArray[np.uint32]:
    """The text of each number below 10000, four digits in one word."""
    return np.frombuffer(b"".join(b"%04d" % number for number in range(10000)), np.uint32)


def _fill(column: NDArray[Any], text: NDArray[np.uint8], keep: NDArray[np.bool_]) -> None:
    """Writes a column into its characters, and marks those that aren't leading zeros."""
    quads = text.shape[1] // 4
    words = np.empty((len(column), quads), np.uint32)
    rest = column
    for quad in range(quads - 1, 0, -1):
        high = rest // 10000
        words[:, quad] = _quads()[(rest - high * 10000).astype(np.intp)]
        rest = high
    words[:, 0] = _quads()[rest.astype(np.intp)]
    text[:] = words.view(np.uint8)
    for place in range(text.shape[1] - 1):
        keep[:, place] = column >= 10 ** (text.shape[1] - 1 - place)


def rows_of_text(columns: Sequence[NDArray[Any]]) -> bytes:
    """A line for each row, with commas between its numbers.

    Parameters
    ----------
    columns : sequence of (n,) unsigned integers
        The columns.

    Returns
    -------
    bytes

    Examples
    --------
    >>> rows_of_text([np.array([7, 12500], np.uint64), np.array([1, 0], np.uint8)])
    b'7,1\\n12500,0\\n'
    """
    if not len(columns[0]):
        return b""
    # 32 bits where they are enough: half of the work.
    wide = [column.astype(np.uint32 if column.max() < 2**32 else np.uint64, copy=False) for column in columns]
    widths = [-(-len(str(int(column.max()))) // 4) * 4 for column in wide]
    text = np.empty((len(wide[0]), sum(widths) + len(widths)), np.uint8)
    keep = np.ones(text.shape, bool)
    at = 0
    for column, width in zip(wide, widths):
        part = slice(at, at + width)
        _fill(column, text[:, part], keep[:, part])
        at += width + 1
        text[:, at - 1] = ord(",")
    text[:, -1] = ord("\n")
    written: bytes = text[keep].tobytes()
    return written


def table_of(text: bytes, delimiter: str, columns: int) -> Optional[NDArray[np.int64]]:
    """Lines of whole numbers, all with as many columns, as a table; None if there is anything else in them.

    Examples
    --------
    >>> table_of(b"7,1\\n12500,0\\n", ",", 2).tolist(), table_of(b"7,1\\n1.5,0\\n", ",", 2)
    ([[7, 1], [12500, 0]], None)
    """
    separator = delimiter.encode()
    if len(separator) != 1:
        return None
    if b"\r" in text:
        text = text.replace(b"\r\n", b"\n")
    if not text.endswith(b"\n"):
        text += b"\n"
    letters = np.frombuffer(text, np.uint8)
    ends = letters[(letters == separator[0]) | (letters == ord("\n"))]
    if ends.size % columns or (ends.reshape(-1, columns) != _line_end(separator[0], columns)).any():
        return None
    with warnings.catch_warnings():
        warnings.simplefilter("error")  # which a text that isn't read to its end is
        try:
            numbers = np.fromstring(text.replace(b"\n", separator), np.int64, sep=delimiter)
        except (DeprecationWarning, ValueError):
            return None
    # A number that is too big reads as the biggest.
    if numbers.size != ends.size or numbers.max() == _MOST or numbers.min() == -_MOST - 1:
        return None
    table: NDArray[np.int64] = numbers.reshape(-1, columns)
    return table


def _line_end(separator: int, columns: int) -> List[int]:
    return [separator] * (columns - 1) + [ord("\n")]
