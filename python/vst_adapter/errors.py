"""The errors the client raises for the worker and the plug-in in it."""

from __future__ import annotations

from typing import Optional


class PluginError(Exception):
    """The worker failed: `message` is what it printed, `status` its exit status (negative: the
    signal that ended it), or None while it still runs or when it never ran."""

    def __init__(self, message: str, status: Optional[int] = None) -> None:
        super().__init__(f"{message} (exit status {status})" if status is not None else message)
        self.message = message
        self.status = status


class PluginTimeout(PluginError):
    """The plug-in gave no answer in the time allowed; its worker and whatever the worker started
    have been killed."""
