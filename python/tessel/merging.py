"""Several runs of one measurement in one result: counts and terms are summed, and normalised once.

All sums are of whole numbers. So they are the same in any order and grouping, to the bit.
"""

from __future__ import annotations

import dataclasses
import functools
from typing import Any, Dict, Iterable, List, Optional

import numpy as np

from .errors import TesselError
from .results import Result, RunInfo, frozen, worst_verdict


def merge(results: Iterable[Result]) -> Result:
    """Several runs of one measurement as one result.

    Counts, pairs, events and times are summed, and curves follow from the sums, as from one run over recordings that
    were joined: no pair is of two of them. A trace has no such sum, since each has a time of its own.

    Parameters
    ----------
    results : iterable of Result
        Of one class, with the same bins, channels and chain.

    Returns
    -------
    Result
        Of that class; its ``info`` has what was lost in all of them, and the worst verdict.

    Raises
    ------
    TesselError
        There is none, they are of different measurements, or of one without a sum.

    Examples
    --------
    >>> twice = tessel.merge([decays, decays])
    >>> bool((twice.counts == 2 * decays.counts).all()), twice.info.runs
    (True, 2)
    """
    each = [_alone(result) for result in results]
    if not each:
        raise TesselError("there is no result to merge")
    return functools.reduce(_two, each)


def _alone(result: Result) -> Result:
    """A result as a sum of one."""
    if not result._merged:
        raise TesselError(f"{result.info.source}: results of the kind {result.kind} have no sum; each stands alone")
    if result.info.running:
        raise TesselError(f"{result.info.source}: the run goes on")
    if result.info.source == _source(result.info.runs):
        return result
    values = {name: _first(getattr(result, name), how) for name, how in result._merged.items()}
    return dataclasses.replace(result, info=_info_alone(result.info), **values)


def _first(value: Any, how: str) -> Any:
    if how == "sum" and isinstance(value, np.ndarray):
        return frozen(value.astype(np.uint64) if value.dtype.kind == "u" else value)
    return frozen(np.full_like(value, np.nan)) if how == "none" else value


def _two(a: Result, b: Result) -> Result:
    if type(a) is not type(b):
        raise TesselError(f"a {a.kind} and a {b.kind} have no sum")
    if a.info.chain != b.info.chain:
        raise TesselError("results with different chains have no sum")
    values: Dict[str, Any] = {}
    for field in dataclasses.fields(a):
        if field.name != "info":
            values[field.name] = _combined(field.name, a, b)
    return type(a)(info=_info_of_two(a.info, b.info), **values)


def _combined(name: str, a: Result, b: Result) -> Any:
    one, other = getattr(a, name), getattr(b, name)
    how = a._merged.get(name, "same")
    same_shape = np.shape(one) == np.shape(other)
    if not same_shape or (how == "same" and not np.array_equal(one, other)):
        raise TesselError(f"results whose {name} differ have no sum")
    if how == "sum":
        return frozen(one + other) if isinstance(one, np.ndarray) else one + other
    if how == "least":
        return frozen(np.minimum(one, other))
    return frozen(np.maximum(one, other)) if how == "most" else one


def _source(runs: int) -> str:
    return f"{runs} merged run{'s' if runs > 1 else ''}"


def _info_alone(info: RunInfo) -> RunInfo:
    recording = info.recording and {"verdict": info.recording["verdict"], "losses": info.recording["losses"]}
    records = {"NumRecs": int(info.description.get("NumRecs", 0))}
    return dataclasses.replace(info, source=_source(info.runs), description=records, recording=recording, recorded=None)


def _info_of_two(a: RunInfo, b: RunInfo) -> RunInfo:
    runs = a.runs + b.runs
    return dataclasses.replace(
        a,
        source=_source(runs),
        runs=runs,
        description={"NumRecs": a.description["NumRecs"] + b.description["NumRecs"]},
        losses=_losses(a.losses, b.losses),
        verdict=worst_verdict(a.verdict, b.verdict),
        order=_order(a.order, b.order),
        recording=_recordings(a.recording, b.recording),
        complete=a.complete and b.complete,
    )


def _losses(a: Dict[str, Any], b: Dict[str, Any]) -> Dict[str, Any]:
    """By place; times are those within their run."""
    both = {**a, **b}
    for place in sorted(a.keys() & b.keys()):
        one, other = a[place], b[place]
        unknown = one["lost"] is None or other["lost"] is None
        both[place] = {
            **one,
            "occasions": one["occasions"] + other["occasions"],
            "lost": None if unknown else one["lost"] + other["lost"],
            "first": min(one["first"], other["first"]),
            "last": max(one["last"], other["last"]),
        }
    return both


def _order(a: Dict[str, Any], b: Dict[str, Any]) -> Dict[str, Any]:
    both = {**b, **a}
    for key in ("stepsBack", "largestStepPs", "unsorted"):
        numbers: List[int] = [each[key] for each in (a, b) if each.get(key) is not None]
        if numbers:
            both[key] = max(numbers) if key == "largestStepPs" else sum(numbers)
    return both


def _recordings(a: Optional[Dict[str, Any]], b: Optional[Dict[str, Any]]) -> Optional[Dict[str, Any]]:
    if a is None or b is None:
        return a or b
    return {"verdict": worst_verdict(a["verdict"], b["verdict"]), "losses": _losses(a["losses"], b["losses"])}
