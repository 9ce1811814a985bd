"""Run VST 2 and VST 3 effect plug-ins in a worker process of their own."""

from vst_adapter.client import (
    Parameter,
    Pin,
    Plugin,
    PluginError,
    configure,
    find_binary,
    has_editor,
    info,
    parameters,
    test,
)

__all__ = [
    "Parameter",
    "Pin",
    "Plugin",
    "PluginError",
    "configure",
    "find_binary",
    "has_editor",
    "info",
    "parameters",
    "test",
]
