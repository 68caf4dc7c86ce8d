"""Shared by the package's tests: the package from the build folder, random
images of every depth, and the module called straight from C++ on the same
inputs (the reference helper the build makes beside the package)."""

import os
import subprocess
import sys

import numpy as np
import pytest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILD = os.path.abspath(os.environ.get("QEL_BUILD_DIR", os.path.join(ROOT, "build")))
sys.path.insert(0, os.path.join(BUILD, "python"))

import qelimaging as qi  # noqa: E402

REFERENCE = os.path.join(BUILD, "python", "qel_python_reference")
MODULE_FOLDER = os.path.join(BUILD, "_binLIN64")
ROW_BITS = {1: 1, 4: 4, 8: 8, 24: 24, 32: 32}

# The depths every operation is compared at: (name, bit count, colour model).
DEPTHS = [("1", 1, qi.MONO), ("4", 4, qi.MONO), ("8", 8, qi.MONO), ("24", 24, qi.BGR), ("32", 32, qi.ARGB),
          ("mono32", 32, qi.MONO)]


def row_bytes(width, bits):
    return (width * bits + 7) // 8


def random_input(rng, width, height, bits, model, layout="plain"):
    """An input as a caller hands it: an array for 8, 24, 32 bits and int32
    "MONO" (padded rows or bottom-up rows on request), an Image at 1 and 4 bits."""
    if bits in (1, 4):
        image = qi.Image(width, height, bits, model)
        image.array[...] = rng.integers(0, 256, image.array.shape, dtype=np.uint8)
        return image
    if model == qi.MONO and bits == 32:
        shape, dtype = (height, width + 2), np.int32
        full = rng.integers(-2 ** 31, 2 ** 31, shape, dtype=np.int64).astype(np.int32)
    else:
        channels = {8: (), 24: (3,), 32: (4,)}[bits]
        full = rng.integers(0, 256, (height, width + 2) + channels, dtype=np.uint8)
    if layout == "padded":
        return full[:, :width]
    array = np.ascontiguousarray(full[:, :width])
    return array[::-1] if layout == "bottom-up" else array


def image_bytes(image):
    """(bit count, the rows' bytes without padding) of an array or Image."""
    if isinstance(image, qi.Image):
        bits, view = image.bit_count, image.array
    else:
        view = image
        bits = 8 * view.dtype.itemsize * (view.shape[2] if view.ndim == 3 else 1)
    rows = [np.ascontiguousarray(view[y]).tobytes() for y in range(view.shape[0])]
    return bits, b"".join(rows)


def write_raw(image, path):
    if isinstance(image, qi.Image):
        width, height, bits, model = image.width, image.height, image.bit_count, image._image.colour_model_code
        palette = image.palette
    else:
        height, width = image.shape[:2]
        bits = image_bytes(image)[0]
        model = qi.MONO if image.ndim == 2 else (qi.BGR if bits == 24 else qi.ARGB)
        palette = []
    header = np.array([width, height, bits, np.uint32(model).view(np.int32), len(palette)], dtype=np.int32)
    with open(path, "wb") as out:
        out.write(header.tobytes())
        out.write(np.array(palette, dtype=np.uint8).tobytes())
        out.write(image_bytes(image)[1])


def read_raw(path):
    """(bit count, rows' bytes) of a file the helper wrote, or None."""
    if not os.path.exists(path):
        return None
    data = open(path, "rb").read()
    width, height, bits, _, palette = np.frombuffer(data[:20], dtype=np.int32)
    return int(bits), data[20 + 4 * int(palette):]


@pytest.fixture
def reference(tmp_path):
    """Runs a method of the module from C++: images are arrays, Images, None
    or "empty". Returns (result code, [each image after the call], result)."""
    counter = [0]

    def run(method, images, numbers):
        counter[0] += 1
        stem = str(tmp_path / ("call%d" % counter[0]))
        arguments = []
        for index, image in enumerate(images):
            if image is None or isinstance(image, str):
                arguments.append("none" if image is None else image)
            else:
                path = "%s.in%d" % (stem, index)
                write_raw(image, path)
                arguments.append(path)
        command = [REFERENCE, MODULE_FOLDER, method, stem] + arguments + ["--"] + [repr(float(n)) for n in numbers]
        done = subprocess.run(command, capture_output=True, text=True, check=True)
        after = [read_raw("%s.%d" % (stem, index)) for index in range(len(images))]
        return int(done.stdout), after, read_raw(stem + ".result")

    return run
