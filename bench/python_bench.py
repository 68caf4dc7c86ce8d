"""Timings of the Python package against qel_bench (not a test; run by hand):

    /usr/bin/python3 bench/python_bench.py [--build build] [--rounds 15]

Prints the per-call overhead on a 1x1 image, median 5 and rotate 30 (cubic,
size kept, as qel_bench's rotate30_cubic) on 1920x1080 24-bit images beside
qel_bench's figures, and four threads on four images against one thread."""

import argparse
import json
import os
import statistics
import subprocess
import sys
import threading
import time


def median_ms(call, rounds):
    times = []
    for _ in range(rounds):
        start = time.perf_counter()
        call()
        times.append((time.perf_counter() - start) * 1000)
    return statistics.median(times)


def cpp_ms(build, names):
    program = os.path.join(build, "bench", "qel_bench")
    if not os.path.exists(program):
        return {}
    done = subprocess.run([program, "--benchmark_filter=^(%s)$" % "|".join(names), "--benchmark_format=json",
                           "--benchmark_repetitions=5", "--benchmark_report_aggregates_only=true"],
                          capture_output=True, text=True, check=True)
    figures = {}
    for entry in json.loads(done.stdout)["benchmarks"]:
        if entry.get("aggregate_name") == "median":
            figures[entry["run_name"]] = entry["real_time"]
    return figures


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", default="build")
    parser.add_argument("--rounds", type=int, default=15)
    args = parser.parse_args()
    sys.path.insert(0, os.path.join(args.build, "python"))
    import numpy as np
    import qelimaging as qi

    pixel = np.zeros((1, 1, 3), np.uint8)
    calls = 20000
    start = time.perf_counter()
    for _ in range(calls):
        qi.flip(pixel)
    print("per call, flip of 1x1:        %8.2f us" % ((time.perf_counter() - start) / calls * 1e6))

    image = np.random.default_rng(1).integers(0, 256, (1080, 1920, 3), dtype=np.uint8)
    cpp = cpp_ms(args.build, ["median5", "rotate30_cubic"])
    for label, name, call in (("median 5", "median5", lambda: qi.median(image, 5)),
                              ("rotate 30", "rotate30_cubic", lambda: qi.rotate(image, 30, 3, keep_size=True))):
        python = median_ms(call, args.rounds)
        line = "%-12s 1920x1080:   %8.2f ms" % (label, python)
        if name in cpp:
            line += "   qel_bench %8.2f ms   (%+.1f%%)" % (cpp[name], (python / cpp[name] - 1) * 100)
        print(line)

    images = [np.random.default_rng(seed).integers(0, 256, (1080, 1920, 3), dtype=np.uint8) for seed in range(4)]
    per_thread = max(2, args.rounds // 3)

    def work(index):
        for _ in range(per_thread):
            qi.median(images[index], 5)

    start = time.perf_counter()
    for index in range(4):
        work(index)
    one = time.perf_counter() - start
    threads = [threading.Thread(target=work, args=(index,)) for index in range(4)]
    start = time.perf_counter()
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    four = time.perf_counter() - start
    print("four threads on four images: %.2fx one thread's throughput (%d cores)" % (one / four, os.cpu_count()))


if __name__ == "__main__":
    main()
