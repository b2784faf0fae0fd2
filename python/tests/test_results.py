"""Results as records: kept, read again, drawn, as tables; units; and the package as a whole."""

from __future__ import annotations

import dataclasses
import datetime
import doctest
import importlib
import pkgutil
import re
import subprocess
import sys
from pathlib import Path
from typing import Any, Dict, Iterator, Tuple

import numpy as np
import pytest
from conftest import ROOT

import tessel
from tessel import units

MEASUREMENTS: Dict[str, Tuple[str, Dict[str, Any]]] = {
    "histogram": ("decay.tgx", {}),
    "g2": ("emitter.tgx", {"window": "50ns", "bin_width": "1ns"}),
    "fcs": ("cells.tgx", {"max_lag": "1ms", "steps": 10}),
    "trace": ("decay.tgx", {}),
    "hist2d": ("decay.tgx", {"bins": (5, 4), "bin_width": "5ns"}),
}


@pytest.mark.parametrize("kind", MEASUREMENTS)
def test_a_result_is_kept_and_shown(kind: str) -> None:
    import matplotlib.pyplot as plt

    name, parameters = MEASUREMENTS[kind]
    with tessel.open(name) as dev:
        dev.chain.countrate("1ms")
        result = getattr(dev, kind)(**parameters).wait()
    result.save("result.npz")
    again = tessel.load("result.npz")
    assert type(again) is type(result) and again.info == result.info and repr(again) == repr(result)
    assert all(np.array_equal(array, again.arrays()[name], equal_nan=True) for name, array in result.arrays().items())
    for field in dataclasses.fields(result):
        if field.name != "info" and not isinstance(getattr(result, field.name), np.ndarray):
            assert getattr(again, field.name) == getattr(result, field.name)
    frame = again.to_dataframe()
    bins = next(iter(result.arrays().values())).size if kind == "hist2d" else len(frame)
    assert len(frame) == bins > 3 and frame.attrs["verdict"] == "clean"
    dataset = result.to_xarray()
    assert dataset.attrs["kind"] == kind and sum(dataset.sizes.values()) > 3
    axes = result.plot()
    assert axes.get_title() == name and (axes.lines or axes.collections)
    plt.close("all")
    assert name in result._repr_html_() and "countrate" in str(result.chain)


def test_what_is_no_result() -> None:
    np.savez("other.npz", a=np.zeros(3))
    with tessel.open("emitter.tgx") as dev:
        result = dev.g2(np.int64(1), 2).wait()  # type: ignore[arg-type]
        with pytest.raises(TypeError, match="not 1.5"):
            dev.g2(1.5, 2)  # type: ignore[arg-type]
    result.save("whole.npz")
    assert tessel.load("whole.npz").info.parameters == result.info.parameters
    with np.load("whole.npz") as archive:
        np.savez("less.npz", **{name: archive[name] for name in ("json", "pairs")})
    whole = Path("whole.npz").read_bytes()
    for name, data in {"cut.npz": whole[:-200], "torn.npz": whole.replace(b"json", b"jsom"), "text.npz": b"no"}.items():
        Path(name).write_bytes(data)
    for name in ("other.npz", "less.npz", "cut.npz", "torn.npz", "text.npz"):
        with pytest.raises(ValueError, match=f"{name}: not a whole result"):
            tessel.load(name)
    with pytest.raises(OSError):
        result.save("none/g2.npz")
    Path("folder.npz").mkdir()
    with pytest.raises(OSError):
        result.save("folder.npz")
    assert not list(Path().glob("*.part"))


def test_a_missing_package_is_named(monkeypatch: pytest.MonkeyPatch) -> None:
    with tessel.open("decay.tgx") as dev:
        result = dev.trace().wait()
    calls: Dict[str, Any] = {"pandas": result.to_dataframe, "xarray": result.to_xarray, "matplotlib": result.plot}
    for name, call in calls.items():
        modules: Dict[str, Any] = dict.fromkeys([name, f"{name}.pyplot"])
        monkeypatch.setattr(sys, "modules", {**sys.modules, **modules})
        with pytest.raises(tessel.PackageMissing, match=name):
            call()


def test_quantities() -> None:
    pint = pytest.importorskip("pint").UnitRegistry()
    for value in (2500, "2500", "2.5ns", " 2.5 ns", 2.5e3, np.int64(2500), 2.5 * pint.ns, 2500 * pint.ps):
        assert units.picoseconds(value) == 2500
    assert units.picoseconds(datetime.timedelta(milliseconds=2)) == 2 * 10**9
    assert units.picoseconds("1 h") == 3600 * 10**12
    for wrong in ("", "ns", "1e", "nan", "1 mV", float("nan"), 0.5, -1, "-1ns"):
        with pytest.raises(ValueError):
            units.picoseconds(wrong)
    for strange in (None, True, [1]):
        with pytest.raises(TypeError):
            units.picoseconds(strange)


def modules() -> Iterator[Any]:
    yield tessel
    for each in pkgutil.walk_packages(tessel.__path__, "tessel."):
        yield importlib.import_module(each.name)


@pytest.mark.parametrize("module", modules(), ids=lambda module: str(module.__name__))
def test_docstrings(module: Any, recordings: Path) -> None:
    with tessel.open(recordings / "decay.tgx") as dev:
        decays = dev.histogram().wait()
    names = {"tessel": tessel, "decays": decays, **vars(module)}
    assert doctest.testmod(module, extraglobs=names).failed == 0


def test_types() -> None:
    done = subprocess.run(["/usr/bin/mypy", "--no-incremental", "."], cwd=ROOT / "python", stdout=subprocess.PIPE, text=True)
    assert done.returncode == 0, done.stdout


def test_version_and_import() -> None:
    assert f"VERSION {tessel.__version__} " in (ROOT / "CMakeLists.txt").read_text()
    code = "import sys, tessel; print([m for m in ('matplotlib', 'pandas', 'xarray', 'h5py', 'pint', 'dask', 'distributed') if m in sys.modules])"
    assert subprocess.check_output([sys.executable, "-c", code], text=True) == "[]\n"


def test_every_public_name_has_its_documentation() -> None:
    for name in tessel.__all__:
        assert name.startswith("__") or getattr(tessel, name).__doc__, name
        for member, value in vars(getattr(tessel, name)).items() if isinstance(getattr(tessel, name), type) else ():
            if not member.startswith("_") and callable(value):
                assert value.__doc__, f"{name}.{member}"
    assert re.fullmatch(r"\d+\.\d+\.\d+", tessel.__version__)
