#!/usr/bin/env python3
"""A backup of a device, beside cp of the same files.

See pairs.py for how a pair is measured. Both end with everything on the disk.
"""

import os
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "support", "commands"))
import collection  # noqa: E402
from device import Device  # noqa: E402
from pairs import bench, drop, peak_of, report, row, timed  # noqa: E402

MEDIA = os.path.join("var", "mobile", "Media")
DATABASES = ("Downloads/downloads.sqlitedb", "Tessel_Control/Tessel/AccountCache.sqlitedb",
             "Tessel_Control/Tessel/MediaLibrary.sqlitedb")


def buy(device, scratch, files, size):
    """Purchases from files of this machine, which a backup holds."""
    media = os.path.join(scratch, "media")
    os.makedirs(media)
    collection.make(media, scratch, files=files, size=size, seed=1)
    # Makes the device.
    empty = os.path.join(scratch, "empty")
    os.makedirs(empty)
    timed([os.path.join(device.build, "bin", "orlith"), "sync", empty, "--device", device.root],
          env=device.environment)
    for folder, _, names in os.walk(media):
        for name in names:
            if not name.endswith(".mp3"):
                continue
            device.lines("download", "file://" + os.path.join(folder, name).replace(" ", "%20"),
                         "--json")
    while device.lines("downloads", "--json")[:-1]:
        time.sleep(0.2)
    drop(media)


def backup(device, target):
    """(seconds, peak KiB of any one process)"""
    took, peak = timed([os.path.join(device.build, "bin", "orlith"), "backup", "--device",
                        device.root, "--output", target], env=device.environment)
    return took, max(peak, peak_of(device.daemon_process()))


def copy(device, target):
    """The same files into a folder, and on the disk, as the backup is."""
    os.makedirs(target)
    files = [os.path.join(device.root, MEDIA, name) for name in (*DATABASES, "Purchases")]
    return timed(["sh", "-c", 'target=$1; shift; cp -r "$@" "$target" && sync -f "$target"', "sh",
                  target, *files])


def rounds_of(build, scratch, rounds, files, size):
    device = Device(build, os.path.join(scratch, "device"), os.path.join(scratch, "state"))
    buy(device, scratch, files, size)
    pairs = []
    for number in range(rounds):
        pair = {}
        for side in (["peer", "ours"] if number % 2 == 0 else ["ours", "peer"]):
            target = os.path.join(scratch, side)
            os.sync()
            pair[side] = copy(device, target) if side == "peer" else backup(device, target)
        pairs.append(pair)
        drop(os.path.join(scratch, "peer"))
        os.remove(os.path.join(scratch, "ours"))
    device.stop_daemon()
    return pairs


def main():
    with bench(__doc__) as (options, build, scratch):
        pairs = rounds_of(build, scratch, options.rounds, options.files, options.size)
    report([row(f"backup with {options.files} files of {options.size} bytes", "cp -r, sync", pairs,
                1.5)], options.output)


if __name__ == "__main__":
    main()
