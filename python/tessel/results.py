"""What a run gives: frozen records of arrays, with how they came to be.

Times are int64 or uint64 picoseconds, counts uint32 of the shape that the record says. The arrays of a run that goes
on are the memory that the library fills: they grow while one looks. They can't be written to.
"""

from __future__ import annotations

import dataclasses
import html
import json
import os
from dataclasses import dataclass, field
from typing import Any, ClassVar, Dict, List, Optional, Tuple, Type, TypeVar, Union

import numpy as np
from numpy.typing import NDArray

from .errors import PackageMissing
from .units import time_scale

Counts = NDArray[np.uint32]
Times = NDArray[np.int64]
Values = NDArray[np.float64]

PathLike = Union[str, "os.PathLike[str]"]
R = TypeVar("R", bound="Result")


def optional_package(name: str, purpose: str) -> Any:
    """Imports what only this operation needs."""
    import importlib

    try:
        return importlib.import_module(name)
    except ImportError as problem:
        raise PackageMissing(f"{purpose} needs the package {name.split('.')[0]}, which isn't installed") from problem


@dataclass(frozen=True)
class RunInfo:
    """Where a result comes from.

    Attributes
    ----------
    source : str
        Path of the recording, or id of the instrument.
    parameters : dict
        What the measurement was asked for; times in ps.
    config : dict
        The device as ``getDeviceConfig`` gives it.
    description : dict
        The run as ``getMeasDescription`` gives it: stop reason, records read, rates.
    chain : list of dict
        The stages that the events passed, times in ps.
    channels : tuple of str
        Name of each row of a result with a row for each channel.
    losses : dict
        The ledger: by place what was lost; empty where nothing was.
    verdict : {"clean", "lossy", "invalid"}
        "lossy": something is missing. "invalid": times may be wrong as well.
    recording : dict or None
        Verdict and losses of the recording that the run read or wrote.
    complete : bool
        The run came to its end: that of the recording, or of the time that it was given.
    running : bool
        The run goes on, and the arrays grow.
    recorded : str or None
        The recording that the run wrote.
    version : str
        Of the package.
    """

    source: str = ""
    parameters: Dict[str, Any] = field(default_factory=dict)
    config: Dict[str, Any] = field(default_factory=dict)
    description: Dict[str, Any] = field(default_factory=dict)
    chain: List[Dict[str, Any]] = field(default_factory=list)
    channels: Tuple[str, ...] = ()
    losses: Dict[str, Any] = field(default_factory=dict)
    verdict: str = "clean"
    recording: Optional[Dict[str, Any]] = None
    complete: bool = False
    running: bool = False
    recorded: Optional[str] = None
    version: str = ""


@dataclass(frozen=True, eq=False)
class Result:
    """Base of all results: a run's arrays and its ``info``."""

    info: RunInfo

    kind: ClassVar[str] = ""
    # Name of each array, in the order of the columns of a table.
    _columns: ClassVar[Tuple[str, ...]] = ()

    @property
    def config(self) -> Dict[str, Any]:
        """The device, as ``getDeviceConfig`` gives it."""
        return self.info.config

    @property
    def chain(self) -> List[Dict[str, Any]]:
        """The stages that the events passed."""
        return self.info.chain

    @property
    def losses(self) -> Dict[str, Any]:
        """What was lost, by place."""
        return self.info.losses

    @property
    def verdict(self) -> str:
        """``"clean"``, ``"lossy"`` (something is missing) or ``"invalid"`` (times may be wrong as well)."""
        return self.info.verdict

    @property
    def complete(self) -> bool:
        """The run came to its end."""
        return self.info.complete

    def arrays(self) -> Dict[str, NDArray[Any]]:
        """The arrays by name."""
        found = {each.name: getattr(self, each.name) for each in dataclasses.fields(self)}
        return {name: value for name, value in found.items() if isinstance(value, np.ndarray)}

    def copy(self: R) -> R:
        """The same with arrays of its own, which no longer grow.

        Returns
        -------
        Result
            Of the same class.
        """
        return dataclasses.replace(self, **{name: frozen(array.copy()) for name, array in self.arrays().items()})

    def save(self, path: PathLike) -> None:
        """Writes the result as NPZ: an array a name, and ``json``, which holds all else as text.

        Parameters
        ----------
        path : path
            The file, written whole or not at all. ``numpy.load`` reads it too.

        Raises
        ------
        OSError
            The file can't be written.

        Examples
        --------
        >>> decays.save("decays.npz")
        >>> tessel.load("decays.npz").counts.sum() == decays.counts.sum()
        True
        """
        plain = {
            each.name: getattr(self, each.name)
            for each in dataclasses.fields(self)
            if each.name != "info" and not isinstance(getattr(self, each.name), np.ndarray)
        }
        text = json.dumps({"kind": self.kind, "info": dataclasses.asdict(self.info), "fields": plain})
        written = os.fspath(path) + ".part"
        with open(written, "wb") as file:
            np.savez_compressed(file, json=np.array(text), **self.arrays())
        os.replace(written, path)

    def to_dataframe(self) -> Any:
        """The result as a ``pandas.DataFrame``; needs pandas.

        Returns
        -------
        pandas.DataFrame
            A line a bin, a column an array or a channel; ``attrs`` holds what ``info`` says.

        Raises
        ------
        PackageMissing
            There is no pandas.
        """
        pandas = optional_package("pandas", "to_dataframe()")
        frame = pandas.DataFrame(self._table())
        frame.attrs.update(kind=self.kind, source=self.info.source, verdict=self.verdict)
        return frame

    def to_xarray(self) -> Any:
        """The result as an ``xarray.Dataset`` with its axes as coordinates; needs xarray.

        Raises
        ------
        PackageMissing
            There is no xarray.
        """
        xarray = optional_package("xarray", "to_xarray()")
        return self._dataset(xarray).assign_attrs(kind=self.kind, source=self.info.source, verdict=self.verdict)

    def plot(self, ax: Any = None) -> Any:
        """Draws the result; needs matplotlib.

        Parameters
        ----------
        ax : matplotlib.axes.Axes, optional
            Where to; by default axes of a new figure.

        Returns
        -------
        matplotlib.axes.Axes

        Raises
        ------
        PackageMissing
            There is no matplotlib.
        """
        if ax is None:
            _, ax = optional_package("matplotlib.pyplot", "plot()").subplots()
        self._draw(ax)
        state = "" if self.complete else " (running)" if self.info.running else " (not complete)"
        ax.set_title(os.path.basename(self.info.source) + state)
        return ax

    def _table(self) -> Dict[str, NDArray[Any]]:
        return {name: getattr(self, name) for name in self._columns}

    def _dataset(self, xarray: Any) -> Any:
        axis, *rest = self._columns
        return xarray.Dataset({name: (axis, getattr(self, name)) for name in rest}, {axis: getattr(self, axis)})

    def _draw(self, ax: Any) -> None:
        raise NotImplementedError

    def _facts(self) -> List[Tuple[str, str]]:
        return [("source", self.info.source), ("verdict", self.verdict), ("complete", str(self.complete))]

    def __repr__(self) -> str:
        return f"<{type(self).__name__} " + ", ".join(f"{name} {value}" for name, value in self._facts()) + ">"

    def _repr_html_(self) -> str:
        lines = "".join(
            f"<tr><th style='text-align:left'>{html.escape(name)}</th><td>{html.escape(value)}</td></tr>"
            for name, value in self._facts()
        )
        return f"<table><caption>{type(self).__name__}</caption>{lines}</table>"


def frozen(array: NDArray[Any]) -> NDArray[Any]:
    """The same memory, which can't be written to."""
    view = array.view()
    view.flags.writeable = False
    return view


def _channel_columns(names: Tuple[str, ...], rows: NDArray[Any]) -> Dict[str, NDArray[Any]]:
    """A column for each row; a name that comes twice gets its number."""
    columns: Dict[str, NDArray[Any]] = {}
    for number, (name, row) in enumerate(zip(names, rows)):
        columns[name if name not in columns else f"{name} ({number})"] = row
    return columns


@dataclass(frozen=True, eq=False, repr=False)
class Histogram(Result):
    """Counts by the time since the sync (T3) or since a reference channel (T2).

    Attributes
    ----------
    counts : (rows, bins) uint32
        A row a channel: 0 the sync, then the inputs, then the channels of the chain.
    edges : (bins + 1,) int64
        Bounds of the bins, ps. A bin holds its lower bound and not its upper one.
    bin_width : int
        ps.
    reference : int
        The channel that times count from; 0 in T3.
    sync_period : float
        ps; 0 where there is no sync.
    """

    counts: Counts
    edges: Times
    bin_width: int
    reference: int = 0
    sync_period: float = 0.0

    kind: ClassVar[str] = "histogram"

    @property
    def channels(self) -> Tuple[str, ...]:
        """Name of each row."""
        return self.info.channels

    @property
    def centres(self) -> Values:
        """(bins,) float64: the middle of each bin, ps."""
        return self.edges[:-1] + self.bin_width / 2

    @property
    def sigma(self) -> Values:
        """(rows, bins) float64: standard deviation of each count, its square root (Poisson)."""
        return np.sqrt(self.counts, dtype=np.float64)

    def shown_bins(self) -> int:
        """How many bins are worth a look: to the sync period, or to the last that has a count."""
        used = np.flatnonzero(self.counts.any(axis=0))
        last = int(used[-1]) + 1 if used.size else 1
        period = int(self.sync_period / self.bin_width) if self.bin_width else 0
        return period if 1 <= period < last else last

    def _table(self) -> Dict[str, NDArray[Any]]:
        return {"time_ps": self.edges[:-1], **_channel_columns(self.channels, self.counts)}

    def _dataset(self, xarray: Any) -> Any:
        return xarray.Dataset(
            {"counts": (("channel", "time_ps"), self.counts)},
            {"channel": list(self.channels), "time_ps": self.edges[:-1]},
        )

    def _draw(self, ax: Any) -> None:
        bins = self.shown_bins()
        factor, unit = time_scale(float(self.edges[bins]))
        for name, row in zip(self.channels, self.counts):
            if row.any():
                ax.step(self.edges[:bins] * factor, row[:bins], where="post", label=f"{name} ({row.sum()})")
        ax.set_yscale("symlog", linthresh=1)
        ax.set_xlabel(f"Time since the {'reference' if self.reference else 'sync'} ({unit})")
        ax.set_ylabel(f"Counts per {self.bin_width} ps")
        if self.counts.any():
            ax.legend()

    def _facts(self) -> List[Tuple[str, str]]:
        totals = ", ".join(f"{name} {row.sum()}" for name, row in zip(self.channels, self.counts))
        shape = f"{self.counts.shape[1]} of {self.bin_width} ps"
        return [*super()._facts(), ("bins", shape), ("counts", totals)]


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
    """

    values: Values
    edges: Times
    chan1: int
    chan2: int
    bin_width: int

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
    """

    lag_ps: Values
    auto1: Values
    cross: Values
    auto2: Values
    chan1: int
    chan2: int
    fast: bool

    kind: ClassVar[str] = "fcs"
    _columns: ClassVar[Tuple[str, ...]] = ("lag_ps", "auto1", "cross", "auto2")

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


@dataclass(frozen=True, eq=False, repr=False)
class Trace(Result):
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

    counts: Counts
    edges: Times
    bin_width: int

    kind: ClassVar[str] = "trace"

    @property
    def channels(self) -> Tuple[str, ...]:
        """Name of each row."""
        return self.info.channels

    @property
    def rates(self) -> Values:
        """(rows, bins) float64: counts per second."""
        return self.counts * (1e12 / self.bin_width)

    @property
    def sigma(self) -> Values:
        """(rows, bins) float64: standard deviation of each count, its square root (Poisson)."""
        return np.sqrt(self.counts, dtype=np.float64)

    def _table(self) -> Dict[str, NDArray[Any]]:
        return {"time_ps": self.edges[:-1], **_channel_columns(self.channels, self.counts)}

    def _dataset(self, xarray: Any) -> Any:
        return xarray.Dataset(
            {"counts": (("channel", "time_ps"), self.counts)},
            {"channel": list(self.channels), "time_ps": self.edges[:-1]},
        )

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


@dataclass(frozen=True, eq=False, repr=False)
class Recorded(Result):
    """A recording that a run wrote; ``info.recorded`` is its path, ``info.recording`` its verdict and losses."""

    kind: ClassVar[str] = "record"

    def _facts(self) -> List[Tuple[str, str]]:
        return [*super()._facts(), ("recorded", str(self.info.recorded))]


def _as_tuple(value: Any) -> Any:
    return tuple(value) if isinstance(value, list) else value


def load(path: PathLike) -> Result:
    """Reads a result that ``Result.save`` wrote.

    Parameters
    ----------
    path : path
        The NPZ file.

    Returns
    -------
    Result
        Of the class that was saved, with the same arrays.

    Raises
    ------
    OSError
        The file can't be read.
    ValueError
        It holds no result of this package.
    """
    with np.load(path, allow_pickle=False) as archive:
        if "json" not in archive:
            raise ValueError(f"{os.fspath(path)}: not a result of this package")
        about = json.loads(str(archive["json"]))
        arrays = {name: frozen(archive[name]) for name in archive.files if name != "json"}
    made = {each.kind: each for each in _all_kinds()}.get(about.get("kind"))
    if made is None:
        raise ValueError(f"{os.fspath(path)}: a result of a kind that isn't known, {about.get('kind')!r}")
    info = RunInfo(**{name: _as_tuple(v) if name == "channels" else v for name, v in about["info"].items()})
    result: Result = made(info=info, **{name: _as_tuple(v) for name, v in about["fields"].items()}, **arrays)
    return result


def _all_kinds() -> List[Type[Any]]:
    return [Histogram, G2, Fcs, Trace, Hist2d, Recorded]
