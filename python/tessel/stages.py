"""Chains as texts and lists, as the ``tessel`` program and job files have them, brought to one form.

A stage is a dict with the key ``stage`` and all its values, times in whole ps: the form of ``Chain.stages``.
"""

from __future__ import annotations

import re
from typing import Any, Dict, List, Mapping, NamedTuple, Sequence, Tuple, Union

from .units import rounded_picoseconds

Stage = Dict[str, Any]
Stages = Union[str, Sequence[Mapping[str, Any]], Mapping[str, Any]]


class _Form(NamedTuple):
    values: Tuple[str, ...]  # each has to be there; in the order of the text
    words: Dict[str, Tuple[str, Any]]  # what a word sets
    text: str


_KEEP = {"keep": ("keep", True)}
_FORMS = {
    "coincidence": _Form(
        ("channels", "window"),
        {
            **{each: ("mode", each) for each in ("sliding", "once")},
            **{each: ("time", each) for each in ("first", "last", "average")},
            **_KEEP,
        },
        "coincidence(CHANNELS; WINDOW; sliding|once; first|last|average; keep)",
    ),
    "merge": _Form(("channels",), _KEEP, "merge(CHANNELS; keep)"),
    "delay": _Form(("channels", "delay"), _KEEP, "delay(CHANNEL; DELAY; keep)"),
    "herald": _Form(
        ("herald", "channels", "delay", "window"),
        {"inverted": ("inverted", True), **_KEEP},
        "herald(CHANNEL; CHANNELS; delay DELAY; window WINDOW; inverted; keep)",
    ),
    "substream": _Form(("from", "to"), {}, "substream(FROM; TO)"),
    "countrate": _Form(("window",), {}, "countrate(WINDOW)"),
    "sort": _Form(("window",), {}, "sort(WINDOW)"),
}
_DEFAULTS = {"mode": "sliding", "time": "last", "keep": False, "inverted": False}


def stages_of(chain: Stages) -> List[Stage]:
    """The stages of a chain.

    Parameters
    ----------
    chain : str, list of dict or dict
        A text as ``tessel --chain`` takes it, a list of stages, or what a chain file holds.

    Returns
    -------
    list of dict
        Times in ps.

    Raises
    ------
    ValueError
        It can't be read; the text says which stage and why.

    Examples
    --------
    >>> stages_of("delay(2; 5ns; keep)")
    [{'stage': 'delay', 'channels': [2], 'delay': 5000, 'keep': True}]
    """
    if isinstance(chain, str):
        parts = [part.strip() for part in re.split(r"[|\n]", chain)]
        return [_named(number, part, _stage_of_text, part) for number, part in enumerate(filter(None, parts), 1)]
    if isinstance(chain, Mapping):
        if not isinstance(chain.get("chain"), Sequence):
            raise ValueError('an object with the key "chain" and a list of stages is expected')
        chain = chain["chain"]
    return [_named(number, each, _stage_of_dict, each) for number, each in enumerate(chain, 1)]


def _named(number: int, shown: Any, read: Any, *arguments: Any) -> Stage:
    try:
        stage: Stage = read(*arguments)
        return stage
    except (ValueError, TypeError) as problem:
        raise ValueError(f"stage {number}, {shown}: {problem}") from None


def _form_of(name: Any) -> _Form:
    if name not in _FORMS:
        raise ValueError(f"unknown stage; there are {', '.join(_FORMS)}")
    return _FORMS[name]


def _stage_of_text(text: str) -> Stage:
    match = re.fullmatch(r"([A-Za-z_]*)\s*\((.*)\)", text)
    if not match:
        raise ValueError("a stage is expected, as in merge(1,2; keep)")
    name, form = match.group(1), _form_of(match.group(1))
    given: Stage = {}
    for field in (each.strip() for each in match.group(2).split(";")):
        if field in form.words:
            key, value = form.words[field]
        else:
            first = re.split(r"[^A-Za-z_]", field, maxsplit=1)[0]
            missing = [each for each in form.values if each not in given]
            if not first and not missing:
                raise ValueError(f"too many values: {form.text}")
            key = first or missing[0]
            value = field[len(first) :].strip()
        if key in given:
            raise ValueError(f"{key} is given twice: {form.text}")
        given[key] = value
    return _checked(name, form, given)


def _stage_of_dict(stage: Mapping[str, Any]) -> Stage:
    name = stage.get("stage") if isinstance(stage, Mapping) else None
    form = _form_of(name)
    given = {key: value for key, value in stage.items() if key not in ("stage", "makes", "rates")}
    for key in ("mode", "time"):
        if key in given and form.words.get(given[key], ("",))[0] != key:
            raise ValueError(f"unknown word {given[key]!r}: {form.text}")
    for key in ("keep", "inverted"):
        if not isinstance(given.get(key, False), bool):
            raise ValueError(f"{key}: true or false is expected")
    return _checked(str(name), form, given)


def _checked(name: str, form: _Form, given: Stage) -> Stage:
    settable = dict.fromkeys(key for key, _ in form.words.values())
    for key in given:
        if key not in form.values and key not in settable:
            raise ValueError(f"unknown word {key!r}: {form.text}")
    stage: Stage = {"stage": name}
    for key in form.values:
        if key not in given:
            raise ValueError(f"{key} is missing: {form.text}")
        stage[key] = _value(key, given[key])
    if name == "delay" and len(stage["channels"]) != 1:
        raise ValueError("a delay takes one channel")
    stage.update({key: given.get(key, _DEFAULTS[key]) for key in settable})
    return stage


def _value(key: str, value: Any) -> Any:
    if key == "channels":
        return [_channel(each) for each in (value.split(",") if isinstance(value, str) else value)]
    return _channel(value) if key == "herald" else rounded_picoseconds(value, key, key == "delay")


def _channel(value: Any) -> int:
    text = str(value).strip()
    if isinstance(value, bool) or not re.fullmatch(r"\d{1,3}", text) or int(text) > 254:
        raise ValueError(f"channels go from 0 (sync) to 254, not {text!r}")
    return int(text)
