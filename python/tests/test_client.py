import os
import shutil
import signal
import struct
import subprocess
import sys
import time
import tracemalloc
from pathlib import Path

import numpy as np
import pytest

import vst_adapter as va

BUILD = Path(__file__).resolve().parents[2] / "build" / "dev"
BINARY = os.environ.get("VST_ADAPTER", str(BUILD / "vst-adapter"))
TEST_EFFECT = os.environ.get("TEST_EFFECT_PATH", str(BUILD / "tests" / "plugins" / "test_effect.so"))
TEST_VST3 = str(Path(TEST_EFFECT).with_name("test_vst3.so"))
COMP_VST2, COMP_VST3 = "/usr/lib/vst/ZamCompX2-vst.so", "/usr/lib/vst3/ZamCompX2.vst3"


def installed(path, *values):
    return pytest.param(path, *values, marks=pytest.mark.skipif(not os.path.exists(path), reason="not installed"))


@pytest.fixture(autouse=True)
def environment(monkeypatch, tmp_path):
    monkeypatch.setenv("VST_ADAPTER", BINARY)
    monkeypatch.setenv("HOME", str(tmp_path))  # plug-ins may write there
    monkeypatch.setenv("TEST_EFFECT_LOG", str(tmp_path / "log"))
    for name in ("TEST_EFFECT", "TEST_VST3"):
        monkeypatch.delenv(name, raising=False)


def noise(frames=3000, dtype=np.float32):
    audio = np.random.default_rng(7).uniform(-0.9, 0.9, (frames, 2))
    return (audio * 2.0 ** (8 * np.dtype(dtype).itemsize - 1) if np.dtype(dtype).kind == "i" else audio).astype(dtype)


def gone(log, seconds=3.0):
    """Whether every child the test plug-in spawned has ended (zombies count as ended)."""
    pids = [line.split()[1] for line in log.read_text().splitlines() if line.startswith("spawned")]
    def alive(pid):
        stat = Path(f"/proc/{pid}/stat")
        return stat.exists() and stat.read_text().rsplit(")", 1)[1].split()[0] != "Z"
    end = time.monotonic() + seconds
    while any(map(alive, pids)) and time.monotonic() < end:
        time.sleep(0.02)
    return pids and not any(map(alive, pids))


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


class Interrupted(Exception):
    pass


def interrupt(*_):
    raise Interrupted()


@pytest.mark.parametrize("words, stage, failure, message", [
    ("spawn,crash", "process", va.PluginError, "VST crashed with SIGSEGV (stage: processing)\n"
                                               "the worker was killed by SIGSEGV (exit status -11)"),
    ("spawn,hang-at=process", "process", va.PluginTimeout, "no answer within 1 s"),
    ("spawn,hang-at=process", "interrupt", Interrupted, ""),
    ("spawn,hang-at=open", "open", va.PluginTimeout, "no answer within 1 s"),
    ("spawn,hang-at=close", "close", va.PluginTimeout, "no answer within 1 s"),
    ("spawn,hang-at=open", "command", va.PluginTimeout, "no answer within 1 s"),
])
def test_a_failed_call_leaves_no_process_and_no_reply_for_later_calls(monkeypatch, tmp_path, words, stage,
                                                                       failure, message):
    monkeypatch.setenv("TEST_EFFECT", words)
    plugin = va.Plugin(TEST_EFFECT, 44100, 2, timeout=1)
    calls = {"process": lambda: plugin.process(noise()), "interrupt": lambda: plugin.process(noise()),
             "open": plugin.open, "close": lambda: (plugin.open(), plugin.close()),
             "command": lambda: va.info(TEST_EFFECT, timeout=1)}
    signal.signal(signal.SIGALRM, interrupt)
    signal.setitimer(signal.ITIMER_REAL, 0.3 if stage == "interrupt" else 0)
    with pytest.raises(failure) as raised:
        calls[stage]()
    assert message in str(raised.value)
    assert gone(tmp_path / "log")  # the plug-in's own child too
    if stage in ("process", "interrupt", "close"):
        with pytest.raises(va.PluginError, match=r"open\(\) it"):
            plugin.process(noise())
    monkeypatch.delenv("TEST_EFFECT")
    plugin.reopen()
    assert np.array_equal(plugin.process(noise(512)), noise(512))
    plugin.close()


def test_plugins_dropped_or_left_open_at_exit_are_reaped_without_warnings(tmp_path):
    script = ("import gc, numpy as np, vst_adapter as va\n"
              f"kept, dropped = va.Plugin({TEST_EFFECT!r}, 44100, 2), va.Plugin({TEST_EFFECT!r}, 44100, 2)\n"
              "kept.open(); dropped.process(np.zeros((64, 2), np.float32)); del dropped; gc.collect()\n")
    done = subprocess.run([sys.executable, "-W", "error", "-c", script], capture_output=True, text=True,
                          env={**os.environ, "TEST_EFFECT": "spawn"}, cwd=Path(va.__file__).parents[1])
    assert (done.returncode, done.stderr) == (0, "")
    assert gone(tmp_path / "log")


@pytest.mark.parametrize("path", [installed("/usr/lib/vst/ZynReverb.so"), installed("/usr/lib/vst/ZamHeadX2-vst.so")])
def test_streaming_gives_what_one_process_gives_whatever_the_block_sizes(path):
    audio = noise(20000)
    with va.Plugin(path, 48000, 2) as plugin:
        whole = np.concatenate([plugin.process(audio), plugin.tail()])
    with va.Plugin(path, 48000, 2) as plugin:
        streamed = np.concatenate(list(plugin.stream(np.split(audio, [1000, 1037, 4000, 9999, 10000, 18000]))))
    assert np.array_equal(streamed, whole)


@pytest.fixture
def vst3_copy(tmp_path):
    return str(shutil.copy(TEST_VST3, tmp_path / "Test.vst3"))


@pytest.mark.parametrize("kind, state, key, values, gain, gain_text", [
    ("vst2", struct.pack("<3f", 0.5, 0.1, 0.2), "Param1", [0.5, 0.25, 0.2], 0.5, "0.500 x"),
    ("vst3", struct.pack("<Id", 7, 1.0), 100, [0.5, 1.0], -1.0, " "),  # sparse ids: 100, 7
])
def test_parameters_set_by_name_or_number_are_heard_and_listed(monkeypatch, vst3_copy, kind, state, key, values,
                                                               gain, gain_text):
    monkeypatch.setenv("TEST_EFFECT", "params=3")
    plugin = va.load_plugin(TEST_EFFECT if kind == "vst2" else vst3_copy, timeout=10)
    plugin.set_state(state)
    plugin.set_parameters({key: 0.25})
    plugin.parameters["Gain"] = 0.5
    assert [parameter.value for parameter in plugin.parameters()] == values
    assert f"{plugin.parameters['Gain'].text} {plugin.parameters['Gain'].unit}" == gain_text
    audio = noise(600)
    assert np.allclose(plugin(audio, 44100)[:600], audio * gain)
    plugin.parameters["Gain"] = 0.25  # to the running worker
    assert np.allclose(plugin(audio, 44100, reset=False)[:600], audio * gain / 2)


def test_calling_a_plugin_processes_whole_arrays_in_their_format(monkeypatch):
    monkeypatch.setenv("TEST_EFFECT", "delay=100")
    plugin = va.load_plugin(TEST_EFFECT)
    stereo, silence = noise(1000), np.zeros((100, 2), np.float32)
    assert np.array_equal(plugin(stereo, 44100), np.concatenate([silence, stereo]))
    assert np.array_equal(plugin(stereo, 44100), np.concatenate([silence, stereo]))  # reset between calls
    assert np.array_equal(plugin(stereo[:, 0], 48000), np.concatenate([silence, stereo])[:, 0])
    plugin.process(stereo[:, :1])
    plugin.reset()
    assert not plugin.process(stereo[:, :1])[:100].any()


@pytest.mark.parametrize("dtype", [np.int16, np.int32, np.float32, np.float64])
def test_processing_an_array_peaks_within_three_times_its_size(dtype):
    audio = noise(300_000, dtype)
    with va.Plugin(TEST_EFFECT, 44100, 2) as plugin:
        tracemalloc.start()
        out = plugin(audio, 44100)
        peak = tracemalloc.get_traced_memory()[1]
        tracemalloc.stop()
    assert out.dtype == dtype and peak <= 2 * audio.nbytes  # the input itself is the third


@pytest.mark.parametrize("words, path, call, failure, message", [
    ("", TEST_EFFECT, lambda plugin: plugin.process(noise().astype(np.uint8)), ValueError, "sample type uint8"),
    ("", TEST_EFFECT, lambda plugin: plugin.process(noise()[:, :1]), ValueError, r"\(frames, 2\), not \(3000, 1\)"),
    ("", TEST_EFFECT, lambda plugin: (plugin.close(), plugin.process(noise())), va.PluginError, "closed"),
    ("", __file__, lambda plugin: plugin.process(noise()), va.PluginError, "Could not open VST"),
    ("", TEST_EFFECT, lambda plugin: plugin.set_parameters({"Volume": 0.5}), KeyError, "no parameter 'Volume'"),
    ("", TEST_EFFECT, lambda plugin: plugin.set_parameters({0: 2}), ValueError, "2 is not between 0 and 1"),
    ("chunks", TEST_EFFECT, lambda plugin: plugin.set_parameters({0: 0.5}), va.PluginError, "did not take"),
])
def test_bad_input_raises_a_clear_error(monkeypatch, words, path, call, failure, message):
    monkeypatch.setenv("TEST_EFFECT", words)
    plugin = va.Plugin(path, 44100, 2, timeout=10)
    with pytest.raises(failure, match=message):
        call(plugin)
    plugin.close()


def test_scan_and_validate_report_as_data(tmp_path):
    shutil.copy(TEST_EFFECT, tmp_path / "good.so")
    (tmp_path / "notes.so").write_text("not a plug-in")
    found = va.scan(tmp_path, timeout=5)
    assert [(Path(p["path"]).name, p["status"]) for p in found] == [("good.so", "ok"), ("notes.so", "failed")]
    assert found[0]["name"] == "Test Effect"
    report = va.validate(tmp_path / "good.so", checks=["info", "determinism"], level=1)
    assert report["passed"] and [c["id"] for c in report["checks"]] == ["info", "determinism"]
    with pytest.raises(va.PluginError):
        va.scan(tmp_path / "missing")
