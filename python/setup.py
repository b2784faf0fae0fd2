"""A wheel with the library in it: TESSEL_PREFIX names a tree that `cmake --install` made. Without it the package is
built without the library, and finds it as any installed one does. `cmake --build build/release --target wheel` does
all of it."""

import os
import shutil
from pathlib import Path

from setuptools import Distribution, setup
from setuptools.command.build_py import build_py

try:
    from wheel.bdist_wheel import bdist_wheel
except ImportError:  # it came to setuptools itself
    from setuptools.command.bdist_wheel import bdist_wheel

PREFIX = os.environ.get("TESSEL_PREFIX")
BUNDLED = ("lib/libtessel.so.1", "bin/tessel", "lib/tessel/instruments/*.so")


class WithLibrary(build_py):
    def run(self):
        super().run()
        if not PREFIX:
            return
        for pattern in BUNDLED:
            found = sorted(Path(PREFIX).glob(pattern))
            if not found:
                raise SystemExit(f"TESSEL_PREFIX: there is no {pattern} in {PREFIX}")
            for file in found:
                target = Path(self.build_lib) / "tessel" / "prefix" / file.relative_to(PREFIX)
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy2(file, target)


class ForThisMachine(Distribution):
    def has_ext_modules(self):
        return bool(PREFIX)


class AnyPython(bdist_wheel):
    def get_tag(self):
        return ("py3", "none", super().get_tag()[2])


setup(cmdclass={"build_py": WithLibrary, "bdist_wheel": AnyPython}, distclass=ForThisMachine)
