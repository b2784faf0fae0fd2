"""What a run gives: frozen records of arrays, with how they came to be.

Times are int64 or uint64 picoseconds, counts uint32 of the shape that the record says. The arrays of a run that goes
on are the memory that the library fills: they grow while one looks. They can't be written to.
"""

from __future__ import annotations

import contextlib
import dataclasses
import json
import os
import threading
import zipfile
import zlib
from dataclasses import dataclass, field
from typing import Any, ClassVar, Dict, List, Optional, Tuple, Type, TypeVar, Union

import numpy as np
from numpy.typing import NDArray

from .errors import PackageMissing, TesselError

# uint32 as the library counts, uint64 where runs were merged.
Counts = NDArray[np.unsignedinteger[Any]]
Times = NDArray[np.int64]
Values = NDArray[np.float64]

PathLike = Union[str, "os.PathLike[str]"]
R = TypeVar("R", bound="Result")

# The classes of results by their kind, as a saved file names them.
_kinds: Dict[Any, Type[Any]] = {}


def _of_numpy(number: Any) -> Any:
    """A NumPy integer, as channels and numbers of bins often are, for JSON."""
    if isinstance(number, np.generic):
        return number.item()
    raise TypeError(f"{number!r} can't be saved")


def optional_package(name: str, purpose: str) -> Any:
    """Imports what only this operation needs."""
    import importlib

    try:
        return importlib.import_module(name)
    except ImportError as problem:
        raise PackageMissing(f"{purpose} needs the package {name.split('.')[0]}, which isn't installed") from problem


def worst_verdict(*verdicts: str) -> str:
    """The worst of them, from clean over lossy to invalid."""
    return max(verdicts, key=("clean", "lossy", "invalid").index)


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
    order : dict
        Events that go back in time: ``stepsBack``, ``largestStepPs``; with a sort stage ``unsorted``, those that were
        too late for it.
    recording : dict or None
        Verdict and losses of the recording that the run read or wrote.
    complete : bool
        The run came to its end: that of the recording, or of the time that it was given.
    running : bool
        The run goes on, and the arrays grow.
    recorded : str or None
        The recording that the run wrote.
    runs : int
        How many runs were merged.
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
    order: Dict[str, Any] = field(default_factory=dict)
    recording: Optional[Dict[str, Any]] = None
    complete: bool = False
    running: bool = False
    recorded: Optional[str] = None
    runs: int = 1
    version: str = ""


@dataclass(frozen=True, eq=False)
class Result:
    """Base of all results: a run's arrays and its ``info``."""

    info: RunInfo

    kind: ClassVar[str] = ""
    #: Unit of each array and number that has one; all else is counts, or ratios of them.
    units: ClassVar[Dict[str, str]] = {}
    # Name of each array, in the order of the columns of a table.
    _columns: ClassVar[Tuple[str, ...]] = ()
    # What becomes of a field where runs are merged: "sum", "least", "most", "none" (NaN), "first"; by default it has
    # to be the same in all.
    _merged: ClassVar[Dict[str, str]] = {}

    def __init_subclass__(cls) -> None:
        _kinds[cls.kind] = cls

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

    def __setstate__(self, state: Dict[str, Any]) -> None:
        # From another process, where the arrays were frozen.
        self.__dict__.update({name: frozen(v) if isinstance(v, np.ndarray) else v for name, v in state.items()})

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
        text = json.dumps({"kind": self.kind, "info": dataclasses.asdict(self.info), "fields": plain}, default=_of_numpy)
        written = f"{os.fspath(path)}.{os.getpid()}-{threading.get_ident()}.part"
        try:
            with open(written, "wb") as file:
                np.savez_compressed(file, json=np.array(text), **self.arrays())
            os.replace(written, path)
        except BaseException:
            with contextlib.suppress(OSError):
                os.unlink(written)
            raise

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

        Returns
        -------
        xarray.Dataset
            ``attrs`` holds what ``info`` says, and the unit of each array that has one.

        Raises
        ------
        PackageMissing
            There is no xarray.
        """
        xarray = optional_package("xarray", "to_xarray()")
        data = self._dataset(xarray).assign_attrs(kind=self.kind, source=self.info.source, verdict=self.verdict)
        for name in data.variables:
            if str(name).endswith("_ps"):
                data[name].attrs["units"] = "ps"
        return data

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
        if not self._columns:
            raise TesselError(f"a result of the kind {self.kind} has no counts")
        return {name: getattr(self, name) for name in self._columns}

    def _dataset(self, xarray: Any) -> Any:
        self._table()
        axis, *rest = self._columns
        return xarray.Dataset({name: (axis, getattr(self, name)) for name in rest}, {axis: getattr(self, axis)})

    def _draw(self, ax: Any) -> None:
        raise TesselError(f"a result of the kind {self.kind} has no counts")

    def _facts(self) -> List[Tuple[str, str]]:
        return [("source", self.info.source), ("verdict", self.verdict), ("complete", str(self.complete))]

    def __repr__(self) -> str:
        return f"<{type(self).__name__} " + ", ".join(f"{name} {value}" for name, value in self._facts()) + ">"

    def _repr_html_(self) -> str:
        import html  # here, since it takes long

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
    try:
        with open(path, "rb") as file, np.load(file, allow_pickle=False) as archive:
            about = json.loads(str(archive["json"]))
            arrays = {name: frozen(archive[name]) for name in archive.files if name != "json"}
        info = RunInfo(**{name: _as_tuple(v) if name == "channels" else v for name, v in about["info"].items()})
        result: Result = _kinds[about["kind"]](
            info=info, **{name: _as_tuple(v) for name, v in about["fields"].items()}, **arrays
        )
    except (ValueError, KeyError, TypeError, AttributeError, EOFError, zipfile.BadZipFile, zlib.error) as wrong:
        raise ValueError(f"{os.fspath(path)}: not a whole result of this package ({wrong})") from wrong
    return result
