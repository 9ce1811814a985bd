"""The worker's one-shot commands (test, has-editor, info, params, configure), each in a worker
of its own that a time-out or an interrupt kills."""

from __future__ import annotations

import os
import shutil
import tempfile
from dataclasses import dataclass
from typing import Optional, Union

from vst_adapter.errors import PluginError
from vst_adapter.worker import Deadline, Worker

PathLike = Union[str, "os.PathLike[str]"]


@dataclass(frozen=True)
class Pin:
    """One input or output pin as the plug-in describes it."""

    label: str
    flags: int
    arrangement_type: int


@dataclass(frozen=True)
class Parameter:
    """One parameter as listed: `number` is its index (VST 3: its id); `value` is normalised (0
    to 1); `display` (also `text`) is the plug-in's text for the value, `label` (`unit`) its unit."""

    number: int
    name: str
    value: float
    display: str
    label: str

    @property
    def text(self) -> str:
        return self.display

    @property
    def unit(self) -> str:
        return self.label


def find_binary(binary: Optional[PathLike] = None) -> str:
    """The worker program: `binary` if given, else $VST_ADAPTER, else vst-adapter on PATH."""
    found = binary or os.environ.get("VST_ADAPTER") or shutil.which("vst-adapter")
    if not found:
        raise FileNotFoundError("vst-adapter not found: pass binary=, set VST_ADAPTER or add it to PATH")
    return os.fspath(found)


def plugin_arguments(path: PathLike, vst_version: Optional[int]) -> list[str]:
    arguments = ["--vst", os.fspath(path)]
    if vst_version is not None:
        arguments += ["--vst-version", str(vst_version)]
    return arguments


def _run(command: str, path: PathLike, vst_version: Optional[int], binary: Optional[PathLike],
         timeout: Optional[float], *options: str) -> tuple[int, str]:
    """The command's exit status and what it printed on standard error."""
    deadline = Deadline(timeout)
    worker = Worker([find_binary(binary), command, *plugin_arguments(path, vst_version), *options],
                    talk=False)
    try:
        status = worker.finish(deadline)
    finally:
        worker.kill()  # interrupted: nothing is left behind
    return status, worker.stderr.decode("utf-8", "replace")


def _report(command: str, path: PathLike, vst_version: Optional[int], binary: Optional[PathLike],
            timeout: Optional[float], *options: str) -> list[str]:
    status, text = _run(command, path, vst_version, binary, timeout, *options)
    if status != 0:
        raise PluginError(text.strip() or f"{command} failed", status)
    return text.splitlines()


def test(path: PathLike, vst_version: Optional[int] = None, binary: Optional[PathLike] = None,
         timeout: Optional[float] = None) -> bool:
    """Whether the plug-in loads."""
    return _run("test", path, vst_version, binary, timeout)[0] == 0


def has_editor(path: PathLike, vst_version: Optional[int] = None, binary: Optional[PathLike] = None,
               timeout: Optional[float] = None) -> bool:
    """Whether the plug-in can be configured: it has an editor or at least one parameter."""
    return _run("has-editor", path, vst_version, binary, timeout)[0] == 0


def configure(path: PathLike, data: PathLike, vst_version: Optional[int] = None,
              binary: Optional[PathLike] = None, timeout: Optional[float] = None) -> None:
    """Shows the plug-in's editor until the user closes it; the settings file `data` is read
    first and rewritten if the settings changed. Raises PluginError without an editor."""
    status, text = _run("configure", path, vst_version, binary, timeout, "--data", os.fspath(data))
    if status != 0:
        raise PluginError(text.strip() or "the plug-in has no editor", status)


def info(path: PathLike, vst_version: Optional[int] = None, binary: Optional[PathLike] = None,
         timeout: Optional[float] = None) -> dict[str, list[Pin]]:
    """The plug-in's pins: {"inputs": [...], "outputs": [...]}."""
    pins: dict[str, list[Pin]] = {"inputs": [], "outputs": []}
    fields: dict[str, str] = {}
    side = pins["inputs"]
    for line in _report("info", path, vst_version, binary, timeout):
        if line.startswith("Number of "):
            side = pins["outputs" if "outputs" in line else "inputs"]
        elif line.startswith("    ."):
            key, _, value = line.strip()[1:].partition(" = ")
            fields[key] = value
            if key == "arrangementType":
                side.append(Pin(fields.get("label", ""), int(fields.get("flags", 0)), int(value)))
                fields = {}
    return pins


def parameters(path: PathLike, data: Optional[bytes] = None, vst_version: Optional[int] = None,
               binary: Optional[PathLike] = None, timeout: Optional[float] = None) -> list[Parameter]:
    """The plug-in's parameters, after the settings bytes `data` are applied if given."""
    with tempfile.TemporaryDirectory() as folder:
        options: list[str] = []
        if data:
            settings = os.path.join(folder, "settings")
            with open(settings, "wb") as file:
                file.write(data)
            options = ["--data", settings]
        lines = _report("params", path, vst_version, binary, timeout, *options)
    found = []
    for line in lines:
        fields = line.split("\t")
        if len(fields) == 5 and fields[0].isdigit():  # plug-ins may print their own lines
            found.append(Parameter(int(fields[0]), fields[1], float(fields[2]), fields[3], fields[4]))
    return found
