"""The chain of a device: stages that events pass before they are counted."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any, Dict, List, Sequence, Tuple

import numpy as np

from . import _library, capi
from .errors import SettingError
from .stages import Stages, stages_of
from .units import Time, picoseconds, whole

if TYPE_CHECKING:
    from .core import Core

_COINCIDENCE_MODES = {"sliding": 0, "once": 1}
_COINCIDENCE_TIMES = {"first": 0, "last": 1, "average": 2}
_MOST = 2**31 - 1  # ps, where the library counts in 32 bits


class Chain:
    """Stages of a device. Each method adds one behind the others and returns the channel that it makes.

    A new channel gets the next number after the inputs, in the order of the chain; later stages and measurements take
    it. The chain stays from run to run. Add stages between two runs.

    Examples
    --------
    >>> with tessel.open("emitter.tgx") as dev:
    ...     pairs = dev.chain.coincidence(1, 2, window="10ns", keep=True)
    ...     counts = dev.histogram(reference=1).wait().counts
    >>> pairs, counts.shape[0]
    (3, 4)
    """

    def __init__(self, device: "Core") -> None:
        self._device = device

    @property
    def stages(self) -> List[Dict[str, Any]]:
        """The stages with all that they were added with, times in ps."""
        stages: List[Dict[str, Any]] = self._device._text(capi.TEXT_STAGES)["chain"]
        return stages

    def __len__(self) -> int:
        return len(self.stages)

    def channel_names(self) -> Tuple[str, ...]:
        """A name for each channel that the chain makes."""
        kinds = [stage["stage"] for stage in self.stages]
        made = []
        for index, stage in enumerate(self._device._text(capi.TEXT_CHAIN)["ManisCfg"]):
            kind = kinds[index] if index < len(kinds) else str(stage["Type"])
            made += [f"{kind} {each['Channel']}" for each in stage["Channels"]]
        return tuple(made)

    def add(self, chain: Stages) -> Tuple[int, ...]:
        """Adds the stages of a text, as the ``tessel`` program takes it, or of a list.

        Parameters
        ----------
        chain : str, list of dict or dict
            ``"coincidence(1,2; 10ns; keep) | merge(1,2; keep)"`` (``tessel chain --help``), stages as ``stages`` has
            them, or what a chain file holds.

        Returns
        -------
        tuple of int
            The new channels, of all stages.

        Raises
        ------
        ValueError
            It can't be read, or names a channel that there isn't.

        Examples
        --------
        >>> with tessel.open("emitter.tgx") as dev:
        ...     dev.chain.add("coincidence(1,2; 10ns; keep) | delay(2; 5ns; keep)")
        (3, 4)
        """
        rows = self._device._call("getNumAllChans")
        for stage in stages_of(chain):
            given = {name: value for name, value in stage.items() if name not in ("stage", "channels", "herald")}
            if stage["stage"] == "substream":
                given = {"start": given["from"], "stop": given["to"]}
            channels = [*([stage["herald"]] if "herald" in stage else []), *stage.get("channels", [])]
            getattr(self, stage["stage"])(*channels, **given)
        return tuple(range(rows, self._device._call("getNumAllChans")))

    def coincidence(
        self, *channels: int, window: Time, mode: str = "sliding", time: str = "last", keep: bool = False
    ) -> int:
        """An event on a new channel whenever each of the channels had one within the window.

        Parameters
        ----------
        *channels : int
            The members, two or more.
        window : time
            Within which they come; exactly the window still counts.
        mode : {"sliding", "once"}
            "sliding": an event can belong to several coincidences. "once": a coincidence uses its events up.
        time : {"first", "last", "average"}
            Which time the new event has.
        keep : bool
            All events go on, beside the coincidences; else coincidences alone.

        Returns
        -------
        int
            The new channel.

        Raises
        ------
        SettingError
            The stream would have more than 255 channels.
        ValueError
            A channel that there isn't, or another wrong value.
        """
        members = self._channels(channels, 2)
        modes = _word(mode, _COINCIDENCE_MODES, "mode"), _word(time, _COINCIDENCE_TIMES, "time")
        ps = picoseconds(window, "window", 0)
        return self._added("addMCoincidence", members, len(members), float(ps), *modes, int(keep))

    def merge(self, *channels: int, keep: bool = False) -> int:
        """Copies the events of the channels onto one new channel.

        Parameters
        ----------
        *channels : int
            What is merged.
        keep : bool
            The whole stream goes on; else the channels and the copies alone.

        Returns
        -------
        int
            The new channel.
        """
        members = self._channels(channels, 1)
        return self._added("addMMerge", members, len(members), int(keep))

    def delay(self, channel: int, delay: Time, keep: bool = False) -> int:
        """Shifts the events of a channel.

        Parameters
        ----------
        channel : int
            Which is shifted.
        delay : time
            By how much, up to 2.147 ms; negative: to earlier times.
        keep : bool
            The channel stays as it is, and the shifted events come on the new one; else they come on `channel`, and
            the new channel stays empty.

        Returns
        -------
        int
            The new channel.
        """
        (number,) = self._channels((channel,), 1)
        shift = picoseconds(delay, "delay", -_MOST)
        with _library.lock:
            self._device._select()
            return self._added("addMDelay", int(number), float(_at_most(shift, "delay")), int(keep))

    def herald(
        self,
        herald: int,
        *gated: int,
        window: Time,
        delay: Time = 0,
        inverted: bool = False,
        keep: bool = False,
    ) -> Tuple[int, ...]:
        """Lets channels pass only inside a window after each event of the herald.

        Parameters
        ----------
        herald : int
            The channel whose events open the window.
        *gated : int
            The channels that it gates.
        window, delay : time
            The window goes from `delay` to `delay` + `window` after the herald, both included; up to 2.147 ms.
        inverted : bool
            What is outside passes.
        keep : bool
            All events go on, and those that pass are copied to a new channel for each gated one; else gated events
            that don't pass are dropped.

        Returns
        -------
        tuple of int
            The channel with what passes, for each gated one.
        """
        (opening,) = self._channels((herald,), 1)
        members = self._channels(gated, 1)
        times = _at_most(picoseconds(delay, "delay", -_MOST), "delay"), _at_most(picoseconds(window, "window", 0), "window")
        first = self._added("addMHerald", int(opening), members, len(members), *times, int(inverted), int(keep))
        return tuple(range(first, first + len(members))) if keep else tuple(int(each) for each in gated)

    def substream(self, start: Time, stop: Time) -> None:
        """Lets events pass only between two times.

        Parameters
        ----------
        start, stop : time
            Since the start of the run, both included.
        """
        first, last = picoseconds(start, "start", 0), picoseconds(stop, "stop", 0)
        if last < first:
            raise ValueError(f"stop: {stop!r} is before {start!r}")
        self._device._call("addMSubStream", first, last)

    def sort(self, window: Time) -> None:
        """Puts the events in the order of time, where none comes more than the window after a later one.

        Parameters
        ----------
        window : time
            How far an event may be out of order; events are held back for so long. One that is more goes on as it is,
            and ``info.order`` of a result counts it.
        """
        if not self._device._call("tessel_addMSort", picoseconds(window, "window")):
            raise SettingError(_library.with_reason(f"{self._device.id}: the stage can't be added"))

    def countrate(self, window: Time = "1ms") -> int:
        """Counts the rate of each channel.

        Parameters
        ----------
        window : time
            Over at least how long, up to 2.147 ms.

        Returns
        -------
        int
            The index of the stage, for ``rates``.
        """
        return self._added("addMCountRate", float(_at_most(picoseconds(window, "window"), "window")))

    def import_stream(self, source: "Core", *channels: int, offset: Time = 0, start: bool = True) -> Tuple[int, ...]:
        """Merges channels of another device into this stream, each on a new channel.

        Parameters
        ----------
        source : Device
            Where they come from; it has to stay open.
        *channels : int
            Its channels.
        offset : time
            Added to the times of the source.
        start : bool
            A measurement of this device starts one of the source.

        Returns
        -------
        tuple of int
            The new channels.
        """
        members = np.array(channels or (1,), np.int32)
        shift = _at_most(whole(offset, "ps", "offset"), "offset")
        first = self._added("addMImportStream", source._wide, int(start), members, len(members), shift)
        return tuple(range(first, first + len(members)))

    def rates(self, index: int) -> Tuple[int, ...]:
        """The last rates that a count-rate stage took, counts per second, a value for each channel.

        Parameters
        ----------
        index : int
            What ``countrate`` returned.

        Returns
        -------
        tuple of int

        Raises
        ------
        SettingError
            There is no such stage, or it has not been in a run.
        """
        rates = np.zeros(256, np.uint32)
        if not self._device._call("getMCountRates", index, rates):
            raise SettingError(_library.with_reason(f"stage {index} has no rates"))
        return tuple(int(each) for each in rates[: self._device._call("getNumAllChans")])

    def clear(self) -> None:
        """Ends and removes all stages; blocks until they have ended, with a coincidence two seconds."""
        self._device._call("clearManis")

    def _channels(self, numbers: Sequence[int], least: int) -> "np.ndarray[Any, np.dtype[np.int32]]":
        if len(numbers) < least or len(set(numbers)) != len(numbers):
            raise ValueError(f"at least {least} channels, each once, not {list(numbers)}")
        for number in numbers:
            self._device._check_channel(number, "channel")
        return np.array(numbers, np.int32)

    def _added(self, name: str, *arguments: Any) -> int:
        number = int(self._device._call(name, *arguments))
        if number < 0:
            raise SettingError(_library.with_reason(f"{self._device.id}: the stage can't be added"))
        return number

    def __repr__(self) -> str:
        return f"Chain({self.stages})"


def _word(word: str, known: Dict[str, int], what: str) -> int:
    if word not in known:
        raise ValueError(f"{what}: one of {', '.join(known)}, not {word!r}")
    return known[word]


def _at_most(ps: int, what: str) -> int:
    if abs(ps) > _MOST:
        raise ValueError(f"{what}: at most {_MOST} ps, not {ps}")
    return ps
