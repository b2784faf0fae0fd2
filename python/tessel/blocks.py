"""The stream itself, block by block: events or record words.

A run fills a block of the library's; each turn of the loop takes what is in it, into one of two buffers that are used
in turn. So nothing is copied in Python, and a block that is handed out holds until the second one after it.
"""

from __future__ import annotations

import ctypes
import time
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, Dict, Iterator, List, Optional, TypeVar

import numpy as np
from numpy.typing import NDArray

from . import _library, capi
from ._library import Memory
from .errors import RunError
from .results import Result, RunInfo
from .run import Progress, Run

if TYPE_CHECKING:
    from .core import Core

OVERFLOW = 255
FIRST_MARKER = 129

B = TypeVar("B")


@dataclass(frozen=True, eq=False)
class Events:
    """Events in the order of the stream.

    Attributes
    ----------
    times : (n,) uint64
        T2: ps. T3: sync number x 32768 + dtime; see ``syncs``, ``dtimes`` and ``picoseconds``.
    channels : (n,) uint8
        0 sync, 1 to 64 inputs, then the channels of the chain, 129 to 143 markers, 255 an overflow, which isn't an
        event: its time says how far the stream has come.
    mode : {"T2", "T3"}
    resolution : float
        T3: width of a dtime, ps.
    sync_period : float
        T3: ps.
    """

    times: NDArray[np.uint64]
    channels: NDArray[np.uint8]
    mode: str
    resolution: float
    sync_period: float

    def __len__(self) -> int:
        return len(self.times)

    @property
    def syncs(self) -> NDArray[np.uint64]:
        """(n,) uint64: T3, number of the sync."""
        return self.times >> np.uint64(15)

    @property
    def dtimes(self) -> NDArray[np.uint16]:
        """(n,) uint16: T3, time since the sync in units of the resolution."""
        return (self.times & np.uint64(0x7FFF)).astype(np.uint16)

    def picoseconds(self) -> NDArray[np.uint64]:
        """(n,) uint64: time since the start, ps, cut to whole ones."""
        if self.mode == "T2":
            return self.times
        return (self.syncs * self.sync_period).astype(np.uint64) + (self.dtimes * self.resolution).astype(np.uint64)

    def of(self, *channels: int) -> "Events":
        """The events of some channels alone, copied.

        Parameters
        ----------
        *channels : int
            Those.

        Returns
        -------
        Events
        """
        return self._where(np.isin(self.channels, channels))

    def photons(self) -> "Events":
        """Without overflows and markers, copied."""
        return self._where(self.channels < FIRST_MARKER)

    def copy(self) -> "Events":
        """With arrays of its own."""
        return self._where(slice(None))

    def _where(self, which: Any) -> "Events":
        times, channels = self.times[which].copy(), self.channels[which].copy()
        return Events(times, channels, self.mode, self.resolution, self.sync_period)


@dataclass(frozen=True, eq=False, repr=False)
class Streamed(Result):
    """What is known of a run whose blocks were taken."""


class Blocks(Iterator[B]):
    """Blocks of a run: iterate once.

    After a loop that is left early another one goes on where it ended; meanwhile a recording waits, and live data get
    lost. The run ends with ``close``, a ``with`` block, the next run on the device, or the device. A block holds until
    the second one after it; copy what is to be kept.
    """

    _name = ""
    _start: Any
    _get: Any

    def __init__(self, device: "Core", capacity: int, duration: Any, record: Any) -> None:
        if capacity < 1:
            raise ValueError(f"capacity: at least 1, not {capacity}")
        self._device = device
        self._capacity = capacity
        self._count = ctypes.c_uint64()
        self._buffers = [self._arrays(), self._arrays()]
        self._turn = 0
        self._asked_to_end = False
        self._prepare()
        block = self._arrays()

        def start(memory: Memory, ms: int, save: int) -> None:
            self._start(device._wide, ms, save, *block.values(), capacity, memory.finished)

        self._run: Run[Streamed] = device._begin(
            self._name, {"capacity": capacity}, Memory(**block), start, Streamed, duration, record
        )
        self._run._drain = lambda: self._fetch() > 0

    @property
    def progress(self) -> Progress:
        """How far the run is."""
        return self._run.progress

    @property
    def info(self) -> RunInfo:
        """Where the blocks come from, with verdict and losses so far."""
        return self._run.result.info

    def stop(self) -> None:
        """Asks the run to stop; what was read so far still comes."""
        self._asked_to_end = True
        self._run.stop()

    def close(self) -> None:
        """Stops the run and drops what is left."""
        self.stop()
        while not self._run.done:
            if self._fetch() == 0:
                time.sleep(0.0005)

    def __enter__(self) -> "Blocks[B]":
        return self

    def __exit__(self, *error: Any) -> None:
        self.close()

    def __iter__(self) -> Iterator[B]:
        return self

    def __next__(self) -> B:
        while True:
            ended = self._run.done  # before the look at the block: what comes after it is seen
            count = self._fetch()
            if count:
                return self._block(self._buffers[self._turn], count)
            if ended:
                result = self._run.wait()  # says how it ended
                if self._run._stopped and not (self._asked_to_end or result.complete):
                    raise RunError(f"{result.info.source}: the device was closed, or began another run", result)
                raise StopIteration
            time.sleep(0.0005)

    def _fetch(self) -> int:
        """Takes what is there into the buffer that isn't handed out; how much that was."""
        self._turn ^= 1
        self._count.value = 0
        with _library.lock:
            self._get(self._device._wide, *self._buffers[self._turn].values(), ctypes.byref(self._count))
        return self._count.value

    def _prepare(self) -> None:
        """Looks up what the blocks need, while no run goes on."""

    def _arrays(self) -> Dict[str, NDArray[Any]]:
        raise NotImplementedError

    def _block(self, arrays: Dict[str, NDArray[Any]], count: int) -> B:
        raise NotImplementedError


class EventBlocks(Blocks[Events]):
    """Blocks of events; ``read`` gives all at once."""

    _name = "unfold"

    @staticmethod
    def _start(*arguments: Any) -> None:
        capi.ufStartBlock(*arguments)

    @staticmethod
    def _get(*arguments: Any) -> None:
        capi.ufGetBlock(*arguments)

    def read(self) -> Events:
        """All events to the end of the run in one, without overflows; 9 bytes an event."""
        blocks: List[Events] = [self._block(self._buffers[0], 0).copy()]
        blocks += [block._where(block.channels != OVERFLOW) for block in self]
        first = blocks[0]
        times = np.concatenate([block.times for block in blocks])
        channels = np.concatenate([block.channels for block in blocks])
        return Events(times, channels, first.mode, first.resolution, first.sync_period)

    def _prepare(self) -> None:
        self._mode = self._device.mode
        self._resolution = self._device.dtime_width if self._mode == "T3" else self._device.resolution
        self._period = self._device.sync_period if self._mode == "T3" else 0.0

    def _arrays(self) -> Dict[str, NDArray[Any]]:
        return {"times": np.zeros(self._capacity, np.uint64), "channels": np.zeros(self._capacity, np.uint8)}

    def _block(self, arrays: Dict[str, NDArray[Any]], count: int) -> Events:
        return Events(
            arrays["times"][:count], arrays["channels"][:count], self._mode, self._resolution, self._period
        )


class WordBlocks(Blocks["NDArray[np.uint32]"]):
    """Blocks of record words."""

    _name = "raw"

    @staticmethod
    def _start(*arguments: Any) -> None:
        capi.rawStartBlock(*arguments)

    @staticmethod
    def _get(*arguments: Any) -> None:
        capi.rawGetBlock(*arguments)

    def _arrays(self) -> Dict[str, NDArray[Any]]:
        return {"words": np.zeros(self._capacity, np.uint32)}

    def _block(self, arrays: Dict[str, NDArray[Any]], count: int) -> "NDArray[np.uint32]":
        return arrays["words"][:count]
