"""Run VST 2 and VST 3 effect plug-ins in a worker process of their own."""

from vst_adapter.commands import (Parameter, Pin, configure, find_binary, has_editor, info,
                                  parameters, test)
from vst_adapter.errors import PluginError, PluginTimeout
from vst_adapter.parameter_map import ParameterMap, PluginParameter
from vst_adapter.plugin import Plugin, load_plugin
from vst_adapter.reports import scan, validate
from vst_adapter.samples import WORKER_BLOCK_FRAMES

__all__ = [
    "Parameter",
    "ParameterMap",
    "Pin",
    "Plugin",
    "PluginError",
    "PluginParameter",
    "PluginTimeout",
    "WORKER_BLOCK_FRAMES",
    "configure",
    "find_binary",
    "has_editor",
    "info",
    "load_plugin",
    "parameters",
    "scan",
    "test",
    "validate",
]
