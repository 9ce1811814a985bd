"""Sample types: the arrays accepted, the encodings on the pipe, and conversion between them one
block at a time, so that no whole-array copy in another type is ever made."""

from __future__ import annotations

from typing import Any

import numpy as np
import numpy.typing as npt

Audio = npt.NDArray[Any]

# The plug-in is called with blocks of this many frames; audio sent in whole multiples of it
# reaches the plug-in in exactly the blocks that one message of the same audio would.
WORKER_BLOCK_FRAMES = 512
# Frames per audio message: whole worker blocks, few enough to bound memory per message.
MESSAGE_FRAMES = 16 * WORKER_BLOCK_FRAMES
# Stream encodings by --bits: numpy type and --formattag.
ENCODINGS: dict[int, tuple[np.dtype[Any], int]] = {16: (np.dtype("<i2"), 1), 32: (np.dtype("<f4"), 3), 64: (np.dtype("<f8"), 3)}
SAMPLE_TYPES = tuple(np.dtype(name) for name in ("int16", "int32", "float32", "float64"))


def checked(audio: object, channels: int) -> Audio:
    """`audio` as an array of a supported sample type shaped (frames, `channels`)."""
    array = np.asarray(audio)
    if array.dtype not in SAMPLE_TYPES:
        raise ValueError(f"unsupported sample type {array.dtype}: give int16, int32, float32 or "
                         "float64 samples")
    if array.ndim != 2 or array.shape[1] != channels:
        raise ValueError(f"audio must be shaped (frames, {channels}), not {array.shape}")
    return array


def convert(block: Audio, target: np.dtype[Any]) -> Audio:
    """One block in another sample type: integers are scaled by 2^(bits-1), and rounded half away
    from zero and clipped on the way to integers, as the worker converts them."""
    if block.dtype == target:
        return np.ascontiguousarray(block)
    samples = block / float(2 ** (8 * block.dtype.itemsize - 1)) if block.dtype.kind == "i" else block
    if target.kind == "f":
        return samples.astype(target)
    scale = float(2 ** (8 * target.itemsize - 1))
    scaled = np.asarray(samples, np.float64) * scale
    rounded = np.trunc(scaled + np.copysign(0.5, scaled))
    clipped: Audio = np.clip(rounded, -scale, scale - 1).astype(target)
    return clipped
