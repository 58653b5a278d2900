"""Measures of ours and a peer in pairs.

Each pair runs interleaved, on the same files and the same disk; the figure is the median of the rounds,
the ratio the median of the rounds' ratios. Peak memory is the largest resident size of any one process.
"""

import argparse
import contextlib
import json
import os
import shutil
import statistics
import subprocess
import tempfile
import time


@contextlib.contextmanager
def bench(about):
    """(options, build folder, scratch folder) of a program that measures `about`."""
    parser = argparse.ArgumentParser(description=about,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default="build")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--files", type=int, default=2000)
    parser.add_argument("--size", type=int, default=1_000_000)
    parser.add_argument("--output", help="JSON file to write")
    parser.add_argument("--scratch", help="folder on the disk to measure (default: the build folder)")
    options = parser.parse_args()
    build = os.path.abspath(options.build)
    scratch = tempfile.mkdtemp(prefix="bench-", dir=options.scratch or build)
    try:
        yield options, build, scratch
    finally:
        shutil.rmtree(scratch, ignore_errors=True)


def timed(command, **options):
    """(seconds, peak KiB of the command's own processes)"""
    before = time.monotonic()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, **options)
    errors = process.stderr.read()
    _, status, usage = os.wait4(process.pid, 0)
    took = time.monotonic() - before
    if os.waitstatus_to_exitcode(status) != 0:
        raise RuntimeError(f"{command[0]} failed: {errors.decode(errors='replace')}")
    return took, usage.ru_maxrss


def peak_of(pid):
    try:
        with open(f"/proc/{pid}/status") as file:
            return next(int(line.split()[1]) for line in file if line.startswith("VmHWM"))
    except (OSError, StopIteration, TypeError):
        return 0


def drop(path):
    shutil.rmtree(path, ignore_errors=True)
    os.sync()


def row(name, peer, pairs, limit):
    """`limit` of the ratio; None: only told."""
    return {"name": name, "against": peer,
            "seconds": statistics.median(p["ours"][0] for p in pairs),
            "peer_seconds": statistics.median(p["peer"][0] for p in pairs),
            "ratio": statistics.median(p["ours"][0] / p["peer"][0] for p in pairs),
            "limit": limit, "rounds": len(pairs),
            "peak_mib": max(p["ours"][1] for p in pairs) / 1024,
            "peer_peak_mib": max(p["peer"][1] for p in pairs) / 1024}


def report(rows, output):
    """The table on the terminal, and JSON into the file `output`, if any."""
    print(f"{'what':44} {'against':18} {'ours s':>8} {'peer s':>8} {'ratio':>6} {'limit':>6} "
          f"{'MiB':>6} {'peer':>6}")
    for r in rows:
        limit = "" if r["limit"] is None else f"{r['limit']:.2f}"
        verdict = "" if r["limit"] is None or r["ratio"] <= r["limit"] else "  over"
        print(f"{r['name']:44} {r['against']:18} {r['seconds']:8.3f} {r['peer_seconds']:8.3f} "
              f"{r['ratio']:6.2f} {limit:>6} {r['peak_mib']:6.0f} {r['peer_peak_mib']:6.0f}"
              + verdict)
    if output:
        with open(output, "w") as file:
            json.dump({"rows": rows, "cores": os.cpu_count()}, file, indent=2)
