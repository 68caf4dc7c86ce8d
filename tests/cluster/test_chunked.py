"""Chunked operations on Dask arrays against one call on the whole image: the
same bytes at every depth, for chunks of 256x192 and 100x77 pixels."""

import dask
import dask.array as da
import numpy as np
import pytest

import qelimaging as qi
from conftest import kill_a_worker_when
from qelimaging import cluster

WIDTH, HEIGHT = 1500, 1100
CHUNKS = {"256x192": (192, 256), "100x77": (77, 100)}

# Bit counts; "mono32" is 32-bit "MONO" integers.
DEPTHS = [1, 4, 8, 24, 32, "mono32"]

# Every operation that runs chunked, with parameters that exercise its
# reach: even sizes (reaching further up and left), 5x5 and larger kernels.
CASES = [(name, {}) for name in ("negative", "flip_bits", "grayscale", "blur", "soften", "sharpen", "emboss",
                                 "contour")] + [
    ("lut", {"table": [(v * 7 + 3) % 256 for v in range(256)]}),
    ("gamma", {"gamma": 1.4}),
    ("light", {"brightness": 20, "contrast": 30}),
    ("shift_rgb", {"red": 10, "green": -20, "blue": 5}),
    ("colorize", {"hue": 40, "saturation": 200}),
    ("set_image_alpha", {"alpha": 0}),
    ("set_image_alpha_transparency", {"alpha": 90, "key_colour": (0, 0, 0)}),
    ("set_image_transparent_pixel", {"key_colour": (255, 255, 255)}),
    ("threshold", {"level": 100}),
    ("gaussian_blur", {"level": 0}),
    ("gaussian_blur", {"level": 2}),
    ("filter", {"kernel": [[1, 2, 0, -1], [0, 3, 1, 0], [2, 0, 1, 1], [-1, 0, 0, 4]], "divisor": 5,
                "offset": 3}),
] + [(name, {"size": size}) for name, size in (("erode", 3), ("dilate", 4), ("edge", 5), ("median", 4),
                                               ("median", 5))]


def whole_image(depth, seed=19):
    """A 1500x1100 image: random pixels with flat patches, so that medians meet
    ties and the top-left pixel's colour recurs inside the image."""
    rng = np.random.default_rng(seed)
    if depth in (1, 4, 8):
        image = rng.integers(0, {1: 2, 4: 16, 8: 256}[depth], (HEIGHT, WIDTH), dtype=np.uint8)
    elif depth == "mono32":
        image = rng.integers(-2 ** 31, 2 ** 31, (HEIGHT, WIDTH), dtype=np.int64).astype(np.int32)
    else:
        image = rng.integers(0, 256, (HEIGHT, WIDTH, depth // 8), dtype=np.uint8)
        # few levels in places: keys tie between different colours and alphas
        image[::3, ::2] &= 0xC0
    image[200:260, 300:380] = image[0, 0]
    return image


@pytest.fixture(scope="module", autouse=True)
def two_threads():
    with dask.config.set(scheduler="threads", num_workers=2):
        yield


@pytest.mark.parametrize("depth", DEPTHS, ids=str)
def test_every_chunked_operation_gives_the_bytes_of_one_call(depth):
    image = whole_image(depth)
    bits = depth if depth in (1, 4) else None
    compared = []
    for name, params in CASES:
        if name in ("grayscale", "threshold") and depth == 8:
            continue  # refused chunked at 8 bits, below
        try:
            expected = cluster._from_image(getattr(qi, name)(cluster._to_image(image, bits), **params), WIDTH,
                                           bits)
        except qi.QelError:
            expected = None  # refused at this depth: so must every chunk be
        for label, chunks in CHUNKS.items():
            lazy = cluster.apply(da.from_array(image, chunks=chunks + image.shape[2:]), name, bit_count=bits,
                                 **params)
            if expected is None:
                with pytest.raises(qi.QelError):
                    lazy.compute()
            else:
                compared.append(("%s %r, chunks %s" % (name, params, label), expected, lazy))
    # One pass of the scheduler over every graph costs far less than one each.
    for (case, expected, _), got in zip(compared, dask.compute(*[lazy for _, _, lazy in compared])):
        assert got.shape == expected.shape and got.dtype == expected.dtype, case
        differ = np.argwhere(got != expected)
        assert differ.size == 0, "%s: first difference at %s" % (case, differ[0].tolist())


def test_reach_wider_than_a_chunk_is_still_exact():
    image = whole_image(24)[:90, :120]
    lazy = cluster.apply(da.from_array(image, chunks=(9, 5, 3)), "median", size=15)
    assert np.array_equal(lazy.compute(), qi.median(image, 15))


@pytest.mark.parametrize("bits, indices, packed", [(1, [1, 0, 1, 1, 0, 0, 0, 0, 1], [0xB0, 0x80]),
                                                    (4, [10, 3, 15], [0xA3, 0xF0])])
def test_palette_indices_pack_as_the_runtime_lays_out_rows(bits, indices, packed):
    image = cluster._to_image(np.array([indices], dtype=np.uint8), bits)
    assert image.array[0, :2].tolist() == packed
    assert cluster._from_image(image, len(indices), bits).tolist() == [indices]


def test_what_cannot_be_cut_says_why():
    colour = da.zeros((64, 64, 3), dtype=np.uint8, chunks=(32, 32, 3))
    for array, op, params, message in [
        (colour, "rotate", {"angle": 30}, "rotate cannot run chunk by chunk with the bytes of one call: "
                                          "each result pixel is sampled at a turned position anywhere in the "
                                          "image"),
        (colour, "noise", {}, "noise cannot run chunk by chunk with the bytes of one call: it draws from one "
                              "random sequence in pixel order across the whole image"),
        (colour, qi.swirl, {}, "swirl cannot run chunk by chunk with the bytes of one call: the deforms are "
                               "measured from the whole image's centre"),
        (colour, "median", {"size": 0}, "median: a size below 1 cannot be chunked: each pixel's result then "
                                        "depends on the one written before it"),
        (colour, "nothing", {}, "unknown or unchunkable operation 'nothing'"),
        (colour[:, :, 0], "grayscale", {}, "grayscale cannot run chunk by chunk at 8 bits"),
        (colour, "blur", {"bit_count": 1}, "at 1 bits the array holds one palette index per pixel"),
    ]:
        with pytest.raises(ValueError) as raised:
            cluster.apply(array, op, **params)
        assert str(raised.value).startswith(message)


def chunks_done(client):
    """How many output chunks the scheduler holds."""
    def count(dask_scheduler):
        return sum(1 for task in dask_scheduler.tasks.values()
                   if task.state == "memory" and "_neighbourhood_block" in str(task.key))
    return client.run_on_scheduler(count)


def test_chunked_median_survives_a_killed_worker(two_workers):
    image = whole_image(32)[:600, :800]
    lazy = cluster.apply(da.from_array(image, chunks=(77, 100, 4)), "median", size=7)
    future = two_workers.compute(lazy)
    assert kill_a_worker_when(two_workers, lambda: future.done() or chunks_done(two_workers))
    assert not future.done(), "finished before a worker could be killed"
    assert np.array_equal(future.result(timeout=240), qi.median(image, 7))
