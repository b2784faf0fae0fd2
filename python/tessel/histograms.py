"""Results that are counts: histograms, traces, pairs of times."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any, ClassVar, Dict, List, Tuple

import numpy as np
from numpy.typing import NDArray

from .results import Counts, Result, Times, Values
from .units import time_scale


def _channel_columns(names: Tuple[str, ...], rows: NDArray[Any]) -> Dict[str, NDArray[Any]]:
    """A column for each row; a name that comes twice gets its number."""
    columns: Dict[str, NDArray[Any]] = {}
    for number, (name, row) in enumerate(zip(names, rows)):
        columns[name if name not in columns else f"{name} ({number})"] = row
    return columns


@dataclass(frozen=True, eq=False, repr=False)
class _PerChannel(Result):
    """Counts in bins of time, a row a channel."""

    counts: Counts
    edges: Times
    bin_width: float

    @property
    def channels(self) -> Tuple[str, ...]:
        """Name of each row."""
        return self.info.channels

    @property
    def sigma(self) -> Values:
        """(rows, bins) float64: standard deviation of each count, its square root (Poisson)."""
        return np.sqrt(self.counts, dtype=np.float64)

    @property
    def centres(self) -> Values:
        """(bins,) float64: the middle of each bin, ps."""
        return self.edges[:-1] + np.diff(self.edges) / 2

    def _table(self) -> Dict[str, NDArray[Any]]:
        return {"time_ps": self.edges[:-1], **_channel_columns(self.channels, self.counts)}

    def _dataset(self, xarray: Any) -> Any:
        return xarray.Dataset(
            {"counts": (("channel", "time_ps"), self.counts)},
            {"channel": list(self.channels), "time_ps": self.edges[:-1]},
        )


@dataclass(frozen=True, eq=False, repr=False)
class Histogram(_PerChannel):
    """Counts by the time since the sync (T3) or since a reference channel (T2).

    Attributes
    ----------
    counts : (rows, bins) uint32
        A row a channel: 0 the sync, then the inputs, then the channels of the chain.
    edges : (bins + 1,) int64
        Bounds of the bins, ps. A bin holds its lower bound and not its upper one.
    bin_width : float
        ps; whole, unless a dtime of the recording isn't. Then edges are the nearest whole ones.
    reference : int
        The channel that times count from; 0 in T3.
    sync_period : float
        ps; 0 where there is no sync.
    """

    reference: int = 0
    sync_period: float = 0.0

    kind: ClassVar[str] = "histogram"
    units: ClassVar[Dict[str, str]] = {name: "ps" for name in ("edges", "centres", "bin_width", "sync_period")}
    _merged: ClassVar[Dict[str, str]] = {"counts": "sum", "sync_period": "first"}

    def shown_bins(self) -> int:
        """How many bins are worth a look: to the sync period, or to the last that has a count."""
        used = np.flatnonzero(self.counts.any(axis=0))
        last = int(used[-1]) + 1 if used.size else 1
        period = int(self.sync_period / self.bin_width) if self.bin_width else 0
        return period if 1 <= period < last else last

    def _draw(self, ax: Any) -> None:
        bins = self.shown_bins()
        factor, unit = time_scale(float(self.edges[bins]))
        for name, row in zip(self.channels, self.counts):
            if row.any():
                ax.step(self.edges[:bins] * factor, row[:bins], where="post", label=f"{name} ({row.sum()})")
        ax.set_yscale("symlog", linthresh=1)
        ax.set_xlabel(f"Time since the {'reference' if self.reference else 'sync'} ({unit})")
        ax.set_ylabel(f"Counts per {self.bin_width:.6g} ps")
        if self.counts.any():
            ax.legend()

    def _facts(self) -> List[Tuple[str, str]]:
        totals = ", ".join(f"{name} {row.sum()}" for name, row in zip(self.channels, self.counts))
        shape = f"{self.counts.shape[1]} of {self.bin_width:.6g} ps"
        return [*super()._facts(), ("bins", shape), ("counts", totals)]


@dataclass(frozen=True, eq=False, repr=False)
class Trace(_PerChannel):
    """Counts of each channel in bins of time.

    Attributes
    ----------
    counts : (rows, bins) uint32
        A row a channel: 0 the sync, then the inputs, then the channels of the chain.
    edges : (bins + 1,) int64
        Bounds of the bins, ps since the start of the run. The last bin of a run may be cut short.
    bin_width : int
        ps.
    """

    kind: ClassVar[str] = "trace"
    units: ClassVar[Dict[str, str]] = {"edges": "ps", "centres": "ps", "bin_width": "ps", "rates": "1/s"}

    @property
    def rates(self) -> Values:
        """(rows, bins) float64: counts per second."""
        return self.counts * (1e12 / self.bin_width)

    def _draw(self, ax: Any) -> None:
        factor, unit = time_scale(float(self.edges[-1]))
        for name, row in zip(self.channels, self.counts):
            if row.any():
                ax.step(self.edges[:-1] * factor, row, where="post", label=name)
        ax.set_xlabel(f"Time ({unit})")
        ax.set_ylabel(f"Counts per {self.bin_width * time_scale(self.bin_width)[0]:g} {time_scale(self.bin_width)[1]}")
        if self.counts.any():
            ax.legend()

    def _facts(self) -> List[Tuple[str, str]]:
        return [*super()._facts(), ("bins", f"{self.counts.shape[1]} of {self.bin_width} ps")]


@dataclass(frozen=True, eq=False, repr=False)
class Hist2d(Result):
    """Pairs of events by the times of both.

    Attributes
    ----------
    counts : (bins of y, bins of x) uint32
    x_edges, y_edges : (bins + 1,) int64
        Bounds of the bins, ps.
    chan_x, chan_y : int
        The channels.
    """

    counts: Counts
    x_edges: Times
    y_edges: Times
    chan_x: int
    chan_y: int

    kind: ClassVar[str] = "hist2d"
    units: ClassVar[Dict[str, str]] = {f"{axis}_{name}": "ps" for axis in "xy" for name in ("edges", "centres")}
    _merged: ClassVar[Dict[str, str]] = {"counts": "sum"}

    @property
    def x_centres(self) -> Values:
        """(bins,) float64: the middle of each bin of x, ps."""
        return self.x_edges[:-1] + np.diff(self.x_edges) / 2

    @property
    def y_centres(self) -> Values:
        """(bins,) float64: the middle of each bin of y, ps."""
        return self.y_edges[:-1] + np.diff(self.y_edges) / 2

    @property
    def sigma(self) -> Values:
        """Standard deviation of each count, its square root (Poisson)."""
        return np.sqrt(self.counts, dtype=np.float64)

    def _table(self) -> Dict[str, NDArray[Any]]:
        y, x = np.meshgrid(self.y_edges[:-1], self.x_edges[:-1], indexing="ij")
        return {"x_ps": x.ravel(), "y_ps": y.ravel(), "counts": self.counts.ravel()}

    def _dataset(self, xarray: Any) -> Any:
        return xarray.Dataset(
            {"counts": (("y_ps", "x_ps"), self.counts)}, {"y_ps": self.y_edges[:-1], "x_ps": self.x_edges[:-1]}
        )

    def _draw(self, ax: Any) -> None:
        x, x_unit = time_scale(float(self.x_edges[-1]))
        y, y_unit = time_scale(float(self.y_edges[-1]))
        ax.pcolormesh(self.x_edges * x, self.y_edges * y, self.counts)
        ax.set_xlabel(f"Channel {self.chan_x} ({x_unit})")
        ax.set_ylabel(f"Channel {self.chan_y} ({y_unit})")

    def _facts(self) -> List[Tuple[str, str]]:
        shape = " x ".join(str(each) for each in self.counts.shape)
        return [*super()._facts(), ("bins", shape), ("pairs", str(self.counts.sum()))]
