#!/usr/bin/env python3
"""Runs a 16-bit WAV file through an installed plug-in, block by block, and writes the result
with the plug-in's tail. Extra arguments are a settings file, or parameters as NAME=VALUE
(normalised, 0 to 1):

    python3 process_wav.py /usr/lib/vst3/ZamCompX2.vst3 in.wav out.wav [settings-file] [Makeup=0.5 ...]
"""
import sys
import wave
from pathlib import Path

import numpy as np

import vst_adapter

BLOCK_FRAMES = 65536
# A plug-in that gives no answer for this long is taken as hung.
TIMEOUT_SECONDS = 60


def blocks(source: wave.Wave_read, channels: int):
    while frames := source.readframes(BLOCK_FRAMES):
        yield np.frombuffer(frames, "<i2").reshape(-1, channels)


def main(plugin_path: str, input_path: str, output_path: str, *settings: str) -> None:
    with wave.open(input_path, "rb") as source, wave.open(output_path, "wb") as target:
        if source.getsampwidth() != 2:
            sys.exit("only 16-bit WAV files are read here")
        channels, rate = source.getnchannels(), source.getframerate()
        target.setnchannels(channels)
        target.setsampwidth(2)
        target.setframerate(rate)
        with vst_adapter.Plugin(plugin_path, rate, channels, timeout=TIMEOUT_SECONDS) as plugin:
            for setting in settings:
                name, is_parameter, value = setting.partition("=")
                if is_parameter:
                    plugin.parameters[name] = float(value)
                else:
                    plugin.set_state(Path(setting).read_bytes())
            for processed in plugin.stream(blocks(source, channels)):
                target.writeframes(processed.astype("<i2").tobytes())
            print(f"latency: {plugin.latency} frames", file=sys.stderr)


if __name__ == "__main__":
    if len(sys.argv) < 4:
        sys.exit(__doc__)
    try:
        main(*sys.argv[1:])
    except (vst_adapter.PluginError, KeyError, ValueError) as error:
        sys.exit(f"plug-in failed: {error}")
