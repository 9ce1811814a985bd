#!/usr/bin/env python3
"""Runs generated audio through a real plug-in with "process" and summarises what came back."""
import math
import os
import struct
import subprocess
import sys
import tempfile
import time

ADAPTER = sys.argv[1]
PLUGIN = "/usr/lib/vst/lsp-plugins/compressor-stereo.so"
RATE, CHANNELS, SECONDS = 44100, 2, 5


def test_signal():
    """A loud-then-quiet 440/660 Hz chord, so a compressor has something to act on."""
    frames = []
    for i in range(RATE * SECONDS):
        t = i / RATE
        level = 0.9 if (t % 1.0) < 0.5 else 0.1
        left = level * math.sin(2 * math.pi * 440 * t)
        right = level * math.sin(2 * math.pi * 660 * t)
        frames.append(struct.pack("<hh", int(left * 32767), int(right * 32767)))
    return b"".join(frames)


def stats(data):
    samples = struct.unpack("<%dh" % (len(data) // 2), data)
    if not samples:
        return 0.0, 0.0
    peak = max(abs(s) for s in samples) / 32768
    rms = math.sqrt(sum(s * s for s in samples) / len(samples)) / 32768
    return peak, rms


def dbfs(value):
    return "-inf" if value <= 0 else "%.1f dBFS" % (20 * math.log10(value))


def latency():
    """The plug-in's latency as the chunked protocol reports it after an empty audio chunk."""
    record = struct.pack("<5I", RATE, CHANNELS, 3, CHANNELS, 3)
    stream = struct.pack("<II", 3, 20) + record + struct.pack("<II", 1, 0)
    out = subprocess.run([ADAPTER, "process", "--vst", PLUGIN, "--protocol", "chunked", "--bits", "16"],
                         input=stream, capture_output=True, env=quiet_env(), check=True).stdout
    return struct.unpack("<I", out[20:24])[0]


def quiet_env():
    env = dict(os.environ)
    env.pop("DISPLAY", None)
    env["HOME"] = tempfile.mkdtemp(prefix="vst-adapter-home-")
    return env


def main():
    if not os.path.exists(PLUGIN):
        sys.exit("%s is not installed (scripts/setup installs lsp-plugins-vst)" % PLUGIN)
    audio = test_signal()
    start = time.perf_counter()
    run = subprocess.run([ADAPTER, "process", "--vst", PLUGIN, "--rate", str(RATE), "--channels", str(CHANNELS),
                          "--bits", "16"], input=audio, capture_output=True, env=quiet_env())
    elapsed = time.perf_counter() - start
    if run.returncode != 0:
        sys.exit("process failed (%d): %s" % (run.returncode, run.stderr.decode(errors="replace")))
    in_peak, in_rms = stats(audio)
    out_peak, out_rms = stats(run.stdout)
    print("plug-in:     %s" % PLUGIN)
    print("audio:       %d s, %d Hz, %d channels, 16-bit (%d bytes in, %d bytes out)"
          % (SECONDS, RATE, CHANNELS, len(audio), len(run.stdout)))
    print("input:       peak %s, RMS %s" % (dbfs(in_peak), dbfs(in_rms)))
    print("output:      peak %s, RMS %s" % (dbfs(out_peak), dbfs(out_rms)))
    print("latency:     %d frames" % latency())
    print("speed:       %.1f s in %.3f s, %.0fx faster than real time" % (SECONDS, elapsed, SECONDS / elapsed))


if __name__ == "__main__":
    main()
