#!/usr/bin/env python3
"""Whole-program benchmarks: each figure is a ratio against a reference measured in the same run."""
import os
import random
import statistics
import subprocess
import sys
import tempfile
import time

BUILD = sys.argv[1] if len(sys.argv) > 1 else "build/dev"
SECTIONS = sys.argv[2:]
ADAPTER = os.path.join(BUILD, "vst-adapter")


def timed(command, env=None, stdin=None, stdout=subprocess.DEVNULL):
    start = time.perf_counter()
    subprocess.run(command, env=env, stdin=stdin, stdout=stdout, stderr=subprocess.DEVNULL, check=False)
    return time.perf_counter() - start


def quiet_env():
    env = dict(os.environ)
    env.pop("DISPLAY", None)
    env["HOME"] = tempfile.mkdtemp(prefix="bench-home-")
    return env


def startup(runs=40):
    """'test' on real plug-ins against a program that only loads, opens and closes them."""
    loader = os.path.join(BUILD, "bench", "minimal_loader")
    plugins = ["/usr/lib/vst/ZamComp-vst.so", "/usr/lib/vst/lsp-plugins/compressor-stereo.so"]
    env = quiet_env()
    print("start-up: median of %d runs, interleaved" % runs)
    print("  %-50s %10s %10s %7s" % ("plug-in", "adapter", "minimal", "ratio"))
    for plugin in plugins:
        if not os.path.exists(plugin):
            print("  %-50s not installed" % plugin)
            continue
        ours, reference = [], []
        for _ in range(runs):
            ours.append(timed([ADAPTER, "test", "--vst", plugin, "--vst-version", "2"], env=env))
            reference.append(timed([loader, plugin], env=env))
        a, m = statistics.median(ours), statistics.median(reference)
        print("  %-50s %8.2fms %8.2fms %6.2fx" % (plugin, a * 1000, m * 1000, a / m))


SERVER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "common",
                      "http_test_server.py")
# The mebibyte the test server repeats for /pattern/SIZE, so both producers send the same bytes.
PATTERN = random.Random(1).randbytes(1 << 20)
RAW_SOCKET_READER = """
import socket, sys
port, path, size = int(sys.argv[1]), sys.argv[2], int(sys.argv[3])
connection = socket.create_connection(("127.0.0.1", port))
connection.sendall(b"GET %s HTTP/1.1\\r\\nHost: 127.0.0.1\\r\\n\\r\\n" % path.encode())
buffer = bytearray(1 << 18)
got = 0
while got < size:
    count = connection.recv_into(buffer)
    if count == 0:
        break
    got += count
"""


def run_reader(command, env, feed=0):
    """Runs `command` to its end, writing `feed` pattern bytes to its standard input when feed
    is set. Returns (wall seconds, CPU seconds of the child, standard error text)."""
    start = time.perf_counter()
    child = subprocess.Popen(command, env=env, stdin=subprocess.PIPE if feed else subprocess.DEVNULL,
                             stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    if feed:
        block = memoryview(PATTERN)
        sent = 0
        try:
            while sent < feed:
                piece = block[:min(len(block), feed - sent)]
                child.stdin.write(piece)
                sent += len(piece)
            child.stdin.close()
        except BrokenPipeError:
            pass
    err = child.stderr.read().decode(errors="replace")
    _, status, usage = os.wait4(child.pid, 0)
    wall = time.perf_counter() - start
    if os.waitstatus_to_exitcode(status) != 0:
        raise SystemExit("network: %s failed: %s" % (command[0], err.strip()))
    return wall, usage.ru_utime + usage.ru_stime, err


def network(runs=5, size=1 << 30):
    """1 GiB from a loopback http server against the same bytes through a pipe, in one run:
    the input path alone (bench/input_reader reads like the plain framing and discards), and
    'process' with the identity test plug-in. A raw socket read of the same reply shows what
    loopback TCP itself costs next to a pipe."""
    reader = os.path.join(BUILD, "bench", "input_reader")
    plugin = os.path.join(BUILD, "tests", "plugins", "test_effect.so")
    env = quiet_env()
    env["no_proxy"] = "127.0.0.1"
    env.pop("TEST_EFFECT", None)
    root = tempfile.mkdtemp(prefix="bench-network-")
    server = subprocess.Popen([sys.executable, SERVER, root], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE)
    port = int(server.stdout.readline())
    path = "/pattern/%d" % size
    url = "http://127.0.0.1:%d%s" % (port, path)
    process = [ADAPTER, "process", "--vst", plugin, "--rate", "44100", "--channels", "2",
               "--bits", "16"]
    # name: (command over http, command fed through a pipe or None)
    cases = {"input path (input_reader)": ([reader, url], [reader, "-"])}
    if os.path.exists(plugin):
        cases["process, identity plug-in"] = (process + ["--input", url], process)
    else:
        print("  %s not built: the process case is left out" % plugin)
    cases["raw socket read (reference)"] = (
        [sys.executable, "-c", RAW_SOCKET_READER, str(port), path, str(size)], None)
    timings = {name: {"http": [], "pipe": []} for name in cases}
    peak = ""
    try:
        for _ in range(runs):
            for name, (over_http, over_pipe) in cases.items():
                wall, cpu, err = run_reader(over_http, env)
                timings[name]["http"].append((wall, cpu))
                if over_http[0] == reader:
                    peak = err.strip()
                if over_pipe:
                    wall, cpu, _ = run_reader(over_pipe, env, feed=size)
                    timings[name]["pipe"].append((wall, cpu))
    finally:
        server.stdin.close()
        server.wait()
        os.rmdir(root)

    def median(samples, index):
        return statistics.median(sample[index] for sample in samples)

    print("network: %d MiB over loopback http vs a pipe, median of %d runs, interleaved"
          % (size >> 20, runs))
    print("  %-28s %8s %8s %7s   %9s %9s %7s" % ("", "http", "pipe", "ratio", "CPU http",
                                                  "CPU pipe", "ratio"))
    for name, samples in timings.items():
        # The reference has no pipe run of its own: it stands against the input path's, as the
        # floor any http reader stands on.
        pipe = samples["pipe"] or timings["input path (input_reader)"]["pipe"]
        hw, hc = median(samples["http"], 0), median(samples["http"], 1)
        pw, pc = median(pipe, 0), median(pipe, 1)
        print("  %-28s %7.2fs %7.2fs %6.2fx   %8.2fs %8.2fs %6.2fx"
              % (name, hw, pw, hw / pw, hc, pc, hc / pc))
    print("  input_reader over http: %s" % peak)


ALL = {"startup": startup, "network": network}

if __name__ == "__main__":
    for name in SECTIONS or ALL:
        ALL[name]()
