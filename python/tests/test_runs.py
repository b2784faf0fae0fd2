"""A run as a handle: what it shows while it goes on, how it ends, and that its memory outlives whoever drops it."""

from __future__ import annotations

import asyncio
import gc
import os
import shutil
import signal
import subprocess
import sys
import threading
import time

import numpy as np
import pytest

import tessel


def total(name: str) -> int:
    with tessel.open(name) as dev:
        return int(dev.histogram().wait().counts.sum())


def slow_down(dev: tessel.Device) -> None:
    """Without a stage a run is over before a test looks at it."""
    for _ in range(6):
        dev.chain.coincidence(1, 2, window="1us", keep=True)


def test_a_result_grows_while_the_run_goes_on() -> None:
    with tessel.open("long.tgx") as dev:
        slow_down(dev)
        run = dev.histogram(reference=1, bins=1000)
        live = run.result
        assert live.info.running and not live.complete
        with pytest.raises(TimeoutError):
            run.wait(0)
        sums = [int(update.counts.sum()) for update in run.updates(0.02)]
        assert sums == sorted(sums) and len(set(sums)) > 1
        assert live.counts is not run.result.counts and np.array_equal(live.counts, run.result.counts)
        assert run.done and run.result.complete and run.progress.fraction == 1
        assert run.result.verdict == "clean" and not run.result.info.running
    with pytest.raises(ValueError):
        run.result.counts[0, 0] = 1


def test_stop_keeps_what_there_is() -> None:
    with tessel.open("long.tgx") as dev:
        slow_down(dev)
        run = dev.histogram(reference=1, bins=1000)
        while run.progress.records == 0:
            time.sleep(0.001)
        run.stop()
        result = run.wait(5)
    assert 0 < result.info.description["NumRecs"] < 20_000_000 and not result.complete


def test_await_and_async_for() -> None:
    async def both() -> list[int]:
        with tessel.open("decay.tgx") as one, tessel.open("decay.tgx") as other:
            assert one.id != other.id
            results = list(await asyncio.gather(one.histogram(), other.histogram()))
            results += [last async for last in one.histogram()][-1:]
            return [int(each.counts.sum()) for each in results]

    assert asyncio.run(both()) == [total("decay.tgx")] * 3


def test_other_threads_go_on_during_a_wait() -> None:
    turns = 0

    def spin(end: threading.Event) -> None:
        nonlocal turns
        while not end.wait(0.001):
            turns += 1

    end = threading.Event()
    other = threading.Thread(target=spin, args=(end,))
    other.start()
    with tessel.open("long.tgx") as dev:
        slow_down(dev)
        dev.histogram(reference=1, bins=1000).wait()
    end.set()
    other.join()
    assert turns > 20


def test_ctrl_c_ends_a_wait_and_the_result_stays() -> None:
    with tessel.open(simulated=True) as dev:
        run = dev.histogram()
        threading.Timer(0.3, os.kill, (os.getpid(), signal.SIGINT)).start()
        with pytest.raises(KeyboardInterrupt):
            run.wait()
        result = run.wait(5)
    assert result.info.description["StopReason"] == "Manual"


@pytest.mark.parametrize("after", [0.01, 0.15, 0.33, 0.5, 0.9])
def test_ctrl_c_at_any_moment(after: float) -> None:
    program = """
import tessel
print("go", flush=True)
while True:
    with tessel.open("emitter.tgx") as dev:
        dev.chain.merge(1, 2, keep=True)
        for update in dev.g2(window="50ns").updates(0.01): pass
        for block in dev.unfold(capacity=10000):
            if len(block) > 5: break
        sum(len(block) for block in dev.raw())
"""
    child = subprocess.Popen([sys.executable, "-c", program], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    assert child.stdout and child.stdout.readline() == "go\n"
    time.sleep(after)
    child.send_signal(signal.SIGINT)
    errors = child.communicate(timeout=30)[1]
    assert errors.rstrip().endswith("KeyboardInterrupt") and "Exception ignored" not in errors


# Each starts runs whose arrays nobody holds; the memory is then reused, which the run must not notice.
DROPS = {
    "handle dropped": "dev.histogram(reference=1, bins=100000); gc.collect()",
    "exception": "f(dev)",
    "device dropped": "dev.histogram(reference=1); dev = None; gc.collect()",
    "left open": "run = dev.histogram(reference=1)",
    "next run": "[dev.histogram(reference=1, bins=100000) for _ in range(5)]",
}


@pytest.mark.parametrize("code", DROPS.values(), ids=DROPS)
def test_memory_outlives_its_holders(code: str) -> None:
    program = f"""
import gc, numpy as np, tessel
def f(dev):
    dev.histogram(reference=1, bins=100000); raise ValueError
dev = tessel.open("long.tgx")
try:
    {code}
except ValueError:
    pass
others = [np.full(300000, 7, np.uint32) for _ in range(50)]
import time; time.sleep(0.2)
assert all((each == 7).all() for each in others)
"""
    environment = {**os.environ, "MALLOC_PERTURB_": "85"}
    done = subprocess.run([sys.executable, "-c", program], env=environment, stderr=subprocess.PIPE, text=True, timeout=60)
    assert (done.returncode, done.stderr) == (0, "")


def test_dropped_memory_is_given_back() -> None:
    from tessel import _library

    with tessel.open("decay.tgx") as dev:
        for _ in range(3):
            dev.histogram()
            assert len(_library._written) == 1
        gc.collect()
        dev.histogram().wait()


def test_after_a_fork_the_child_is_refused() -> None:
    program = """
import os, sys, tessel
dev = tessel.open("long.tgx")
run = dev.g2(window="10us")
child = os.fork()
if child == 0:
    for use in (lambda: tessel.open("decay.tgx"), run.wait, dev.histogram, lambda: dev.chain.merge(1, 2)):
        try:
            use()
            os._exit(1)
        except tessel.TesselError as problem:
            assert "spawn, not fork" in str(problem), problem
    dev.close()
    sys.exit(0)
assert os.waitpid(child, 0)[1] == 0
assert run.wait().complete
"""
    subprocess.run([sys.executable, "-c", program], check=True, timeout=60)


@pytest.mark.parametrize("what", ["cut short", "removed"])
def test_a_recording_that_goes_away_is_an_error(what: str) -> None:
    shutil.copy("long.tgx", "gone.tgx")
    with tessel.open("gone.tgx") as dev:
        slow_down(dev)
        if what == "removed":
            os.unlink("gone.tgx")
        run = dev.histogram(reference=1)
        if what == "cut short":
            os.truncate("gone.tgx", 100_000)
        with pytest.raises(tessel.RunError) as error:
            run.wait(30)
        assert not error.value.result.complete and dev.tags["fileSize"] > 0


def test_what_a_faulty_instrument_loses_is_told() -> None:
    """In a process of its own, since a library of instruments stays loaded."""
    program = """
import pytest, tessel
faults = {
    "drops": {"flag": "countsDropped", "atMs": 100, "forMs": 50},
    "full": {"flag": "fifoFull", "atMs": 100, "forMs": 5000},
    "gone": {"op": "ReadFiFo", "call": 20, "code": -36},
}
about = {"instruments": [{"serial": name, "faults": [fault]} for name, fault in faults.items()]}
def run(name):
    with tessel.open(name, simulated=about) as dev:
        return dev.histogram("300ms").wait()
for name, place, complete in (("drops", "dropped", True), ("full", "fifo", False)):
    with pytest.warns(tessel.DataLost, match=f"{name}: lossy .{place}: some counts"):
        result = run(name)
    assert result.verdict == "lossy" and list(result.losses) == [place] and result.complete is complete
with pytest.raises(tessel.RunError, match="gone: the run ended with the stop reason") as error:
    run("gone")
assert error.value.result.counts.shape == (5, 32768) and not error.value.result.complete
"""
    subprocess.run([sys.executable, "-c", program], check=True)
