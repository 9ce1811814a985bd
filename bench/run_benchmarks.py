#!/usr/bin/env python3
"""Whole-program benchmarks: each figure is a ratio against a reference measured in the same run."""
import os
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


ALL = {"startup": startup}

if __name__ == "__main__":
    for name in SECTIONS or ALL:
        ALL[name]()
