"""A run: how far it is, what it has so far, waiting for its end, stopping it.

Waiting looks at the run's finished byte and sleeps in between, so that Ctrl-C works and other threads go on.
"""

from __future__ import annotations

import time
import warnings
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, AsyncIterator, Callable, Generator, Generic, Iterator, Optional, TypeVar

from ._library import Memory, check_used
from .errors import DataLost, OutOfOrder, RunError
from .results import Result, RunInfo

if TYPE_CHECKING:
    from .core import Core

R = TypeVar("R", bound=Result)

# How long a wait sleeps: at first short, for runs of some milliseconds.
_SHORTEST, _LONGEST = 0.0005, 0.003
_REGULAR_ENDS = ("TimeOver", "Manual", "OverFlow")


@dataclass(frozen=True)
class Progress:
    """How far a run is.

    Attributes
    ----------
    fraction : float or None
        0 to 1; ``None`` for a live run without an end.
    records : int
        Records read so far.
    total : int or None
        Records of the recording; ``None`` for a live run.
    seconds : float
        Since the start.
    """

    fraction: Optional[float]
    records: int
    total: Optional[int]
    seconds: float


class Run(Generic[R]):
    """A run that was started on a device.

    It goes on by itself, whether anybody holds this handle or not: to the end of the recording or of its time, until
    ``stop()``, until the next run on the device, or until the device is closed.

    Examples
    --------
    >>> with tessel.open("decay.tgx") as dev:
    ...     run = dev.histogram()
    ...     decays = run.wait()
    >>> run.done, decays.complete
    (True, True)
    """

    def __init__(
        self, device: "Core", memory: Memory, build: Callable[[RunInfo], R], info: RunInfo, milliseconds: int
    ) -> None:
        self._device = device
        self._memory = memory
        self._build = build
        self._info = info
        self._milliseconds = milliseconds
        self._start = time.monotonic()
        self._before = info.description
        self._final: Optional[R] = None
        self._stopped = False
        # Takes what a block holds, which would keep the run from ending; true if there was something.
        self._drain: Callable[[], bool] = nothing_held

    @property
    def done(self) -> bool:
        """The run has ended, and its result grows no more."""
        if self._memory.is_free():
            return True
        check_used()  # else nobody would end it
        return False

    @property
    def result(self) -> R:
        """What there is so far, without waiting and without a copy.

        Returns
        -------
        Result
            Its arrays are those that the library fills, so they grow until ``done``; ``copy()`` keeps a moment.
        """
        if self._final is None and self.done:
            self._final = self._build(self._info_now(running=False))
        return self._final if self._final is not None else self._build(self._info_now(running=True))

    @property
    def progress(self) -> Progress:
        """How far the run is."""
        seconds = time.monotonic() - self._start
        total = self._device.records if self._device.is_file else None
        if self.done:
            records = int(self.result.info.description.get("NumRecs", 0))
        else:
            records = self._records_so_far()
        if total is not None:
            fraction: Optional[float] = min(1.0, records / total) if total else 1.0
        else:
            fraction = min(1.0, seconds * 1e3 / self._milliseconds) if self._milliseconds else None
        return Progress(fraction, records, total, seconds)

    def wait(self, timeout: Optional[float] = None) -> R:
        """Waits for the end of the run. Ctrl-C stops the run and goes on as ``KeyboardInterrupt``.

        Parameters
        ----------
        timeout : float, optional
            Seconds; by default without an end.

        Returns
        -------
        Result
            What was measured; the same as ``result`` from now on.

        Raises
        ------
        TimeoutError
            The run goes on.
        RunError
            The run ended by a fault; its ``result`` holds what there was.

        Warns
        -----
        DataLost
            Something was lost; see ``verdict`` and ``losses`` of the result.
        OutOfOrder
            Events go back in time; see ``info.order`` of the result.
        """
        end = None if timeout is None else time.monotonic() + timeout
        try:
            for pause in _pauses():
                if self.done:
                    break
                if end is not None and time.monotonic() >= end:
                    raise TimeoutError(f"the run goes on after {timeout} s")
                time.sleep(pause if end is None else max(0.0, min(pause, end - time.monotonic())))
        except KeyboardInterrupt:
            self.stop()
            raise
        return self._checked()

    def stop(self) -> None:
        """Asks the run to stop and returns at once; it ends within a second, with what was read so far."""
        if not self.done:
            self._stopped = True
            self._device._stop()

    def updates(self, interval: float = 0.1) -> Iterator[R]:
        """What there is, again and again, and at last the result.

        Parameters
        ----------
        interval : float
            Seconds from one to the next.

        Yields
        ------
        Result
            A copy each; the last one is the result itself.

        Raises
        ------
        RunError
            As ``wait``.
        """
        while True:
            try:
                self.wait(interval)
                break
            except TimeoutError:
                yield self.result.copy()
        yield self.result

    def __iter__(self) -> Iterator[R]:
        return self.updates()

    async def __aiter__(self) -> AsyncIterator[R]:
        import asyncio  # here, since it takes long

        while not self.done:
            await asyncio.sleep(0.1)
            if not self.done:
                yield self.result.copy()
        yield self._checked()

    def __await__(self) -> Generator[Any, None, R]:
        return self._waited().__await__()

    async def _waited(self) -> R:
        import asyncio

        for pause in _pauses():
            if self.done:
                break
            await asyncio.sleep(pause)
        return self._checked()

    def __repr__(self) -> str:
        now = self.progress
        state = "done" if self.done else "running"
        share = "" if now.fraction is None else f", {100 * now.fraction:.0f} %"
        return f"<Run of {self._info.source}: {state}{share}, {now.records} records>"

    def _records_so_far(self) -> int:
        read = int(self._device.description["NumRecs"])
        # Until the run empties it, a recording's description is that of the run before.
        return 0 if self._device.is_file and read == self._before.get("NumRecs") else read

    def _info_now(self, running: bool) -> RunInfo:
        return self._device._info_of_run(self._info, running, self._stopped, self._before)

    def _checked(self) -> R:
        result = self.result
        reason = result.info.description.get("StopReason")
        if reason not in _REGULAR_ENDS and reason != self._before.get("StopReason") and result.verdict == "clean":
            raise RunError(f"{self._info.source}: the run ended with the stop reason {reason}", result)
        description = result.info.description
        if self._device.is_file and reason == "TimeOver" and not (result.complete or self._stopped):
            text = f"the recording could be read for {description['NumRecs']} of {self._device.records} records alone"
            raise RunError(f"{self._info.source}: {text}", result)
        if result.verdict != "clean":
            places = ", ".join(
                f"{place}: {'some' if loss['lost'] is None else loss['lost']} {loss['unit']}"
                for place, loss in result.losses.items()
            )
            warnings.warn(f"{self._info.source}: {result.verdict} ({places})", DataLost, stacklevel=3)
        order = result.info.order
        if order.get("unsorted") or (order.get("stepsBack") and not order.get("sorted")):
            text = f"{order['stepsBack']} events go back in time, by up to {order['largestStepPs']} ps"
            warnings.warn(f"{self._info.source}: {text}; chain.sort() puts them in order", OutOfOrder, stacklevel=3)
        return result


def nothing_held() -> bool:
    """Of a run without blocks."""
    return False


def _pauses() -> Iterator[float]:
    pause = _SHORTEST
    while True:
        yield pause
        pause = min(_LONGEST, pause * 1.5)
