"""A plug-in's parameters as a mapping by name, with live items."""

from __future__ import annotations

from typing import TYPE_CHECKING, Iterator, Mapping, Optional

from vst_adapter.commands import Parameter

if TYPE_CHECKING:
    from vst_adapter.plugin import Plugin


class PluginParameter:
    """One parameter of a plug-in: reading `value`, `text` or `unit` gives what is in force,
    assigning `value` (normalised, 0 to 1) sets it."""

    def __init__(self, plugin: Plugin, number: int, name: str) -> None:
        self._plugin = plugin
        self.number = number
        self.name = name

    def _listed(self) -> Parameter:
        return next(found for found in self._plugin.parameters() if found.number == self.number)

    @property
    def value(self) -> float:
        return self._listed().value

    @value.setter
    def value(self, value: float) -> None:
        self._plugin.set_parameters({self.number: value})

    @property
    def text(self) -> str:
        return self._listed().display

    @property
    def unit(self) -> str:
        return self._listed().label

    def __repr__(self) -> str:
        listed = self._listed()
        return f"<parameter {listed.number} {listed.name!r} = {listed.value} ({listed.display} {listed.label})>"


class ParameterMap(Mapping[str, PluginParameter]):
    """`plugin.parameters`: items by name, `map["Gain"] = 0.25` sets one, and calling it,
    `plugin.parameters()`, lists them all with the values in force."""

    def __init__(self, plugin: Plugin) -> None:
        self._plugin = plugin

    def __call__(self, timeout: Optional[float] = None) -> list[Parameter]:
        return self._plugin._list_parameters(timeout)

    def __getitem__(self, name: str) -> PluginParameter:
        found = self._plugin._resolve_parameter(name)
        return PluginParameter(self._plugin, found.number, found.name)

    def __setitem__(self, name: str, value: float) -> None:
        self._plugin.set_parameters({name: value})

    def __iter__(self) -> Iterator[str]:
        return iter([found.name for found in self._plugin.parameters()])

    def __len__(self) -> int:
        return len(self._plugin.parameters())
