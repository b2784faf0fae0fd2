"""Tessel in Python: recordings and instruments of time-correlated single-photon counting.

>>> with tessel.open("decay.tgx") as dev:
...     decays = dev.histogram().wait()
>>> decays.counts.shape
(3, 32768)

Times are whole picoseconds, or texts with a unit (``"2.5ns"``), or pint quantities. A run is a handle that works while
Python does something else; its result is a record of NumPy arrays. ``tessel.capi`` has the functions of ``tessel.h``.
"""

from __future__ import annotations

from ._open import DeviceInfo, devices, open, program, simulate
from ._version import VERSION as __version__
from .batches import Batch, FileDone, batch
from .blocks import Events
from .chain import Chain
from .formats import Converted, convert
from .correlations import G2, Fcs
from .device import Device
from . import capi
from .errors import (
    DataLost,
    DeviceError,
    JobError,
    LibraryMissing,
    OutOfOrder,
    PackageMissing,
    RunError,
    SettingError,
    TesselError,
)
from .files import Verified, repair, verify
from .histograms import Hist2d, Histogram, Trace
from .jobs import Job, read_job, run
from .merging import merge
from .results import Recorded, Result, RunInfo, load
from .run import Progress, Run
from .settings import Input, Setting, Settings, Sync
from .words import Recorder, write

__all__ = [
    "Batch",
    "Chain",
    "Converted",
    "DataLost",
    "Device",
    "DeviceError",
    "DeviceInfo",
    "Events",
    "FileDone",
    "Fcs",
    "G2",
    "Hist2d",
    "Histogram",
    "Input",
    "Job",
    "JobError",
    "LibraryMissing",
    "OutOfOrder",
    "PackageMissing",
    "Progress",
    "Recorded",
    "Recorder",
    "Result",
    "Run",
    "RunError",
    "RunInfo",
    "Setting",
    "SettingError",
    "Settings",
    "Sync",
    "TesselError",
    "Trace",
    "Verified",
    "__version__",
    "batch",
    "convert",
    "devices",
    "load",
    "merge",
    "open",
    "program",
    "read_job",
    "repair",
    "run",
    "simulate",
    "verify",
    "write",
]
