"""Job files: a measurement as JSON, run by the package as the ``tessel`` program runs it (docs/jobs.md).

Parameters have the names that the program's options have; a table says which argument of the device each is.
"""

from __future__ import annotations

import fnmatch
import json
import os
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, Callable, Dict, List, Mapping, Optional, Tuple, Union

from ._open import open as open_device
from .device import Device
from .errors import JobError
from .results import PathLike, Result
from .run import Run
from .stages import Stage, stages_of
from .units import rounded_picoseconds

FORMAT = 1
_LATEST = 9 * 10**18  # ps, where nothing ends a span
_KEYS = ("$schema", "tessel", "source", "chain", "measurement", "parameters")
_SOURCE = ("from", "to", "sort", "sim", "device", "for", "mode", "set")


@dataclass(frozen=True)
class Job:
    """A measurement, to be run on any recording or instrument.

    Attributes
    ----------
    measurement : str
        "histogram", "g2", "fcs", "trace" or "hist2d".
    parameters : dict
        As in the job file: the program's options, without their dashes.
    chain : list of dict
        Stages, times in ps; with those of `source` in front.
    source : dict
        ``sim``, ``device``, ``for``, ``mode``, ``set``: which instrument, where no source is given.
    name : str
        Of the file.
    """

    measurement: str
    parameters: Dict[str, Any] = field(default_factory=dict)
    chain: List[Stage] = field(default_factory=list)
    source: Dict[str, Any] = field(default_factory=dict)
    name: str = "job"


JobLike = Union[Job, PathLike, Mapping[str, Any]]

_Reader = Callable[[Any], Any]


def _time(value: Any) -> int:
    return rounded_picoseconds(value)


def _number(value: Any) -> int:
    if isinstance(value, bool) or not isinstance(value, int):
        raise ValueError(f"a whole number is wanted, not {value!r}")
    return value


def _factor(value: Any) -> float:
    if isinstance(value, bool) or not isinstance(value, (int, float)):
        raise ValueError(f"a number is wanted, not {value!r}")
    return float(value)


def _flag(value: Any) -> bool:
    if not isinstance(value, bool):
        raise ValueError(f"true or false is wanted, not {value!r}")
    return value


def _word(value: Any) -> str:
    if not isinstance(value, str):
        raise ValueError(f"a text is wanted, not {value!r}")
    return value


# Of each measurement: which argument a parameter becomes, and what reads it.
_PARAMETERS: Dict[str, Dict[str, Tuple[str, _Reader]]] = {
    "histogram": {
        "ref-chan": ("reference", _number),
        "bin-width": ("bin_width", _time),
        "bins": ("bins", _number),
        "hardware": ("hardware", _flag),
    },
    "g2": {
        "chan1": ("chan1", _number),
        "chan2": ("chan2", _number),
        "window": ("window", _time),
        "bin-width": ("bin_width", _time),
        "raw-counts": ("raw_counts", _flag),
        "span": ("span", _word),
    },
    "fcs": {
        "chan1": ("chan1", _number),
        "chan2": ("chan2", _number),
        "min-lag": ("min_lag", _time),
        "max-lag": ("max_lag", _time),
        "steps": ("steps", _number),
        "fast": ("fast", _flag),
        "norm": ("norm", _word),
        "later": ("later_channel", _word),
    },
    "trace": {"bins": ("bins", _number), "history": ("history", _time)},
    "hist2d": {
        "start-chan": ("start", _number),
        "chan-x": ("chan_x", _number),
        "chan-y": ("chan_y", _number),
        **{f"{name}-{axis}": (f"{name}-{axis}", _time) for name in ("offset", "bin-width") for axis in "xy"},
        **{f"bins-{axis}": (f"bins-{axis}", _number) for axis in "xy"},
        "tot": ("over_threshold", _flag),
        "slope": ("slope", _factor),
        **{f"recovery-{each}": (f"recovery-{each}", _time) for each in ("min", "max", "offset-x", "offset-y")},
        "recovery-slope": ("recovery-slope", _factor),
    },
}


def read_job(job: JobLike) -> Job:
    """A job from a file, its text parsed, or as it is.

    Parameters
    ----------
    job : path, dict or Job
        The job file, or what it holds.

    Returns
    -------
    Job

    Raises
    ------
    FileNotFoundError
        There is no such file.
    JobError
        It isn't a job; the text says which key and why.

    Examples
    --------
    >>> tessel.read_job({"tessel": 1, "measurement": "g2", "chain": "delay(2; 5ns)"}).chain
    [{'stage': 'delay', 'channels': [2], 'delay': 5000, 'keep': False}]
    """
    if isinstance(job, Job):
        return job
    if isinstance(job, Mapping):
        return _job_of(job, "job")
    name = os.fspath(job)
    try:
        return _job_of(json.loads(Path(name).read_text(encoding="utf-8")), name)
    except (UnicodeDecodeError, json.JSONDecodeError) as problem:
        raise JobError(f"{name}: not JSON: {problem}") from None


def _job_of(about: Any, name: str) -> Job:
    if not isinstance(about, Mapping):
        raise JobError(f"{name}: an object is expected")
    if type(about.get("tessel")) is not int or about["tessel"] != FORMAT:
        raise JobError(f'{name}: "tessel" has to be {FORMAT}, the format of a job, not {about.get("tessel")!r}')
    _check_keys(about, _KEYS, f"{name}: ")
    measurement, source = about.get("measurement"), _object(about, "source", name)
    if measurement not in _PARAMETERS:
        raise JobError(f"{name}: measurement: {measurement!r} is none of {', '.join(_PARAMETERS)}, which the package has")
    _check_keys(source, _SOURCE, f"{name}: source.")
    parameters = _object(about, "parameters", name)
    _check_keys(parameters, tuple(_PARAMETERS[str(measurement)]), f"{name}: parameters.")
    made = Job(str(measurement), parameters, _chain_of(about.get("chain", []), source, name), source, name)
    _arguments(made)  # each value can be read
    return made


def _object(about: Mapping[str, Any], key: str, name: str) -> Dict[str, Any]:
    value = about.get(key, {})
    if not isinstance(value, Mapping):
        raise JobError(f"{name}: {key}: an object is expected")
    return dict(value)


def _check_keys(about: Mapping[str, Any], known: Tuple[str, ...], place: str) -> None:
    for key in about:
        if key not in known:
            import difflib  # here, since it takes long

            near = difflib.get_close_matches(str(key), known, 1)
            raise JobError(f"{place}{key}: unknown; " + (f"did you mean {near[0]}?" if near else f"there are {', '.join(known)}"))


def _chain_of(chain: Any, source: Mapping[str, Any], name: str) -> List[Stage]:
    """The stages, behind those that sort, and cut, what comes in."""
    first: List[Stage] = []
    if "sort" in source:
        first.append({"stage": "sort", "window": _read(source, "sort", _time, f"{name}: source.")})
    if "from" in source or "to" in source:
        begin, end = (_read(source, key, _time, f"{name}: source.", other) for key, other in (("from", 0), ("to", _LATEST)))
        if begin > end:
            raise JobError(f"{name}: source.to: before source.from")
        first.append({"stage": "substream", "from": begin, "to": end})
    try:
        return first + stages_of(chain)
    except (ValueError, TypeError) as problem:
        raise JobError(f"{name}: chain: {problem}") from None


def _read(values: Mapping[str, Any], key: str, reader: _Reader, place: str, default: Any = None) -> Any:
    try:
        return reader(values[key]) if key in values else default
    except (ValueError, TypeError) as problem:
        raise JobError(f"{place}{key}: {problem}") from None


def _arguments(job: Job) -> Dict[str, Any]:
    """What the measurement of a device is called with."""
    forms = _PARAMETERS[job.measurement]
    place = f"{job.name}: parameters."
    given = {forms[key][0]: _read(job.parameters, key, forms[key][1], place) for key in job.parameters}
    given.pop("raw_counts", None)  # a result has the pairs, too
    given.pop("hardware", None)  # the mode of the instrument
    if job.measurement == "trace":
        bins, history = given.pop("bins", 1000), given.pop("history", 10**13)
        width = history // bins if bins > 0 else 0
        if not width:
            raise JobError(f"{place}bins: from 1 to a bin for each ps of the history, not {bins}")
        given.update(bin_width=width, span=width * bins)
    if job.measurement == "hist2d":
        for name, default in (("offset", 0), ("bin-width", 100), ("bins", 100)):
            given[name.replace("-", "_")] = tuple(given.pop(f"{name}-{axis}", default) for axis in "xy")
        corrections = (("min", 0), ("max", 10**12), ("offset-x", 0), ("offset-y", 0), ("slope", 0.0))
        given["recovery"] = [given.pop(f"recovery-{name}", default) for name, default in corrections]
    return given


def start(device: Device, job: Job) -> Run[Any]:
    """Starts the measurement of a job on a device that is open; ``Device.run`` documents it."""
    arguments = _arguments(job)
    if not device.is_file:
        duration = _read(job.source, "for", _time, f"{job.name}: source.")
        arguments["duration"] = 10**12 if duration is None else duration
    try:
        device.chain.clear()
        device.chain.add(job.chain)
        run: Run[Any] = getattr(device, job.measurement)(**arguments)
        return run
    except (ValueError, TypeError) as problem:
        raise JobError(f"{job.name}: {problem}") from None


def run(job: JobLike, source: Optional[PathLike] = None) -> Result:
    """Runs the measurement of a job, and waits for its result.

    Parameters
    ----------
    job : path, dict or Job
        The job file, or what it holds.
    source : path or str, optional
        A recording, or the id of an instrument; by default the instrument that the job names.

    Returns
    -------
    Result

    Raises
    ------
    JobError
        It isn't a job, or can't be run on this source.
    TesselError
        As ``open`` and ``Run.wait``.

    Examples
    --------
    >>> job = {"tessel": 1, "measurement": "g2", "parameters": {"window": "100ns", "bin-width": "1ns"}}
    >>> tessel.run(job, "emitter.tgx").pairs.shape
    (200,)
    """
    made = read_job(job)
    simulated = made.source.get("sim", False) if source is None else False
    name = made.source.get("device") if source is None else source
    if name is None and simulated is False:
        raise JobError(f"{made.name}: names no instrument; a recording is wanted")
    mode = "histogram" if made.parameters.get("hardware") else made.source.get("mode", "t3")
    with open_device(name, mode=mode, simulated=simulated) as device:
        if not device.is_file:
            _set(device, made)
        result: Result = start(device, made).wait()
    return result


def _set(device: Device, job: Job) -> None:
    for assignment in job.source.get("set", []):
        key, equals, value = (each.strip() for each in str(assignment).partition("="))
        if not equals:
            raise JobError(f"{job.name}: source.set: KEY=VALUE is wanted, not {assignment!r}")
        for each in fnmatch.filter(device.settings, key) or [key]:
            device.settings[each] = value
