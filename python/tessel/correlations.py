"""Results that are correlations, with the pairs that were counted and what a normalisation needs.

A value's uncertainty follows from its pairs alone (Poisson): sqrt(pairs), with at least 1 pair, on the scale of the
value. What neighbouring bins have in common, by the same molecules or the same intensity, isn't in it.
"""

from __future__ import annotations

import ctypes
from dataclasses import dataclass
from typing import Any, ClassVar, Dict, List, Optional, Tuple

import numpy as np
from numpy.typing import NDArray

from . import capi
from .results import Result, Times, Values, frozen
from .units import time_scale

Whole = NDArray[np.uint64]


def read_counts(wide_id: Optional[bytes], bins: int) -> Dict[str, Any]:
    """What the correlation of a device has counted, as arrays; zeros if it has not begun."""
    pairs, edges = np.zeros((4, bins), np.uint64), np.zeros(bins + 1, np.uint64)
    later, earlier = np.zeros((2, bins + 1), np.uint64), np.zeros((2, bins + 1), np.uint64)
    counts = capi.CorrelationCounts(size=ctypes.sizeof(capi.CorrelationCounts), capacity=bins + 1)
    padded = np.zeros((4, bins + 1), np.uint64)  # the library is told of one capacity for all
    counts.edges = _address(edges)
    for index in range(4):
        counts.pairs[index] = _address(padded[index])
    for index in range(2):
        counts.laterEvents[index] = _address(later[index])
        counts.earlierEvents[index] = _address(earlier[index])
    capi.tessel_getCorrelationCounts(wide_id, ctypes.byref(counts))
    pairs[:] = padded[:, :bins]
    last = np.array(counts.last, np.uint64)
    return {
        "pairs": pairs,
        "edges": edges,
        "later": later,
        "earlier": earlier,
        "events": np.array(counts.events, np.uint64),
        "first": np.array(counts.first, np.uint64),
        "last": last,
        "self_pairs": int(counts.selfPairs),
    }


def _address(array: Whole) -> Any:
    return array.ctypes.data_as(ctypes.POINTER(ctypes.c_uint64))


def _expected(edges: NDArray[Any], later: Whole, earlier: Whole, first: Whole, last: Whole) -> Values:
    """Pairs that independent streams of the same rates would have in each bin: at each edge the events that could be
    in a pair at that lag, over the time in which they lie, and the mean of both edges through the bin."""
    seen = first[last > 0]
    span = float(last.max()) - float(seen.min()) if seen.size else 0.0
    rest = span - edges.astype(np.float64)
    with np.errstate(divide="ignore", invalid="ignore"):
        density = np.where(rest > 0, later.astype(np.float64) * earlier / rest, 0.0)
    expected: Values = np.diff(edges).astype(np.float64) * (density[1:] + density[:-1]) / 2
    return expected


def _ratio(pairs: NDArray[Any], expected: Values) -> Values:
    with np.errstate(divide="ignore", invalid="ignore"):
        ratio: Values = pairs / expected
    return ratio


@dataclass(frozen=True, eq=False, repr=False)
class G2(Result):
    """Correlation of two channels in linear bins.

    g2(lag) = pairs x T / (n1 x n2 x bin width), with n the events of each channel and T the time measured.

    Attributes
    ----------
    values : (2 M,) float64
        Normalised: uncorrelated light is at 1. NaN where there is nothing to count.
    edges : (2 M + 1,) int64
        Bounds of the bins, ps. At lags above 0 `chan1` comes after `chan2`.
    chan1, chan2 : int
        The channels.
    bin_width : int
        ps.
    pairs : (2 M,) uint64
        What was counted. A pair at equal times is in both bins at lag 0.
    later, earlier : (2, M + 1) uint64
        Of each channel, how many events could be the later one, and the earlier one, of a pair at a lag of k x `bin_width`,
        between the first event of the two channels and the last.
    events, first, last : (2,) uint64
        Of each channel: events, time of the first and of the last, ps.
    self_pairs : int
        Of one channel: pairs of an event with itself, in both bins at lag 0.
    """

    values: Values
    edges: Times
    chan1: int
    chan2: int
    bin_width: int
    pairs: Whole
    later: Whole
    earlier: Whole
    events: Whole
    first: Whole
    last: Whole
    self_pairs: int

    kind: ClassVar[str] = "g2"
    _columns: ClassVar[Tuple[str, ...]] = ("lag_ps", "g2")

    @property
    def lag_ps(self) -> Values:
        """(2 M,) float64: the middle of each bin, ps."""
        return self.edges[:-1] + self.bin_width / 2

    @property
    def g2(self) -> Values:
        """The same as ``values``."""
        return self.values

    def expected(self) -> Values:
        """(2 M,) float64: pairs of independent channels with the same rates, on a common time of both directions.

        ``pairs / expected()`` is a normalisation without the step at lag 0 that ``values`` has where a channel
        starts or ends apart from the other.
        """
        middle = len(self.values) // 2
        span = self.first, self.last
        above = _expected(self.edges[middle:], self.later[0], self.earlier[1], *span)
        below = _expected(self.edges[middle:], self.later[1], self.earlier[0], *span)
        return np.concatenate([below[::-1], above])

    @property
    def sigma(self) -> Values:
        """(2 M,) float64: standard deviation of each value: Poisson in its pairs, of which at least 1."""
        return _ratio(np.sqrt(np.maximum(self.pairs, 1)), self.expected())

    def _draw(self, ax: Any) -> None:
        factor, unit = time_scale(float(self.edges[-1]))
        ax.plot(self.lag_ps * factor, self.values, drawstyle="steps-mid")
        ax.set_xlabel(f"Lag ({unit})")
        ax.set_ylabel(f"g2 of channels {self.chan1} and {self.chan2}")
        ax.set_ylim(bottom=0)

    def _facts(self) -> List[Tuple[str, str]]:
        bins = f"{len(self.values)} of {self.bin_width} ps"
        return [*super()._facts(), ("channels", f"{self.chan1} and {self.chan2}"), ("bins", bins)]


@dataclass(frozen=True, eq=False, repr=False)
class Fcs(Result):
    """Correlation of two channels in logarithmic bins.

    G(lag) = pairs x T / (n1 x n2 x bin width) - 1: of each channel with itself, and of both with each other, which is
    the mean of the two directions.

    Attributes
    ----------
    lag_ps : (points,) float64
        The middle of each bin, ps.
    auto1, cross, auto2 : (points,) float64
        Uncorrelated light is at 0; N molecules in the focus give 1 / N at short lags.
    chan1, chan2 : int
        The channels.
    fast : bool
        Counted in the faster way.
    edges : (bins + 1,) int64
        Bounds of the bins, ps.
    pairs : (4, bins) uint64
        `chan1` with itself; both, `chan1` later; both, `chan2` later; `chan2` with itself.
    later, earlier : (2, bins + 1) uint64
        Of each channel, how many events could be the later one, and the earlier one, of a pair at a lag of ``edges[k]``,
        between the first event of the two channels and the last.
    events, first, last : (2,) uint64
        Of each channel: events, time of the first and of the last, ps.
    """

    lag_ps: Values
    auto1: Values
    cross: Values
    auto2: Values
    chan1: int
    chan2: int
    fast: bool
    edges: Times
    pairs: Whole
    later: Whole
    earlier: Whole
    events: Whole
    first: Whole
    last: Whole

    kind: ClassVar[str] = "fcs"
    _columns: ClassVar[Tuple[str, ...]] = ("lag_ps", "auto1", "cross", "auto2")

    def expected(self) -> Values:
        """(4, bins) float64: pairs of independent channels with the same rates, row by row as ``pairs``."""
        rows = ((0, 0), (0, 1), (1, 0), (1, 1))
        span = self.first, self.last
        return np.array([_expected(self.edges, self.later[i], self.earlier[k], *span) for i, k in rows])

    @property
    def sigma(self) -> Values:
        """(3, bins) float64: standard deviation of ``auto1``, ``cross``, ``auto2``: Poisson in their pairs, of which
        at least 1."""
        expected, pairs = self.expected(), self.pairs
        rows = [(pairs[0], expected[0]), (pairs[1] + pairs[2], expected[1] + expected[2]), (pairs[3], expected[3])]
        return np.array([_ratio(np.sqrt(np.maximum(counted, 1)), by_chance) for counted, by_chance in rows])

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
