"""One job on many recordings, in this process or in those of a Dask cluster.

Paths travel to the workers, and sums come back: each worker opens what it measures, and results are added up where they
are, neighbours first. All sums are of whole numbers, so any number of workers gives the same, to the bit; what a worker
that dies had is measured again.
"""

from __future__ import annotations

import os
import time
import warnings
from dataclasses import dataclass
from typing import Any, Callable, Dict, Iterable, List, Optional, Sequence, Tuple

from . import _library, capi
from ._open import open as open_device
from .errors import TesselError
from .jobs import Job, JobLike, read_job, start
from .merging import merge
from .results import PathLike, Result, optional_package, worst_verdict

Progress = Callable[[int, int], Any]

_GROUP = 8  # results that are added up together


@dataclass(frozen=True)
class FileDone:
    """What became of one recording of a batch.

    Attributes
    ----------
    path : str
        The recording.
    error : str
        Why there is no result of it; empty where there is one.
    records : int
        Records that were read.
    rates : tuple of int
        Counts per second that it was made with: sync, then inputs.
    verdict : str
        "clean", "lossy" (something is missing) or "invalid" (times may be wrong as well): of the recording or of the
        run, whichever is worse. Empty where there is no result.
    losses : dict
        By place what was lost.
    complete : bool
        It was read to its end.
    seconds : float
        How long that took.
    """

    path: str
    error: str = ""
    records: int = 0
    rates: Tuple[int, ...] = ()
    verdict: str = ""
    losses: Optional[Dict[str, Any]] = None
    complete: bool = False
    seconds: float = 0.0


@dataclass(frozen=True, eq=False)
class Batch:
    """What a job found in many recordings.

    Attributes
    ----------
    job : Job
    files : tuple of FileDone
        In the order in which they were given.
    total : Result or None
        All results in one, see ``merge``; ``None`` where there is none, as `problem` says.
    problem : str
        Why the results have no sum; empty where they have.
    """

    job: Job
    files: Tuple[FileDone, ...]
    total: Optional[Result]
    problem: str

    @property
    def failed(self) -> Tuple[FileDone, ...]:
        """The recordings without a result."""
        return tuple(each for each in self.files if each.error)

    def to_dataframe(self) -> Any:
        """The recordings as a ``pandas.DataFrame``, a line each; needs pandas."""
        rows = [{**vars(each), "losses": ", ".join(each.losses or ())} for each in self.files]
        return optional_package("pandas", "to_dataframe()").DataFrame(rows)

    def __repr__(self) -> str:
        state = self.problem or repr(self.total)
        return f"<Batch of {len(self.files)} recordings, {len(self.failed)} failed: {state}>"


@dataclass(frozen=True, eq=False)
class _Part:
    """Neighbours in the list of files, and their sum."""

    files: Tuple[FileDone, ...]
    total: Optional[Result] = None
    problem: str = ""


def _measure(job: Job, path: str, threads: int = 0) -> _Part:
    """Never raises what a recording can cause."""
    begin = time.monotonic()
    _library.use()
    try:
        capi.tessel_setThreads(threads)
        with warnings.catch_warnings(), open_device(path) as device:
            warnings.simplefilter("ignore")  # the verdict is told
            result, rates = start(device, job).wait(), device.rates
        info = result.info
        recording = info.recording or {"verdict": "clean", "losses": {}}
        row = FileDone(
            path,
            records=int(info.description["NumRecs"]),
            rates=rates,
            verdict=worst_verdict(info.verdict, recording["verdict"]),
            losses={**recording["losses"], **info.losses},
            complete=info.complete,
            seconds=time.monotonic() - begin,
        )
        return _Part((row,), *_sum([result]))
    except (TesselError, OSError, ValueError) as problem:
        return _failed(path, problem)
    finally:
        _library.leave()


def _failed(path: str, problem: BaseException) -> _Part:
    return _Part((FileDone(path, error=str(problem) or repr(problem)),))


def _sum(results: Sequence[Result]) -> Tuple[Optional[Result], str]:
    try:
        return merge(results), ""
    except TesselError as problem:
        return None, str(problem)


def _join(parts: Sequence[_Part]) -> _Part:
    files = tuple(each for part in parts for each in part.files)
    problem = next((part.problem for part in parts if part.problem), "")
    results = [part.total for part in parts if part.total is not None]
    if problem or not results:
        return _Part(files, None, problem)
    return _Part(files, *_sum(results))


def batch(
    job: JobLike,
    files: Iterable[PathLike],
    *,
    client: Any = None,
    workers: Optional[int] = None,
    progress: Optional[Progress] = None,
) -> Batch:
    """Runs a job on many recordings, and adds the results up.

    Parameters
    ----------
    job : path, dict or Job
        The job file, or what it holds.
    files : iterable of path
        Recordings; workers on other computers find them at the same paths.
    client : distributed.Client, optional
        Of a Dask cluster, whose workers should have one thread each. By default one is started on this computer for
        the time of the call; a script then needs ``if __name__ == "__main__":``, as for all processes of Python.
    workers : int, optional
        Processes of a cluster that is started here, by default one for each core; 0: measure in this process, without
        Dask, a recording at a time on all cores.
    progress : callable, optional
        Called with how many recordings are done, and how many there are.

    Returns
    -------
    Batch
        A failed recording doesn't stop the rest: see ``failed``.

    Raises
    ------
    JobError
        It isn't a job.
    PackageMissing
        There is no distributed.

    Examples
    --------
    >>> job = {"tessel": 1, "measurement": "histogram"}
    >>> done = tessel.batch(job, ["decay.tgx", "decay.tgx"], workers=0)
    >>> done.total.counts.shape, done.total.info.runs, done.failed
    ((3, 32768), 2, ())
    """
    made = read_job(job)
    if isinstance(files, (str, os.PathLike)):
        raise TypeError("files: a list of recordings is wanted, not one path")
    paths = [os.path.abspath(each) for each in files]
    tell: Progress = progress or (lambda done, total: None)
    if client is not None:
        whole = _by_client(client, made, paths, tell)
    elif workers == 0:
        whole = _here(made, paths, tell)
    else:
        whole = _by_cluster(made, paths, workers, tell)
    problem = whole.problem or ("" if whole.total else "no recording has a result")
    return Batch(made, whole.files, whole.total, problem)


def _here(job: Job, paths: Sequence[str], tell: Progress) -> _Part:
    whole = _Part(())
    for number, path in enumerate(paths, start=1):
        part = _measure(job, path)
        whole = _join([whole, part])
        tell(number, len(paths))
    return whole


def _by_cluster(job: Job, paths: Sequence[str], workers: Optional[int], tell: Progress) -> _Part:
    distributed = optional_package("distributed", "batch()")
    count = workers or len(os.sched_getaffinity(0))
    options = {"n_workers": count, "threads_per_worker": 1, "processes": True, "memory_limit": 0}
    with distributed.LocalCluster(dashboard_address=None, **options) as cluster, distributed.Client(cluster) as client:
        return _by_client(client, job, paths, tell)


def _by_client(client: Any, job: Job, paths: Sequence[str], tell: Progress) -> _Part:
    distributed = optional_package("distributed", "batch()")
    futures = [client.submit(_measure, job, path, 1, pure=False) for path in paths]
    try:
        for number, _ in enumerate(distributed.as_completed(futures), start=1):
            tell(number, len(paths))
        # What killed its workers again and again has no result.
        parts: List[Any] = [_failed(path, each.exception()) if each.status == "error" else each for path, each in zip(paths, futures)]
        while len(parts) > 1:
            groups = [parts[start : start + _GROUP] for start in range(0, len(parts), _GROUP)]
            parts = [client.submit(_join, group, pure=False) for group in groups]
        if not parts:
            return _Part(())
        whole: _Part = parts[0].result() if hasattr(parts[0], "result") else parts[0]
        return whole
    finally:
        client.cancel(futures)
