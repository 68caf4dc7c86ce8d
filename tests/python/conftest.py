"""Shared by the package's tests: the package from the build folder, random
images of every depth, and the module called straight from C++ on the same
inputs (the reference helper the build makes beside the package)."""

import os
import struct
import subprocess
import sys

import numpy as np

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILD = os.path.abspath(os.environ.get("QEL_BUILD_DIR", os.path.join(ROOT, "build")))
sys.path.insert(0, os.path.join(BUILD, "python"))

import qelimaging as qi  # noqa: E402

REFERENCE = os.path.join(BUILD, "python", "qel_python_reference")
MODULE_FOLDER = os.path.join(BUILD, "_binLIN64")

# The depths every operation is compared at: (name, bit count, colour model).
DEPTHS = [("1", 1, qi.MONO), ("4", 4, qi.MONO), ("8", 8, qi.MONO), ("24", 24, qi.BGR), ("32", 32, qi.ARGB),
          ("mono32", 32, qi.MONO)]


def random_input(rng, width, height, bits, model, layout="plain"):
    """An input as a caller hands it: an array for 8, 24, 32 bits and int32
    "MONO" (padded rows or bottom-up rows on request), an Image at 1 and 4 bits."""
    if bits in (1, 4):
        image = qi.Image(width, height, bits, model)
        image.array[...] = rng.integers(0, 256, image.array.shape, dtype=np.uint8)
        return image
    if model == qi.MONO and bits == 32:
        full = rng.integers(-2 ** 31, 2 ** 31, (height, width + 2), dtype=np.int32)
    else:
        channels = {8: (), 24: (3,), 32: (4,)}[bits]
        full = rng.integers(0, 256, (height, width + 2) + channels, dtype=np.uint8)
    if layout == "padded":
        return full[:, :width]
    array = np.ascontiguousarray(full[:, :width])
    return array[::-1] if layout == "bottom-up" else array


def raw(image):
    """(width, height, bit count, the rows' bytes without padding) of an array or Image."""
    if isinstance(image, qi.Image):
        width, height, bits, view = image.width, image.height, image.bit_count, image.array
    else:
        view, (height, width) = image, image.shape[:2]
        bits = 8 * image.dtype.itemsize * (image.shape[2] if image.ndim == 3 else 1)
    return width, height, bits, b"".join(np.ascontiguousarray(row).tobytes() for row in view)


def record(image):
    """The helper's image record: int32 width, height, bit count and colour
    model, then raw()'s bytes; width -1 for None, 0 for "empty"."""
    if image is None or isinstance(image, str):
        return struct.pack("<4i", -1 if image is None else 0, 0, 0, 0)
    width, height, bits, rows = raw(image)
    model = (image._image.colour_model_code if isinstance(image, qi.Image)
             else qi.MONO if image.ndim == 2 else qi.BGR if bits == 24 else qi.ARGB)
    return struct.pack("<4i", width, height, bits, model) + rows


def reference(method, images, numbers):
    """Runs a method of the module from C++: images are arrays, Images, None
    or "empty". Returns (result code, [raw() of each image after the call],
    raw() of the delivered image), with None for a null pointer."""
    done = subprocess.run([REFERENCE, MODULE_FOLDER, method] + [repr(float(n)) for n in numbers],
                          input=b"".join(map(record, images)), capture_output=True, check=True)
    out, at, after = done.stdout, 4, []
    for _ in range(len(images) + 1):
        width, height, bits, _ = struct.unpack_from("<4i", out, at)
        size = (width * bits + 7) // 8 * height
        after.append(None if width < 0 else (width, height, bits, out[at + 16:at + 16 + size]))
        at += 16 + size
    assert at == len(out), "the helper's records do not add up"
    return struct.unpack_from("<i", out)[0], after[:-1], after[-1]
