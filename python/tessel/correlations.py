"""Results that are correlations: the pairs that were counted, and curves that follow from them.

A value's uncertainty is Poisson in its pairs, of which at least 1, on the scale of the value. What neighbouring bins
have in common, by the same molecules or the same intensity, isn't in it.
"""

from __future__ import annotations

import ctypes
from dataclasses import dataclass
from typing import Any, ClassVar, Dict, List, Optional, Tuple

import numpy as np
from numpy.typing import NDArray

from . import capi
from .results import Result, Times, Values
from .units import time_scale

Whole = NDArray[np.uint64]


def read_counts(wide_id: Optional[bytes], bins: int) -> Dict[str, Any]:
    """What the correlation of a device has counted, as arrays; zeros if it has not begun."""
    room = bins + 1
    pairs, edges = np.zeros((4, room), np.uint64), np.zeros(room, np.uint64)
    later, earlier = np.zeros((2, room), np.uint64), np.zeros((2, room), np.uint64)
    counts = capi.CorrelationCounts(size=ctypes.sizeof(capi.CorrelationCounts), capacity=room)
    counts.edges = _address(edges)
    for index in range(4):
        counts.pairs[index] = _address(pairs[index])
    for index in range(2):
        counts.laterEvents[index] = _address(later[index])
        counts.earlierEvents[index] = _address(earlier[index])
    capi.tessel_getCorrelationCounts(wide_id, ctypes.byref(counts))
    terms = {name: np.array(getattr(counts, name), np.uint64) for name in ("events", "first", "last")}
    return {
        "pairs": pairs[:, :bins],
        "edges": edges.astype(np.int64),
        "later": later,
        "earlier": earlier,
        "self_pairs": int(counts.selfPairs),
        **terms,
    }


def _address(array: Whole) -> Any:
    return array.ctypes.data_as(ctypes.POINTER(ctypes.c_uint64))


def _span(first: Whole, last: Whole) -> int:
    """From the first event of the two channels to the last, ps; a channel without events has 0 for both."""
    begun = [int(each) for each in first if each > 0]
    return int(last.max()) - min(begun) if begun else 0


def _ratio(counted: NDArray[Any], expected: Values) -> Values:
    with np.errstate(divide="ignore", invalid="ignore"):
        ratio: Values = np.where(expected > 0, counted / expected, np.nan)
    return ratio


def _sigma(pairs: NDArray[Any], expected: Values) -> Values:
    return _ratio(np.sqrt(np.maximum(pairs, 1)), expected)


@dataclass(frozen=True, eq=False, repr=False)
class G2(Result):
    """Correlation of two channels in linear bins: g2(lag) = pairs x T / (n1 x n2 x bin width).

    n1 and n2 are the events of each channel, T the time from the first event of the two channels to the last, or as
    `spans_ps` says. All of these are summed where several runs are merged.

    Attributes
    ----------
    pairs : (2 M,) uint64
        What was counted; a pair at equal times is in both bins at lag 0. Without the pairs of an event with itself.
    edges : (2 M + 1,) int64
        Bounds of the bins, ps. At lags above 0 `chan1` comes later.
    events, first, last : (2,) uint64
        Of each channel: events, time of the first and of the last, ps.
    spans_ps : (2,) uint64
        T of the lags below 0, and of those above, ps.
    filled : (2 M,) float64
        What the library fills by itself; it takes for T, in each half, the time of the channel that comes later. NaN
        where several runs were merged.
    chan1, chan2 : int
        The channels.
    bin_width : int
        ps.
    """

    pairs: Whole
    edges: Times
    events: Whole
    first: Whole
    last: Whole
    spans_ps: Whole
    filled: Values
    chan1: int
    chan2: int
    bin_width: int

    kind: ClassVar[str] = "g2"
    units: ClassVar[Dict[str, str]] = {
        name: "ps" for name in ("lag_ps", "edges", "first", "last", "spans_ps", "bin_width")
    }
    _merged: ClassVar[Dict[str, str]] = {
        **{name: "sum" for name in ("pairs", "events", "spans_ps")},
        **{"first": "least", "last": "most", "filled": "none"},
    }
    _columns: ClassVar[Tuple[str, ...]] = ("lag_ps", "values", "sigma", "pairs")

    @property
    def lag_ps(self) -> Values:
        """(2 M,) float64: the middle of each bin, ps."""
        return self.edges[:-1] + self.bin_width / 2

    @property
    def expected(self) -> Values:
        """(2 M,) float64: pairs of independent channels with the same rates."""
        both = float(self.events[0]) * float(self.events[1]) * self.bin_width
        by_chance = [both / float(span) if span else 0.0 for span in self.spans_ps]
        return np.repeat(by_chance, len(self.pairs) // 2)

    @property
    def values(self) -> Values:
        """(2 M,) float64: g2; uncorrelated light is at 1. NaN where there is nothing to count."""
        return _ratio(self.pairs, self.expected)

    @property
    def sigma(self) -> Values:
        """(2 M,) float64: standard deviation of each value: Poisson in its pairs, of which at least 1."""
        return _sigma(self.pairs, self.expected)

    def _draw(self, ax: Any) -> None:
        factor, unit = time_scale(float(self.edges[-1]))
        ax.plot(self.lag_ps * factor, self.values, drawstyle="steps-mid")
        ax.set_xlabel(f"Lag ({unit})")
        ax.set_ylabel(f"g2 of channels {self.chan1} and {self.chan2}")
        ax.set_ylim(bottom=0)

    def _facts(self) -> List[Tuple[str, str]]:
        bins = f"{len(self.pairs)} of {self.bin_width} ps"
        pairs = f"{self.pairs.sum()} of {self.events[0]} and {self.events[1]} events"
        return [*super()._facts(), ("channels", f"{self.chan1} and {self.chan2}"), ("bins", bins), ("pairs", pairs)]


def g2_of(
    info: Any, counted: Dict[str, Any], filled: Values, edges: Times, chan1: int, chan2: int, width: int, span: str
) -> G2:
    """The result of what was counted; of one channel both halves are the same."""
    above, below = counted["pairs"][0].copy(), counted["pairs"][0 if chan1 == chan2 else 1].copy()
    for half in (above, below):
        half[0] -= counted["self_pairs"]
    pairs = np.concatenate([below[::-1], above])
    first, last = counted["first"], counted["last"]
    common = _span(first, last)
    spans = [common, common] if span == "common" else [int(last[later]) - int(first[later]) for later in (1, 0)]
    terms = counted["events"], first, last, np.array(spans, np.uint64)
    return G2(info, pairs, edges, *terms, filled, chan1, chan2, width)


# Rows of the pairs in a cross-correlation.
_CROSS_ROWS = {"both": (1, 2), "chan1": (1,), "chan2": (2,)}


def fcs_terms(counted: Dict[str, Any]) -> Dict[str, Any]:
    """T, and what is left of it at each lag."""
    span, edges = _span(counted["first"], counted["last"]), counted["edges"]
    return {"span_ps": span, "rest": np.maximum(0, 2 * span - edges[1:] - edges[:-1])}


@dataclass(frozen=True, eq=False, repr=False)
class Fcs(Result):
    """Correlation of two channels in logarithmic bins: G(lag) = pairs / expected - 1.

    All pairs count, from the first event on. Expected of independent channels are, in the time T from the first event
    of the two channels to the last, later(lag) x earlier(lag) x bin width / (T - lag), with the events that could be
    the later one, and the earlier one, of a pair at the lag: the symmetric normalisation. With `norm` "mean" they are
    n1 x n2 x bin width x (T - lag) / T^2, with all events. All of these are summed where several runs are merged.

    Attributes
    ----------
    lag_ps : (bins,) float64
        The middle of each bin, ps.
    pairs : (4, bins) uint64
        `chan1` with itself; both, `chan1` later; both, `chan2` later; `chan2` with itself.
    edges : (bins + 1,) int64
        Bounds of the bins, ps. A bin holds its upper one; counted in the faster way, its lower one.
    later, earlier : (2, bins + 1) uint64
        Of each channel, how many events could be the later one, and the earlier one, of a pair at ``edges[k]``.
    events, first, last : (2,) uint64
        Of each channel: events, time of the first and of the last, ps.
    span_ps : int
        T, ps.
    rest : (bins,) int64
        Twice T - lag, ps, at the middle of each bin: twice, since it is whole then; 0 for lags beyond T.
    filled : (3, bins) float64
        What the library fills by itself, with all events and the time measured: pairs x T / (n1 x n2 x width) - 1. NaN
        where several runs were merged.
    chan1, chan2 : int
        The channels.
    fast : bool
        Counted in the faster way.
    norm : {"symmetric", "mean"}
        What the curves are normalised by.
    later_channel : {"both", "chan1", "chan2"}
        Whose event is the later one in ``cross``.
    """

    lag_ps: Values
    pairs: Whole
    edges: Times
    later: Whole
    earlier: Whole
    events: Whole
    first: Whole
    last: Whole
    span_ps: int
    rest: Times
    filled: Values
    chan1: int
    chan2: int
    fast: bool
    norm: str
    later_channel: str

    kind: ClassVar[str] = "fcs"
    units: ClassVar[Dict[str, str]] = {name: "ps" for name in ("lag_ps", "edges", "first", "last", "span_ps", "rest")}
    _merged: ClassVar[Dict[str, str]] = {
        **{name: "sum" for name in ("pairs", "later", "earlier", "events", "span_ps", "rest")},
        **{"first": "least", "last": "most", "filled": "none"},
    }
    _columns: ClassVar[Tuple[str, ...]] = ("lag_ps", "auto1", "cross", "auto2")

    @property
    def expected(self) -> Values:
        """(4, bins) float64: pairs of independent channels with the same rates, row by row as ``pairs``."""
        rest, widths = self.rest / 2, np.diff(self.edges)
        with np.errstate(divide="ignore", invalid="ignore"):
            if self.norm == "mean":
                span = float(self.span_ps)
                rates = [float(a) * float(b) / (span * span) if span else 0.0 for a in self.events for b in self.events]
                mean: Values = np.array(rates)[:, None] * rest * widths
                return mean
            later, earlier = ((each[:, 1:].astype(np.float64) + each[:, :-1]) / 2 for each in (self.later, self.earlier))
            rows = [later[i] * earlier[k] for i in (0, 1) for k in (0, 1)]
            expected: Values = np.where(rest > 0, np.array(rows) / rest * widths, 0.0)
        return expected

    def _curve(self, *rows: int) -> Tuple[NDArray[Any], Values]:
        expected = self.expected
        return sum(self.pairs[row] for row in rows), sum(expected[row] for row in rows)

    @property
    def auto1(self) -> Values:
        """(bins,) float64: G of `chan1` with itself; uncorrelated light is at 0, N molecules at 1 / N."""
        return _ratio(*self._curve(0)) - 1

    @property
    def cross(self) -> Values:
        """(bins,) float64: G of both channels with each other, in both directions or as `later_channel` says."""
        return _ratio(*self._curve(*_CROSS_ROWS[self.later_channel])) - 1

    @property
    def auto2(self) -> Values:
        """(bins,) float64: G of `chan2` with itself."""
        return _ratio(*self._curve(3)) - 1

    @property
    def sigma(self) -> Values:
        """(3, bins) float64: standard deviation of ``auto1``, ``cross``, ``auto2``: Poisson in their pairs, of which at
        least 1."""
        return np.array([_sigma(*self._curve(*rows)) for rows in ((0,), _CROSS_ROWS[self.later_channel], (3,))])

    def _table(self) -> Dict[str, NDArray[Any]]:
        sigmas = dict(zip(("auto1_sigma", "cross_sigma", "auto2_sigma"), self.sigma))
        return {**super()._table(), **sigmas}

    def _draw(self, ax: Any) -> None:
        ax.plot(self.lag_ps * 1e-12, self.auto1, label=f"channel {self.chan1}")
        if self.chan1 != self.chan2:
            ax.plot(self.lag_ps * 1e-12, self.cross, label=f"channels {self.chan1} and {self.chan2}")
            ax.plot(self.lag_ps * 1e-12, self.auto2, label=f"channel {self.chan2}")
        ax.set_xscale("log")
        ax.set_xlabel("Lag (s)")
        ax.set_ylabel("G")
        ax.legend()

    def _facts(self) -> List[Tuple[str, str]]:
        lags = f"{len(self.lag_ps)} from {self.lag_ps[0]:.0f} to {self.lag_ps[-1]:.0f} ps"
        return [*super()._facts(), ("channels", f"{self.chan1} and {self.chan2}"), ("lags", lags)]
