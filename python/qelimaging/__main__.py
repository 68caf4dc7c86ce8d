"""python3 -m qelimaging batch IN... -o DIR [--scheduler ADDRESS] -- OP [ARGS]...

Runs qel's chain words on many files, one Dask task per file: on the cluster
whose scheduler is at ADDRESS, or on a local cluster of one worker process per
core. Exit status 0 when every file is done or skipped, 1 when any failed, 2
for a mistake on the command line.
"""

import argparse
import sys

USAGE = "python3 -m qelimaging batch IN... -o DIR [--scheduler ADDRESS] [--workers N] -- OP [ARGS]..."


def _batch(arguments):
    if "--" not in arguments:
        raise SystemExit(_usage_error("the operations follow '--'"))
    split = arguments.index("--")
    parser = argparse.ArgumentParser(prog="python3 -m qelimaging batch", usage=USAGE)
    parser.add_argument("inputs", nargs="+", metavar="IN", help="image files")
    parser.add_argument("-o", "--output", required=True, metavar="DIR", help="folder of the results")
    parser.add_argument("--scheduler", metavar="ADDRESS", help="a running Dask scheduler, e.g. tcp://10.0.0.5:8786")
    parser.add_argument("--workers", type=int, metavar="N", help="local worker processes (default one per core)")
    parser.add_argument("--no-progress", action="store_true", help="no progress bar")
    options = parser.parse_args(arguments[:split])

    from . import cluster
    try:
        steps = cluster.parse_steps(arguments[split + 1:])
    except cluster.StepError as error:
        raise SystemExit(_usage_error(str(error)))

    from distributed import Client
    own = None
    if options.scheduler:
        client = Client(options.scheduler, timeout="30s")
    else:
        own = cluster.local_cluster(options.workers)
        client = Client(own)
    try:
        report = cluster.process_files(options.inputs, steps, options.output, client,
                                       progress=False if options.no_progress else None)
    finally:
        client.close()
        if own is not None:
            own.close()
    for source, reason in report.failed:
        print("qelimaging: %s: %s" % (source, reason), file=sys.stderr)
    print(report.summary())
    return 0 if report.ok else 1


def _usage_error(message):
    print("qelimaging: %s\nusage: %s" % (message, USAGE), file=sys.stderr)
    return 2


def main(argv=None):
    argv = sys.argv[1:] if argv is None else argv
    if not argv or argv[0] in ("-h", "--help"):
        print(__doc__.strip())
        return 0
    if argv[0] != "batch":
        return _usage_error("unknown command %r" % argv[0])
    return _batch(argv[1:])


if __name__ == "__main__":
    sys.exit(main())
