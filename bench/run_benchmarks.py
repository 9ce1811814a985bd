#!/usr/bin/env python3
"""Whole-program benchmarks: each figure is a ratio against a reference measured in the same run."""
import atexit
import json
import math
import os
import random
import shutil
import statistics
import struct
import subprocess
import sys
import tempfile
import time

BUILD = sys.argv[1] if len(sys.argv) > 1 else "build/dev"
SECTIONS = sys.argv[2:]
ADAPTER = os.path.join(BUILD, "vst-adapter")
# The in-tree test plug-in: with TEST_EFFECT empty its output is its input, bit for bit.
IDENTITY = os.path.join(BUILD, "tests", "plugins", "test_effect.so")
GIB = 1 << 30
MIB = 1 << 20
RATE = 44100


def timed(command, env=None, stdin=None, stdout=subprocess.DEVNULL):
    start = time.perf_counter()
    subprocess.run(command, env=env, stdin=stdin, stdout=stdout, stderr=subprocess.DEVNULL, check=False)
    return time.perf_counter() - start


def quiet_env():
    """No display, and a throw-away HOME (removed at exit) for plug-ins that write settings."""
    env = dict(os.environ)
    env.pop("DISPLAY", None)
    home = tempfile.mkdtemp(prefix="bench-home-")
    atexit.register(shutil.rmtree, home, True)
    env["HOME"] = home
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


def identity_env():
    env = quiet_env()
    env.pop("TEST_EFFECT", None)
    env.pop("TEST_EFFECT_LOG", None)
    return env


def sound(seconds, channels=2, seed=1):
    """16-bit interleaved samples: a 440 Hz sine with a little noise, about -6 dBFS."""
    rng = random.Random(seed)
    frames = int(seconds * RATE)
    values = []
    for i in range(frames):
        value = 0.5 * math.sin(2 * math.pi * 440 * i / RATE) + 0.02 * (rng.random() - 0.5)
        sample = int(value * 32767)
        values.extend([sample] * channels)
    return struct.pack("<%dh" % len(values), *values)


# The producer writes a block of audio again and again until it has written the asked-for number
# of bytes; the consumer reads everything and prints the count. Both are the same for every
# program measured between them.
PRODUCER = r"""
import os, sys
total, path = int(sys.argv[1]), sys.argv[2]
block = open(path, "rb").read()
view = memoryview(block)
left = total
while left:
    piece = view[:min(left, len(block))]
    while piece:
        piece = piece[os.write(1, piece):]
    left -= min(left, len(block))
"""

CONSUMER = r"""
import os
buffer = bytearray(1 << 20)  # reused: a fresh buffer per read costs more than the pipe
count = 0
while True:
    got = os.readv(0, [buffer])
    if not got:
        break
    count += got
print(count)
"""


def through_pipes(command, total, block_path, env=None):
    """producer | command | consumer. Returns (seconds, bytes the consumer saw, rusage of the
    command)."""
    start = time.perf_counter()
    producer = subprocess.Popen([sys.executable, "-c", PRODUCER, str(total), block_path],
                                stdout=subprocess.PIPE)
    middle = subprocess.Popen(command, stdin=producer.stdout, stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, env=env)
    consumer = subprocess.Popen([sys.executable, "-c", CONSUMER], stdin=middle.stdout,
                                stdout=subprocess.PIPE)
    producer.stdout.close()
    middle.stdout.close()
    seen = int(consumer.communicate()[0] or 0)
    _, status, usage = os.wait4(middle.pid, 0)
    middle.returncode = os.waitstatus_to_exitcode(status)
    producer.wait()
    elapsed = time.perf_counter() - start
    if middle.returncode != 0:
        sys.exit("%s failed with status %d" % (command[0], middle.returncode))
    return elapsed, seen, usage


def block_file(directory, seconds=1.0):
    """About 172 KiB of stereo sound (a second), the producer's repeating block."""
    path = os.path.join(directory, "block.raw")
    with open(path, "wb") as out:
        out.write(sound(seconds))
    return path


def identity_process():
    return [ADAPTER, "process", "--vst", IDENTITY, "--vst-version", "2", "--rate", str(RATE),
            "--channels", "2", "--bits", "16"]


def need_identity():
    if not os.path.exists(IDENTITY):
        sys.exit("%s is missing: build the dev preset with the tests (scripts/bench does)" % IDENTITY)


def pipe(rounds=7, total=GIB):
    """1 GiB of 16-bit stereo through the identity plug-in, against cat, over the same pipes:
    producer | cat | consumer is the floor (the producer and consumer move bytes as cat does,
    and count them)."""
    need_identity()
    env = identity_env()
    with tempfile.TemporaryDirectory(prefix="bench-pipe-") as directory:
        block = block_file(directory)
        ours, reference, cpu = [], [], {"cat": [], "adapter": []}
        for _ in range(rounds):
            seconds, seen, usage = through_pipes(["cat"], total, block)
            if seen != total:
                sys.exit("cat passed %d of %d bytes" % (seen, total))
            reference.append(seconds)
            cpu["cat"].append(usage.ru_utime + usage.ru_stime)
            seconds, seen, usage = through_pipes(identity_process(), total, block, env)
            if seen != total:
                sys.exit("the adapter passed %d of %d bytes" % (seen, total))
            ours.append(seconds)
            cpu["adapter"].append(usage.ru_utime + usage.ru_stime)
    a, c = statistics.median(ours), statistics.median(reference)
    print("pipe: %d MiB of 16-bit stereo, producer | X | consumer, median of %d interleaved runs"
          % (total // MIB, rounds))
    print("  %-44s %8.2f s %9.0f MB/s" % ("cat", c, total / c / 1e6))
    print("  %-44s %8.2f s %9.0f MB/s" % ("vst-adapter process (identity plug-in)", a, total / a / 1e6))
    print("  ratio (adapter time / cat time): %.2fx   target: <= 1.2x" % (a / c))
    print("  per-run ratios: %s" % " ".join("%.2f" % (x / y) for x, y in zip(ours, reference)))
    print("  CPU of X alone (user + system, median): cat %.2f s, adapter %.2f s"
          % (statistics.median(cpu["cat"]), statistics.median(cpu["adapter"])))


def memory():
    """Peak resident memory of the adapter for a small and a large input, plain and chunked (one
    audio message holding the whole input), with the identity plug-in. Uses peak_rss below
    (VmHWM: ru_maxrss would show the forking Python process's larger peak for both sizes)."""
    need_identity()
    env = identity_env()
    sizes = [("10 MB", 10 * 1000 * 1000), ("1 GiB", GIB)]
    chunked = identity_process() + ["--protocol", "chunked"]
    print("memory: peak resident set (VmHWM) of vst-adapter process, identity plug-in, silence in")
    for name, command, header in (("plain", identity_process(), lambda n: b""),
                                  ("chunked", chunked, lambda n: struct.pack("<II", 1, n))):
        peaks = []
        for label, total in sizes:
            peak, status, seen = peak_rss(command, header(total), total, env)
            # Plain output may carry a tail; chunked output adds the 4-byte latency.
            if status != 0 or seen < total:
                sys.exit("memory, %s: status %d, %d of %d bytes out" % (name, status, seen, total))
            peaks.append(peak)
        print("  %-8s %s   difference: %+d KiB   target: within 1 MB (1024 KiB)"
              % (name, "  ".join("%s %6d KiB" % (label, peak) for (label, _), peak
                                 in zip(sizes, peaks)), peaks[1] - peaks[0]))


# For each pair of arguments: writes the header bytes (hex), then that many zero bytes; then ends.
HEADER_THEN_ZEROS = r"""
import os, sys
zeros = memoryview(bytes(1 << 20))
for header, total in zip(sys.argv[1::2], sys.argv[2::2]):
    header, total = bytes.fromhex(header), int(total)
    while header:
        header = header[os.write(1, header):]
    while total:
        piece = zeros[:min(total, len(zeros))]
        while piece:
            piece = piece[os.write(1, piece):]
        total -= min(total, len(zeros))
"""


def high_water_kib(pid):
    """The process's own peak resident set since its exec (VmHWM), or 0 once it is gone."""
    try:
        with open("/proc/%d/status" % pid) as status:
            for line in status:
                if line.startswith("VmHWM:"):
                    return int(line.split()[1])
    except OSError:
        pass
    return 0


def peak_rss(command, header, zeros, env, more=()):
    """Peak resident set (KiB) of `command` fed the header and zeros, then each further (header,
    zeros) pair of `more`; its output is read and thrown away. Returns (KiB, status, output
    bytes). ru_maxrss would count the forking Python process's pages too, so the peak is VmHWM,
    read every 5 ms while the command runs."""
    pieces = [text for bytes_in, count in [(header, zeros), *more]
              for text in (bytes_in.hex(), str(count))]
    producer = subprocess.Popen([sys.executable, "-c", HEADER_THEN_ZEROS] + pieces,
                                stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    middle = subprocess.Popen(command, stdin=producer.stdout, stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, env=env)
    consumer = subprocess.Popen([sys.executable, "-c", CONSUMER], stdin=middle.stdout,
                                stdout=subprocess.PIPE)
    producer.stdout.close()
    middle.stdout.close()
    peak = 0
    # The command stays a zombie until waited for, so its status file outlives its last page.
    while os.waitid(os.P_PID, middle.pid, os.WEXITED | os.WNOHANG | os.WNOWAIT) is None:
        peak = max(peak, high_water_kib(middle.pid))
        time.sleep(0.005)
    seen = int(consumer.communicate()[0] or 0)
    status = middle.wait()
    producer.wait()
    return peak, status, seen


def hostile(tail_seconds=59, tail_rate=1000000, tail_channels=8, settings=100):
    """Peak memory of hostile streams against the same run with nothing in them: an ignored
    payload of 300 MB, one declaring 4 GiB, a tail of 59 s at 1 MHz x 8 channels (32-bit
    float), plain and chunked, and 100 settings messages of 4 MiB before any audio, which the
    VST 2 plug-in opened afresh for the format's rate is given again."""
    need_identity()
    env = identity_env()
    chunked = identity_process() + ["--protocol", "chunked"]
    stereo_format = struct.pack("<7I", 3, 20, RATE, 2, 3, 2, 3)
    tail_env = dict(env)
    tail_env["TEST_EFFECT"] = "inputs=%d,outputs=%d,hum,tail=%d" % (
        tail_channels, tail_channels, tail_seconds * tail_rate)
    silent_env = dict(env)
    silent_env["TEST_EFFECT"] = "inputs=%d,outputs=%d" % (tail_channels, tail_channels)
    wide = [ADAPTER, "process", "--vst", IDENTITY, "--vst-version", "2", "--rate", str(tail_rate),
            "--channels", str(tail_channels), "--bits", "32", "--formattag", "3"]
    wide_format = struct.pack("<7I", 3, 20, tail_rate, tail_channels, 0, tail_channels, 0)
    tail_bytes = tail_seconds * tail_rate * tail_channels * 4
    # Another rate than --rate: the plug-in is opened afresh and given the messages again.
    audio = 1000 * 4
    reopen_then_audio = struct.pack("<7I2I", 3, 20, 48000, 2, 3, 2, 3, 1, audio) + bytes(audio)
    chunks_env = dict(env)
    chunks_env["TEST_EFFECT"] = "chunks"
    settings_messages = [(struct.pack("<2I", 2, 4 * MIB), 4 * MIB)] * (settings - 1)
    cases = [
        # name, command, environment, header, zeros, idle header, idle environment, least output
        ("ignored 300 MB payload (code 5)", chunked, env,
         stereo_format + struct.pack("<2I", 5, 300 * 1000 * 1000), 300 * 1000 * 1000,
         stereo_format, env, 0),
        ("declared 4 GiB payload (code 4)", chunked, env,
         stereo_format + struct.pack("<2I", 4, 0xFFFFFFFF), 0xFFFFFFFF, stereo_format, env, 0),
        ("%d s tail, plain" % tail_seconds, wide, tail_env, b"", 0, b"", silent_env, tail_bytes),
        ("%d s tail, chunked" % tail_seconds, wide + ["--protocol", "chunked"], tail_env,
         wide_format + struct.pack("<2I", 4, 0), 0, wide_format + struct.pack("<2I", 4, 0),
         silent_env, tail_bytes),
        ("%d x 4 MiB settings (code 2)" % settings, chunked, chunks_env,
         struct.pack("<2I", 2, 4 * MIB), 4 * MIB, reopen_then_audio, chunks_env, audio,
         settings_messages + [(reopen_then_audio, 0)]),
    ]
    print("hostile: peak resident set (VmHWM) against the same command with an idle stream")
    print("  %-36s %10s %10s %10s %9s" % ("case", "idle", "peak", "growth", "output"))
    worst = 0
    for name, command, case_env, header, zeros, idle_header, idle_env, least, *more in cases:
        idle, idle_status, _ = peak_rss(command, idle_header, 0, idle_env)
        peak, status, seen = peak_rss(command, header, zeros, case_env, *more)
        if idle_status != 0 or status != 0 or seen < least:
            sys.exit("%s: status %d, %d bytes of output" % (name, status, seen))
        # The settings messages may cost the largest of them on top.
        worst = max(worst, peak - idle - (4 * MIB // 1024 if more else 0))
        print("  %-36s %7d KiB %7d KiB %+7d KiB %6.0f MB" % (name, idle, peak, peak - idle, seen / 1e6))
    print("  largest growth beyond the largest settings message: %+d KiB   target: within 16 MB "
          "(16384 KiB)" % worst)


REALTIME_PLUGINS = ["/usr/lib/vst/ZaMultiCompX2-vst.so", "/usr/lib/vst/ZamVerb-vst.so"]


def realtime(seconds=60, runs=3):
    """A minute of stereo sound through real stereo plug-ins: audio seconds per wall second."""
    env = quiet_env()
    with tempfile.TemporaryDirectory(prefix="bench-realtime-") as directory:
        path = os.path.join(directory, "minute.raw")
        with open(path, "wb") as out:
            out.write(sound(seconds))
        print("realtime: %d s of 16-bit stereo at %d Hz, whole process (start-up included), "
              "median of %d runs" % (seconds, RATE, runs))
        for plugin in REALTIME_PLUGINS:
            if not os.path.exists(plugin):
                print("  %-44s not installed" % plugin)
                continue
            walls = []
            for _ in range(runs):
                with open(path, "rb") as source:
                    start = time.perf_counter()
                    run = subprocess.run([ADAPTER, "process", "--vst", plugin, "--vst-version", "2",
                                          "--rate", str(RATE), "--channels", "2", "--bits", "16"],
                                         stdin=source, stdout=subprocess.PIPE,
                                         stderr=subprocess.DEVNULL, env=env)
                    walls.append(time.perf_counter() - start)
                if run.returncode != 0 or len(run.stdout) < os.path.getsize(path):
                    sys.exit("%s: process failed (%d, %d bytes out)"
                             % (plugin, run.returncode, len(run.stdout)))
            elapsed = statistics.median(walls)
            print("  %-44s %6.2f s wall  real-time factor %6.1fx" % (plugin, elapsed, seconds / elapsed))



# Plug-ins shipped as both builds (/usr/lib/vst/NAME-vst.so, /usr/lib/vst3/NAME.vst3), with
# their channel count: a multiband compressor, and a light equaliser where the bridge's share of
# the work is largest.
BRIDGE_PLUGINS = [("ZaMultiCompX2", 2), ("ZamEQ2", 1)]


def run_wall(command, env, source):
    """Wall seconds of `command` with standard input from the open file `source`, output
    discarded. (Wall rather than CPU time: for runs this short, the child's CPU times on a shared
    VM swing by more than the difference looked for.)"""
    start = time.perf_counter()
    run = subprocess.run(command, env=env, stdin=source, stdout=subprocess.DEVNULL,
                         stderr=subprocess.DEVNULL, check=False)
    elapsed = time.perf_counter() - start
    if run.returncode != 0:
        sys.exit("bridge: %s failed with status %d" % (" ".join(command), run.returncode))
    return elapsed


def bridge(seconds=60, runs=21):
    """The same plug-in through its VST 2 build and, bridged, its VST 3 build: a minute of
    16-bit audio, and an empty input for the start-up alone, all four interleaved."""
    env = quiet_env()
    print("bridge: %d s of 16-bit audio at %d Hz, VST 2 build vs VST 3 build (bridged), "
          "median of %d interleaved runs" % (seconds, RATE, runs))
    print("  %-14s %-20s %9s %9s %8s" % ("plug-in", "", "VST 2", "VST 3", "ratio"))
    with tempfile.TemporaryDirectory(prefix="bench-bridge-") as directory:
        empty = os.path.join(directory, "empty.raw")
        open(empty, "wb").close()
        for name, channels in BRIDGE_PLUGINS:
            builds = [("2", "/usr/lib/vst/%s-vst.so" % name), ("3", "/usr/lib/vst3/%s.vst3" % name)]
            if not all(os.path.exists(path) for _, path in builds):
                print("  %-14s not installed (both builds are needed)" % name)
                continue
            minute = os.path.join(directory, "minute-%d.raw" % channels)
            if not os.path.exists(minute):
                with open(minute, "wb") as out:
                    out.write(sound(seconds, channels))
            commands = {version: [ADAPTER, "process", "--vst", path, "--vst-version", version,
                                  "--rate", str(RATE), "--channels", str(channels), "--bits", "16"]
                        for version, path in builds}
            # Timed runs discard the output: make sure once that every build gives it all.
            for version, command in commands.items():
                with open(minute, "rb") as stream:
                    run = subprocess.run(command, stdin=stream, stdout=subprocess.PIPE,
                                         stderr=subprocess.DEVNULL, env=env)
                if run.returncode != 0 or len(run.stdout) < os.path.getsize(minute):
                    sys.exit("bridge: %s, VST %s: process failed (%d, %d bytes out)"
                             % (name, version, run.returncode, len(run.stdout)))
            # (version, input) -> wall seconds
            timings = {(version, source): [] for version in commands for source in (minute, empty)}
            for _ in range(runs):
                for (version, source), samples in timings.items():
                    with open(source, "rb") as stream:
                        samples.append(run_wall(commands[version], env, stream))

            whole = [statistics.median(timings[(v, minute)]) for v in ("2", "3")]
            start = [statistics.median(timings[(v, empty)]) for v in ("2", "3")]
            # Start-up apart: what the blocks cost, where the bridge works.
            blocks = [w - s for w, s in zip(whole, start)]
            rows = [("whole run", whole, "   target: <= 1.05x"), ("start-up (no audio)", start, ""),
                    ("blocks (difference)", blocks, "")]
            for number, (label, (vst2, vst3), note) in enumerate(rows):
                print("  %-14s %-20s %8.3fs %8.3fs %7.3fx%s"
                      % (name if number == 0 else "", label, vst2, vst3, vst3 / vst2, note))


# Light plug-ins, with the channel count they process.
LIGHT_PLUGINS = [("/usr/lib/vst/3BandEQ-vst.so", 2), ("/usr/lib/vst/ZamEQ2-vst.so", 1),
                 ("/usr/lib/vst/lsp-plugins/compressor-stereo.so", 2)]


def light(seconds=480, runs=7):
    """8 minutes of 16-bit audio through light plug-ins: vst-adapter process against
    bench/minimal_host (load, convert, processReplacing, convert back; nothing else) on the same
    bytes, interleaved. Whole process wall time, start-up included."""
    host = os.path.join(BUILD, "bench", "minimal_host")
    env = quiet_env()
    print("light: %d s of 16-bit audio at %d Hz, file in, output discarded, median of %d "
          "interleaved runs" % (seconds, RATE, runs))
    print("  %-50s %9s %9s %7s" % ("plug-in", "adapter", "minimal", "ratio"))
    with tempfile.TemporaryDirectory(prefix="bench-light-") as directory:
        for plugin, channels in LIGHT_PLUGINS:
            if not os.path.exists(plugin):
                print("  %-50s not installed" % plugin)
                continue
            path = os.path.join(directory, "sound-%d.raw" % channels)
            if not os.path.exists(path):
                with open(path, "wb") as out:
                    out.write(sound(seconds, channels))
            ours = [ADAPTER, "process", "--vst", plugin, "--vst-version", "2", "--rate", str(RATE),
                    "--channels", str(channels), "--bits", "16"]
            reference = [host, plugin, str(RATE)]
            # Timed runs discard the output: make sure once that both give all of it.
            for command in (ours, reference):
                with open(path, "rb") as stream:
                    run = subprocess.run(command, stdin=stream, stdout=subprocess.PIPE,
                                         stderr=subprocess.DEVNULL, env=env)
                if run.returncode != 0 or len(run.stdout) < os.path.getsize(path):
                    sys.exit("light: %s failed (%d, %d bytes out)"
                             % (command[0], run.returncode, len(run.stdout)))
            walls = {"ours": [], "reference": []}
            for _ in range(runs):
                for name, command in (("ours", ours), ("reference", reference)):
                    with open(path, "rb") as stream:
                        walls[name].append(run_wall(command, env, stream))
            a, m = statistics.median(walls["ours"]), statistics.median(walls["reference"])
            print("  %-50s %8.3fs %8.3fs %6.2fx   target: <= 1.1x" % (plugin, a, m, a / m))


def converter(minimum=2e9):
    """Every conversion kernel, read and write, float and double, 1 to 8 channels
    (bench/converter_bench): the slowest channel count of each, in stream bytes per second."""
    import json
    program = os.path.join(BUILD, "bench", "converter_bench")
    if not os.path.exists(program):
        print("converter: %s not built (Google Benchmark missing)" % program)
        return
    run = subprocess.run([program, "--benchmark_format=json", "--benchmark_min_time=0.1",
                          "--benchmark_filter=Stream<"], stdout=subprocess.PIPE,
                         stderr=subprocess.DEVNULL, check=True)
    names = ["8-bit", "16-bit", "24-bit", "32-bit int", "32-bit float", "64-bit float"]
    slowest = {}
    for row in json.loads(run.stdout)["benchmarks"]:
        kernel, encoding, channels = row["name"].split("/")
        key = (kernel, int(encoding.split(":")[1]))
        rate = row["bytes_per_second"]
        if key not in slowest or rate < slowest[key][0]:
            slowest[key] = (rate, channels.split(":")[1])
    kernels = ["readStream<float>", "writeStream<float>", "readStream<double>",
               "writeStream<double>"]
    print("converter: slowest of 1-8 channels, GB/s of stream bytes (channels)   target: >= %.0f"
          % (minimum / 1e9))
    print("  %-13s" % "" + "".join("%-21s" % k for k in kernels))
    below = 0
    for index, name in enumerate(names):
        cells = []
        for kernel in kernels:
            rate, channels = slowest[(kernel, index)]
            below += rate < minimum
            cells.append("%-21s" % ("%6.2f (%s)%s" % (rate / 1e9, channels,
                                                      " *" if rate < minimum else "")))
        print("  %-13s" % name + "".join(cells))
    print("  kernels below target (*): %d of %d" % (below, len(slowest)))


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


def scan(runs=3):
    """'scan' of every installed plug-in with one job and with all cores, against 'test' on each
    file one after another; the rescan from the cache against the first scan that fills it."""
    roots = [root for root in ("/usr/lib/vst", "/usr/lib/vst3") if os.path.isdir(root)]
    if not roots:
        print("scan: no plug-ins installed")
        return
    env = quiet_env()
    command = [ADAPTER, "scan"] + [word for root in roots for word in ("--vst", root)]
    listed = subprocess.run(command, env=env, capture_output=True, text=True, check=True).stdout
    lines = [json.loads(line) for line in listed.splitlines()]
    # One 'test' per file, as a parent without the scan would run it; VST 3 classes share a file.
    files = list(dict.fromkeys((line["path"], line["kind"]) for line in lines))
    tests = [[ADAPTER, "test", "--vst", path, "--vst-version", kind[-1]] for path, kind in files]
    cores = os.cpu_count() or 1
    cache = os.path.join(tempfile.mkdtemp(prefix="bench-scan-"), "cache.json")
    atexit.register(shutil.rmtree, os.path.dirname(cache), True)
    times = {"test": [], "jobs 1": [], "all cores": [], "first": [], "cached": []}
    for _ in range(runs):
        times["test"].append(sum(timed(test, env=env) for test in tests))
        times["jobs 1"].append(timed(command + ["--jobs", "1"], env=env))
        times["all cores"].append(timed(command + ["--jobs", str(cores)], env=env))
        if os.path.exists(cache):
            os.remove(cache)
        times["first"].append(timed(command + ["--cache", cache], env=env))
        times["cached"].append(timed(command + ["--cache", cache], env=env))
    median = {name: statistics.median(samples) for name, samples in times.items()}
    statuses = {}
    for line in lines:
        statuses[line["status"]] = statuses.get(line["status"], 0) + 1
    print("scan: %d files, %d lines (%s), %d cores, median of %d runs, interleaved"
          % (len(files), len(lines), ", ".join("%d %s" % (n, s) for s, n in sorted(statuses.items())),
             cores, runs))
    print("  %-40s %8.2fs %6.2fx" % ("'test' on each file in turn", median["test"], 1.0))
    print("  %-40s %8.2fs %6.2fx" % ("scan --jobs 1", median["jobs 1"], median["jobs 1"] / median["test"]))
    print("  %-40s %8.2fs %6.2fx" % ("scan --jobs %d" % cores, median["all cores"],
                                      median["all cores"] / median["test"]))
    print("  %-40s %8.2fs %6.2fx" % ("first scan with --cache", median["first"], 1.0))
    print("  %-40s %8.2fs %6.2fx" % ("rescan from the cache", median["cached"],
                                      median["cached"] / median["first"]))


def loadable_effects(env):
    """(path, kind) of every installed plug-in that 'scan' loads, one per file."""
    roots = [root for root in ("/usr/lib/vst", "/usr/lib/vst3") if os.path.isdir(root)]
    if not roots:
        return []
    listed = subprocess.run([ADAPTER, "scan"] + [w for root in roots for w in ("--vst", root)],
                            env=env, capture_output=True, text=True, check=True).stdout
    return list(dict.fromkeys((line["path"], line["kind"])
                              for line in map(json.loads, listed.splitlines())
                              if line["status"] == "ok"))


def validate(sample=12):
    """'validate' at level 1 and level 2: seconds per plug-in over a spread sample of the installed
    effects (every plug-in 'scan' loads, taken at even steps through the list)."""
    env = quiet_env()
    loaded = loadable_effects(env)
    if not loaded:
        print("validate: no plug-ins installed")
        return
    step = max(1, len(loaded) // sample)
    chosen = loaded[::step][:sample]
    print("validate: %d of %d loadable plug-ins, seconds per plug-in" % (len(chosen), len(loaded)))
    for level in ("1", "2"):
        times = [timed([ADAPTER, "validate", "--vst", path, "--vst-version", kind[-1], "--level",
                        level], env=env) for path, kind in chosen]
        print("  level %s: median %6.2fs, mean %6.2fs, longest %6.2fs (%s)"
              % (level, statistics.median(times), statistics.mean(times), max(times),
                 os.path.basename(chosen[times.index(max(times))][0])))


def realtime_watch(sample=8, runs=5, calls=4096):
    """The realtime-safety check's cost: the same process calls in its probe with the watch on
    (every allocation, lock and blocking call intercepted) and off, as real-time factors, over
    a spread sample of the installed effects that pass it."""
    probe = os.path.join(os.path.dirname(ADAPTER), "vst-adapter-realtime-probe")
    env = quiet_env()
    loaded = loadable_effects(env)
    if not os.path.exists(probe) or not loaded:
        print("realtime_watch: no probe in this build, or no plug-ins installed")
        return
    frames = calls * 512 / 44100.0

    def factor(path, kind, watch):
        done = subprocess.run([probe, "probe", "--vst", path, "--vst-version", kind[-1], "--level",
                               "2", "--warm-up", "16", "--calls", str(calls), "--watch", watch],
                              env=env, capture_output=True, text=True)
        lines = done.stdout.split()
        return frames / float(lines[-1]) if done.returncode == 0 and lines else None

    rows = []
    for path, kind in loaded[::max(1, len(loaded) // (sample * 2))]:
        if len(rows) == sample:
            break
        if factor(path, kind, "1") is None:
            continue  # caught something: its watched run stops early
        watched, plain = [], []
        for _ in range(runs):
            watched.append(factor(path, kind, "1"))
            plain.append(factor(path, kind, "0"))
        rows.append((os.path.basename(path), statistics.median(plain), statistics.median(watched)))
    print("realtime_watch: %d calls of 512 frames in the probe, median of %d runs, interleaved"
          % (calls, runs))
    print("  %-28s %12s %12s %8s" % ("plug-in", "unwatched", "watched", "ratio"))
    for name, plain, watched in rows:
        print("  %-28s %11.0fx %11.0fx %7.2fx" % (name[:28], plain, watched, watched / plain))
    if rows:
        print("  median ratio watched/unwatched: %.2fx"
              % statistics.median(w / p for _, p, w in rows))


ALL = {"startup": startup, "pipe": pipe, "memory": memory, "hostile": hostile, "realtime": realtime,
       "network": network, "bridge": bridge, "light": light, "converter": converter, "scan": scan,
       "validate": validate, "realtime_watch": realtime_watch}

if __name__ == "__main__":
    unknown = [name for name in SECTIONS if name not in ALL]
    if unknown:
        sys.exit("unknown section %s; sections: %s" % (", ".join(unknown), " ".join(ALL)))
    for name in SECTIONS or ALL:
        ALL[name]()
