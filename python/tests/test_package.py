"""The package as it is given away: installed beside the library, and as a wheel with the library in it."""

from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path
from typing import Any, Dict, List

import pytest
from conftest import ROOT, blocks_of, scripts

import tessel

BUILD = ROOT / "build" / "release"
TRY = """
import tessel
assert tessel.__file__.startswith({where!r}), tessel.__file__
assert str(tessel.capi.path()).startswith({where!r}), tessel.capi.path()
tessel.simulate("try.tgx", duration="10ms")
with tessel.open("try.tgx") as dev:
    assert dev.histogram().wait().counts.sum() > 500
assert tessel.devices(simulated=True)[0].id == "SIM-ZP-0"
"""


def environment(**more: str) -> Dict[str, str]:
    return {**{name: text for name, text in os.environ.items() if not name.startswith(("TESSEL", "PYTHON"))}, **more}


@pytest.fixture(scope="module")
def prefix(tmp_path_factory: pytest.TempPathFactory) -> Path:
    if not (BUILD / "cmake_install.cmake").is_file():
        pytest.skip(f"nothing is built in {BUILD}")
    folder = tmp_path_factory.mktemp("installed") / "prefix"
    subprocess.run(["cmake", "--install", BUILD, "--prefix", folder], check=True, stdout=subprocess.DEVNULL)
    return folder


def test_installed_beside_the_library(prefix: Path) -> None:
    path = str(prefix / "lib" / "python3" / "dist-packages")
    subprocess.run([sys.executable, "-c", TRY.format(where=str(prefix))], check=True, env=environment(PYTHONPATH=path))


def test_wheel(prefix: Path, tmp_path: Path) -> None:
    source = tmp_path / "source"
    subprocess.run(["cp", "-r", ROOT / "python", source], check=True)
    build: List[Any] = ["/usr/bin/python3", "-m", "build", "--wheel", "--no-isolation", "--outdir", tmp_path, source]
    done = subprocess.run(build, env=environment(TESSEL_PREFIX=str(prefix)), capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stdout + done.stderr
    (wheel,) = tmp_path.glob("tessel-*-py3-none-linux_*.whl")
    where = tmp_path / "site"
    install: List[Any] = ["/usr/bin/python3", "-m", "pip", "install", "-q", "--no-index", "--no-deps", "--target", where, wheel]
    subprocess.run(install, check=True, env=environment(PIP_ROOT_USER_ACTION="ignore"))
    assert (where / "tessel" / "py.typed").is_file()
    subprocess.run([sys.executable, "-c", TRY.format(where=str(where))], check=True, env=environment(PYTHONPATH=str(where)))


@pytest.mark.parametrize("script", scripts("docs/examples"), ids=lambda path: str(path.name))
def test_examples_of_the_documentation(script: Path, tmp_path: Path) -> None:
    """They run as they stand, in an empty folder."""
    folder = tmp_path / "empty"
    folder.mkdir()
    done = subprocess.run([sys.executable, script], cwd=folder, capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stdout + done.stderr


@pytest.mark.parametrize("page", ["python.md", "tutorial.md"])
def test_pages_of_the_documentation(page: str) -> None:
    """Their Python and their calls of the program run as they stand, one after another."""
    for name in ("run", "monday", "tuesday"):
        Path(f"{name}.tgx").symlink_to("emitter.tgx")
    text = (ROOT / "docs" / page).read_text()
    calls = [line for line in text.splitlines() if line.startswith("tessel ")]
    folder = Path("program")
    folder.mkdir()
    (folder / "tessel").symlink_to(tessel.program())
    path = f"{folder.absolute()}:{os.environ['PATH']}"
    if calls:
        Path("cells.tgx").unlink()
        Path("emitter.tgx").unlink()
        subprocess.run(["/bin/sh", "-e"], input="\n".join(calls), check=True, text=True, env={**os.environ, "PATH": path})
    data = [each for each in blocks_of(ROOT / "docs" / page) if "microtimes" not in each]  # which other tests run
    code = "import tessel, matplotlib; matplotlib.use('Agg')\n" + "\n".join(data)
    subprocess.run([sys.executable, "-c", code], check=True, stdout=subprocess.DEVNULL)


def test_readme_and_guide() -> None:
    """The Python of README runs below definitions of its own arrays; the guide shows an example as it stands."""
    (block,) = blocks_of(ROOT / "README.md")
    own = "import matplotlib, numpy as np; matplotlib.use('Agg'); times = np.arange(100) * 5000; channels = np.arange(100) % 2 + 1\n"
    subprocess.run([sys.executable, "-c", own + block], check=True)
    assert Path("g2.png").is_file() and Path("decay.png").is_file() and Path("decay.h5").is_file()
    example = (ROOT / "docs" / "examples" / "own_data.py").read_text().split('"""\n\n')[1].split("\n\nassert")[0]
    assert example in (ROOT / "docs" / "python.md").read_text()
