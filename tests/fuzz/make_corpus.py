#!/usr/bin/env python3
"""Writes the seed corpus of chunked_framing_fuzzer into tests/fuzz/corpus (run once; the files
are committed). Byte 0 of each file is the fuzzer's set-up byte (tests/fuzz/README.md)."""
import math
import os
import struct

HERE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus")

S16 = 0x01            # 16-bit integer, 32-bit processing, no format on the command line
S16_LINE = 0x11       # the same with "--rate 44100 --channels 2"
F32_DOUBLE = 0x0C     # 32-bit float stream, "--float64 1"
S24_SIX = 0x42        # 24-bit, six pins
S16_CHUNKS = 0x81     # 16-bit, the plug-in takes settings chunks


def chunk(code, payload=b""):
    return struct.pack("<II", code, len(payload)) + payload


def fmt(rate=44100, inputs=2, in_mask=3, outputs=2, out_mask=3):
    return chunk(3, struct.pack("<5I", rate, inputs, in_mask, outputs, out_mask))


def s16(frames, channels=2):
    return b"".join(struct.pack("<h", int(12000 * math.sin(i / 7))) for i in range(frames * channels))


SEEDS = {
    "format": bytes([S16]) + fmt(),
    "audio": bytes([S16]) + fmt() + chunk(1, s16(16)),
    "audio-command-line-format": bytes([S16_LINE]) + chunk(1, s16(20)),
    "audio-float-double": bytes([F32_DOUBLE]) + fmt(48000) +
        chunk(1, b"".join(struct.pack("<f", math.sin(i / 5)) for i in range(24))),
    "audio-24-bit-six": bytes([S24_SIX]) + fmt(48000, 6, 0x3F, 6, 0x3F) + chunk(1, bytes(range(54))),
    "tail": bytes([S16]) + fmt() + chunk(1, s16(8)) + chunk(4),
    "reopen": bytes([S16]) + fmt() + chunk(5) + fmt() + chunk(1, s16(4)),
    "state": bytes([S16_CHUNKS]) + fmt() + chunk(2, b"TEch" + struct.pack("<If", 1, 0.5)) + chunk(1, s16(4)),
    "huge-length": bytes([S16]) + fmt() + struct.pack("<II", 1, 0xFFFFFFFF) + b"\x01\x02\x03",
    "garbage": bytes([0x5A, 0x03, 0x00, 0x00, 0x00, 0xFF, 0x13, 0x9C, 0x44, 0x01, 0xE7, 0x00, 0x80,
                      0x7F, 0x02, 0x00, 0x00, 0x00, 0x04, 0x00]),
}

if __name__ == "__main__":
    os.makedirs(HERE, exist_ok=True)
    for name, data in SEEDS.items():
        with open(os.path.join(HERE, name), "wb") as out:
            out.write(data)
    print("wrote %d seeds to %s" % (len(SEEDS), HERE))
