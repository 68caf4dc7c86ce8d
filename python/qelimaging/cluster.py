"""Many files, and images too large for one call, on a Dask cluster.

    from qelimaging import cluster
    report = cluster.process_files(paths, "median 5", "out/", client)
    result = cluster.apply(dask_array, "median", size=5)   # lazy, chunked

The module runs on its caller's thread, so it scales by running many callers:
one task per file, or one task per chunk of a Dask array. Chunked results are
byte for byte those of one call on the whole image.
"""

import glob
import math
import os
import sys
import time

import numpy as np

from . import _operations as ops
from ._image import Image, read, write
from ._steps import StepError, parse_steps, run_steps  # noqa: F401 - offered here too

__all__ = ["local_cluster", "process_files", "BatchReport", "apply", "CHUNKED", "StepError"]


# ---- many files ------------------------------------------------------------

def local_cluster(workers=None):
    """A cluster of worker processes on this machine, one per core unless
    ``workers`` says otherwise, one thread each, on 127.0.0.1 and without a
    dashboard. Close it (or use it in a ``with``) when done."""
    from distributed import LocalCluster
    return LocalCluster(n_workers=workers or os.cpu_count() or 1, threads_per_worker=1, processes=True,
                        host="127.0.0.1", dashboard_address=None)


class BatchReport:
    """What ``process_files`` did: lists of input paths ``done`` and
    ``skipped``, and ``failed`` as (input path, reason) pairs."""

    def __init__(self):
        self.done, self.skipped, self.failed = [], [], []

    @property
    def ok(self):
        return not self.failed

    def summary(self):
        return "%d done, %d skipped, %d failed" % (len(self.done), len(self.skipped), len(self.failed))

    def __repr__(self):
        return "<BatchReport %s>" % self.summary()


def _output_path(source, out_dir):
    return os.path.join(out_dir, os.path.basename(source))


def _is_complete(source, target):
    """Outputs appear only by renaming a finished file into place, so one that
    exists and is not older than its input is complete."""
    try:
        return os.stat(target).st_mtime >= os.stat(source).st_mtime
    except OSError:
        return False


def _process_file(source, target, steps):
    """One task: read, run the chain, write through a temporary file renamed
    into place. Returns None or the reason of the failure."""
    try:
        write(run_steps(read(source), steps), target)
    except (OSError, ValueError, RuntimeError) as error:
        reason = str(error)
        # The readers name the file; the report names it once.
        return reason[len(source) + 2:] if reason.startswith(source + ": ") else reason
    return None


def _remove_partials(target):
    """Temporary files that a worker killed while writing left beside ``target``."""
    for partial in glob.glob(glob.escape(target) + ".qel-??????"):
        try:
            os.remove(partial)
        except OSError:
            pass


class _Progress:
    """A one-line progress bar on standard error when it is a terminal."""

    def __init__(self, total, stream):
        self.total, self.stream = total, stream
        self.shown = total > 0 and stream.isatty()

    def update(self, count, failed):
        if self.shown:
            filled = 30 * count // self.total
            self.stream.write("\r[%-30s] %d/%d%s" % ("#" * filled, count, self.total,
                                                     ", %d failed" % failed if failed else ""))
            self.stream.flush()

    def close(self):
        if self.shown:
            self.stream.write("\n")


def process_files(inputs, steps, out_dir, client=None, progress=None, stream=None):
    """Runs the chain ``steps`` (qel words as a list or a string, or steps of
    ``parse_steps``) on every input file, one Dask task per file, writing
    ``out_dir``/<input's file name> in the input's format. Outputs that are
    already complete (present and not older than their input) are skipped
    without a task. A failed file is reported with its reason and never stops
    the others. Without ``client`` a local cluster (one worker process per
    core) is started and closed. ``progress`` (default: when ``stream``, by
    default standard error, is a terminal) shows a progress bar.

    Every input and output path must be reachable under the same name from
    every worker (a shared folder on several machines)."""
    from distributed import Client, as_completed

    if not isinstance(steps, (list, tuple)) or not steps or not all(callable(step) for step in steps):
        steps = parse_steps(steps)
    stream = sys.stderr if stream is None else stream
    out_dir = os.path.abspath(out_dir)
    os.makedirs(out_dir, exist_ok=True)
    report = BatchReport()

    jobs, owners = [], {}
    for source in inputs:
        source = os.path.abspath(source)
        target = _output_path(source, out_dir)
        if target in owners:
            report.failed.append((source, "same output name as %s" % owners[target]))
        elif not os.path.isfile(source):
            report.failed.append((source, "no such file"))
        elif _is_complete(source, target):
            report.skipped.append(source)
        else:
            jobs.append((source, target))
        owners.setdefault(target, source)
    if not jobs:
        return report

    own_cluster = None
    if client is None:
        own_cluster = local_cluster()
        client = Client(own_cluster)
    bar = _Progress(len(jobs), stream)
    if progress is False:
        bar.shown = False
    elif progress:
        bar.shown = True
    try:
        # pure=False: a rerun after a change of the input must run again.
        futures = [client.submit(_process_file, source, target, steps, pure=False) for source, target in jobs]
        sources = {future.key: source for future, (source, _) in zip(futures, jobs)}
        bar.update(0, 0)
        for count, future in enumerate(as_completed(futures), 1):
            source = sources[future.key]
            try:
                reason = future.result()
            except Exception as error:  # the task itself failed, e.g. its workers kept dying
                reason = "%s: %s" % (type(error).__name__, error)
            if reason is None:
                report.done.append(source)
            else:
                report.failed.append((source, reason))
            bar.update(count, len(report.failed))
    finally:
        bar.close()
        for _, target in jobs:
            _remove_partials(target)
        if own_cluster is not None:
            client.close()
            own_cluster.close()
    order = {source: index for index, source in enumerate(os.path.abspath(p) for p in inputs)}
    report.done.sort(key=order.get)
    report.failed.sort(key=lambda item: order.get(item[0], -1))
    return report


# ---- chunked images --------------------------------------------------------

# Operations that change each pixel from its own value alone.
_POINT = {"lut", "negative", "gamma", "light", "shift_rgb", "colorize", "set_image_alpha",
          "set_image_alpha_transparency", "set_image_transparent_pixel", "flip_bits", "grayscale", "threshold"}
# ... except at 8 bits, where grey conversion reads the two bytes after each
# pixel, past the row's end for the last two.
_POINT_NOT_AT_8 = {"grayscale", "threshold"}

# Neighbourhood operations: the side of the square they read around a pixel.
_FIXED_SIZE = {"blur": 3, "soften": 3, "sharpen": 3, "emboss": 3, "contour": 3}
_SIZED = {"median", "erode", "dilate", "edge"}

# Why the others cannot be cut into chunks that give the bytes of one call.
_NOT_CHUNKED = {
    "rotate": "each result pixel is sampled at a turned position anywhere in the image",
    "rotate_paste": "each result pixel is sampled at a turned position anywhere in the image",
    "rotate_clockwise": "each result pixel is sampled at a turned position anywhere in the image",
    "resample": "the sampling grid depends on the whole image's size",
    "skew": "the shear is measured from a pivot of the whole image and reads rows far away",
    "quad": "the warp maps result pixels to source positions anywhere in the image",
    "transform": "the warp maps result pixels to source positions anywhere in the image",
    "transform_paste": "the warp maps source pixels to result positions anywhere in the image",
    "circle_transform": "the deforms are measured from the whole image's centre",
    "bulge": "the deforms are measured from the whole image's centre",
    "pinch": "the deforms are measured from the whole image's centre",
    "swirl": "the deforms are measured from the whole image's centre",
    "polar": "the deforms are measured from the whole image's centre",
    "fold": "the deforms are measured from the whole image's centre",
    "noise": "it draws from one random sequence in pixel order across the whole image",
    "jitter": "it draws from one random sequence in pixel order across the whole image",
    "flip": "rows change places across the whole image (flip the Dask array instead)",
    "mirror": "columns change places across the whole image (mirror the Dask array instead)",
    "flip_image_and_bits": "rows change places across the whole image",
    "increase_bpp": "the result's layout differs from the source's",
}

# What runs chunked, for the README and the tests.
CHUNKED = sorted(_POINT | _SIZED | set(_FIXED_SIZE) | {"filter", "gaussian_blur"})


def _function_name(op):
    if callable(op):
        op = getattr(op, "__name__", repr(op))
    if op in ("gaussian",):
        return "gaussian_blur"
    return op


def _neighbourhood(name, params):
    """The side of the square an operation reads around each pixel, or None
    for a point operation; raises ValueError for what cannot be chunked."""
    if name in _POINT:
        return None
    if name in _FIXED_SIZE:
        return _FIXED_SIZE[name]
    if name == "gaussian_blur":
        return 3 if params.get("level", 1) == 0 else 5
    if name == "filter":
        kernel = params.get("kernel")
        if kernel is None:
            raise ValueError("filter needs kernel=")
        count = sum(len(row) if hasattr(row, "__len__") else 1 for row in kernel)
        size = math.isqrt(count)
        if size == 0 or size * size != count:
            raise ValueError("the kernel has size x size weights, got %d" % count)
        return size
    if name in _SIZED:
        size = params.get("size", 3)
        if int(size) < 1:
            raise ValueError("%s: a size below 1 cannot be chunked: each pixel's result then depends on the "
                             "one written before it" % name)
        return int(size)
    if name in _NOT_CHUNKED:
        raise ValueError("%s cannot run chunk by chunk with the bytes of one call: %s" % (name, _NOT_CHUNKED[name]))
    raise ValueError("unknown or unchunkable operation %r (chunked: %s)" % (name, ", ".join(CHUNKED)))


def _to_image(block, bit_count):
    """A runtime image for a block: the array itself, or at 1 and 4 bits the
    block's palette indices (one per byte) packed into rows."""
    if bit_count not in (1, 4):
        return block
    height, width = block.shape
    image = Image(width, height, bit_count, "MONO")
    if bit_count == 1:
        packed = np.packbits(block & 1, axis=1)
    else:
        even = np.zeros((height, width + (width & 1)), dtype=np.uint8)
        even[:, :width] = block & 15
        packed = even[:, 0::2] << 4 | even[:, 1::2]
    image.array[:, :packed.shape[1]] = packed
    return image


def _from_image(result, width, bit_count):
    if bit_count not in (1, 4):
        return np.asarray(result)
    rows = result.array
    if bit_count == 1:
        return np.unpackbits(rows, axis=1)[:, :width]
    pairs = np.empty((rows.shape[0], rows.shape[1] * 2), dtype=np.uint8)
    pairs[:, 0::2], pairs[:, 1::2] = rows >> 4, rows & 15
    return pairs[:, :width]


def _call(name, block, bit_count, params):
    result = _from_image(getattr(ops, name)(_to_image(block, bit_count), **params), block.shape[1], bit_count)
    if result.shape != block.shape or result.dtype != block.dtype:
        raise ValueError("%s changes the image's layout (%s %s to %s %s); chunks need the same layout"
                         % (name, block.shape, block.dtype, result.shape, result.dtype))
    return result


def _point_block(block, name, bit_count, params):
    return _call(name, np.ascontiguousarray(block), bit_count, params)


def _neighbourhood_block(block, name, bit_count, params, chunks, depth, reach, corner, block_info=None):
    """One output chunk from its overlapped input block. Where the chunk's
    neighbourhoods reach outside the whole image, the module must read the
    whole image's top-left pixel there, as one call does: the part of the
    block kept then either starts at the image's corner, or gets one column
    (or row) of the corner's colour in front, which no kept pixel reads but
    which makes it the block's own top-left pixel."""
    row_index, column_index = block_info[0]["chunk-location"][:2]
    (up, down), (left, right) = reach
    row_starts, column_starts = np.cumsum((0,) + chunks[0]), np.cumsum((0,) + chunks[1])
    height, width = int(row_starts[-1]), int(column_starts[-1])
    top, bottom = int(row_starts[row_index]), int(row_starts[row_index + 1])
    first, last = int(column_starts[column_index]), int(column_starts[column_index + 1])
    # The rows and columns the block holds (dask adds `depth` on inner sides only).
    held_top = top - (depth[0] if row_index > 0 else 0)
    held_first = first - (depth[1] if column_index > 0 else 0)

    need_top, need_bottom = max(0, top - up), min(height, bottom + down)
    need_first, need_last = max(0, first - left), min(width, last + right)
    piece = block[need_top - held_top:need_bottom - held_top, need_first - held_first:need_last - held_first]
    reads_outside = top - up < 0 or bottom + down > height or first - left < 0 or last + right > width
    shift_rows = shift_columns = 0
    if reads_outside and (need_top, need_first) != (0, 0):
        if need_first > 0:
            piece = np.concatenate([np.broadcast_to(corner, (piece.shape[0], 1) + piece.shape[2:]), piece], axis=1)
            shift_columns = 1
        else:
            piece = np.concatenate([np.broadcast_to(corner, (1,) + piece.shape[1:]), piece], axis=0)
            shift_rows = 1
    result = _call(name, np.ascontiguousarray(piece), bit_count, params)
    row0, column0 = top - need_top + shift_rows, first - need_first + shift_columns
    return result[row0:row0 + bottom - top, column0:column0 + last - first]


def _bit_count(array, bit_count):
    if bit_count in (1, 4):
        if array.dtype != np.uint8 or array.ndim != 2:
            raise ValueError("at %d bits the array holds one palette index per pixel: uint8 HxW" % bit_count)
        return bit_count
    if bit_count not in (None, 8, 24, 32):
        raise ValueError("bit_count must be 1, 4, 8, 24 or 32, got %r" % bit_count)
    if array.dtype == np.uint8 and array.ndim == 2:
        found = 8
    elif array.dtype == np.uint8 and array.ndim == 3 and array.shape[2] in (3, 4):
        found = 8 * array.shape[2]
    elif array.dtype == np.int32 and array.ndim == 2:
        found = 32
    else:
        raise ValueError("expected uint8 HxW, HxWx3, HxWx4 or int32 HxW, got %s %s" % (array.dtype, array.shape))
    if bit_count not in (None, found):
        raise ValueError("a %s %s array is %d-bit, not %d-bit" % (array.dtype, array.shape, found, bit_count))
    return found


def apply(array, op, bit_count=None, **params):
    """Runs operation ``op`` (a package function or its name, e.g. "median")
    with ``params`` on a Dask array chunked along rows and columns. The
    result is a Dask array of the same shape and chunks whose computed bytes
    are those of one call of the operation on the whole image.

    Arrays are laid out as the package's operations take them (uint8 HxW
    grey, HxWx3 B,G,R, HxWx4 B,G,R,A, int32 HxW 32-bit "MONO"); for 1- and
    4-bit images pass ``bit_count`` and one palette index per uint8 element.
    Point operations run chunk by chunk; neighbourhood filters read their
    neighbours' overlap and, at the image's edges, the whole image's top-left
    pixel, as one call does. Operations whose result cannot be cut into
    chunks raise ValueError saying why."""
    import dask.array as da

    name = _function_name(op)
    if not isinstance(array, da.Array):
        array = da.from_array(np.asarray(array), chunks="auto")
    bits = _bit_count(array, bit_count)
    size = _neighbourhood(name, params)
    if size is None:
        if name in _POINT_NOT_AT_8 and bits == 8:
            raise ValueError("%s cannot run chunk by chunk at 8 bits: the module reads the two bytes after each "
                             "pixel, past the chunk's last column" % name)
        return array.map_blocks(_point_block, name, bits, params, dtype=array.dtype,
                                meta=np.empty((0,) * array.ndim, dtype=array.dtype))

    if array.ndim == 3 and len(array.chunks[2]) > 1:
        array = array.rechunk({2: -1})
    reach = ((size // 2, size - 1 - size // 2),) * 2
    depth = tuple(max(pair) for pair in reach)
    # Every chunk must be at least as large as the overlap it lends.
    new_chunks = {axis: da.overlap.ensure_minimum_chunksize(depth[axis], array.chunks[axis])
                  for axis in (0, 1) if depth[axis] and min(array.chunks[axis]) < depth[axis]}
    if new_chunks:
        array = array.rechunk(new_chunks)
    corner = array[0, 0].compute()
    overlapped = da.overlap.overlap(array, depth={0: depth[0], 1: depth[1]} if array.ndim == 2 else
                                    {0: depth[0], 1: depth[1], 2: 0},
                                    boundary={axis: "none" for axis in range(array.ndim)})
    return overlapped.map_blocks(_neighbourhood_block, name, bits, params, array.chunks[:2], depth, reach, corner,
                                 chunks=array.chunks, dtype=array.dtype,
                                 meta=np.empty((0,) * array.ndim, dtype=array.dtype))
