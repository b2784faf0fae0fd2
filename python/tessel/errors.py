"""What the package raises. The text ends with what the library logged last, where it logged something."""

from __future__ import annotations

from typing import Any


class TesselError(Exception):
    """Base of all errors of the package."""


class LibraryMissing(TesselError, ImportError):
    """``libtessel.so`` or the ``tessel`` program isn't found."""


class PackageMissing(TesselError, ImportError):
    """An optional package that this operation needs isn't installed."""


class DeviceError(TesselError):
    """A device that can't be found, opened or initialised, or that is closed."""


class SettingError(TesselError, ValueError):
    """A setting that the device hasn't got, a value out of its range, or one that the instrument refused."""


class JobError(TesselError, ValueError):
    """What should be a job isn't one, or can't be run on this source."""


class RunError(TesselError):
    """A run that didn't begin, or that ended by a fault.

    Attributes
    ----------
    result : object or None
        What was measured up to then, as ``Run.result``.
    """

    def __init__(self, text: str, result: Any = None) -> None:
        super().__init__(text)
        self.result = result


class DataLost(UserWarning):
    """A run lost something; its result's ``verdict`` and ``losses`` say what."""


class OutOfOrder(UserWarning):
    """Events of a run go back in time, which correlations and stages take as it comes."""
