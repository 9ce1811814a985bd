"""One worker process: started in a process group of its own, talked to over non-blocking pipes
that never wait past a deadline, and killed together with whatever it started."""

from __future__ import annotations

import os
import selectors
import signal
import subprocess
import time
from typing import IO, Optional, Sequence

from vst_adapter.errors import PluginError, PluginTimeout

# Standard error kept from a worker: enough for its last messages, bounded against chatty plug-ins.
_STDERR_KEPT = 65536
# How long a worker that failed or was killed may take to exit and close its pipes.
_DYING_SECONDS = 2.0
# Longest pause while waiting for an exit that the pipes do not announce.
_EXIT_POLL_SECONDS = 0.05


class Deadline:
    """The end of the time one call may take; None waits as long as it takes."""

    def __init__(self, seconds: Optional[float]) -> None:
        if seconds is not None and not seconds >= 0:
            raise ValueError(f"timeout must be a number of seconds, not {seconds}")
        self.seconds = seconds
        self._at = None if seconds is None else time.monotonic() + seconds

    def remaining(self) -> Optional[float]:
        return None if self._at is None else max(0.0, self._at - time.monotonic())

    def passed(self) -> bool:
        return self._at is not None and time.monotonic() >= self._at


class Worker:
    """`command` in a new session (its own process group). With `talk` its standard input and
    output are pipes for messages; standard error is always read and its end kept."""

    def __init__(self, command: Sequence[str], talk: bool) -> None:
        self.stderr = b""
        pipe_or_null = subprocess.PIPE if talk else subprocess.DEVNULL
        self._process = subprocess.Popen(command, stdin=pipe_or_null, stdout=pipe_or_null,
                                         stderr=subprocess.PIPE, start_new_session=True)
        try:
            self._open: list[IO[bytes]] = [pipe for pipe in (self._process.stdout, self._process.stderr)
                                           if pipe is not None]
            for pipe in (self._process.stdin, *self._open):
                if pipe is not None:
                    os.set_blocking(pipe.fileno(), False)
        except BaseException:
            self.kill()
            raise

    @property
    def pid(self) -> int:
        """The worker's process id, which is also its process group's id."""
        return self._process.pid

    def exchange(self, message: bytes, reply_size: int, deadline: Deadline) -> bytearray:
        """Writes `message` while reading `reply_size` bytes of reply and whatever the worker
        prints, so that neither side waits on a full pipe."""
        stdin, stdout = self._process.stdin, self._process.stdout
        if stdin is None or stdout is None or stdin.closed:
            raise PluginError("the worker is not running")
        pending = memoryview(message)
        reply = bytearray()
        with selectors.DefaultSelector() as selector:
            for pipe in self._open:
                selector.register(pipe, selectors.EVENT_READ, pipe)
            if pending:
                selector.register(stdin, selectors.EVENT_WRITE, stdin)
            while pending or len(reply) < reply_size:
                # Woken now and then: a worker that died while a child of the plug-in holds
                # its pipes open never shows an end of output.
                remaining = deadline.remaining()
                ready = selector.select(_EXIT_POLL_SECONDS if remaining is None else
                                        min(remaining, _EXIT_POLL_SECONDS))
                if not ready and deadline.passed():
                    raise self._timed_out(deadline)
                if not ready and self._exited():
                    raise self.failure()
                for key, _ in ready:
                    try:
                        if key.data is stdin:
                            pending = pending[os.write(key.fd, pending[:65536]):]
                            if not pending:
                                selector.unregister(stdin)
                            continue
                        data = self._read(key.data, reply_size - len(reply))
                    except BlockingIOError:
                        continue
                    except BrokenPipeError:
                        raise self.failure() from None
                    if data is None:
                        if key.data not in self._open:
                            selector.unregister(key.data)
                    elif not data or len(reply) + len(data) > reply_size:
                        raise self.failure()
                    else:
                        reply += data
        return reply  # writable, so arrays made over it are too

    def finish(self, deadline: Deadline) -> int:
        """Ends the input, waits for the worker to exit, then kills what is left of its process
        group (a plug-in's own children) and reaps it. Returns its exit status."""
        if self._process.stdin is not None and not self._process.stdin.closed:
            self._process.stdin.close()
        pause = 0.001
        while not self._exited():
            if deadline.passed():
                raise self._timed_out(deadline)
            remaining = deadline.remaining()
            self._read_available(pause if remaining is None else min(pause, remaining))
            pause = min(pause * 2, _EXIT_POLL_SECONDS)
        self._read_available(0)  # what it wrote just before it exited
        self.kill()
        return self._process.returncode

    def failure(self) -> PluginError:
        """The worker's end as an error: what it printed and how it ended."""
        try:
            self.finish(Deadline(_DYING_SECONDS))
        except PluginTimeout:
            pass
        status = self._process.returncode
        message = self.stderr.decode("utf-8", "replace").strip()
        if status is not None and status < 0:
            try:
                name = signal.Signals(-status).name
            except ValueError:  # a signal Python has no name for
                name = f"signal {-status}"
            message = f"{message}\nthe worker was killed by {name}".strip()
        return PluginError(message or "the worker ended", status)

    def kill(self) -> None:
        """Kills the worker and its process group unless it has been reaped, reaps it and closes
        the pipes. Bounded, and harmless when called again."""
        if self._process.returncode is None:
            try:
                os.killpg(self._process.pid, signal.SIGKILL)
            except (ProcessLookupError, PermissionError):
                pass
            try:
                self._process.wait(_DYING_SECONDS)
            except subprocess.TimeoutExpired:
                pass  # stuck in the kernel: nothing more can be done from here
        for pipe in (self._process.stdin, self._process.stdout, self._process.stderr):
            if pipe is not None:
                pipe.close()
        self._open = []

    def _timed_out(self, deadline: Deadline) -> PluginTimeout:
        self.kill()
        return PluginTimeout(f"the plug-in gave no answer within {deadline.seconds:g} s; "
                             "its worker was killed")

    def _exited(self) -> bool:
        """Whether the worker has exited, without reaping it: while it is unreaped its process
        group id cannot be reused, so kill() still reaches only its own group."""
        if self._process.returncode is not None:
            return True
        if not hasattr(os, "waitid"):  # macOS: reaps; kill() then spares the group
            return self._process.poll() is not None
        flags = os.WEXITED | os.WNOHANG | os.WNOWAIT
        return os.waitid(os.P_PID, self._process.pid, flags) is not None

    def _read(self, pipe: IO[bytes], wanted: int) -> Optional[bytes]:
        """Bytes from standard output (empty at its end); None for standard error, whose bytes
        are kept. A pipe that ends is no longer read."""
        data = os.read(pipe.fileno(), max(wanted, 1) if pipe is self._process.stdout else 65536)
        if not data:
            self._open = [open_pipe for open_pipe in self._open if open_pipe is not pipe]
        if pipe is self._process.stdout:
            return data
        self.stderr = (self.stderr + data)[-_STDERR_KEPT:]
        return None

    def _read_available(self, seconds: float) -> None:
        """Reads what the pipes hold within `seconds`; standard output is dropped."""
        if not self._open:
            time.sleep(seconds)
            return
        with selectors.DefaultSelector() as selector:
            for pipe in self._open:
                selector.register(pipe, selectors.EVENT_READ, pipe)
            for key, _ in selector.select(seconds):
                try:
                    self._read(key.data, 65536)
                except BlockingIOError:
                    pass
