#!/usr/bin/python3
"""Dask benchmark of the Python package (not a test; run by hand):

  1. FILES files of 1920x1080 (24-bit) through `median 5` with 1 and with
     2 local worker processes (JPEG in and out, quality 90): wall time, files per second, peak memory of
     the largest worker;
  2. a 12000x9000 24-bit `median 5` as one call against cluster.apply on
     1000x1000 chunks (two threads), each in its own process: wall time and
     peak memory, and whether the two results are the same bytes.

    PYTHONPATH=build/python /usr/bin/python3 bench/cluster_bench.py [--files 200] [--side 12000x9000]
"""

import argparse
import hashlib
import os
import resource
import shutil
import subprocess
import sys
import tempfile
import time

import numpy as np


def synthetic(top, bottom, left, right):
    """Part of a large test picture, made from its coordinates alone, so that
    a chunk can be made without the whole: gradients, rings and a speckle."""
    y = np.arange(top, bottom, dtype=np.int64)[:, None]
    x = np.arange(left, right, dtype=np.int64)[None, :]
    speckle = (x * 7919 + y * 104729) % 251
    blue = (x // 3 + speckle) % 256
    green = (y // 2 + (x * x + y * y) // 4096) % 256
    red = ((x ^ y) + speckle // 4) % 256
    return np.stack([blue, green, red], axis=-1).astype(np.uint8)


def peak_megabytes():
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024


def files_run(count, workers, folder):
    import qelimaging as qi
    from distributed import Client
    from qelimaging import cluster

    inputs = os.path.join(folder, "in")
    if not os.path.isdir(inputs):
        os.makedirs(inputs)
        picture = synthetic(0, 1080, 0, 1920)
        for index in range(count):
            qi.write(np.roll(picture, index * 13, axis=1), os.path.join(inputs, "%03d.jpg" % index))
    paths = sorted(os.path.join(inputs, name) for name in os.listdir(inputs))
    out_dir = os.path.join(folder, "out-%d" % workers)
    shutil.rmtree(out_dir, ignore_errors=True)
    with cluster.local_cluster(workers) as local, Client(local) as client:
        client.run(lambda: None)
        started = time.perf_counter()
        report = cluster.process_files(paths, "median 5", out_dir, client, progress=False)
        seconds = time.perf_counter() - started
        peaks = client.run(peak_megabytes)
    assert report.ok and len(report.done) == count, report.summary()
    print("%d files, %d worker(s): %.1f s, %.2f files/s, largest worker peak %.0f MB"
          % (count, workers, seconds, count / seconds, max(peaks.values())), flush=True)


def large_run(mode, width, height, out_path):
    """One of the two large runs, in a process of its own so that its peak
    memory is its own. Writes the result's rows to ``out_path``."""
    import qelimaging as qi
    from qelimaging import cluster

    started = time.perf_counter()
    if mode == "one-call":
        # Made in bands, so that only the image and the result count.
        image = np.empty((height, width, 3), dtype=np.uint8)
        for top in range(0, height, 256):
            image[top:top + 256] = synthetic(top, min(height, top + 256), 0, width)
        result = qi.median(image, 5)
        with open(out_path, "wb") as out:
            out.write(np.ascontiguousarray(result).data)
    else:
        import dask
        import dask.array as da
        side = 1000
        def chunk(block_info=None):
            (top, bottom), (left, right), _ = block_info[None]["array-location"]
            return synthetic(top, bottom, left, right)
        source = da.map_blocks(chunk, dtype=np.uint8, chunks=(da.core.normalize_chunks(side, (height,))[0],
                                                              da.core.normalize_chunks(side, (width,))[0], (3,)))
        with open(out_path, "wb") as out:
            with dask.config.set(scheduler="threads", num_workers=2):
                da.store(cluster.apply(source, "median", size=5), _RowFile(out.fileno(), width, 3))
    print("%s: %.1f s, peak %.0f MB" % (mode, time.perf_counter() - started, peak_megabytes()), flush=True)


class _RowFile:
    """A store target writing each chunk's rows at their place in a raw file,
    without mapping it (mapped pages would count as the process's memory)."""

    def __init__(self, descriptor, width, channels):
        self.descriptor, self.row_bytes, self.channels = descriptor, width * channels, channels

    def __setitem__(self, where, block):
        rows, columns = where[0], where[1]
        for offset, row in enumerate(np.ascontiguousarray(block)):
            os.pwrite(self.descriptor, row.tobytes(),
                      (rows.start + offset) * self.row_bytes + columns.start * self.channels)


def digest(path):
    hashed = hashlib.sha256()
    with open(path, "rb") as data:
        for block in iter(lambda: data.read(1 << 24), b""):
            hashed.update(block)
    return hashed.hexdigest()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--files", type=int, default=200)
    parser.add_argument("--side", default="12000x9000", help="size of the large image, WxH")
    parser.add_argument("--only", choices=("files", "large"))
    parser.add_argument("--large-run", nargs=4, help=argparse.SUPPRESS)
    options = parser.parse_args()
    if options.large_run:
        mode, width, height, out_path = options.large_run
        large_run(mode, int(width), int(height), out_path)
        return
    folder = tempfile.mkdtemp(prefix="qel-cluster-bench-")
    try:
        if options.only in (None, "files"):
            for workers in (1, 2):
                files_run(options.files, workers, folder)
        if options.only in (None, "large"):
            width, height = (int(v) for v in options.side.lower().split("x"))
            outputs = {}
            for mode in ("one-call", "chunked"):
                outputs[mode] = os.path.join(folder, mode + ".raw")
                subprocess.run([sys.executable, __file__, "--large-run", mode, str(width), str(height),
                                outputs[mode]], check=True)
            same = digest(outputs["one-call"]) == digest(outputs["chunked"])
            print("%dx%d median 5: chunked result %s the one call's bytes"
                  % (width, height, "equals" if same else "DIFFERS FROM"), flush=True)
    finally:
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    main()
