#!/usr/bin/env python3
"""One device that keeps another, beside rsync between the two folders of media.

See pairs.py for how a pair is measured.
"""

import os
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "support", "commands"))
import collection  # noqa: E402
from device import Device  # noqa: E402
from pairs import bench, drop, peak_of, report, row, timed  # noqa: E402

MUSIC = os.path.join("var", "mobile", "Media", "Tessel_Control", "Music")


def mirror(first, companion):
    """(seconds, peak KiB of any one process)"""
    took, peak = timed([os.path.join(companion.build, "bin", "orlith"), "mirror", "--from",
                        first.root, "--to", companion.root, "--json"], env=companion.environment)
    peaks = [peak_of(device.daemon_process()) for device in (first, companion)]
    return took, max(peak, *peaks)


def mirror_rounds(build, scratch, options, covers):
    """Pairs: a whole mirror against rsync --fsync, and one with nothing to do against rsync again."""
    scratch = tempfile.mkdtemp(dir=scratch)
    media = os.path.join(scratch, "media")
    os.makedirs(media)
    collection.make(media, scratch, files=options.files, size=options.size, covers=covers)
    state = os.path.join(scratch, "state")
    first = Device(build, os.path.join(scratch, "first"), state)
    timed([os.path.join(build, "bin", "orlith"), "sync", media, "--device", first.root, "--json"],
          env=first.environment)
    drop(media)
    whole, nothing = [], []
    for number in range(options.rounds):
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
    drop(scratch)
    return whole, nothing


def main():
    with bench(__doc__) as (options, build, scratch):
        whole, nothing = mirror_rounds(build, scratch, options, covers=False)
        # Each album's cover is made to fit the companion, for which rsync has no like.
        with_covers, _ = mirror_rounds(build, scratch, options, covers=True)
    what = f"mirror of {options.files} files of {options.size} bytes"
    report([row(what, "rsync -a --fsync", whole, 1.3),
            row("the same, a cover to every ten", "rsync -a --fsync", with_covers, None),
            row(f"mirror with nothing to do, {options.files} files", "rsync -a again", nothing, 4.0)],
           options.output)


if __name__ == "__main__":
    main()
