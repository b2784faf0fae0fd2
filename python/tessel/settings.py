"""Settings of a device: by key (``dev.settings["ch1.level"]``), and of its inputs by name.

The library says which settings the device has, with unit, range and choices; nothing of that is repeated here. A value
is sent to the instrument at once. A recording takes any without effect.
"""

from __future__ import annotations

from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, Dict, Iterator, Mapping, Optional, Tuple, Union

from . import _library, capi
from .errors import SettingError
from .units import whole

if TYPE_CHECKING:
    from .core import Core

Value = Union[int, float, str, bool, Any]


@dataclass(frozen=True)
class Setting:
    """One setting as the device has it now.

    Attributes
    ----------
    key : str
        ``"sync.level"``, ``"ch1.level"``.
    value : int
        In `unit`; of a setting with choices their number.
    unit : str
        ``"mV"``, ``"ps"``, ``"ns"``, ``"ms"`` or ``""``.
    minimum, maximum : int or None
        ``None``: the instrument decides.
    choices : tuple of str
        The words for 0, 1, ...; empty for a number.
    can_be_off : bool
        0 switches it off, whatever the range.
    in_use : bool
        False for levels of the other trigger mode.
    """

    key: str
    value: int
    unit: str
    minimum: Optional[int]
    maximum: Optional[int]
    choices: Tuple[str, ...]
    can_be_off: bool
    in_use: bool
    operation: str
    channel: Optional[int]

    @property
    def word(self) -> Union[int, str]:
        """The value, as a word where it has choices."""
        return self.choices[self.value] if 0 <= self.value < len(self.choices) else self.value


def _setting(text: Dict[str, Any]) -> Setting:
    return Setting(
        text["key"],
        int(text["value"]),
        text["unit"],
        text.get("min"),
        text.get("max"),
        tuple(text.get("choices", ())),
        bool(text["canBeOff"]),
        bool(text["inUse"]),
        text["operation"],
        text.get("channel"),
    )


def _asked(setting: Setting, value: Value) -> int:
    if isinstance(value, str):
        words = [word.lower() for word in setting.choices]
        if value.lower() in words:
            return words.index(value.lower())
        if value.lower() == "off" and setting.can_be_off:
            return 0
    if isinstance(value, bool):
        value = int(value)
    try:
        asked = whole(value, setting.unit, setting.key)
    except (ValueError, TypeError) as problem:
        choices = f" (or one of {', '.join(setting.choices)})" if setting.choices else ""
        raise SettingError(f"{problem}{choices}") from None
    low, high = setting.minimum, setting.maximum
    is_off = asked == 0 and setting.can_be_off
    if low is not None and high is not None and not is_off and not low <= asked <= high:
        raise SettingError(f"{setting.key}: from {low} to {high} {setting.unit}, not {asked}")
    if setting.choices and not 0 <= asked < len(setting.choices):
        raise SettingError(f"{setting.key}: one of {', '.join(setting.choices)}, not {asked}")
    return asked


class Settings(Mapping[str, Any]):
    """All settings of a device by key; ``settings["ch1.level"] = "-100mV"`` sends one.

    Reading gives a number in the setting's unit, or the word of a choice. ``info(key)`` has unit, range and choices.
    """

    def __init__(self, device: "Core") -> None:
        self._device = device

    def _all(self) -> Dict[str, Setting]:
        texts = self._device._text(capi.TEXT_SETTINGS)["settings"]
        return {each["key"]: _setting(each) for each in texts}

    def info(self, key: str) -> Setting:
        """Unit, range, choices and value of a setting.

        Parameters
        ----------
        key : str
            As ``tessel config`` lists them.

        Returns
        -------
        Setting

        Raises
        ------
        SettingError
            The device hasn't got it.
        """
        known = self._all()
        if key not in known:
            raise SettingError(f"{self._device.id}: no setting {key!r}; there are {', '.join(known)}")
        return known[key]

    def __getitem__(self, key: str) -> Union[int, str]:
        if key not in (known := self._all()):
            raise KeyError(key)
        return known[key].word

    def __setitem__(self, key: str, value: Value) -> None:
        """Sends a value, with the others that the instrument takes in the same call as they are.

        Raises
        ------
        SettingError
            There is no such setting, the value is out of its range, or the instrument refused it.
        """
        with _library.lock:
            known = self._all()
            changed = self.info(key)
            asked = _asked(changed, value)
            values = [
                asked if each.key == key else each.value
                for each in known.values()
                if each.operation == changed.operation and each.channel == changed.channel
            ]
            name = changed.operation[0].lower() + changed.operation[1:].replace("TrgMode", "TrigMode")
            channel = [] if changed.channel is None else [changed.channel]
            if not self._device._call(name, *channel, *values):
                raise SettingError(_library.with_reason(f"{self._device.id}: {key} = {value!r} was refused"))

    def __iter__(self) -> Iterator[str]:
        return iter(self._all())

    def __len__(self) -> int:
        return len(self._all())

    def __repr__(self) -> str:
        return f"Settings({ {key: each.word for key, each in self._all().items()} })"


class _Named:
    """A setting as an attribute, by the end of its key."""

    def __init__(self, key: str, about: str) -> None:
        self.key = key
        self.__doc__ = about

    def __get__(self, of: Any, kind: Any = None) -> Any:
        return self if of is None else of._settings.info(of._prefix + self.key).word

    def __set__(self, of: Any, value: Value) -> None:
        of._settings[of._prefix + self.key] = value


class _Switch(_Named):
    """A setting that is off or on, as a bool."""

    def __get__(self, of: Any, kind: Any = None) -> Any:
        return self if of is None else bool(of._settings.info(of._prefix + self.key).value)


class Sync:
    """The sync input. An attribute that the instrument hasn't got raises ``SettingError``."""

    def __init__(self, settings: Settings, prefix: str = "sync.") -> None:
        self._settings = settings
        self._prefix = prefix

    trigger_mode = _Named("trigger", '"Edge" or "CFD".')
    trigger_level = _Named("level", "Level of the edge trigger, mV.")
    trigger_edge = _Named("edge", '"falling" or "rising".')
    cfd_level = _Named("cfd-level", "Discriminator level of the CFD, mV.")
    cfd_zero_cross = _Named("zero-cross", "Zero crossing of the CFD, mV.")
    offset = _Named("offset", "Shift of the times, ps.")
    enabled = _Switch("enable", "Whether its events come.")
    dead_time = _Named("dead-time", 'Dead time, ps; 0 or "off" is none.')
    divider = _Named("divider", "Divider of the rate; of the sync alone.")


class Input(Sync):
    """An input; ``dev.inputs[1].trigger_level = "-100mV"`` sets its trigger."""

    def __init__(self, settings: Settings, number: int) -> None:
        super().__init__(settings, f"ch{number}.")
        self.number = number

    def __setattr__(self, name: str, value: Any) -> None:
        if not name.startswith("_") and name != "number" and not hasattr(type(self), name):
            raise AttributeError(f"an input has no {name!r}")
        super().__setattr__(name, value)


class Inputs:
    """The inputs of a device by number, from 1."""

    def __init__(self, settings: Settings) -> None:
        self._settings = settings

    def __len__(self) -> int:
        return self._settings._device.num_inputs

    def __getitem__(self, number: int) -> Input:
        if not 1 <= number <= len(self):
            raise IndexError(f"inputs go from 1 to {len(self)}, not {number}")
        return Input(self._settings, number)

    def __iter__(self) -> Iterator[Input]:
        return (self[number] for number in range(1, len(self) + 1))
