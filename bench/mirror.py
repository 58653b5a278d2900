#!/usr/bin/env python3
"""One device that keeps another, beside rsync between the two folders of media.

See pairs.py for how a pair is measured.
"""

import argparse
import os
import shutil
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "support", "commands"))
import collection  # noqa: E402
from device import Device  # noqa: E402
from pairs import drop, peak_of, report, row, timed  # noqa: E402

MUSIC = os.path.join("var", "mobile", "Media", "Tessel_Control", "Music")


def mirror(first, companion):
    """(seconds, peak KiB of any one process)"""
    took, peak = timed([os.path.join(companion.build, "bin", "orlith"), "mirror", "--from",
                        first.root, "--to", companion.root, "--json"], env=companion.environment)
    peaks = [peak_of(device.daemon_process()) for device in (first, companion)]
    return took, max(peak, *peaks)


def mirror_rounds(build, scratch, rounds, files, size):
    """Pairs: a whole mirror against rsync --fsync, and one with nothing to do against rsync again."""
    media = os.path.join(scratch, "media")
    os.makedirs(media)
    collection.make(media, scratch, files=files, size=size, seed=1)
    state = os.path.join(scratch, "state")
    first = Device(build, os.path.join(scratch, "first"), state)
    timed([os.path.join(build, "bin", "orlith"), "sync", media, "--device", first.root, "--json"],
          env=first.environment)
    drop(media)
    whole, nothing = [], []
    for number in range(rounds):
        copy = os.path.join(scratch, "rsync-copy")
        companion = Device(build, os.path.join(scratch, "companion"), state)
        rsync = ["rsync", "-a", os.path.join(first.root, MUSIC) + "/", copy]
        pair = {}
        for side in (["peer", "ours"] if number % 2 == 0 else ["ours", "peer"]):
            pair[side] = timed([*rsync, "--fsync"]) if side == "peer" else mirror(first, companion)
            os.sync()
        whole.append(pair)
        nothing += [{"peer": timed(rsync), "ours": mirror(first, companion)} for _ in range(3)]
        companion.stop_daemon()
        drop(copy)
        drop(companion.root)
    first.stop_daemon()
    return whole, nothing


def main():
    parser = argparse.ArgumentParser(description=__doc__,
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
        whole, nothing = mirror_rounds(build, scratch, options.rounds, options.files, options.size)
    finally:
        shutil.rmtree(scratch, ignore_errors=True)
    report([row(f"mirror of {options.files} files of {options.size} bytes", "rsync -a --fsync", whole,
                1.3),
            row(f"mirror with nothing to do, {options.files} files", "rsync -a again", nothing, 4.0)],
           options.output)
    return 0


if __name__ == "__main__":
    sys.exit(main())
