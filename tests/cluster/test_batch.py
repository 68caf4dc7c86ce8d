"""Folders through a cluster of two worker processes: the same files as qel
writes, failures reported without stopping the others, reruns that do no
work, and a worker killed in the middle of a batch."""

import os
import signal
import subprocess
import sys
import threading
import time

import numpy as np
import pytest

import qelimaging as qi
from conftest import QEL
from qelimaging import cluster

CHAIN = ["median", "5", "gamma", "1.4", "sharpen"]
BAD = "13-corrupt.png"


def make_inputs(folder, count=30, size=(96, 64)):
    """``count`` PNG files of 8, 24 and 32 bits, one of them cut short."""
    os.makedirs(folder)
    rng = np.random.default_rng(30)
    width, height = size
    names = []
    for index in range(count):
        name = "%02d-image.png" % index
        shapes = [(height, width), (height, width, 3), (height, width, 4)]
        qi.write(rng.integers(0, 256, shapes[index % 3], dtype=np.uint8), os.path.join(folder, name))
        names.append(name)
    good = open(os.path.join(folder, names[13]), "rb").read()
    os.remove(os.path.join(folder, names[13]))
    names[13] = BAD
    with open(os.path.join(folder, BAD), "wb") as out:
        out.write(good[:len(good) // 2])
    return [os.path.join(folder, name) for name in names]


def run_batch(inputs, out_dir, address, *extra):
    command = [sys.executable, "-m", "qelimaging", "batch"] + list(inputs) + ["-o", out_dir, "--scheduler", address,
                                                                               *extra, "--"] + CHAIN
    return subprocess.run(command, capture_output=True, text=True, timeout=300)


def snapshot(folder):
    return {name: os.stat(os.path.join(folder, name)).st_mtime_ns for name in sorted(os.listdir(folder))}


def test_folder_gives_qel_bytes_reports_the_bad_file_and_reruns_nothing(two_workers, tmp_path):
    inputs = make_inputs(str(tmp_path / "in"))
    out_dir = str(tmp_path / "out")
    address = two_workers.scheduler.address

    first = run_batch(inputs, out_dir, address)
    assert first.returncode == 1, first.stderr
    assert first.stdout.strip().splitlines()[-1] == "29 done, 0 skipped, 1 failed"
    failures = [line for line in first.stderr.splitlines() if line.startswith("qelimaging: ")]
    assert failures == ["qelimaging: %s: corrupt or truncated PNG (Read Error)" % os.path.join(str(tmp_path / "in"),
                                                                                                BAD)]
    # Exactly the 29 outputs: no partial or temporary file beside them.
    assert sorted(os.listdir(out_dir)) == sorted(os.path.basename(p) for p in inputs if not p.endswith(BAD))

    for source in inputs:
        if source.endswith(BAD):
            continue
        reference = str(tmp_path / "qel.png")
        subprocess.run([QEL, source] + CHAIN + [reference], check=True, timeout=60)
        with open(reference, "rb") as expected, open(os.path.join(out_dir, os.path.basename(source)), "rb") as got:
            assert got.read() == expected.read(), source

    before = snapshot(out_dir)
    again = run_batch(inputs, out_dir, address)
    assert again.returncode == 1
    assert again.stdout.strip().splitlines()[-1] == "0 done, 29 skipped, 1 failed"
    assert snapshot(out_dir) == before


def test_alpha_words_give_images_without_alpha_one_as_qel_does(tmp_path):
    rng = np.random.default_rng(5)
    for index, shape in enumerate([(40, 30), (40, 30, 3)]):
        source = str(tmp_path / ("in%d.png" % index))
        qi.write(rng.integers(0, 256, shape, dtype=np.uint8), source)
        for chain in (["alpha", "128"], ["alphakey", "90", "000000"], ["transparent", "FFFFFF"]):
            reference, ours = str(tmp_path / "qel.png"), str(tmp_path / "ours.png")
            subprocess.run([QEL, source] + chain + [reference], check=True, timeout=60)
            qi.write(cluster.run_steps(qi.read(source), cluster.parse_steps(chain)), ours)
            assert open(ours, "rb").read() == open(reference, "rb").read(), (shape, chain)


def test_command_line_mistakes_exit_2_before_any_work(tmp_path):
    cases = [
        (["a.png", "-o", str(tmp_path), "--", "spin", "3"], "qelimaging: unknown operation 'spin'"),
        (["a.png", "-o", str(tmp_path), "--", "median", "x"], "qelimaging: median: bad whole number 'x'"),
        (["a.png", "-o", str(tmp_path), "median"], "qelimaging: the operations follow '--'"),
        (["a.png", "-o", str(tmp_path), "--", "rotate"], "qelimaging: rotate: missing angle"),
    ]
    for arguments, message in cases:
        done = subprocess.run([sys.executable, "-m", "qelimaging", "batch"] + arguments, capture_output=True,
                              text=True, timeout=60)
        assert done.returncode == 2
        assert done.stderr.splitlines()[0].startswith(message)
    assert os.listdir(str(tmp_path)) == []


def test_steps_follow_qel_words_values_and_options():
    steps = cluster.parse_steps("median 5 rotate 30 --keep-size --method nearest filter 1,2,1,2,4,2,1,2,1 "
                                "--divisor 16 swirl alphakey 90 FF8000 gaussian")
    assert [(step.function, step.params) for step in steps] == [
        ("median", {"size": 5}),
        ("rotate", {"angle": 30, "keep_size": True, "method": "nearest"}),
        ("filter", {"kernel": [1, 2, 1, 2, 4, 2, 1, 2, 1], "divisor": 16}),
        ("swirl", {}),
        ("set_image_alpha_transparency", {"alpha": 90, "key_colour": (255, 128, 0)}),
        ("gaussian_blur", {}),
    ]
    for words, message in [("", "no operation given"), ("median --size 3", "median: unknown option --size"),
                           ("transparent F00", "transparent: bad colour 'F00': expected RRGGBB"),
                           ("filter 1,2 --divisor", "filter: --divisor needs a value")]:
        with pytest.raises(cluster.StepError, match="^" + message):
            cluster.parse_steps(words)


def test_killed_worker_mid_batch_loses_nothing(two_workers, tmp_path):
    inputs = make_inputs(str(tmp_path / "in"), size=(500, 360))
    out_dir = str(tmp_path / "out")
    steps = cluster.parse_steps("median 9 blur")
    victim = list(two_workers.run(os.getpid).values())[0]
    seen_at_kill = []

    def kill_after_first_output():
        deadline = time.monotonic() + 120
        while time.monotonic() < deadline:
            written = [n for n in os.listdir(out_dir) if n.endswith(".png")] if os.path.isdir(out_dir) else []
            if written:
                seen_at_kill.append(len(written))
                os.kill(victim, signal.SIGKILL)
                return
            time.sleep(0.01)

    killer = threading.Thread(target=kill_after_first_output)
    killer.start()
    try:
        report = cluster.process_files(inputs, steps, out_dir, two_workers, progress=False)
    finally:
        killer.join()
    assert seen_at_kill and seen_at_kill[0] < 29, "the worker was not killed mid-batch"
    assert len(report.done) == 29 and [os.path.basename(p) for p, _ in report.failed] == [BAD]
    assert sorted(os.listdir(out_dir)) == sorted(os.path.basename(p) for p in inputs if not p.endswith(BAD))
    for source in report.done:
        expected = qi.blur(qi.median(qi.read(source), 9))
        assert np.array_equal(qi.read(os.path.join(out_dir, os.path.basename(source))), expected), source
