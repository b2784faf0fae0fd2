"""Jobs: as the program runs them; many recordings, in one process and on a cluster that loses a worker."""

from __future__ import annotations

import json
import subprocess
from pathlib import Path
from typing import Any, Dict, List, Tuple

import numpy as np
import pytest

from conftest import ROOT

import tessel
from tessel import jobs

pytest.importorskip("distributed")

# A recording, and the parts of a job.
JOBS: Dict[str, Tuple[str, str, Dict[str, Any], Dict[str, Any]]] = {
    "decays": ("decay.tgx", "histogram", {}, {"source": {"from": "100ms", "to": 3 * 10**11}}),
    "T2 histogram": ("emitter.tgx", "histogram", {"ref-chan": 3, "bin-width": "1.5ns", "bins": 300}, {"chain": "delay(1; -0.3us; keep)"}),
    "g2": ("emitter.tgx", "g2", {"chan1": 2, "chan2": 1, "window": 50000, "bin-width": "500ps"}, {"source": {"sort": "1us"}}),
    "spans": ("emitter.tgx", "g2", {"window": "50ns", "span": "each"}, {"chain": "herald(1; 2; delay 5ns; window 2us)"}),
    "fcs": ("cells.tgx", "fcs", {"max-lag": "10ms", "steps": 30, "later": "chan2"}, {}),
    "mean": ("cells.tgx", "fcs", {"chan2": 1, "min-lag": "5us", "norm": "mean", "fast": True}, {}),
    "trace": ("decay.tgx", "trace", {"bins": 7, "history": "300ms"}, {"chain": [{"stage": "merge", "channels": [1, 2], "keep": True}]}),
    "pairs": (
        "decay.tgx",
        "hist2d",
        {"chan-y": 1, "chan-x": 2, "bins-x": 9, "bin-width-x": "2ns", "bin-width-y": "3ns", "offset-y": "1ns", "tot": True}
        | {"slope": -0.2, "recovery-min": "10us", "recovery-offset-x": 500, "recovery-offset-y": 100},
        {"chain": {"chain": [{"stage": "coincidence", "channels": [1, 2], "window": "1us", "keep": True}]}},
    ),
}


@pytest.mark.parametrize("file, measurement, parameters, more", JOBS.values(), ids=JOBS)
def test_a_job_is_what_the_program_measures(file: str, measurement: str, parameters: Any, more: Any) -> None:
    theirs = by_program(measurement, parameters, file, **more)
    ours: Any = tessel.run("job.json", file)
    if measurement in ("histogram", "trace"):
        assert ours.counts.sum() > 1000
        assert ours.counts.tolist() == [each["counts"] for each in theirs["channels"]]
    elif measurement == "hist2d":
        assert ours.counts.sum() > 100 and ours.counts.tolist() == theirs["counts"]
    elif measurement == "g2":
        assert ours.pairs.sum() > 100 and ours.pairs.tolist() == theirs["pairs"]
        assert ours.values == pytest.approx(theirs["values"], rel=1e-12)
    else:
        assert ours.edges.tolist() == theirs["edgesPs"]
        for name in ("auto1", "cross", "auto2"):
            assert getattr(ours, name) == pytest.approx(theirs[name], rel=1e-9, abs=1e-12)


def by_program(measurement: str, parameters: Dict[str, Any], *files: str, **more: Any) -> Any:
    Path("job.json").write_text(json.dumps({"tessel": 1, "measurement": measurement, "parameters": parameters, **more}))
    return json.loads(subprocess.check_output([tessel.program(), "-q", "run", "job.json", *files, "--json"]))


def test_parameters_are_those_of_the_schema() -> None:
    schema = json.loads((ROOT / "docs" / "job.schema.json").read_text())
    known = {
        rule["if"]["properties"]["measurement"]["const"]: set(rule["then"]["properties"]["parameters"]["properties"])
        for rule in schema["allOf"]
    }
    del known["fold"]  # which the package doesn't measure
    assert known == {name: set(forms) for name, forms in jobs._PARAMETERS.items()}
    assert set(schema["properties"]["source"]["properties"]) == set(jobs._SOURCE)


def test_a_job_on_an_instrument() -> None:
    """In a process of its own, since a library of instruments stays loaded."""
    program = """
import tessel
source = {"sim": True, "for": "200ms", "mode": "t3", "set": ["ch*.level=-70mV", "sync.divider=1"]}
result = tessel.run({"tessel": 1, "measurement": "trace", "source": source, "parameters": {"bins": 100, "history": "10s"}})
assert result.counts[1].sum() > 0 and result.complete and result.info.parameters["duration_ms"] == 200
levels = [each["TrigLvl"] for each in result.config["ChansCfg"]]
assert levels and set(levels) == {-70}, levels
"""
    subprocess.run(["/usr/bin/python3", "-c", program], check=True)


WRONG: Dict[str, Tuple[Any, str]] = {
    "not JSON": ("{", "not JSON"),
    "no object": ("[]", "an object is expected"),
    "no format": ({"measurement": "g2"}, '"tessel" has to be 1'),
    "format": ({"tessel": 2, "measurement": "g2"}, "not 2"),
    "measurement": ({"tessel": 1, "measurement": "G2"}, "'G2' is none of histogram"),
    "key": ({"tessel": 1, "measurement": "g2", "chains": ""}, "did you mean chain"),
    "source key": ({"tessel": 1, "measurement": "g2", "source": {"form": "1s"}}, "source.form: unknown"),
    "parameter": ({"tessel": 1, "measurement": "g2", "parameters": {"windows": 5}}, "parameters.windows: unknown; did you mean window"),
    "value": ({"tessel": 1, "measurement": "g2", "parameters": {"window": "5 m"}}, "parameters.window: .*'5 m'"),
    "word": ({"tessel": 1, "measurement": "g2", "parameters": {"span": "all"}}, "span: one of common, each"),
    "number": ({"tessel": 1, "measurement": "fcs", "parameters": {"steps": "many"}}, "steps: a whole number"),
    "flag": ({"tessel": 1, "measurement": "fcs", "parameters": {"fast": 1}}, "fast: true or false"),
    "chain": ({"tessel": 1, "measurement": "g2", "chain": "merge(1,2) | delay(1)"}, "chain: stage 2, delay.1.: delay is missing"),
    "stage": ({"tessel": 1, "measurement": "g2", "chain": [{"stage": "mix"}]}, "unknown stage"),
    "channel": ({"tessel": 1, "measurement": "g2", "parameters": {"chan1": 7}}, "channels go from 0"),
    "span": ({"tessel": 1, "measurement": "g2", "source": {"from": "2s", "to": "1s"}}, "before source.from"),
    "no source": ({"tessel": 1, "measurement": "g2", "source": {}}, "names no instrument"),
}


@pytest.mark.parametrize("job, text", WRONG.values(), ids=WRONG)
def test_what_is_no_job(job: Any, text: str) -> None:
    Path("job.json").write_text(job if isinstance(job, str) else json.dumps(job))
    with pytest.raises(tessel.JobError, match=f"job.json: .*{text}" if isinstance(job, str) else text):
        tessel.run("job.json", None if "no instrument" in text else "emitter.tgx")


def halves(name: str, gap: int) -> List[str]:
    """Two recordings, and both joined with a gap (ps) between them."""
    with tessel.open(name) as dev:
        events = dev.unfold().read()
    middle = len(events) // 2
    parts = [(events.times[:middle], events.channels[:middle]), (events.times[middle:], events.channels[middle:])]
    second = parts[1][0] - parts[1][0][0] + 1
    tessel.write("a.tgx", *parts[0])
    tessel.write("b.tgx", second, parts[1][1])
    tessel.write("ab.tgx", np.concatenate([parts[0][0], second + parts[0][0][-1] + np.uint64(gap)]), events.channels)
    return ["a.tgx", "b.tgx", "ab.tgx"]


def test_merged_is_one_run_over_what_was_joined() -> None:
    gap = 10**9
    a, b, joined = ({kind: tessel.run({"tessel": 1, "measurement": kind, "parameters": options}, file) for kind, options in {
        "g2": {"window": "100ns"}, "fcs": {"max-lag": "100us", "steps": 20}, "histogram": {"ref-chan": 1, "bins": 1000}
    }.items()} for file in halves("emitter.tgx", gap))  # fmt: skip
    whole: Dict[str, Any] = {kind: tessel.merge([a[kind], b[kind]]) for kind in a}
    whole_of: Any = joined
    for kind, name in (("g2", "pairs"), ("g2", "events"), ("fcs", "pairs"), ("fcs", "events")):
        assert np.array_equal(getattr(whole[kind], name), getattr(whole_of[kind], name)), (kind, name)
    # The gap is time in which nothing was measured; no first reference is in the second half of what was joined.
    span = whole["g2"].spans_ps[0]
    assert 0 < int(whole_of["g2"].spans_ps[0]) - int(span) < gap + 10**8
    assert whole["g2"].values == pytest.approx(whole_of["g2"].values * float(span) / float(whole_of["g2"].spans_ps[0]))
    assert whole["fcs"].cross == pytest.approx(whole_of["fcs"].cross, abs=0.01)
    assert abs(int(whole["histogram"].counts.sum()) - int(whole_of["histogram"].counts.sum())) < 5
    assert whole["g2"].info.runs == 2 and whole["g2"].info.description["NumRecs"] > 0
    again = tessel.merge([tessel.merge([a["g2"]]), b["g2"]])
    assert again.info == whole["g2"].info and np.array_equal(again.values, whole["g2"].values)  # type: ignore[attr-defined]
    whole["g2"].save("merged.npz")
    assert np.array_equal(tessel.load("merged.npz").values, whole["g2"].values)  # type: ignore[attr-defined]
    for kind, names in {"g2": ("values", "sigma"), "fcs": ("auto1", "cross", "auto2")}.items():
        theirs = by_program(kind, {"window": "100ns"} if kind == "g2" else {"max-lag": "100us", "steps": 20}, "a.tgx", "b.tgx")
        for name in names:
            assert getattr(whole[kind], name).tolist() == theirs[name], (kind, name)
    trace = tessel.run({"tessel": 1, "measurement": "trace"}, "a.tgx")
    refused: List[Tuple[List[tessel.Result], str]] = [
        ([], "no result"),
        ([trace], "no sum"),
        ([a["g2"], a["fcs"]], "a g2 and a fcs"),
    ]
    for others, text in refused:
        with pytest.raises(tessel.TesselError, match=text):
            tessel.merge(others)
    done = tessel.batch({"tessel": 1, "measurement": "trace"}, ["a.tgx", "b.tgx"], workers=0)
    assert done.total is None and "no sum" in done.problem and not done.failed
    wider = tessel.run({"tessel": 1, "measurement": "g2", "parameters": {"window": "200ns"}}, "a.tgx")
    with pytest.raises(tessel.TesselError, match="differ"):
        tessel.merge([a["g2"], wider])


# In a process of its own, since a cluster leaves sockets to the collector.
LOSING_A_WORKER = """
import json, os, signal, sys
import distributed, tessel
if __name__ == "__main__":
    job, files = json.loads(sys.argv[1])
    killed = []
    options = {"n_workers": 4, "threads_per_worker": 1, "processes": True, "memory_limit": 0, "dashboard_address": None}
    with distributed.LocalCluster(**options) as cluster, distributed.Client(cluster) as client:
        workers = list(client.run(os.getpid).values())
        def kill_one(done, total):
            assert total == len(files)
            if done >= 60 and not killed:
                killed.append(workers[0])
                os.kill(workers[0], signal.SIGKILL)
        done = tessel.batch(job, files, client=client, progress=kill_one)
    assert killed and not any(array.flags.writeable for array in done.total.arrays().values())
    done.total.save("many.npz")
    print(json.dumps([[each.path, each.error, each.verdict, each.records] for each in done.files]))
"""


def test_a_cluster_that_loses_a_worker_finds_the_same() -> None:
    random = np.random.default_rng(9)
    files: List[str] = []
    for number in range(200):
        times = np.sort(random.integers(0, 10**10, 3000))
        files.append(tessel.write(f"{number}.tgx", times, random.integers(1, 3, len(times))))
    files[7:7] = ["missing.tgx"]
    Path("text.tgx").write_text("no recording")
    files[150:150] = ["text.tgx"]
    job = {"tessel": 1, "measurement": "g2", "chain": "delay(2; 5ns)", "parameters": {"window": "1us", "bin-width": "10ns"}}
    one = tessel.batch(job, files, workers=0)
    Path("script.py").write_text(LOSING_A_WORKER)
    rows = json.loads(subprocess.check_output(["/usr/bin/python3", "script.py", json.dumps([job, files])]))
    many: Any = tessel.load("many.npz")
    assert one.total is not None and one.total.info == many.info and many.info.runs == 200
    for name, array in one.total.arrays().items():
        theirs = many.arrays()[name]
        assert array.tobytes() == theirs.tobytes() and array.dtype == theirs.dtype, name
    assert rows == [[each.path, each.error, each.verdict, each.records] for each in one.files]
    assert [Path(each.path).name for each in one.files] == files and "2 failed" in repr(one)
    assert [Path(each.path).name for each in one.failed] == ["missing.tgx", "text.tgx"]
    assert {each.verdict for each in one.files if not each.error} == {"clean"}
    assert "missing.tgx" in one.failed[0].error and len(one.to_dataframe()) == 202
