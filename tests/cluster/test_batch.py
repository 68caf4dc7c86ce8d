"""Folders through a cluster of two worker processes: the same files as qel
writes even when a worker is killed in the middle of the batch, failures
reported without stopping the others, and reruns that do no work."""

import filecmp
import os
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest

import qelimaging as qi
from conftest import QEL, kill_a_worker_when
from qelimaging import cluster

CHAIN = "median 5 gamma 1.4 filter 1,2,1,2,4,2,1,2,1 --divisor 16 swirl gaussian rotate 30 sharpen".split()
BAD = "13-corrupt.png"


def make_inputs(folder):
    """30 PNG files of 8, 24 and 32 bits, the 14th (BAD) cut short: (their
    paths, the names of the 29 good ones)."""
    os.makedirs(folder)
    rng = np.random.default_rng(30)
    shapes = [(200, 300), (200, 300, 3), (200, 300, 4)]
    paths = [os.path.join(folder, BAD if index == 13 else "%02d-image.png" % index) for index in range(30)]
    for index, path in enumerate(paths):
        qi.write(rng.integers(0, 256, shapes[index % 3], dtype=np.uint8), path)
    with open(paths[13], "r+b") as bad:
        bad.truncate(os.path.getsize(paths[13]) // 2)
    return paths, sorted(os.path.basename(path) for path in paths if path != paths[13])


def run_batch(arguments):
    return subprocess.run([sys.executable, "-m", "qelimaging", "batch"] + arguments, capture_output=True,
                          text=True, timeout=300)


def snapshot(folder):
    return {name: os.stat(os.path.join(folder, name)).st_mtime_ns for name in sorted(os.listdir(folder))}


def test_folder_loses_nothing_to_a_killed_worker_gives_qel_bytes_and_reruns_nothing(two_workers, tmp_path):
    inputs, good = make_inputs(str(tmp_path / "in"))
    out_dir = str(tmp_path / "out")
    arguments = inputs + ["-o", out_dir, "--scheduler", two_workers.scheduler.address, "--"] + CHAIN

    def written():
        return len([n for n in os.listdir(out_dir) if n.endswith(".png")]) if os.path.isdir(out_dir) else 0

    with ThreadPoolExecutor(1) as pool:
        batch = pool.submit(run_batch, arguments)
        seen_at_kill = kill_a_worker_when(two_workers, written)
        first = batch.result()
    assert seen_at_kill and seen_at_kill < 29, "the worker was not killed mid-batch"
    assert first.returncode == 1, first.stderr
    assert first.stdout.strip().splitlines()[-1] == "29 done, 0 skipped, 1 failed"
    failures = [line for line in first.stderr.splitlines() if line.startswith("qelimaging: ")]
    assert failures == ["qelimaging: %s: corrupt or truncated PNG (Read Error)" % inputs[13]]
    # Exactly the 29 outputs: no partial or temporary file beside them.
    assert sorted(os.listdir(out_dir)) == good
    reference = str(tmp_path / "qel.png")
    for name in good:
        subprocess.run([QEL, str(tmp_path / "in" / name)] + CHAIN + [reference], check=True, timeout=60)
        assert filecmp.cmp(os.path.join(out_dir, name), reference, shallow=False), name

    before = snapshot(out_dir)
    again = run_batch(arguments)
    assert again.returncode == 1
    assert again.stdout.strip().splitlines()[-1] == "0 done, 29 skipped, 1 failed"
    assert snapshot(out_dir) == before


# Words qel runs through its own layer: alpha given to images without it, and
# rotate's clockwise turns, edges and corners.
ADAPTED = ["alpha 128", "alphakey 90 000000", "transparent FFFFFF", "rotate 90", "rotate 30 --method lanczos",
           "rotate 12.5", "rotate -40 --keep-size --background 336699", "rotate 200 --alpha", "threshold 100",
           "grayscale"]


def test_words_qel_adapts_give_qels_bytes(tmp_path):
    rng = np.random.default_rng(5)
    source, reference, ours = (str(tmp_path / name) for name in ("in.png", "qel.png", "ours.png"))
    for shape in [(40, 30), (40, 30, 3), (40, 30, 4)]:
        qi.write(rng.integers(0, 256, shape, dtype=np.uint8), source)
        for chain in (words.split() for words in ADAPTED):
            subprocess.run([QEL, source] + chain + [reference], check=True, timeout=60)
            qi.write(cluster.run_steps(qi.read(source), cluster.parse_steps(chain)), ours)
            assert filecmp.cmp(ours, reference, shallow=False), (shape, chain)


@pytest.mark.parametrize("arguments, message", [
    (["--", "spin", "3"], "qelimaging: unknown operation 'spin'"),
    (["--", "median", "x"], "qelimaging: median: bad whole number 'x'"),
    (["median"], "qelimaging: the operations follow '--'"),
    (["--", "rotate"], "qelimaging: rotate: missing angle"),
])
def test_command_line_mistakes_exit_2_before_any_work(tmp_path, arguments, message):
    done = run_batch(["a.png", "-o", str(tmp_path)] + arguments)
    assert done.returncode == 2
    assert done.stderr.splitlines()[0].startswith(message)
    assert os.listdir(str(tmp_path)) == []


def test_steps_follow_qel_words_values_and_options():
    steps = cluster.parse_steps("rotate 30 --keep-size --method Lanczos --background #336699 alphakey 90 FF8000")
    assert [(step.function, step.params) for step in steps] == [
        ("rotate_clockwise", {"angle": 30.0, "keep_size": True, "method": 5, "background": (0x33, 0x66, 0x99)}),
        ("set_image_alpha_transparency", {"alpha": 90, "key_colour": (255, 128, 0)}),
    ]
    for words, message in [("", "no operation given"), ("median --size 3", "median: unknown option --size"),
                           ("transparent F00", "transparent: bad colour 'F00': expected RRGGBB"),
                           ("filter 1,2 --divisor", "filter: --divisor needs a value"),
                           ("rotate nan", "rotate: bad number 'nan'"),
                           ("rotate 30 --method 16", "rotate: bad method '16': expected 0 to 15")]:
        with pytest.raises(cluster.StepError, match="^" + message):
            cluster.parse_steps(words)
