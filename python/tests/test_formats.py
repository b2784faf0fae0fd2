"""Files of other programs into recordings and back, event for event; the layout of Photon-HDF5 by h5py alone."""

from __future__ import annotations

import importlib
import importlib.util
import json
import os
import subprocess
import sys
from pathlib import Path
from typing import Any, Dict, List, Tuple

import numpy as np
import pytest
from conftest import ROOT, blocks_of

import tessel

h5py: Any = pytest.importorskip("h5py")

DATA = Path(os.environ.get("TESSEL_TEST_DATA", ROOT.parent / "shared" / "data"))
RANDOM = np.random.default_rng(5)


def events_of(path: Any) -> tessel.Events:
    with tessel.open(path) as dev:
        return dev.unfold().read()


def same(a: tessel.Events, b: tessel.Events) -> bool:
    return a.mode == b.mode and np.array_equal(a.times, b.times) and np.array_equal(a.channels, b.channels)


def own_recording(mode: str) -> str:
    """One with syncs or dtimes, markers, equal times, and gaps of many wraps of the time field, just as written."""
    gaps = RANDOM.choice([0, 1, 900, 40_000_000, 2**37], 3000, p=[0.1, 0.5, 0.3, 0.09, 0.01])
    times = np.cumsum(gaps).astype(np.uint64)
    channels = RANDOM.choice([1, 2, 64, 129, 143], 3000).astype(np.uint8)
    if mode == "T3":
        dtimes = np.where(channels < 129, RANDOM.integers(0, 32768, 3000), 0)
        path = tessel.write("own.tgx", times, channels, dtimes, sync_period="12.5ns", resolution="4ps")
        events = events_of(path)
        assert np.array_equal(events.syncs, times) and np.array_equal(events.dtimes, dtimes)
    else:
        channels[::7] = 0
        path = tessel.write("own.tgx", times, channels, time_unit=5)
        events = events_of(path)
        assert np.array_equal(events.times, times * np.uint64(5))
    assert np.array_equal(events.channels, channels)
    return path


# What a file needs to become the same recording again, by ending and mode.
UNITS: Dict[str, Dict[str, Any]] = {"T2": {}, "T3": {"sync_period": "12.5ns", "resolution": "4ps"}}
BACK: Dict[str, Dict[str, Any]] = {
    "h5": {},
    "npz": {"inputs": {each: each for each in (0, 1, 2, 64, 129, 143)}},
    "csv": {"inputs": {each: each for each in (0, 1, 2, 64, 129, 143)}},
    "u64": {"inputs": {each: each for each in (0, 1, 2, 64, 129, 143)}, "channels": "other.channels.u8"},
}


@pytest.mark.parametrize("mode", ["T2", "T3"])
@pytest.mark.parametrize("ending", BACK)
def test_there_and_back(ending: str, mode: str) -> None:
    path = own_recording(mode)
    there = tessel.convert(path, f"other.{ending}")
    assert there.events == 3000 and any("markers" in note for note in there.notes)
    options = dict(BACK[ending])
    if ending != "h5":
        options.update(UNITS[mode])
    if (ending, mode) == ("u64", "T3"):
        options["dtimes"] = "other.dtimes.u16"
    back = tessel.convert(f"other.{ending}", "back.tgx", **options)
    assert back.events == 3000 and same(events_of("back.tgx"), events_of(path))
    assert not list(Path().glob("*.part")) and str(back.events) in str(back)


# Kind of each field that the layout of version 0.5 wants of a file with these groups; T3 alone: with a star.
LAYOUT = {
    "acquisition_duration": "f",
    "description": "O",
    "photon_data/timestamps": "i",
    "photon_data/timestamps_specs/timestamps_unit": "f",
    "photon_data/detectors": "u",
    "photon_data/nanotimes*": "u",
    "photon_data/nanotimes_specs/tcspc_unit*": "f",
    "photon_data/nanotimes_specs/tcspc_range*": "f",
    "photon_data/nanotimes_specs/tcspc_num_bins*": "i",
    "photon_data/measurement_specs/measurement_type": "O",
    "photon_data/measurement_specs/laser_repetition_rate*": "f",
    "photon_data/measurement_specs/detectors_specs/spectral_ch1": "u",
    **{f"setup/num_{each}": "i" for each in ("pixels", "spots", "spectral_ch", "polarization_ch", "split_ch")},
    "setup/modulated_excitation": "b",
    "setup/lifetime": "b",
    "setup/excitation_wavelengths": "f",
    "setup/excitation_cw": "b",
    **{f"identity/{each}": "O" for each in ("author", "software", "software_version", "creation_time", "filename")},
    **{f"identity/{each}": "O" for each in ("format_name", "format_version", "format_url")},
    "provenance/filename": "O",
    "user/tessel/config": "O",
}


@pytest.mark.parametrize("name", ["decay.tgx", "emitter.tgx"])
def test_ours_read_by_h5py_alone(name: str) -> None:
    tessel.convert(name, "ours.h5", excitation_wavelengths=[532e-9], author="A. Body", description="decays")
    events = events_of(name)
    is_t3 = events.mode == "T3"
    with h5py.File("ours.h5") as file:
        assert (file.attrs["format_name"], file.attrs["format_version"]) == ("Photon-HDF5", "0.5")
        for path, kind in LAYOUT.items():
            if is_t3 or not path.endswith("*"):
                assert file[path.rstrip("*")].dtype.kind == kind, path
        data = file["photon_data"]
        unit = data["timestamps_specs/timestamps_unit"][()]
        assert np.array_equal(data["detectors"], events.channels) and file["setup/lifetime"][()] == is_t3
        assert data["timestamps"].dtype == np.int64
        if is_t3:
            assert np.array_equal(data["timestamps"], events.syncs) and unit == pytest.approx(25e-9, rel=1e-12)
            assert np.array_equal(data["nanotimes"], events.dtimes)
            assert data["nanotimes_specs/tcspc_unit"][()] == pytest.approx(25e-12, rel=1e-12)
        else:
            assert np.array_equal(data["timestamps"][()] * 5, events.times) and unit == pytest.approx(5e-12, rel=1e-12)
        assert file["acquisition_duration"][()] == pytest.approx(0.5, rel=1e-3)


def h5py_file(path: str, nanotimes: bool = True, spots: int = 1, changed: Any = ()) -> Dict[str, Any]:
    """A file as another program writes it, by h5py alone."""
    count = 5000
    arrays: Dict[str, Any] = {
        "timestamps": np.cumsum(RANDOM.integers(0, 3000, count)),
        "detectors": RANDOM.choice([0, 1, 8, 9], count).astype(np.uint8),
        "nanotimes": RANDOM.integers(0, 4096, count).astype(np.uint16),
        "timestamps_specs/timestamps_unit": 12.5e-9 if nanotimes else 10e-12,
        "nanotimes_specs/tcspc_unit": 16e-12,
        "nanotimes_specs/tcspc_range": 4096 * 16e-12,
        "nanotimes_specs/tcspc_num_bins": 4096,
    }
    if not nanotimes:
        arrays = {name: value for name, value in arrays.items() if not name.startswith("nanotimes")}
    arrays.update(changed)
    with h5py.File(path, "w") as file:
        file.attrs["format_name"] = np.bytes_("Photon-HDF5")
        file["description"] = np.bytes_("another program's")
        file["acquisition_duration"] = 1.0
        for spot in range(spots):
            for name, value in arrays.items():
                if value is not None:
                    file[f"photon_data{spot if spots > 1 else ''}/{name}"] = value
        file["sample/dyes"] = "none"
    return arrays


@pytest.mark.parametrize("nanotimes", [True, False])
def test_one_by_h5py_alone_becomes_a_recording(nanotimes: bool) -> None:
    arrays = h5py_file("theirs.h5", nanotimes)
    done = tessel.convert("theirs.h5", "theirs.tgx")
    assert done.inputs == {0: 1, 1: 2, 8: 9, 9: 10} and any("/sample" in note for note in done.notes)
    events = events_of("theirs.tgx")
    assert np.array_equal(events.channels, arrays["detectors"] + 1)
    if nanotimes:
        assert np.array_equal(events.syncs, arrays["timestamps"]) and np.array_equal(events.dtimes, arrays["nanotimes"])
        assert events.resolution == 16 and events.sync_period == pytest.approx(12_500, rel=1e-6)
    else:
        assert np.array_equal(events.times, arrays["timestamps"] * 10)
    with tessel.open("theirs.tgx") as dev:
        assert dev.config["Comment"] == "another program's"


@pytest.mark.parametrize("width, made", [(3.3, 3.3), (0.3, 1.0)])
def test_dtimes_with_a_fraction_of_a_picosecond(width: float, made: float) -> None:
    """They are kept, with their width; what is too fine is rounded. Either is told."""
    arrays = h5py_file("theirs.h5", changed={"nanotimes_specs/tcspc_unit": width * 1e-12})
    done = tessel.convert("theirs.h5", "theirs.tgx", inputs=[8, 9])
    events = events_of("theirs.tgx")
    kept = arrays["detectors"] >= 8
    expected = arrays["nanotimes"][kept] * (width / made)
    assert events.resolution == made and (abs(events.dtimes - expected) < (0 if width == made else 0.500001) + 1e-9).all()
    assert np.array_equal(events.channels, arrays["detectors"][kept] - 7)
    with tessel.open("theirs.tgx") as dev:
        decays = dev.histogram().wait()
    assert decays.bin_width == made and decays.edges[1000] == round(1000 * made)
    tessel.convert("theirs.tgx", "again.h5")
    with h5py.File("again.h5") as file:
        assert file["photon_data/nanotimes_specs/tcspc_unit"][()] == pytest.approx(made * 1e-12, rel=1e-14)
    told = "not 3.3 ps" if width == made else "rounded to 1 ps"
    assert any(told in note for note in done.notes) and any("left out" in note for note in done.notes)


def csv_text(text: str) -> str:
    Path("wrong.csv").write_text(text)
    return "wrong.csv"


REFUSED: Dict[str, Tuple[Any, Dict[str, Any], str]] = {
    "no HDF5": (lambda: "text.h5", {}, "can't be read as HDF5"),
    "no timestamps": (lambda: h5py_file("a.h5", changed={"timestamps": None}) and "a.h5", {}, "timestamps is missing"),
    "no unit": (lambda: h5py_file("a.h5", changed={"nanotimes_specs/tcspc_unit": None}) and "a.h5", {}, "no tcspc_unit"),
    "lengths": (lambda: h5py_file("a.h5", changed={"detectors": np.zeros(3, np.uint8)}) and "a.h5", {}, "different length"),
    "spots": (lambda: h5py_file("a.h5", spots=2) and "a.h5", {}, "spot=0 chooses"),
    "no spot": (lambda: h5py_file("a.h5", spots=2) and "a.h5", {"spot": 2}, "no /photon_data2"),
    "back": (lambda: csv_text("time,channel\n90000000,1\n5,1\n"), {}, "after 0 events: an event is earlier"),
    "below 0": (lambda: csv_text("time,channel\n-5,1\n"), {}, "below 0"),
    "no number": (lambda: csv_text("time,channel\n1.5,1\n"), {}, "1.5"),
    "columns of a line": (lambda: csv_text("time,channel\n1,2,3\n4\n"), {}, "wrong.csv"),
    "big": (lambda: csv_text("time,channel\n99999999999999999999,1\n"), {}, "99999"),
    "no columns": (lambda: csv_text("a,b\n1,2\n"), {}, "times=NAME"),
    "dtimes": (lambda: csv_text("time,channel,dtime\n1,1,1\n"), {}, "sync_period and resolution"),
    "many": (lambda: csv_text("time,channel\n1,0\n2,200\n"), {}, "inputs="),
    "input": (lambda: csv_text("time,channel\n1,1\n"), {"inputs": {1: 99}}, "can't become 99"),
    "nothing known": (lambda: "text.xyz", {}, "isn't one of .h5"),
    "no channels": (lambda: "text.u64", {}, "channels=FILE"),
}


@pytest.mark.parametrize("make, options, text", REFUSED.values(), ids=REFUSED)
def test_what_makes_no_recording(make: Any, options: Dict[str, Any], text: str) -> None:
    for each in ("text.h5", "text.xyz", "text.u64"):
        Path(each).write_text("no events")
    with pytest.raises(ValueError, match=text):
        tessel.convert(make(), "new.tgx", **options)
    assert not list(Path().glob("new*"))


def test_what_is_not_converted() -> None:
    Path("text.h5").write_text("no events")
    with pytest.raises(FileExistsError):
        tessel.convert("decay.tgx", "text.h5")
    with pytest.raises(ValueError, match="one of them has to be a recording"):
        tessel.convert("text.h5", "new.h5")
    if importlib.util.find_spec("pyarrow") is None:
        with pytest.raises(tessel.PackageMissing, match="pyarrow"):
            tessel.convert("decay.tgx", "new.parquet")
    assert not list(Path().glob("new*"))


@pytest.mark.parametrize("ending", ["parquet", "arrow"])
def test_parquet_and_arrow(ending: str) -> None:
    pyarrow: Any = pytest.importorskip("pyarrow")
    events = events_of("decay.tgx")
    tessel.convert("decay.tgx", f"decay.{ending}")
    if ending == "parquet":
        table = importlib.import_module("pyarrow.parquet").read_table("decay.parquet")
    else:
        table = pyarrow.ipc.open_file("decay.arrow").read_all()
    columns: Dict[str, Any] = {"times": events.syncs, "channels": events.channels, "dtimes": events.dtimes}
    for name, column in columns.items():
        assert np.array_equal(table[name].to_numpy(), column)
    assert json.loads(table.schema.metadata[b"tessel"])["resolution_ps"] == 25


def test_memory_is_bounded() -> None:
    code = """
import os, resource, sys, tessel
for ending in ("h5", "npz", "csv", "u64"):
    options = {"channels": "a.channels.u8"} if ending == "u64" else {}
    tessel.convert(sys.argv[1], f"a.{ending}")
    tessel.convert(f"a.{ending}", "a.tgx", overwrite=True, **options)
    os.unlink(f"a.{ending}")
print(resource.getrusage(resource.RUSAGE_SELF).ru_maxrss)
"""
    peaks = []
    for name in ("emitter.tgx", "long.tgx"):
        peaks.append(int(subprocess.check_output([sys.executable, "-c", code, name])) * 1024)
        for each in Path().glob("a.*"):
            each.unlink()
    assert peaks[1] - peaks[0] < 45_000_000, "20 M events are 180 MB, and 300 MB of text"


# Text of other programs, each with the same three events.
TEXTS = {
    "ends of lines": "time,channel\r\n10,1\r\n2500,2\r\n3000,1",
    "comments": "# made by hand\n\nchannel , time\n1,10\n# one more\n2,2500\n\n1, 3000\n",
    "columns of other things": "time,energy,channel,name\n10,1.5,1,a\n2500,2e3,2,b\n3000,0.1,1,c\n",
}


@pytest.mark.parametrize("text", TEXTS.values(), ids=TEXTS)
def test_text_of_other_programs(text: str) -> None:
    Path("theirs.csv").write_text(text)
    assert tessel.convert("theirs.csv", "theirs.tgx").events == 3
    events = events_of("theirs.tgx")
    assert events.times.tolist() == [10, 2500, 3000] and events.channels.tolist() == [1, 2, 1]


def test_real_recordings(monkeypatch: pytest.MonkeyPatch) -> None:
    """The commands of the guide, against what is known of each file; the pairs of one against its known answer."""
    if not DATA.is_dir():
        pytest.skip(f"no real recordings in {DATA}")
    done: List[tessel.Converted] = []
    convert = tessel.convert
    monkeypatch.setattr(tessel, "convert", lambda *names, **options: done.append(convert(*names, **options)))
    for folder in DATA.iterdir():
        Path(folder.name).symlink_to(folder)
    (commands,) = (each for each in blocks_of(ROOT / "docs" / "python.md") if "microtimes" in each)
    exec(commands)
    assert {Path(each.source).parent.name for each in done} == {each.name for each in DATA.iterdir()}
    for each in done:
        known = json.loads(Path(each.source).with_name("reference.json").read_text())
        events = events_of(each.target)
        assert each.events == known["events"] == len(events)
        counts = known["counts"] if isinstance(known["counts"], dict) else dict(enumerate(known["counts"]))
        expected = np.zeros(65, int)
        for channel, count in counts.items():
            expected[each.inputs[int(channel)]] += count
        assert np.array_equal(np.bincount(events.channels, minlength=65), expected)
        if "microtime" in known:
            decays = np.bincount(events.dtimes[events.channels == 1] // 64, minlength=64)
            assert np.array_equal(decays, known["decay_64ch_bins"]["0"]) and events.resolution == 13500 / 4096
    known = json.loads((DATA / "qd-hbt-320mhz" / "reference.json").read_text())
    with tessel.open("qd.tgx") as dev:
        pairs = dev.g2(2, 1, window="60ns", bin_width="100ps").wait().pairs
    # A pair at a bound is in the bin above it, in the reference as here for positive lags.
    assert pairs.sum() == known["cross_1_to_2"]["total"]
    assert np.array_equal(pairs[600:], known["cross_1_to_2"]["bins"][600:])
