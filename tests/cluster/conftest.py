"""Shared by the cluster tests: the package from the build folder (for this
process and for the worker processes it starts), and a local cluster of two
worker processes on the loopback interface, always closed."""

import os
import signal
import sys
import time

import pytest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILD = os.path.abspath(os.environ.get("QEL_BUILD_DIR", os.path.join(ROOT, "build")))
PACKAGE_FOLDER = os.path.join(BUILD, "python")
sys.path.insert(0, PACKAGE_FOLDER)
# Worker processes import the package too.
os.environ["PYTHONPATH"] = os.pathsep.join(filter(None, [PACKAGE_FOLDER, os.environ.get("PYTHONPATH")]))
QEL = os.path.join(BUILD, "qel")


@pytest.fixture(scope="session")
def two_workers():
    """A Client of a cluster of two single-threaded worker processes on
    127.0.0.1, for the whole session; closed even when a test fails."""
    from distributed import Client, LocalCluster
    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, host="127.0.0.1",
                      dashboard_address=None, silence_logs=50) as cluster:
        with Client(cluster, timeout="60s") as client:
            yield client


def kill_a_worker_when(client, ready, timeout=120):
    """Kills one of the two workers (its nanny starts another) as soon as
    ready() answers true and returns that answer; None when it never did."""
    client.wait_for_workers(2, timeout=timeout)  # an earlier test may have killed one
    victim = next(iter(client.run(os.getpid).values()))
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        answer = ready()
        if answer:
            os.kill(victim, signal.SIGKILL)
            return answer
        time.sleep(0.02)
    return None
