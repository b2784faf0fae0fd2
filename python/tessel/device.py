"""A device with its measurements, each of which starts a run and returns at once."""

from __future__ import annotations

import ctypes
import math
from typing import Any, Dict, Optional, Sequence, Tuple, Union

import numpy as np

from . import _library, capi
from ._library import Memory
from .blocks import EventBlocks, WordBlocks
from .core import Core
from .correlations import G2, Fcs, fcs_terms, g2_of, read_counts
from .histograms import Hist2d, Histogram, Trace
from .results import PathLike, Recorded, RunInfo, frozen
from .run import Run
from .units import Time, picoseconds, whole

_T2_BINS = 65536
_MOST_G2_BINS = 10_000_000  # a direction


class Device(Core):
    """A recording or an instrument; made by ``tessel.open``.

    Its methods may be called from any thread. It has one run at a time: a new one ends the one before.

    Parameters that all share: `duration`, how long an instrument measures (whole ms, by default until stopped; a
    recording runs to its end), and `record`, a new file (.tgx) for what an instrument sends meanwhile.

    All raise ``ValueError`` for a parameter out of its range, ``DeviceError`` if the device is closed, and ``RunError``
    if the run can't begin. They block only until a run before has ended.

    Attributes
    ----------
    id : str
        As the library knows it.
    path : pathlib.Path or None
        The recording; ``None`` for an instrument.
    inputs : Inputs
        Settings of each input, from 1.
    sync : Sync
        Settings of the sync input.
    settings : Settings
        All settings by key.
    chain : Chain
        The stages that events pass before they are counted.
    """

    def histogram(
        self,
        duration: Optional[Time] = None,
        *,
        bin_width: Optional[Time] = None,
        bins: Optional[int] = None,
        reference: Optional[int] = None,
        record: Optional[PathLike] = None,
    ) -> Run[Histogram]:
        """Counts each channel by the time since the sync (T3) or since a reference channel (T2).

        Returns at once. T3: a bin is a dtime, 32768 of them as wide as the resolution. T2: an event counts in the
        bin of its time since the last event of `reference`; one before the first reference, or beyond the last bin,
        isn't counted.

        Parameters
        ----------
        bin_width : time, optional
            T2: width of a bin, by default 100 ps.
        bins : int, optional
            T2: number of bins, by default 65536.
        reference : int, optional
            T2: the channel that times count from, by default 0, the sync.
        duration, record : optional
            As for every measurement.

        Returns
        -------
        Run of Histogram
            ``counts`` of shape (rows, bins).

        References
        ----------
        D. V. O'Connor, D. Phillips, Time-correlated Single Photon Counting, Academic Press (1984).

        Examples
        --------
        >>> with tessel.open("emitter.tgx") as dev:
        ...     dev.histogram(bin_width="1ns", bins=200, reference=1).wait().counts.shape
        (3, 200)
        """
        is_t2 = self.mode == "T2"
        given = {"bin_width": bin_width, "bins": bins, "reference": reference}
        if not is_t2 and any(value is not None for value in given.values()):
            raise ValueError(f"{', '.join(name for name, v in given.items() if v is not None)}: for T2 only")
        width: float = self.dtime_width
        if is_t2:
            width = picoseconds(100 if bin_width is None else bin_width, "bin_width")
            self._check_channel(reference or 0, "reference")
            self._set("setHistoT2RefChan", reference or 0)
            self._set("setHistoT2BinWidth", width)
            self._set("setHistoT2NumBins", _T2_BINS if bins is None else _at_least(bins, 1, "bins"))
        shape = self._shape("histogram")
        counts = np.zeros(shape, np.uint32)
        edges = np.arange(shape[1] + 1, dtype=np.int64) * width
        if edges.dtype != np.int64:
            edges = np.rint(edges).astype(np.int64)
        period = 0.0 if is_t2 else self.sync_period
        parameters = {"bin_width": width, "bins": shape[1], "reference": reference or 0}

        def build(info: RunInfo) -> Histogram:
            return Histogram(info, frozen(counts), frozen(edges), width, reference or 0, period)

        def start(memory: Memory, ms: int, save: int) -> None:
            capi.getHistogram(self._wide, ms, 0, save, counts, memory.finished)

        return self._begin("histogram", parameters, Memory(counts=counts), start, build, duration, record)
    def g2(
        self,
        chan1: int = 1,
        chan2: int = 2,
        *,
        window: Time = "1us",
        bin_width: Time = "1ns",
        span: str = "common",
        duration: Optional[Time] = None,
        record: Optional[PathLike] = None,
    ) -> Run[G2]:
        """Correlates two channels in linear bins, in both directions, as in a Hanbury Brown-Twiss experiment.

        Parameters
        ----------
        chan1, chan2 : int
            The channels; at lags above 0 `chan1` comes later.
        window : time
            The longest lag, in each direction.
        bin_width : time
            From the resolution of the device to 1 ms.
        span : {"common", "each"}
            T: the time of both channels, or in each half that of the channel that comes later, as the library does.
        duration, record : optional
            As for every measurement.

        Returns
        -------
        Run of G2
            ``values`` of shape (2 M,), M = `window` / `bin_width`; uncorrelated light is at 1.

        References
        ----------
        R. Hanbury Brown, R. Q. Twiss, Nature 177, 27 (1956).

        Examples
        --------
        >>> with tessel.open("emitter.tgx") as dev:
        ...     dip = dev.g2(window="100ns", bin_width="1ns").wait()
        >>> bool(dip.values[99:101].mean() < 0.2 < 0.8 < dip.values[:20].mean())
        True
        """
        self._check_channel(chan1, "chan1")
        self._check_channel(chan2, "chan2")
        width, longest = picoseconds(bin_width, "bin_width"), picoseconds(window, "window")
        if not self.resolution <= width <= 10**9:
            raise ValueError(f"bin_width: from the resolution, {self.resolution} ps, to 1 ms, not {bin_width!r}")
        bins = longest // width
        if not 1 <= bins <= _MOST_G2_BINS:
            raise ValueError(f"window: from 1 to {_MOST_G2_BINS} bins, not {bins}")
        _one_of(span, ("common", "each"), "span")
        self._set("setG2Params", chan1, chan2, float(longest), float(width), 1)
        values = np.full(2 * bins, np.nan)
        lags = np.zeros(2 * bins)
        edges = (np.arange(2 * bins + 1, dtype=np.int64) - bins) * width
        parameters = {"chan1": chan1, "chan2": chan2, "window": longest, "bin_width": width, "span": span}

        def build(info: RunInfo) -> G2:
            return g2_of(info, self._counted(bins), frozen(values), frozen(edges), chan1, chan2, width, span)

        def start(memory: Memory, ms: int, save: int) -> None:
            capi.getCorrelation(self._wide, ms, 0, save, values, lags, memory.finished)

        return self._begin("g2", parameters, Memory(values=values, lags=lags), start, build, duration, record)

    def fcs(
        self,
        chan1: int = 1,
        chan2: int = 2,
        *,
        min_lag: Time = "1us",
        max_lag: Optional[Time] = None,
        steps: int = 100,
        fast: bool = False,
        norm: str = "symmetric",
        later_channel: str = "both",
        duration: Optional[Time] = None,
        record: Optional[PathLike] = None,
    ) -> Run[Fcs]:
        """Correlates two channels in logarithmic bins, as in fluorescence correlation spectroscopy.

        Parameters
        ----------
        chan1, chan2 : int
            The channels.
        min_lag, max_lag : time
            Bounds of the bins; `min_lag` is at least the base resolution, `max_lag` by default a tenth of the
            recording or of `duration`, without either 1 s.
        steps : int
            Number of bins, up to 1,000,000.
        fast : bool
            Count in the faster way for long lags and high rates; a bin then holds its lower end and not its upper.
        norm : {"symmetric", "mean"}
            What the curves are normalised by, see ``Fcs``.
        later_channel : {"both", "chan1", "chan2"}
            Whose event is the later one in ``cross``.
        duration, record : optional
            As for every measurement.

        Returns
        -------
        Run of Fcs
            ``auto1``, ``cross`` and ``auto2`` of shape (bins,); uncorrelated light is at 0.

        References
        ----------
        D. Magde, E. Elson, W. W. Webb, Phys. Rev. Lett. 29, 705 (1972); K. Schaetzel, M. Drewel, S. Stimac, J. Mod.
        Opt. 35, 711 (1988) for the normalisation; T. A. Laurence, S. Fore, T. Huser, Opt. Lett. 31, 829 (2006) for
        the faster way.

        Examples
        --------
        >>> with tessel.open("cells.tgx") as dev:
        ...     curve = dev.fcs(min_lag="1us", max_lag="10ms", steps=40).wait()
        >>> bool(0.7 < curve.cross[0] < 1.3 and abs(curve.cross[-1]) < 0.2)  # one molecule in the focus
        True
        """
        shortest = picoseconds(min_lag, "min_lag")
        longest = self._tenth(duration) if max_lag is None else picoseconds(max_lag, "max_lag")
        _one_of(norm, ("symmetric", "mean"), "norm")
        _one_of(later_channel, ("both", "chan1", "chan2"), "later_channel")
        points = self._set_fcs(chan1, chan2, shortest, longest, steps, fast)
        values = np.full((3, points + 1), np.nan)
        lags = np.zeros(points)
        parameters: Dict[str, Any] = {"chan1": chan1, "chan2": chan2, "min_lag": shortest, "max_lag": longest}
        parameters.update(steps=steps, fast=fast, norm=norm, later_channel=later_channel)

        def build(info: RunInfo) -> Fcs:
            # The library has them in seconds, which are whole picoseconds.
            centres = np.rint(lags * 1e12)
            counted = self._counted(points)
            del counted["self_pairs"]
            counted.update(fcs_terms(counted), filled=frozen(values[:, :points]))
            counted.update(chan1=chan1, chan2=chan2, fast=fast, norm=norm, later_channel=later_channel)
            return Fcs(info, frozen(centres), **counted)

        def start(memory: Memory, ms: int, save: int) -> None:
            capi.getCorrelation(self._wide, ms, 0, save, values, lags, memory.finished)

        return self._begin("fcs", parameters, Memory(values=values, lags=lags), start, build, duration, record)

    def _set_fcs(self, chan1: int, chan2: int, shortest: int, longest: int, steps: int, fast: bool) -> int:
        """How many bins there will be."""
        self._check_channel(chan1, "chan1")
        self._check_channel(chan2, "chan2")
        if longest <= shortest:
            raise ValueError(f"max_lag: above min_lag, not {longest} ps")
        if not 1 <= steps <= 1_000_000:
            raise ValueError(f"steps: from 1 to 1000000, not {steps}")
        count = ctypes.c_uint64()
        name = "setFFCSParams" if fast else "setFCSParams"
        self._set(name, chan1, chan2, ctypes.byref(count), float(shortest), float(longest), steps)
        self._set("tessel_setCorrelationFromStart", 1)
        if count.value == 0:
            raise ValueError("min_lag, max_lag: no bin of the resolution lies between them")
        return count.value

    def _tenth(self, duration: Optional[Time]) -> int:
        if self.is_file:
            return int(self._read_ms() * 1e9 * 0.1)  # just as the program does
        return 10**12 if duration is None else picoseconds(duration, "duration") // 10

    def _counted(self, bins: int) -> Dict[str, Any]:
        with _library.lock:
            self._check_open()
            return read_counts(self._wide, bins)

    def trace(
        self,
        bin_width: Time = "10ms",
        *,
        span: Optional[Time] = None,
        duration: Optional[Time] = None,
        record: Optional[PathLike] = None,
    ) -> Run[Trace]:
        """Counts each channel in bins of time, of equal width.

        Parameters
        ----------
        bin_width : time
            Width of a bin.
        span : time, optional
            How much of the end is kept; by default the whole recording, of an instrument 10 s.
        duration, record : optional
            As for every measurement.

        Returns
        -------
        Run of Trace
            ``counts`` of shape (rows, bins); what lies before the start of the run isn't in it.

        Examples
        --------
        >>> with tessel.open("decay.tgx") as dev:
        ...     rates = dev.trace("10ms").wait()
        >>> rates.counts.shape
        (3, 50)
        """
        width = picoseconds(bin_width, "bin_width")
        if span is not None:
            kept = picoseconds(span, "span", width) // width
        elif self.is_file:
            kept = math.ceil(self._length_ps() * 1.001 / width) + 1  # clocks differ a little
        else:
            kept = max(1, 10**13 // width)
        # One column more than is kept: the library publishes nothing if it has only one. Half a picosecond a bin
        # keeps the width clear of the rounding of seconds.
        columns = kept + 1
        if columns > 2**31 - 1:
            raise ValueError(f"bin_width: {columns} bins are too many")
        self._set("setTimeTraceNumBins", columns)
        self._set("setTimeTraceHistorySize", (width + 0.5) * columns * 1e-12)
        counts = np.zeros(self._shape("trace"), np.uint32)
        end = np.zeros(1, np.uint64)

        def build(info: RunInfo) -> Trace:
            last = int(end[0])
            shown = min(kept, last)
            edges = np.arange(last - shown, last + 1, dtype=np.int64) * width
            return Trace(info, frozen(counts[:, columns - shown :]), frozen(edges), width)

        def start(memory: Memory, ms: int, save: int) -> None:
            capi.getTimeTrace(self._wide, ms, 0, save, counts, end, memory.finished)

        parameters = {"bin_width": width, "span": kept * width}
        return self._begin("trace", parameters, Memory(counts=counts, end=end), start, build, duration, record)

    def hist2d(
        self,
        chan_x: int = 1,
        chan_y: int = 2,
        *,
        start: int = 0,
        bin_width: Union[Time, Tuple[Time, Time]] = "100ps",
        bins: Union[int, Tuple[int, int]] = 100,
        offset: Union[Time, Tuple[Time, Time]] = 0,
        over_threshold: bool = False,
        slope: float = 0.0,
        recovery: Optional[Sequence[Any]] = None,
        duration: Optional[Time] = None,
        record: Optional[PathLike] = None,
    ) -> Run[Hist2d]:
        """Counts pairs of events by the times of both since a reference.

        Parameters
        ----------
        chan_x, chan_y : int
            Whose times are x and y.
        start : int
            T2: the channel that times count from. T3: the sync of the event, whatever is given.
        bin_width, bins, offset : time or int, or a pair of them
            Of x and y, or of both; an offset is subtracted from the times.
        over_threshold : bool
            y is the time on `chan_y` less that on `chan_x`.
        slope : float
            ps that are added to x per ps of y.
        recovery : sequence, optional
            Of a detector that has just fired: a pair whose reference comes sooner than the first time, or later than
            the second, after that of the pair before gets the third added to x, the fourth to y, the fifth to `slope`.
        duration, record : optional
            As for every measurement.

        Returns
        -------
        Run of Hist2d
            ``counts`` of shape (bins of y, bins of x).
        """
        for channel, what in ((start, "start"), (chan_x, "chan_x"), (chan_y, "chan_y")):
            self._check_channel(channel, what)
        widths = [picoseconds(each, "bin_width") for each in _pair(bin_width)]
        offsets = [picoseconds(each, "offset", 0) for each in _pair(offset)]
        numbers = [whole(each, "", "bins") for each in _pair(bins)]
        if min(numbers) < 1:
            raise ValueError(f"bins: at least 1, not {bins!r}")
        *corrected, steeper = (0, "1s", 0, 0, 0.0) if recovery is None else recovery
        times = [picoseconds(each, "recovery", 0) for each in corrected]
        with _library.lock:
            self._set("setHisto2dRecoveryTimingCorrection", *times, float(steeper))
            self._set("setHisto2dParams", start, chan_x, chan_y, *offsets, *widths, *numbers)
            self._select()
            self._set("setHisto2dTotMode", int(over_threshold), float(slope))
        counts = np.zeros(self._shape("hist2d"), np.uint32)
        x, y = (np.arange(number + 1, dtype=np.int64) * width for number, width in zip(numbers, widths))
        parameters = {"chan_x": chan_x, "chan_y": chan_y, "start": start, "bin_width": widths, "bins": numbers}
        parameters.update(offset=offsets, over_threshold=over_threshold, slope=slope, recovery=[*times, steeper])

        def build(info: RunInfo) -> Hist2d:
            return Hist2d(info, frozen(counts), frozen(x), frozen(y), chan_x, chan_y)

        def begin(memory: Memory, ms: int, save: int) -> None:
            capi.get2dHistogram(self._wide, ms, 0, save, counts, memory.finished)

        return self._begin("hist2d", parameters, Memory(counts=counts), begin, build, duration, record)

    def record(self, path: PathLike, duration: Optional[Time] = None) -> Run[Recorded]:
        """Records what an instrument sends, in a file that isn't there yet.

        Parameters
        ----------
        path : path
            The recording, its name ends in .tgx.
        duration : time, optional
            Whole ms; by default until stopped.

        Returns
        -------
        Run of Recorded
            The file is whole when the run is done.

        Raises
        ------
        FileExistsError
            There is such a file.
        """

        def start(memory: Memory, ms: int, save: int) -> None:
            capi.exportStreamMeasure(self._wide, ms, 0, save, memory.finished)

        return self._begin("record", {}, Memory(), start, Recorded, duration, path)

    def unfold(
        self, duration: Optional[Time] = None, *, capacity: int = 1 << 20, record: Optional[PathLike] = None
    ) -> EventBlocks:
        """The single events, as the last stage of the chain leaves them, block by block.

        Parameters
        ----------
        duration, record : optional
            As for every measurement.
        capacity : int
            Most events of a block. A recording waits for whoever takes the blocks; live data that nobody takes get
            lost, which the ledger says.

        Returns
        -------
        EventBlocks
            Iterate over it, or ``read()`` all.

        Examples
        --------
        >>> with tessel.open("emitter.tgx") as dev:
        ...     round(sum(int((block.channels == 1).sum()) for block in dev.unfold()), -4)
        150000
        """
        return EventBlocks(self, capacity, duration, record)

    def raw(
        self, duration: Optional[Time] = None, *, capacity: int = 1 << 20, record: Optional[PathLike] = None
    ) -> WordBlocks:
        """The record words as the instrument sends them, block by block; parameters as ``unfold``.

        Returns
        -------
        WordBlocks
            Iterate over it: uint32 arrays of up to `capacity` words.
        """
        return WordBlocks(self, capacity, duration, record)


def _one_of(word: str, known: Sequence[str], what: str) -> None:
    if word not in known:
        raise ValueError(f"{what}: one of {', '.join(known)}, not {word!r}")


def _pair(value: Any) -> Tuple[Any, Any]:
    return (value[0], value[1]) if isinstance(value, (tuple, list)) else (value, value)


def _at_least(value: int, least: int, what: str) -> int:
    if int(value) != value or value < least:
        raise ValueError(f"{what}: a whole number from {least} on, not {value!r}")
    return int(value)
