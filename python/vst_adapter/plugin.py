"""One plug-in in a worker process, fed numpy arrays over the chunked protocol."""

from __future__ import annotations

import os
import struct
import weakref
from contextlib import contextmanager
from typing import Any, Iterable, Iterator, Mapping, Optional, Union

import numpy as np

from vst_adapter.commands import Parameter, PathLike, Pin, find_binary, info, parameters, plugin_arguments
from vst_adapter.errors import PluginError, PluginTimeout
from vst_adapter.parameter_map import ParameterMap
from vst_adapter.samples import (ENCODINGS, MESSAGE_FRAMES, WORKER_BLOCK_FRAMES, Audio, checked,
                                 convert)
from vst_adapter.worker import Deadline, Worker

# Messages of the chunked protocol.
_AUDIO, _STATE, _FORMAT, _TAIL, _REOPEN = 1, 2, 3, 4, 5
_DEFAULT_MASKS = {1: 0x4, 2: 0x3, 4: 0x33, 6: 0x3F}
# How long close() waits for a worker to end when no time-out is given: it never waits unbounded.
CLOSE_SECONDS = 10.0
# A listed value this close to the one asked for was taken (the listing prints 32-bit floats).
_VALUE_TOLERANCE = 1e-6

ParameterKey = Union[int, str]


def _records(values: Mapping[int, float]) -> bytes:
    """VST 3 settings as id/value records: uint32 id, float64 value, little-endian."""
    return b"".join(struct.pack("<Id", number, value) for number, value in values.items())


class Plugin:
    """One plug-in in a worker process, fed audio as numpy arrays shaped (frames, channels).

    The worker starts on first use (or with open()) and is reaped when the object is closed,
    garbage-collected or left open at exit. `bits` is the encoding between Python and the worker:
    16 (integer), 32 or 64 (float); `float64` asks the plug-in to process in 64-bit when it can;
    `timeout` (seconds) bounds every call that does not give its own. Use it as a context
    manager::

        with Plugin("/usr/lib/vst3/ZamComp.vst3", 44100, 2) as plugin:
            out = plugin.process(audio)
    """

    def __init__(self, path: PathLike, rate: Optional[int] = None, channels: Optional[int] = None,
                 channels_out: Optional[int] = None, bits: int = 32, float64: bool = False,
                 vst_version: Optional[int] = None, binary: Optional[PathLike] = None,
                 timeout: Optional[float] = None) -> None:
        if bits not in ENCODINGS:
            raise ValueError(f"bits must be one of {sorted(ENCODINGS)}, not {bits}")
        Deadline(timeout)  # refuses a bad one now rather than at first use
        self.path = os.fspath(path)
        self.rate = rate
        self.channels = channels
        self.bits = bits
        self.float64 = float64
        self.vst_version = vst_version
        self.binary = find_binary(binary)
        self.timeout = timeout
        self.latency = 0
        self._channels_out = channels_out
        self._encoding, self._format_tag = ENCODINGS[bits]
        self._output_type = self._encoding
        self._worker: Optional[Worker] = None
        self._finalizer: Optional[weakref.finalize] = None
        self._closed = False
        self._failure: Optional[str] = None  # why the worker was given up, until reopen()
        self._fresh = True  # no audio since the instance was opened
        self._state: Optional[bytes] = None
        self._records: dict[int, float] = {}  # VST 3 values set after the state
        self._listing: Optional[list[Parameter]] = None
        # VST 3 records sent since the last audio: the worker drops values not yet heard when
        # the next settings arrive, so they go again with those.
        self._unheard = b""

    @property
    def channels_out(self) -> Optional[int]:
        return self._channels_out or self.channels

    @property
    def is_vst3(self) -> bool:
        """Whether the plug-in is taken as VST 3 (by `vst_version`, else by a .vst3 path)."""
        if self.vst_version is not None:
            return self.vst_version == 3
        return self.path.rstrip("/").endswith(".vst3")

    @property
    def parameters(self) -> ParameterMap:
        """The parameters by name: `plugin.parameters["Gain"].value`, `.text`, `.unit`;
        `plugin.parameters["Gain"] = 0.25` sets one; `plugin.parameters()` lists them all with
        the values in force (from a short second worker, kept until the settings change)."""
        return ParameterMap(self)

    def __enter__(self) -> Plugin:
        self.open()
        return self

    def __exit__(self, *exc_info: object) -> None:
        self.close(check=exc_info[0] is None)

    def open(self, timeout: Optional[float] = None) -> None:
        """Starts the worker, if it is not running, and waits until the plug-in is loaded with
        the format and the settings given so far applied."""
        deadline = self._deadline(timeout)
        self._closed, self._failure = False, None
        if self._worker is None:
            self._start(deadline)

    def close(self, check: bool = True, timeout: Optional[float] = None) -> None:
        """Ends the worker, killing it after `timeout` (default the plug-in's, else
        CLOSE_SECONDS); raises PluginError if it failed and `check` is true."""
        deadline = Deadline(timeout or self.timeout or CLOSE_SECONDS)
        self._closed, self._failure = True, None
        worker = self._drop_worker()
        if worker is None:
            return
        try:
            status = worker.finish(deadline)
        except PluginTimeout:
            if check:
                raise
            return
        finally:
            worker.kill()
        if status != 0 and check:
            raise worker.failure()

    def process(self, audio: Audio, timeout: Optional[float] = None) -> Audio:
        """Runs int16, int32, float32 or float64 samples shaped (frames, channels) through the
        plug-in; the result has the output channels and the same sample type."""
        return self._process(audio, self._deadline(timeout))

    def stream(self, blocks: Iterable[Audio], tail: bool = True,
               timeout: Optional[float] = None) -> Iterator[Audio]:
        """Processes blocks of any length as they come, then yields the tail if `tail` is true.
        The plug-in gets the blocks one process() of all the audio would give it: frames short
        of a whole worker block wait for the next block (so a yield may be shorter, even empty),
        and memory stays bounded. `timeout` bounds each block."""
        carry: Optional[Audio] = None
        for block in blocks:
            block = checked(block, self._format()[1])
            if carry is not None and len(carry):
                block = np.concatenate([convert(carry, block.dtype), block])
            whole = len(block) - len(block) % WORKER_BLOCK_FRAMES
            processed = self._process(block[:whole], self._deadline(timeout))
            carry = block[whole:].copy()  # the caller may reuse its buffer
            yield processed
        if carry is not None and len(carry):
            yield self._process(carry, self._deadline(timeout))
        if tail:
            yield self._tail(self._deadline(timeout))

    def tail(self, timeout: Optional[float] = None) -> Audio:
        """What the plug-in still sounds after its input ended (reverb, delay lines), in the
        sample type of the last processed audio."""
        return self._tail(self._deadline(timeout))

    def __call__(self, audio: Audio, sample_rate: int, reset: bool = True,
                 timeout: Optional[float] = None) -> Audio:
        """Processes a whole array, mono 1-D or (frames, channels), and returns it with the tail.
        A new rate or channel count starts the plug-in afresh in that format, settings kept;
        with `reset`, audio processed before is forgotten first (see reset())."""
        array = np.asarray(audio)
        if array.ndim not in (1, 2):
            raise ValueError(f"audio must be 1-D (mono) or shaped (frames, channels), not {array.shape}")
        frames = array.reshape(-1, 1) if array.ndim == 1 else array
        deadline = self._deadline(timeout)
        if (sample_rate, frames.shape[1]) != (self.rate, self.channels):
            self._stop()
            self.rate, self.channels = sample_rate, frames.shape[1]
        elif reset:
            self._reset(deadline)
        out = self._process(frames, deadline)
        rest = self._tail(deadline)
        length = len(out)
        out.resize((length + len(rest), out.shape[1]), refcheck=False)  # in place when it can
        out[length:] = rest
        return out[:, 0] if array.ndim == 1 and out.shape[1] == 1 else out

    def reset(self, timeout: Optional[float] = None) -> None:
        """Forgets the audio processed so far (reverb tails, delay lines): the plug-in is opened
        afresh with the same format and settings. Also brings back a plug-in that failed."""
        self._reset(self._deadline(timeout))

    def reopen(self, timeout: Optional[float] = None) -> None:
        """Replaces the plug-in with a fresh instance: default settings, state cleared. Also
        brings back a plug-in that failed or was closed."""
        self._state, self._records, self._listing = None, {}, None
        self._renew(self._deadline(timeout))

    def set_state(self, data: bytes, timeout: Optional[float] = None) -> None:
        """Hands the plug-in settings bytes, as a settings file holds them."""
        data = bytes(data)
        self._check_usable()
        if self._worker is not None:
            self._send_state(self._settings_message(data, False), self._deadline(timeout))
        self._state, self._records, self._listing = data, {}, None

    def set_parameters(self, values: Mapping[ParameterKey, float], timeout: Optional[float] = None) -> None:
        """Sets normalised values (0 to 1) by parameter name, VST 2 index or VST 3 id; the others
        keep theirs. Raises PluginError, changing nothing, if the plug-in does not take them
        (a VST 2 plug-in that keeps its settings in a chunk; use set_state)."""
        deadline = self._deadline(timeout)
        before = {found.number: found for found in self._list(deadline)}
        wanted: dict[int, float] = {}
        for key, value in values.items():
            found = self._resolve(key, list(before.values()))
            if not 0.0 <= float(value) <= 1.0:
                raise ValueError(f"parameter {found.name!r}: {value} is not between 0 and 1")
            wanted[found.number] = float(value)
        if not wanted:
            return
        all_values = {number: found.value for number, found in before.items()} | wanted
        if self.is_vst3:
            listed_with, message = _records(all_values), _records(wanted)
        else:
            listed_with = np.asarray([all_values[index] for index in range(len(all_values))],
                                     "<f4").tobytes()
            message = listed_with[:4 * (max(wanted) + 1)]  # shorter settings leave the rest
        after = {found.number: found for found in parameters(
            self.path, listed_with, self.vst_version, self.binary, deadline.remaining())}
        refused = [before[number].name for number, value in wanted.items()
                   if number in after and abs(after[number].value - value) > _VALUE_TOLERANCE
                   and after[number].value == before[number].value]
        if refused:
            raise PluginError(f"the plug-in did not take the value of {', '.join(refused)}: it keeps "
                              "its settings in a form of its own; use set_state")
        if self._worker is not None:
            self._send_state(self._settings_message(message, self.is_vst3), deadline)
        if self.is_vst3:
            self._records.update(wanted)
        else:
            self._state = listed_with
        self._listing = list(after.values())

    def info(self, timeout: Optional[float] = None) -> dict[str, list[Pin]]:
        """The plug-in's pins (see the module's info())."""
        return info(self.path, self.vst_version, self.binary, self._deadline(timeout).seconds)

    def _list_parameters(self, timeout: Optional[float]) -> list[Parameter]:
        return list(self._list(self._deadline(timeout)))

    def _resolve_parameter(self, key: ParameterKey) -> Parameter:
        return self._resolve(key, self._list(self._deadline(None)))

    def _list(self, deadline: Deadline) -> list[Parameter]:
        self._check_usable()
        if self._listing is None:
            self._listing = parameters(self.path, self._state, self.vst_version, self.binary,
                                       deadline.remaining())
        return self._listing

    @staticmethod
    def _resolve(key: ParameterKey, listing: list[Parameter]) -> Parameter:
        if isinstance(key, str):
            found = [parameter for parameter in listing if parameter.name == key]
            if len(found) > 1:
                raise KeyError(f"{len(found)} parameters are named {key!r}: give its number")
        else:
            found = [parameter for parameter in listing if parameter.number == key]
        if not found:
            raise KeyError(f"the plug-in has no parameter {key!r}")
        return found[0]

    def _deadline(self, timeout: Optional[float]) -> Deadline:
        return Deadline(self.timeout if timeout is None else timeout)

    def _format(self) -> tuple[int, int]:
        if self.rate is None or self.channels is None:
            raise ValueError("the sample rate and channel count are not known yet: give rate= and "
                             "channels=, or call the plug-in with audio and its sample rate")
        return self.rate, self.channels

    def _check_usable(self) -> None:
        if self._closed:
            raise PluginError("the plug-in is closed: open() it to use it again")
        if self._failure is not None:
            raise PluginError(f"the plug-in is unusable after an earlier failure; reopen() it to "
                              f"go on. The failure: {self._failure}")

    def _start(self, deadline: Deadline) -> None:
        rate, channels = self._format()
        command = [self.binary, "process", *plugin_arguments(self.path, self.vst_version),
                   "--rate", str(rate), "--channels", str(channels),
                   "--channels-output", str(self.channels_out), "--bits", str(self.bits),
                   "--formattag", str(self._format_tag), "--float64", "1" if self.float64 else "0",
                   "--protocol", "chunked"]
        worker = Worker(command, talk=True)
        try:
            self._load(worker, deadline)
        except BaseException:
            worker.kill()  # an interrupted or failed start leaves no process
            raise
        self._worker = worker
        self._finalizer = weakref.finalize(self, worker.kill)

    def _load(self, worker: Worker, deadline: Deadline) -> None:
        """Waits for the plug-in (an empty block is answered once it is loaded), then hands it
        the settings given so far."""
        self._audio(worker, np.empty((0, self._format()[1]), self._encoding), deadline)
        self._unheard = b""
        for data, records in ((self._state, False), (_records(self._records), True)):
            if data:
                message = self._settings_message(data, records)
                worker.exchange(struct.pack("<II", _STATE, len(message)) + message, 0, deadline)
        self._fresh = True

    def _drop_worker(self) -> Optional[Worker]:
        worker, self._worker = self._worker, None
        if self._finalizer is not None:
            self._finalizer.detach()
            self._finalizer = None
        return worker

    def _stop(self) -> None:
        """Ends the worker, if any, without a verdict: the next use starts another."""
        worker = self._drop_worker()
        if worker is not None:
            try:
                worker.finish(Deadline(CLOSE_SECONDS))
            except PluginError:
                pass
            finally:
                worker.kill()

    @contextmanager
    def _talking(self, deadline: Deadline) -> Iterator[Worker]:
        """The running worker (started if need be) for one call. Whatever interrupts the call
        (a time-out, a signal, Ctrl-C, the worker's end) kills the worker and marks the plug-in
        failed, so that no later call can read a reply meant for this one."""
        self._check_usable()
        if self._worker is None:
            self._start(deadline)
        worker = self._worker
        assert worker is not None
        try:
            yield worker
        except BaseException as error:
            self._drop_worker()
            worker.kill()
            self._failure = str(error) if isinstance(error, PluginError) else \
                f"interrupted by {type(error).__name__} {error}".strip()
            raise

    def _reset(self, deadline: Deadline) -> None:
        if self._failure is not None or (self._worker is not None and not self._fresh):
            self._renew(deadline)

    def _renew(self, deadline: Deadline) -> None:
        """A fresh instance of the plug-in with the settings kept in this object."""
        if self._worker is None or self._failure is not None:
            self._closed, self._failure = False, None
            self._drop_worker()
            self._start(deadline)
            return
        with self._talking(deadline) as worker:
            worker.exchange(struct.pack("<II", _REOPEN, 0), 0, deadline)
            rate, channels = self._format()
            channels_out = self.channels_out or channels
            asked = (rate, channels, _DEFAULT_MASKS.get(channels, 0), channels_out,
                     _DEFAULT_MASKS.get(channels_out, 0))
            applied = struct.unpack("<5I", worker.exchange(struct.pack("<II5I", _FORMAT, 20, *asked),
                                                           20, deadline))
            if applied[:2] != asked[:2] or applied[3] != asked[3]:
                raise PluginError(f"the reopened plug-in changed the format to {applied}")
            self._load(worker, deadline)

    def _settings_message(self, data: bytes, records: bool) -> bytes:
        """The settings message for `data`: VST 3 records go with those not heard yet; settings
        that may be records (not a preset file, whole records) are remembered until heard."""
        message = self._unheard + data if records else data
        maybe_records = self.is_vst3 and not message.startswith(b"VST3") and len(message) % 12 == 0
        self._unheard = message if maybe_records else b""
        return message

    def _send_state(self, data: bytes, deadline: Deadline) -> None:
        with self._talking(deadline) as worker:
            worker.exchange(struct.pack("<II", _STATE, len(data)) + data, 0, deadline)

    def _process(self, audio: Audio, deadline: Deadline) -> Audio:
        audio = checked(audio, self._format()[1])
        out = np.empty((len(audio), self.channels_out or 0), audio.dtype)
        with self._talking(deadline) as worker:
            for start in range(0, len(audio), MESSAGE_FRAMES):
                block = convert(audio[start:start + MESSAGE_FRAMES], self._encoding)
                out[start:start + len(block)] = convert(self._audio(worker, block, deadline), audio.dtype)
        self._output_type = audio.dtype
        return out

    def _tail(self, deadline: Deadline) -> Audio:
        with self._talking(deadline) as worker:
            size = struct.unpack("<I", worker.exchange(struct.pack("<II", _TAIL, 0), 4, deadline))[0]
            samples = np.frombuffer(worker.exchange(b"", size, deadline), self._encoding)
        return convert(samples.reshape(-1, self.channels_out or 0), self._output_type)

    def _audio(self, worker: Worker, block: Audio, deadline: Deadline) -> Audio:
        payload = block.tobytes()
        channels_out = self.channels_out or 0
        reply_size = len(block) * channels_out * self._encoding.itemsize
        reply = worker.exchange(struct.pack("<II", _AUDIO, len(payload)) + payload, reply_size + 4,
                                deadline)
        self.latency = struct.unpack("<I", reply[reply_size:])[0]
        if len(block):
            self._fresh, self._unheard = False, b""
        samples = np.frombuffer(memoryview(reply)[:reply_size], self._encoding)
        return samples.reshape(-1, channels_out)


def load_plugin(path: PathLike, **options: Any) -> Plugin:
    """A plug-in whose worker starts on first use: call it, `plugin(audio, sample_rate)`, or give
    `rate=` and `channels=` and use the Plugin methods. Options are Plugin's."""
    return Plugin(path, **options)
