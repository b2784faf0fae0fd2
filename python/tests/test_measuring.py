"""Each measurement against a plain NumPy count of the single events of the same recording."""

from __future__ import annotations

import json
import socket
import subprocess
import sys
from typing import Any, Callable, Dict, Tuple

import numpy as np
import pytest
from numpy.typing import NDArray

import tessel


def times_of(events: tessel.Events, channel: int) -> NDArray[np.int64]:
    return events.of(channel).picoseconds().astype(np.int64)


def pair_counts(early: NDArray[np.int64], late: NDArray[np.int64], edges: NDArray[np.int64]) -> NDArray[np.int64]:
    """Pairs by late - early, in bins that hold their lower bound."""
    below = [int(np.searchsorted(late, early + edge, "left").sum()) for edge in edges]
    return np.diff(below)


def read(name: str) -> tessel.Events:
    with tessel.open(name) as dev:
        return dev.unfold(capacity=50_000).read()


def test_histogram_t3() -> None:
    events = read("decay.tgx")
    with tessel.open("decay.tgx") as dev:
        result = dev.histogram().wait()
    for channel in (1, 2):
        assert np.array_equal(result.counts[channel], np.bincount(events.of(channel).dtimes, minlength=32768))
    assert result.bin_width == 25 and result.sync_period == 25000.0 and result.centres[0] == 12.5
    assert result.channels == ("Sync", "Channel 1", "Channel 2")


def test_histogram_t2_and_a_chain() -> None:
    events = read("emitter.tgx")
    one, two = times_of(events, 1), times_of(events, 2)
    before = np.searchsorted(one, two, "right")
    since = (two - one[before - 1])[before > 0]
    with tessel.open("emitter.tgx") as dev:
        both = dev.chain.merge(1, 2, keep=True)
        shifted = dev.chain.delay(2, "50ns", keep=True)
        result = dev.histogram(reference=1, bin_width="1ns", bins=300).wait()
        assert (both, shifted, len(dev.chain)) == (3, 4, 2)
        merged = dev.unfold().read()
        dev.chain.clear()
        assert dev.histogram(reference=1, bins=10).wait().counts.shape == (3, 10)
    assert np.array_equal(result.counts[2], np.bincount(since[since < 300_000] // 1000, minlength=300))
    assert np.array_equal(times_of(merged, both), np.sort(np.concatenate([one, two])))
    assert np.array_equal(times_of(merged, shifted), two[: len(times_of(merged, shifted))] + 50_000)
    assert [stage["stage"] for stage in result.chain] == ["merge", "delay"] and result.reference == 1


def test_stages() -> None:
    """Each stage against its rule on the plain events."""
    events = read("emitter.tgx")
    one, two = times_of(events, 1), times_of(events, 2)
    with tessel.open("emitter.tgx") as dev, tessel.open("emitter.tgx") as source:
        (gated,) = dev.chain.herald(1, 2, delay="10ns", window="30ns", keep=True)
        pairs = dev.chain.coincidence(1, 2, window="5ns", mode="once", time="first", keep=True)
        (copied,) = dev.chain.import_stream(source, 2, offset="1us")
        rates = dev.chain.countrate("1ms")
        dev.chain.substream("100ms", "400ms")
        seen = dev.unfold().read()
        assert (gated, pairs, copied) == (3, 4, 5) and dev.channels[3:] == ("herald 3", "coincidence 4", "import 5")
        assert dev.chain.rates(rates)[1] == pytest.approx(300_000, rel=0.2)
    window = seen.times.min(), seen.times.max()
    assert 10**11 <= window[0] < 10**11 + 10**9 and 4 * 10**11 - 10**9 < window[1] <= 4 * 10**11

    def cut(times: NDArray[np.int64]) -> NDArray[np.int64]:
        return times[(times >= 10**11) & (times <= 4 * 10**11)]

    since = two - one[np.searchsorted(one, two, "right") - 1]
    assert np.array_equal(times_of(seen, gated), cut(two[(two > one[0]) & (10_000 <= since) & (since <= 40_000)]))
    assert np.array_equal(times_of(seen, copied), cut(two + 10**6))
    place = np.searchsorted(one, two - 5000)  # the first of one that is near enough
    place[place == len(one)] = 0
    near = abs(one[place] - two) <= 5000
    first = cut(np.sort(np.minimum(one[place], two)[near]))
    found = times_of(seen, pairs)
    # Members on both sides of a batch's end make no coincidence.
    assert np.isin(found, first).all() and len(first) - 2 <= len(found) > 20


def test_g2() -> None:
    events = read("emitter.tgx")
    one, two = times_of(events, 1), times_of(events, 2)
    with tessel.open("emitter.tgx") as dev:
        result = dev.g2(1, 2, window="50ns", bin_width="500ps").wait()
    above, below = (pair_counts(a, b, np.arange(101) * 500) for a, b in ((two, one), (one, two)))
    assert np.array_equal(result.pairs, np.concatenate([below[::-1], above]))
    assert result.events.tolist() == [len(one), len(two)] and result.last.tolist() == [one[-1], two[-1]]
    by_chance = len(one) * len(two) * 500.0 / (max(one[-1], two[-1]) - min(one[0], two[0]))
    assert result.values == pytest.approx(result.pairs / by_chance, rel=1e-12)
    assert result.sigma == pytest.approx(np.sqrt(np.maximum(result.pairs, 1)) / by_chance, rel=1e-12)
    assert result.values[:10] == pytest.approx(result.filled[:10], rel=1e-3)
    assert result.edges[0] == -50_000 and result.lag_ps[100] == 250.0
    assert result.values[99:101].mean() < 0.1 < 0.8 < result.values[:10].mean()


def test_fcs() -> None:
    slow, fast = (measured("cells.tgx", "fcs", min_lag="1us", max_lag="10ms", steps=30, fast=f) for f in (False, True))
    for result in (slow, fast):
        assert result.auto1.shape == result.lag_ps.shape and 1e6 <= result.lag_ps[0] < result.lag_ps[-1] < 1.3e10
        # One molecule in the focus: G is 1 at short lags and half of that at the diffusion time, 100 us.
        assert 0.8 < result.cross[0] < 1.2
        assert 0.35 < np.interp(1e8, result.lag_ps, result.cross) < 0.65
        assert result.cross == pytest.approx(result.filled[1], abs=0.03)
    assert slow.cross == pytest.approx(fast.cross, abs=0.02) and (slow.sigma[1] < 0.05).all()


@pytest.mark.parametrize("chan2", [1, 2])
def test_correlations_are_those_of_the_program(chan2: int) -> None:
    def program(*arguments: str) -> Any:
        call: Any = [tessel.program(), "-q", *arguments, "--chan2", str(chan2), "--json"]
        return json.loads(subprocess.check_output(call))

    theirs = program("g2", "emitter.tgx", "--window", "50ns", "--bin-width", "500ps")
    ours = measured("emitter.tgx", "g2", chan2=chan2, window="50ns", bin_width="500ps")
    assert ours.pairs.tolist() == theirs["pairs"] and ours.spans_ps[0] == ours.spans_ps[1] == theirs["measuredPs"]
    for name in ("values", "sigma"):
        assert getattr(ours, name) == pytest.approx(theirs[name], rel=1e-12)
    theirs = program("fcs", "cells.tgx", "--steps", "20", "--max-lag", "100ms")
    curves = measured("cells.tgx", "fcs", chan2=chan2, steps=20, max_lag="100ms")
    assert curves.lag_ps.tolist() == theirs["lagPs"] and curves.edges.tolist() == theirs["edgesPs"]
    for index, name in enumerate(("auto1", "cross", "auto2")):
        assert getattr(curves, name) == pytest.approx(theirs[name], rel=1e-9, abs=1e-12)
        assert curves.sigma[index] == pytest.approx(theirs["sigma"][name], rel=1e-9)


@pytest.mark.parametrize("name, width", [("decay.tgx", 10**10), ("emitter.tgx", 7 * 10**9)])
def test_trace(name: str, width: int) -> None:
    events = read(name)
    result = measured(name, "trace", bin_width=width)
    for channel in (1, 2):
        counts = np.bincount(times_of(events, channel) // width)
        assert np.array_equal(result.counts[channel][: len(counts)], counts)
    assert result.edges[0] == 0 and len(result.edges) == result.counts.shape[1] + 1
    assert result.rates[1].mean() == pytest.approx(len(events.of(1)) / 0.5, rel=0.03)
    last = measured(name, "trace", bin_width=width, span=10 * width)
    assert np.array_equal(last.counts, result.counts[:, -10:]) and last.edges[-1] == result.edges[-1]


def test_hist2d() -> None:
    # T3: the next event counts the pair of the last events of a sync, once.
    result = measured("decay.tgx", "hist2d", bin_width="1ns", bins=(25, 20))
    assert result.counts.shape == (20, 25) and result.x_edges[-1] == 25_000 and result.y_edges[-1] == 20_000
    events = read("decay.tgx").photons()
    ends = np.flatnonzero(np.diff(events.syncs))  # the last event of each sync
    two = (ends >= 1) & (events.syncs[ends] == events.syncs[ends - 1])
    a, b = events.channels[ends[two] - 1], events.channels[ends[two]]
    assert abs(int(result.counts.sum()) - int((a != b).sum())) < 0.05 * (a != b).sum()


def test_raw_words_are_those_of_the_file() -> None:
    with tessel.open("decay.tgx") as dev:
        start = dev.tags["dataStart"]
        words = np.concatenate([block.copy() for block in dev.raw(capacity=10_000)])
        assert len(words) == dev.records
    with open("decay.tgx", "rb") as file:
        file.seek(start)
        assert np.array_equal(words, np.fromfile(file, np.uint32))


def test_a_loop_over_blocks_can_be_left() -> None:
    whole = read("emitter.tgx")
    with tessel.open("emitter.tgx") as dev:
        blocks = dev.unfold(capacity=1000)
        first = next(blocks).copy()
        rest = blocks.read()
        assert np.array_equal(np.concatenate([first.photons().times, rest.times]), whole.times)
        blocks = dev.unfold(capacity=1000)  # nobody takes these
        counts = dev.histogram(reference=1, bins=100).wait().counts
        assert blocks.info.complete is False and counts.any()
        with pytest.raises(tessel.RunError, match="began another run"):
            list(blocks)
        with dev.raw(capacity=1000) as words:
            assert len(next(words)) > 0
        assert words.info.complete is False


def test_live() -> None:
    with tessel.open(simulated=True) as dev:
        dev.inputs[2].enabled = False
        dev.tag(Operator="A. Body", Sample=7, Height=1.5, Cold=True, Empty=None)
        run = dev.histogram("200ms", record="live.tgx")
        live = run.wait()
    assert live.complete and live.info.recorded and not live.counts[2].any()
    with tessel.open("live.tgx") as dev:
        tags = {each["name"]: each["value"] for each in dev.tags["tags"]}
    own: Dict[str, Any] = {"Operator": "A. Body", "Sample": 7, "Height": 1.5, "Cold": True, "Empty": None}
    assert own.items() <= tags.items() and tessel.verify("live.tgx").verdict == "clean"
    replayed = measured("live.tgx", "histogram")
    assert np.array_equal(live.counts, replayed.counts) and live.counts[1].sum() > 10_000
    with tessel.open(simulated=True, mode="histogram") as dev:
        counted = dev.histogram("200ms").wait()
    assert counted.counts.sum() > 50_000 and counted.info.description["StopReason"] == "TimeOver"


def test_an_instrument_of_another_computer() -> None:
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        port = free.getsockname()[1]
    serve = f"import sys, tessel\nwith tessel.open(simulated=True) as dev:\n    dev.serve(port={port}); print(1, flush=True)\n"
    serve += "    sys.stdin.read(); print(dev.inputs[2].trigger_level)"
    host = f"localhost:{port}"
    server = subprocess.Popen([sys.executable, "-c", serve], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    assert server.stdout and server.stdout.readline()
    assert [each.num_inputs for each in tessel.devices(host=host)] == [4]
    with tessel.open(host=host) as dev:
        assert dev.is_remote and dev.mode == "T3" and dev.inputs[2].trigger_level != -80
        dev.inputs[2].trigger_level = "-80mV"
        dev.start("100ms")
        with pytest.raises(tessel.DeviceError, match="events stay"):
            dev.unfold()
    assert server.communicate("")[0] == "-80\n"
    with pytest.raises(tessel.DeviceError, match=f"{host}: can't be reached"):
        tessel.open(host=host)


def test_out_of_order() -> None:
    times = np.arange(0, 10**9, 1000)
    times[5::10] -= 1500
    tessel.write("unsorted.tgx", times, np.ones(len(times), int))
    with tessel.open("unsorted.tgx") as dev:
        with pytest.warns(tessel.OutOfOrder, match="100000 events go back in time, by up to 500 ps"):
            result = dev.histogram(reference=1, bins=10).wait()
        assert result.info.order["stepsBack"] == 100_000
        dev.chain.sort("2ns")
        assert np.array_equal(dev.unfold().read().times, np.sort(times))


def test_a_recording_that_was_cut_off_is_repaired() -> None:
    with open("decay.tgx", "rb") as file:
        data = file.read()
    with open("cut.tgx", "wb") as file:
        file.write(data[: len(data) // 2 + 1])
    found = tessel.verify("cut.tgx")
    assert found.verdict == "lossy" and found.faults
    assert not measured("cut.tgx", "histogram").counts[0].any()
    assert tessel.repair("cut.tgx", "whole.tgx").report["records"] == found.report["records"]
    with pytest.raises(tessel.TesselError):
        tessel.repair("decay.tgx", "other.tgx")


def measured(name: str, what: str, **parameters: Any) -> Any:
    with tessel.open(name) as dev:
        return getattr(dev, what)(**parameters).wait()


def simulated(call: Callable[[tessel.Device], Any]) -> Callable[[], Any]:
    def opened() -> Any:
        with tessel.open(simulated=True) as dev:
            return call(dev)

    return opened


def recorded(call: Callable[[tessel.Device], Any]) -> Callable[[], Any]:
    def opened() -> Any:
        with tessel.open("decay.tgx") as dev:
            return call(dev)

    return opened


# What is refused, with the error and a part of its text.
REFUSALS: Dict[str, Tuple[Callable[[], Any], Any, str]] = {
    "no file": (lambda: tessel.open("nothing.tgx"), FileNotFoundError, "no such recording"),
    "no recording": (lambda: tessel.open(__file__), tessel.DeviceError, "isn't a recording"),
    "no instrument": (lambda: tessel.open("X", simulated=True), tessel.DeviceError, "found: SIM-ZP-0"),
    "no mode": (lambda: tessel.open(mode="t4"), ValueError, "mode"),
    "no description": (lambda: tessel.devices(simulated="nothing.json"), FileNotFoundError, "no such description"),
    "no unit": (recorded(lambda dev: dev.trace("5 parsec")), ValueError, "isn't a number with a unit"),
    "below a ps": (recorded(lambda dev: dev.trace("0.5ps")), ValueError, "whole number of ps"),
    "bare seconds": (recorded(lambda dev: dev.histogram(10)), ValueError, "whole milliseconds"),
    "for T2": (recorded(lambda dev: dev.histogram(bins=3)), ValueError, "bins: for T2 only"),
    "no channel": (recorded(lambda dev: dev.g2(1, 9)), ValueError, "chan2: channels go from 0"),
    "bin below resolution": (recorded(lambda dev: dev.g2(bin_width=1)), ValueError, "from the resolution, 25 ps"),
    "lags": (recorded(lambda dev: dev.fcs(min_lag="1ms", max_lag="1us")), ValueError, "max_lag: above"),
    "too big": (recorded(lambda dev: dev.hist2d(bins=70_000)), ValueError, "too big"),
    "no record": (recorded(lambda dev: dev.record("new.tgx")), ValueError, "an instrument's stream"),
    "there already": (simulated(lambda dev: dev.record("decay.tgx")), FileExistsError, "is there already"),
    "not tgx": (simulated(lambda dev: dev.record("new.dat")), ValueError, "ends in .tgx"),
    "no setting": (simulated(lambda dev: dev.inputs[1].cfd_level), tessel.SettingError, "no setting 'ch1.cfd-level'"),
    "out of range": (simulated(lambda dev: dev.settings.__setitem__("ch1.level", "5V")), tessel.SettingError, "-1200"),
    "no choice": (simulated(lambda dev: setattr(dev.sync, "trigger_edge", "up")), tessel.SettingError, "falling"),
    "no input": (simulated(lambda dev: dev.inputs[5]), IndexError, "from 1 to 4"),
    "misspelt": (simulated(lambda dev: setattr(dev.inputs[1], "trigger_lvl", 0)), AttributeError, "trigger_lvl"),
    "one twice": (recorded(lambda dev: dev.chain.coincidence(1, 1, window=5)), ValueError, "each once"),
    "no word": (recorded(lambda dev: dev.chain.coincidence(1, 2, window=5, mode="x")), ValueError, "sliding, once"),
    "long delay": (recorded(lambda dev: dev.chain.delay(1, "3ms")), ValueError, "at most"),
    "no rates": (recorded(lambda dev: dev.chain.rates(0)), tessel.SettingError, "no rates"),
    "closed": (lambda: recorded(lambda dev: dev)().histogram(), tessel.DeviceError, "is closed"),
    "simulation": (lambda: tessel.simulate("a.tgx", rate="fast"), tessel.TesselError, "fast"),
}


@pytest.mark.parametrize("call, error, text", REFUSALS.values(), ids=REFUSALS)
def test_what_is_refused(call: Callable[[], Any], error: Any, text: str) -> None:
    with pytest.raises(error, match=text):
        call()
