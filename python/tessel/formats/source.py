"""What is read: blocks of times, channels and dtimes, with their units, and how they fit into a recording."""

from __future__ import annotations

import math
from dataclasses import dataclass, field
from typing import Any, Callable, Dict, Iterator, List, Mapping, Optional, Sequence, Union

import numpy as np
from numpy.typing import NDArray

from ..words import MOST_DTIME, MOST_INPUTS

Inputs = Optional[Union[Mapping[int, int], Sequence[int]]]

_FINEST = 0.5  # ps, of the dtimes of a recording

BLOCK = 1 << 17  # events that are held at a time


@dataclass(frozen=True, eq=False)
class Block:
    """Some events as the source has them."""

    times: NDArray[Any]
    channels: NDArray[Any]
    dtimes: Optional[NDArray[Any]]

    def where(self, which: NDArray[np.bool_]) -> "Block":
        return Block(self.times[which], self.channels[which], None if self.dtimes is None else self.dtimes[which])


@dataclass
class Source:
    """A file that is converted.

    ``blocks`` can be called again and again. ``tick_ps`` is the unit of the times, in T3 the sync period;
    ``resolution_ps`` that of the dtimes. ``codes``: the channels are those of a recording already.
    """

    name: str
    blocks: Callable[[], Iterator[Block]]
    tick_ps: float
    resolution_ps: Optional[float] = None
    codes: bool = False
    comment: str = ""
    notes: List[str] = field(default_factory=list)

    @property
    def is_t3(self) -> bool:
        return self.resolution_ps is not None

    def whole_unit(self) -> int:
        """T2: the unit of the recording, ps."""
        return round(self.tick_ps) if _is_whole(self.tick_ps) else 1

    def whole_times(self, times: NDArray[Any]) -> NDArray[np.uint64]:
        if times.dtype.kind == "i" and times.size and int(times.min()) < 0:
            raise ValueError("a time is below 0")
        if self.is_t3 or _is_whole(self.tick_ps):
            return times.astype(np.uint64, copy=False)
        rounded: NDArray[np.uint64] = np.rint(times.astype(np.longdouble) * np.longdouble(self.tick_ps)).astype(np.uint64)
        return rounded

    def dtime_width(self, found: "Scan") -> float:
        """T3: the width of a dtime in the recording, ps: that of the source, unless its longest dtime doesn't fit into
        15 bits, or it is finer than recordings are."""
        width = self.resolution_ps or 1.0
        if width >= _FINEST and found.most_dtime <= MOST_DTIME:
            return width
        return float(max(1, math.ceil(found.most_dtime * width / MOST_DTIME)))

    def fitting_dtimes(self, dtimes: Optional[NDArray[Any]], found: "Scan") -> Optional[NDArray[np.uint16]]:
        if dtimes is None:
            return None
        scale = (self.resolution_ps or 1.0) / self.dtime_width(found)
        if scale == 1:
            return dtimes.astype(np.uint16, copy=False)
        rounded: NDArray[np.uint16] = np.rint(dtimes * scale).astype(np.uint16)
        return rounded

    def rounding_notes(self, found: "Scan") -> List[str]:
        notes = []
        if self.is_t3:
            width = self.dtime_width(found)
            if width != self.resolution_ps:
                notes.append(f"dtimes of {self.resolution_ps:.10g} ps were rounded to {width:g} ps, to fit into 15 bits")
            elif not _is_whole(width):
                notes.append(
                    f"a chain, and what else makes times of dtimes, goes by {round(width)} ps, not {width:.10g} ps; "
                    "a histogram's bins are exact"
                )
        if not self.is_t3 and not _is_whole(self.tick_ps):
            notes.append(f"times in units of {self.tick_ps:.10g} ps were rounded to whole picoseconds")
        return notes


@dataclass(frozen=True)
class Scan:
    """What a first look at a source finds."""

    counts: NDArray[np.int64]  # by channel
    last: int  # time of the last event
    most_dtime: int


def _is_whole(ps: float) -> bool:
    return abs(ps - round(ps)) <= 1e-9 * ps and round(ps) >= 1


def scan(source: Source) -> Scan:
    """Looks once at all events: which channels there are, and how long it takes."""
    counts = np.zeros(1 << 16, np.int64)
    last = most = 0
    for block in source.blocks():
        if not len(block.times):
            continue
        channels = block.channels
        if int(channels.min()) < 0 or int(channels.max()) >= 1 << 16:
            raise ValueError(f"{source.name}: channels from 0 to 65535 are read, not {channels.min()}, {channels.max()}")
        counts += np.bincount(channels, minlength=1 << 16)
        last = max(last, int(block.times[-1]))
        if block.dtimes is not None:
            most = max(most, int(block.dtimes.max()))
    return Scan(counts, last, most)


def codes_of(source: Source, found: Scan, wanted: Inputs) -> Dict[int, int]:
    """Which channel of the source becomes which of the recording."""
    there = [int(each) for each in np.flatnonzero(found.counts)]
    if isinstance(wanted, Mapping):
        chosen = {int(channel): int(number) for channel, number in wanted.items()}
    elif wanted is not None:
        chosen = {int(channel): number for number, channel in enumerate(wanted, start=1)}
    elif source.codes or not there or 1 <= there[0] <= there[-1] <= MOST_INPUTS:
        chosen = {channel: channel for channel in there}
    elif there[-1] < MOST_INPUTS:
        chosen = {channel: channel + 1 for channel in there}
    else:
        raise ValueError(
            f"{source.name}: channels {there[0]} to {there[-1]} don't fit into inputs 1 to {MOST_INPUTS}; "
            "inputs={channel: input, ...} or inputs=[channel, ...] chooses"
        )
    for channel, number in chosen.items():
        if not 0 <= channel < 1 << 16 or not (0 <= number <= MOST_INPUTS or 129 <= number <= 143):
            raise ValueError(f"inputs: channel {channel} can't become {number}; there are 0 (sync) and 1 to {MOST_INPUTS}")
    return chosen
