from __future__ import annotations

import os
import selectors
import shutil
import signal
import struct
import subprocess
import tempfile
from dataclasses import dataclass
from typing import Iterable, Iterator, Mapping, Optional, Union

import numpy as np

PathLike = Union[str, "os.PathLike[str]"]

# Messages of the chunked protocol.
_AUDIO, _STATE, _FORMAT, _TAIL, _REOPEN = 1, 2, 3, 4, 5
# Frames per audio message: a multiple of the plug-in's 512-frame block, so that the plug-in is
# called exactly as the command line calls it, and small enough to bound memory per message.
_BLOCK_FRAMES = 8192
# Stderr kept from a running worker: enough for its last messages, bounded against chatty plug-ins.
_STDERR_KEPT = 65536
_DEFAULT_MASKS = {1: 0x4, 2: 0x3, 4: 0x33, 6: 0x3F}
# Stream encodings by --bits: numpy type and --formattag.
_ENCODINGS = {16: (np.dtype("<i2"), 1), 32: (np.dtype("<f4"), 3), 64: (np.dtype("<f8"), 3)}
_SAMPLE_TYPES = (np.int16, np.int32, np.float32, np.float64)


class PluginError(Exception):
    """The worker failed: `message` is what it printed, `status` its exit status (negative: the
    signal that ended it), or None while it still runs."""

    def __init__(self, message: str, status: Optional[int] = None) -> None:
        super().__init__(f"{message} (exit status {status})" if status is not None else message)
        self.message = message
        self.status = status


@dataclass(frozen=True)
class Pin:
    """One input or output pin as the plug-in describes it."""

    label: str
    flags: int
    arrangement_type: int


@dataclass(frozen=True)
class Parameter:
    """One parameter: `number` is its index (VST 3: its id); `value` is normalised (0 to 1)."""

    number: int
    name: str
    value: float
    display: str
    label: str


def find_binary(binary: Optional[PathLike] = None) -> str:
    """The worker program: `binary` if given, else $VST_ADAPTER, else vst-adapter on PATH."""
    found = binary or os.environ.get("VST_ADAPTER") or shutil.which("vst-adapter")
    if not found:
        raise FileNotFoundError("vst-adapter not found: pass binary=, set VST_ADAPTER or add it to PATH")
    return os.fspath(found)


def _plugin_arguments(path: PathLike, vst_version: Optional[int]) -> list[str]:
    arguments = ["--vst", os.fspath(path)]
    if vst_version is not None:
        arguments += ["--vst-version", str(vst_version)]
    return arguments


def _run(command: str, path: PathLike, vst_version: Optional[int], binary: Optional[PathLike],
         *options: str) -> subprocess.CompletedProcess:
    return subprocess.run([find_binary(binary), command, *_plugin_arguments(path, vst_version), *options],
                          stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)


def _report(command: str, path: PathLike, vst_version: Optional[int], binary: Optional[PathLike],
            *options: str) -> list[str]:
    done = _run(command, path, vst_version, binary, *options)
    text = done.stderr.decode("utf-8", "replace")
    if done.returncode != 0:
        raise PluginError(text.strip() or f"{command} failed", done.returncode)
    return text.splitlines()


def test(path: PathLike, vst_version: Optional[int] = None, binary: Optional[PathLike] = None) -> bool:
    """Whether the plug-in loads."""
    return _run("test", path, vst_version, binary).returncode == 0


def has_editor(path: PathLike, vst_version: Optional[int] = None, binary: Optional[PathLike] = None) -> bool:
    """Whether the plug-in can be configured: it has an editor or at least one parameter."""
    return _run("has-editor", path, vst_version, binary).returncode == 0


def configure(path: PathLike, data: PathLike, vst_version: Optional[int] = None,
              binary: Optional[PathLike] = None) -> None:
    """Shows the plug-in's editor until the user closes it; the settings file `data` is read
    first and rewritten if the settings changed. Raises PluginError without an editor."""
    done = _run("configure", path, vst_version, binary, "--data", os.fspath(data))
    if done.returncode != 0:
        message = done.stderr.decode("utf-8", "replace").strip()
        raise PluginError(message or "the plug-in has no editor", done.returncode)


def info(path: PathLike, vst_version: Optional[int] = None,
         binary: Optional[PathLike] = None) -> dict[str, list[Pin]]:
    """The plug-in's pins: {"inputs": [...], "outputs": [...]}."""
    pins: dict[str, list[Pin]] = {"inputs": [], "outputs": []}
    fields: dict[str, str] = {}
    side = pins["inputs"]
    for line in _report("info", path, vst_version, binary):
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
               binary: Optional[PathLike] = None) -> list[Parameter]:
    """The plug-in's parameters, after the settings bytes `data` are applied if given."""
    with tempfile.TemporaryDirectory() as folder:
        options: list[str] = []
        if data:
            settings = os.path.join(folder, "settings")
            with open(settings, "wb") as file:
                file.write(data)
            options = ["--data", settings]
        lines = _report("params", path, vst_version, binary, *options)
    found = []
    for line in lines:
        fields = line.split("\t")
        if len(fields) == 5 and fields[0].isdigit():  # plug-ins may print their own lines
            found.append(Parameter(int(fields[0]), fields[1], float(fields[2]), fields[3], fields[4]))
    return found


def _to_encoding(audio: np.ndarray, encoding: np.dtype) -> np.ndarray:
    """Samples in another encoding: integers are scaled by 2^(bits-1), and rounded half away
    from zero and clipped on the way back, as the worker converts them."""
    if audio.dtype == encoding:
        return np.ascontiguousarray(audio)
    samples = audio / float(2 ** (8 * audio.dtype.itemsize - 1)) if audio.dtype.kind == "i" else audio
    if encoding.kind == "f":
        return samples.astype(encoding)
    scale = float(2 ** (8 * encoding.itemsize - 1))
    scaled = np.asarray(samples, np.float64) * scale
    rounded = np.trunc(scaled + np.copysign(0.5, scaled))
    return np.clip(rounded, -scale, scale - 1).astype(encoding)


class Plugin:
    """One plug-in in a worker process, fed audio as numpy arrays shaped (frames, channels).

    `bits` is the encoding between Python and the worker: 16 (integer), 32 or 64 (float);
    `float64` asks the plug-in to process in 64-bit when it can. Use it as a context manager::

        with Plugin("/usr/lib/vst3/ZamComp.vst3", 44100, 2) as plugin:
            out = plugin.process(audio)
    """

    def __init__(self, path: PathLike, rate: int, channels: int, channels_out: Optional[int] = None,
                 bits: int = 32, float64: bool = False, vst_version: Optional[int] = None,
                 binary: Optional[PathLike] = None) -> None:
        if bits not in _ENCODINGS:
            raise ValueError(f"bits must be one of {sorted(_ENCODINGS)}, not {bits}")
        self.path = os.fspath(path)
        self.rate = rate
        self.channels = channels
        self.channels_out = channels_out or channels
        self.bits = bits
        self.float64 = float64
        self.vst_version = vst_version
        self.binary = find_binary(binary)
        self.latency = 0
        self._encoding, self._format_tag = _ENCODINGS[bits]
        self._output_type = self._encoding
        self._worker: Optional[subprocess.Popen] = None
        self._stderr = b""
        self._state: Optional[bytes] = None
        self._records: dict[int, float] = {}

    @property
    def is_vst3(self) -> bool:
        """Whether the plug-in is taken as VST 3 (by `vst_version`, else by a .vst3 path)."""
        if self.vst_version is not None:
            return self.vst_version == 3
        return self.path.rstrip("/").endswith(".vst3")

    def __enter__(self) -> Plugin:
        self.open()
        return self

    def __exit__(self, *exc_info: object) -> None:
        self.close(check=exc_info[0] is None)

    def open(self) -> None:
        """Starts the worker and waits until the plug-in is loaded with the format applied."""
        command = [self.binary, "process", *_plugin_arguments(self.path, self.vst_version),
                   "--rate", str(self.rate), "--channels", str(self.channels),
                   "--channels-output", str(self.channels_out), "--bits", str(self.bits),
                   "--formattag", str(self._format_tag), "--float64", "1" if self.float64 else "0",
                   "--protocol", "chunked"]
        self._worker = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE)
        for pipe in (self._worker.stdin, self._worker.stdout, self._worker.stderr):
            os.set_blocking(pipe.fileno(), False)
        self._stderr = b""
        self._audio(np.empty((0, self.channels), self._encoding))  # replies once loaded

    def close(self, check: bool = True) -> None:
        """Ends the worker; raises PluginError if it failed and `check` is true."""
        worker, self._worker = self._worker, None
        if worker is None:
            return
        worker.stdin.close()
        self._drain(worker)
        if worker.wait() != 0 and check:
            raise self._failure(worker)

    def process(self, audio: np.ndarray) -> np.ndarray:
        """Runs int16, int32, float32 or float64 samples shaped (frames, channels) through the
        plug-in; the result has the output channels and the same sample type."""
        audio = np.asarray(audio)
        if audio.ndim != 2 or audio.shape[1] != self.channels:
            raise ValueError(f"audio must be shaped (frames, {self.channels}), not {audio.shape}")
        if audio.dtype not in _SAMPLE_TYPES:
            raise ValueError(f"unsupported sample type {audio.dtype}")
        self._output_type = audio.dtype
        encoded = _to_encoding(audio, self._encoding)
        blocks = [self._audio(encoded[start:start + _BLOCK_FRAMES])
                  for start in range(0, len(encoded), _BLOCK_FRAMES)]
        out = np.concatenate(blocks) if blocks else np.empty((0, self.channels_out), self._encoding)
        return _to_encoding(out, audio.dtype)

    def stream(self, blocks: Iterable[np.ndarray], tail: bool = True) -> Iterator[np.ndarray]:
        """Processes blocks one at a time as they come, then yields the tail if `tail` is true:
        any length of audio in bounded memory."""
        for block in blocks:
            yield self.process(block)
        if tail:
            yield self.tail()

    def tail(self) -> np.ndarray:
        """What the plug-in still sounds after its input ended (reverb, delay lines), in the
        sample type of the last processed audio."""
        size = struct.unpack("<I", self._exchange(struct.pack("<II", _TAIL, 0), 4))[0]
        samples = np.frombuffer(self._exchange(b"", size), self._encoding)
        return _to_encoding(samples.reshape(-1, self.channels_out), self._output_type)

    def set_state(self, data: bytes) -> None:
        """Hands the plug-in settings bytes, as a settings file holds them."""
        self._state, self._records = bytes(data), {}
        self._send_state(self._state)

    def set_parameters(self, values: Mapping[int, float]) -> None:
        """Sets normalised values: by index for VST 2 (the others keep their values), by
        parameter id for VST 3. A VST 2 plug-in that keeps its settings in a chunk cannot be
        set this way; use set_state."""
        if self.is_vst3:
            self._records.update(values)
            self._send_state(b"".join(struct.pack("<Id", key, value) for key, value in values.items()))
            return
        current = [parameter.value for parameter in self.parameters()]
        for index, value in values.items():
            if not 0 <= index < len(current):
                raise IndexError(f"the plug-in has no parameter {index}")
            current[index] = value
        self._state = np.asarray(current, "<f4").tobytes()
        self._send_state(self._state)

    def parameters(self) -> list[Parameter]:
        """The plug-in's parameters with the settings given so far (listed by a second worker)."""
        data = self._state
        if self._records:
            data = b"".join(struct.pack("<Id", key, value) for key, value in self._records.items())
        return parameters(self.path, data, self.vst_version, self.binary)

    def info(self) -> dict[str, list[Pin]]:
        """The plug-in's pins (see the module's info())."""
        return info(self.path, self.vst_version, self.binary)

    def reopen(self) -> None:
        """Replaces the plug-in with a fresh instance: default settings, state cleared."""
        self._exchange(struct.pack("<II", _REOPEN, 0), 0)
        self._state, self._records = None, {}
        asked = (self.rate, self.channels, _DEFAULT_MASKS.get(self.channels, 0), self.channels_out,
                 _DEFAULT_MASKS.get(self.channels_out, 0))
        applied = struct.unpack("<5I", self._exchange(struct.pack("<II5I", _FORMAT, 20, *asked), 20))
        if applied[:2] != asked[:2] or applied[3] != asked[3]:
            self.close(check=False)
            raise PluginError(f"the reopened plug-in changed the format to {applied}")
        self._audio(np.empty((0, self.channels), self._encoding))

    def _send_state(self, data: bytes) -> None:
        self._exchange(struct.pack("<II", _STATE, len(data)) + data, 0)

    def _audio(self, block: np.ndarray) -> np.ndarray:
        payload = block.tobytes()
        reply_size = len(block) * self.channels_out * self._encoding.itemsize
        reply = self._exchange(struct.pack("<II", _AUDIO, len(payload)) + payload, reply_size + 4)
        self.latency = struct.unpack("<I", reply[reply_size:])[0]
        return np.frombuffer(memoryview(reply)[:reply_size], self._encoding).reshape(-1, self.channels_out)

    def _exchange(self, message: bytes, reply_size: int) -> bytearray:
        """Writes `message` while reading `reply_size` bytes of reply and whatever the worker
        prints, so that neither side waits on a full pipe."""
        worker = self._worker
        if worker is None:
            raise PluginError("the worker is not running")
        pending = memoryview(message)
        reply = bytearray()
        with selectors.DefaultSelector() as selector:
            selector.register(worker.stdout, selectors.EVENT_READ)
            selector.register(worker.stderr, selectors.EVENT_READ)
            if pending:
                selector.register(worker.stdin, selectors.EVENT_WRITE)
            while pending or len(reply) < reply_size:
                for key, _ in selector.select():
                    try:
                        if key.fileobj is worker.stdin:
                            pending = pending[os.write(key.fd, pending[:65536]):]
                            if not pending:
                                selector.unregister(worker.stdin)
                            continue
                        wanted = reply_size - len(reply) if key.fileobj is worker.stdout else 65536
                        data = os.read(key.fd, max(wanted, 1))
                    except BlockingIOError:
                        continue
                    except BrokenPipeError:
                        raise self._died() from None
                    if key.fileobj is worker.stderr:
                        self._keep_stderr(data)
                        if not data:
                            selector.unregister(worker.stderr)
                    elif not data or len(reply) + len(data) > reply_size:
                        raise self._died()
                    else:
                        reply += data
        return reply  # writable, so arrays made over it are too

    def _keep_stderr(self, data: bytes) -> None:
        self._stderr = (self._stderr + data)[-_STDERR_KEPT:]

    def _drain(self, worker: subprocess.Popen) -> None:
        # Standard error first: once its input is closed the worker writes no more data.
        for pipe in (worker.stdout, worker.stderr):
            os.set_blocking(pipe.fileno(), True)
        self._keep_stderr(worker.stderr.read())
        worker.stdout.read()

    def _died(self) -> PluginError:
        worker, self._worker = self._worker, None
        worker.stdin.close()
        self._drain(worker)
        worker.wait()
        return self._failure(worker)

    def _failure(self, worker: subprocess.Popen) -> PluginError:
        message = self._stderr.decode("utf-8", "replace").strip()
        if worker.returncode < 0:
            try:
                name = signal.Signals(-worker.returncode).name
            except ValueError:  # a signal Python has no name for
                name = f"signal {-worker.returncode}"
            message = f"{message}\nthe worker was killed by {name}".strip()
        return PluginError(message or "the worker ended", worker.returncode)
