#!/usr/bin/env python3
"""Whole syncs beside their peers: rsync for moving files, mpd and beets for reading tags.

See pairs.py for how a pair is measured.
"""

import os
import shutil
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "support", "commands"))
import collection  # noqa: E402
from device import Device  # noqa: E402
from pairs import bench, drop, peak_of, report, row, timed  # noqa: E402


def orlith(build, media, device):
    return timed([os.path.join(build, "bin", "orlith"), "sync", media, "--device", device.root,
                  "--json"], env=device.environment)


def sync_rounds(build, scratch, rounds, files, size):
    """Rows: a whole sync against rsync --fsync, and a sync with nothing to do against rsync again."""
    media = os.path.join(scratch, "large")
    os.makedirs(media)
    collection.make(media, scratch, files=files, size=size, seed=1)
    os.sync()
    whole, nothing = [], []
    for number in range(rounds):
        copy = os.path.join(scratch, "rsync-copy")
        device = Device(build, os.path.join(scratch, "device"), os.path.join(scratch, "state"))
        pair = {}
        for side in (["peer", "ours"] if number % 2 == 0 else ["ours", "peer"]):
            if side == "peer":
                pair[side] = timed(["rsync", "-a", "--fsync", media + "/", copy])
            else:
                took, peak = orlith(build, media, device)
                pair[side] = (took, max(peak, peak_of(device.daemon_process())))
            os.sync()
        whole.append(pair)
        again = []
        for _ in range(3):
            peer = timed(["rsync", "-a", media + "/", copy])
            ours = orlith(build, media, device)
            again.append({"peer": peer, "ours": ours})
        nothing += again
        device.stop_daemon()
        drop(copy)
        drop(device.root)
        drop(os.path.join(scratch, "state"))
    shutil.rmtree(media)
    return whole, nothing


def tag_rounds(build, scratch, rounds, files):
    """Rows: many small tagged files against mpd's rescan and beets' import without copying."""
    media = os.path.join(scratch, "small")
    os.makedirs(media)
    collection.make(media, scratch, files=files, size=80_000, seed=2)
    against_mpd, against_beets = [], []
    for _ in range(rounds):
        device = Device(build, os.path.join(scratch, "device"), os.path.join(scratch, "state"))
        ours = orlith(build, media, device)
        ours = (ours[0], max(ours[1], peak_of(device.daemon_process())))
        device.stop_daemon()
        drop(device.root)
        drop(os.path.join(scratch, "state"))
        against_mpd.append({"ours": ours, "peer": mpd_rescan(media, scratch)})
        against_beets.append({"ours": ours, "peer": beets_import(media, scratch)})
    shutil.rmtree(media)
    return against_mpd, against_beets


def mpd_rescan(media, scratch):
    home = os.path.join(scratch, "mpd")
    os.makedirs(home)
    socket = os.path.join(home, "socket")
    with open(os.path.join(home, "mpd.conf"), "w") as file:
        file.write(f'music_directory "{media}"\ndb_file "{home}/db"\nbind_to_address "{socket}"\n'
                   f'auto_update "no"\naudio_output {{\n type "null"\n name "none"\n}}\n')
    daemon = subprocess.Popen(["mpd", "--no-daemon", os.path.join(home, "mpd.conf")],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        environment = dict(os.environ, MPD_HOST=socket)
        while not os.path.exists(socket):
            time.sleep(0.01)
        took, _ = timed(["mpc", "--wait", "rescan"], env=environment)
        return took, peak_of(daemon.pid)
    finally:
        daemon.terminate()
        daemon.wait()
        shutil.rmtree(home)


def beets_import(media, scratch):
    home = os.path.join(scratch, "beets")
    os.makedirs(home)
    with open(os.path.join(home, "config.yaml"), "w") as file:
        file.write(f"directory: {home}/music\nlibrary: {home}/library.db\nplugins: []\n"
                   "import:\n  copy: no\n  write: no\n  autotag: no\n")
    try:
        return timed(["beet", "import", "-q", "-A", "-C", media],
                     env=dict(os.environ, BEETSDIR=home, HOME=home))
    finally:
        shutil.rmtree(home)


def main():
    with bench(__doc__) as (options, build, scratch):
        whole, nothing = sync_rounds(build, scratch, options.rounds, options.files, options.size)
        against_mpd, against_beets = tag_rounds(build, scratch, options.rounds, options.files)
    report([row(f"sync of {options.files} files of {options.size} bytes", "rsync -a --fsync", whole,
                1.3),
            row(f"sync with nothing to do, {options.files} files", "rsync -a again", nothing, 4.0),
            row(f"{options.files} small tagged files", "mpd rescan", against_mpd, 4.0),
            row(f"{options.files} small tagged files", "beets import", against_beets, 1.0)],
           options.output)


if __name__ == "__main__":
    main()
