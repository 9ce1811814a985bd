"""The worker's reports on many plug-ins at once: `scan` (what loads and what it is) and
`validate` (measured checks). Each runs as one worker that starts a child per plug-in or check,
so a plug-in that crashes or hangs is a result, never a crash of this process."""

from __future__ import annotations

import json
import os
import signal
import subprocess
from typing import Any, Optional, Sequence, Union

from vst_adapter.commands import PathLike, find_binary
from vst_adapter.errors import PluginError


def _collect(arguments: list[str]) -> tuple[int, str, str]:
    """Runs the worker to its end; an interrupt kills it and everything it started."""
    process = subprocess.Popen(arguments, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, start_new_session=True)
    try:
        out, err = process.communicate()
    except BaseException:
        os.killpg(process.pid, signal.SIGKILL)
        process.communicate()
        raise
    return process.returncode, out.decode("utf-8", "replace"), err.decode("utf-8", "replace")


def _json_lines(text: str) -> list[dict[str, Any]]:
    return [json.loads(line) for line in text.splitlines() if line.strip()]


def scan(paths: Union[PathLike, Sequence[PathLike]], cache: Optional[PathLike] = None,
         timeout: float = 10, jobs: Optional[int] = None,
         binary: Optional[PathLike] = None) -> list[dict[str, Any]]:
    """One dict per plug-in found under `paths` (folders or plug-ins), in path order; `timeout`
    is each plug-in's time limit in seconds. Raises PluginError for a path that does not exist."""
    roots = [paths] if isinstance(paths, (str, os.PathLike)) else list(paths)
    arguments = [find_binary(binary), "scan"]
    for root in roots:
        arguments += ["--vst", os.fspath(root)]
    arguments += ["--timeout", str(max(1, round(timeout)))]
    if cache is not None:
        arguments += ["--cache", os.fspath(cache)]
    if jobs is not None:
        arguments += ["--jobs", str(jobs)]
    status, out, err = _collect(arguments)
    if status != 0:
        raise PluginError(err.strip() or "scan failed", status)
    return _json_lines(out)


def validate(path: PathLike, checks: Optional[Sequence[str]] = None, level: int = 2,
             timeout: Optional[float] = None, vst_version: Optional[int] = None,
             binary: Optional[PathLike] = None) -> Any:
    """The report on the plug-in at `path` as a dict (a list of them for a folder): `passed`, and
    each check's id, status, message, seconds and figures. `timeout` limits each check."""
    arguments = [find_binary(binary), "validate", "--vst", os.fspath(path), "--level", str(level)]
    if checks:
        arguments += ["--checks", ",".join(checks)]
    if timeout is not None:
        arguments += ["--timeout", str(max(1, round(timeout)))]
    if vst_version is not None:
        arguments += ["--vst-version", str(vst_version)]
    status, out, err = _collect(arguments)
    reports = _json_lines(out)
    if not reports:
        raise PluginError(err.strip() or "validate failed", status)
    folder = os.path.isdir(path) and not os.fspath(path).rstrip("/").endswith((".vst3", ".vst"))
    return reports if folder else reports[0]
