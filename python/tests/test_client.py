import os
import subprocess
from pathlib import Path

import numpy as np
import pytest

import vst_adapter as va

BUILD = Path(__file__).resolve().parents[2] / "build" / "dev"
BINARY = os.environ.get("VST_ADAPTER", str(BUILD / "vst-adapter"))
TEST_EFFECT = os.environ.get("TEST_EFFECT_PATH", str(BUILD / "tests" / "plugins" / "test_effect.so"))
COMP_VST2, COMP_VST3 = "/usr/lib/vst/ZamCompX2-vst.so", "/usr/lib/vst3/ZamCompX2.vst3"


def installed(path, *values):
    return pytest.param(path, *values, marks=pytest.mark.skipif(not os.path.exists(path), reason="not installed"))


@pytest.fixture(autouse=True)
def environment(monkeypatch, tmp_path):
    monkeypatch.setenv("VST_ADAPTER", BINARY)
    monkeypatch.setenv("HOME", str(tmp_path))  # plug-ins may write there
    monkeypatch.delenv("TEST_EFFECT", raising=False)


def noise(frames=3000, dtype=np.float32):
    audio = np.random.default_rng(7).uniform(-0.9, 0.9, (frames, 2))
    return (audio * 30000).astype(dtype) if dtype == np.int16 else audio.astype(dtype)


@pytest.mark.parametrize("path", [installed(COMP_VST2), installed(COMP_VST3)])
@pytest.mark.parametrize("dtype, bits, tag", [(np.int16, 16, 1), (np.float64, 64, 3)])
def test_output_and_tail_match_the_command_line(path, dtype, bits, tag):
    audio = noise(20000, dtype)  # more than one message, not a whole number of them
    with va.Plugin(path, 44100, 2, bits=bits) as plugin:
        through_python = np.concatenate([plugin.process(audio), plugin.tail()])
    command_line = subprocess.run(
        [BINARY, "process", "--vst", path, "--rate", "44100", "--channels", "2", "--bits", str(bits),
         "--formattag", str(tag), "--float64", "0"], input=audio.tobytes(), capture_output=True, check=True)
    assert through_python.dtype == dtype
    assert through_python.tobytes() == command_line.stdout


def test_a_crashing_worker_raises_and_python_goes_on(monkeypatch):
    monkeypatch.setenv("TEST_EFFECT", "crash")
    plugin = va.Plugin(TEST_EFFECT, 44100, 2)
    with pytest.raises(va.PluginError) as failure, plugin:
        plugin.process(noise())
    assert (failure.value.status, failure.value.message) == (
        -11, "VST crashed with SIGSEGV (stage: processing)\nthe worker was killed by SIGSEGV")
    with pytest.raises(va.PluginError):
        plugin.process(noise())
