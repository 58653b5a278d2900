#!/usr/bin/env python3
"""Long tests of host and daemons together, each random choice from a seed that is printed.

kills: SIGKILL of host or daemon at random moments of a sync; the next run must bring the device to the
       state of an undisturbed one, with nothing lost, doubled or left in staging.
mirrors: SIGKILL of either daemon or of the command at random moments of a mirror, with owners' changes
       on both devices between; in the end both hold the same, and have nothing more to say.
names: a host that puts hostile text into every field of every message and record; nothing outside the
       device directory changes.
disks: a device on a disk of every size from too small to just enough; nothing half-done is listed, the
       daemon answers, and after the disk has grown the next run completes.
"""

import argparse
import json
import os
import random
import shutil
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support", "commands"))
import collection  # noqa: E402
from device import Device  # noqa: E402


class Failure(Exception):
    pass


def compare(expected, device, context, state=Device.state):
    actual = state(device)
    if actual != expected:
        for kind in expected:
            missing = [x for x in expected[kind] if x not in actual[kind]]
            extra = [x for x in actual[kind] if x not in expected[kind]]
            print(f"  {kind}: {len(missing)} missing, {len(extra)} unexpected", file=sys.stderr)
            for row in (missing[:3] + extra[:3]):
                print("   ", json.dumps(row), file=sys.stderr)
        raise Failure(f"{context}: the device is not as it should be")
    problems = device.problems()
    if problems:
        raise Failure(f"{context}: " + "; ".join(problems[:10]))


def undisturbed(build, media, scratch):
    device = Device(build, os.path.join(scratch, "undisturbed"),
                    os.path.join(scratch, "undisturbed-state"))
    start = time.monotonic()
    code, _, errors = device.sync(media)
    took = time.monotonic() - start
    if code != 0:
        raise Failure(f"an undisturbed sync ended with {code}: {errors}")
    state = device.state()
    problems = device.problems()
    device.stop_daemon()
    if problems:
        raise Failure("after an undisturbed sync: " + "; ".join(problems[:10]))
    if not state["tracks"]:
        raise Failure("an undisturbed sync brought no track")
    return state, took


def finish(device, media, expected, context, attempts=3):
    for _ in range(attempts):
        code, lines, errors = device.sync(media)
        if code == 0:
            compare(expected, device, context)
            return lines
    raise Failure(f"{context}: the next runs ended with {code}: {errors}")


def kills(build, scratch, rng, wanted, files):
    media = os.path.join(scratch, "media")
    os.makedirs(media)
    collection.make(media, scratch, files=files, seed=rng.randrange(1 << 30))
    expected, took = undisturbed(build, media, scratch)
    print(f"kills: {files} files, an undisturbed sync takes {took:.2f} s")
    done = rounds = 0
    victims = {"host": 0, "daemon": 0}
    while done < wanted:
        rounds += 1
        root = os.path.join(scratch, "device")
        state = os.path.join(scratch, "device-state")
        device = Device(build, root, state)
        for _ in range(rng.randrange(1, 6)):
            victim = rng.choice(["host", "daemon"])
            process = device.start_sync(media)
            try:
                process.wait(timeout=rng.random() * took * 1.1)
            except subprocess.TimeoutExpired:
                if victim == "host":
                    process.kill()
                    done += 1
                elif device.kill_daemon():
                    done += 1
                victims[victim] += 1
            process.communicate(timeout=120)
        finish(device, media, expected, f"kills, round {rounds}")
        device.stop_daemon()
        shutil.rmtree(root)
        shutil.rmtree(state, ignore_errors=True)
    print(f"kills: {done} in {rounds} rounds ({victims['host']} host, {victims['daemon']} daemon): "
          "same final state, 0 lost, 0 doubled, 0 left in staging")


def change_as_owner(device, rng, titles):
    """A few of the things that a device's owner does."""
    for _ in range(rng.randrange(1, 6)):
        track = rng.choice(titles)
        device.lines(*rng.choice([
            ("rate", track, str(rng.randrange(6)), "--json"),
            ("played", track, "--json"),
            ("edit", track, f"comment=Said at {rng.randrange(1 << 30)}", "--json"),
            ("playlist", "create", f"List {rng.randrange(1 << 30)}", *rng.sample(titles, 3), "--json"),
        ]))


def settle(first, companion, context, attempts=6):
    """Mirrors both ways until nothing moves."""
    for _ in range(attempts):
        moved = 0
        for source, target in ((first, companion), (companion, first)):
            code, lines, errors = target.mirror_from(source)
            if code != 0:
                raise Failure(f"{context}: a mirror ended with {code}: {errors}")
            moved += sum(lines[-1][key] for key in ("tracks_changed", "playlists_changed",
                                                    "tracks_deleted", "assets"))
        if moved == 0:
            return
    raise Failure(f"{context}: the devices do not come to rest")


def mirrors(build, scratch, rng, wanted, files):
    media = os.path.join(scratch, "mirror-media")
    os.makedirs(media)
    collection.make(media, scratch, files=files, seed=rng.randrange(1 << 30))
    state = os.path.join(scratch, "mirror-state")
    first = Device(build, os.path.join(scratch, "first"), state)
    code, _, errors = first.sync(media)
    if code != 0:
        raise Failure(f"mirrors: the first sync ended with {code}: {errors}")
    titles = [track["title"] for track in first.state()["tracks"]]
    companion = Device(build, os.path.join(scratch, "companion"), state)
    start = time.monotonic()
    settle(first, companion, "mirrors, undisturbed")
    took = time.monotonic() - start
    done = rounds = 0
    while done < wanted:
        rounds += 1
        if rng.random() < 0.5:
            companion.stop_daemon()
            shutil.rmtree(companion.root)
            source, target = first, companion
        else:
            source, target = rng.choice([(first, companion), (companion, first)])
            change_as_owner(companion, rng, titles)
        change_as_owner(first, rng, titles)
        for _ in range(rng.randrange(1, 6)):
            process = target.start_mirror_from(source)
            try:
                process.wait(timeout=rng.random() * took)
            except subprocess.TimeoutExpired:
                victim = rng.choice([process, source, target])
                if victim is process:
                    process.kill()
                    done += 1
                elif victim.kill_daemon():
                    done += 1
            process.communicate(timeout=120)
        settle(first, companion, f"mirrors, round {rounds}")
        compare(first.shared_state(), companion, f"mirrors, round {rounds}", Device.shared_state)
        if len(first.state()["tracks"]) != len(titles):
            raise Failure(f"mirrors, round {rounds}: there are not as many tracks as before")
    for device in (first, companion):
        device.stop_daemon()
    print(f"mirrors: {done} kills in {rounds} rounds: both devices the same, nothing lost or doubled")


def names(build, seed, wanted):
    """The same in the programs' own language; here it only gets more names than in a test run."""
    done = subprocess.run([os.path.join(build, "bin", "daemon_process_tests"), "--gtest_filter=HostileNames.*"],
                          env=dict(os.environ, ORLITH_SEED=str(seed), ORLITH_HOSTILE_NAMES=str(wanted)),
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if done.returncode != 0:
        raise Failure(f"names: {done.stdout.decode(errors='replace')[-4000:]}")
    print(f"names: {wanted} in every field that holds text: nothing outside the device was touched, "
          "the daemon went on")


def disks(build, scratch, rng, wanted):
    if os.geteuid() != 0:
        print("disks: skipped, mounting needs root")
        return
    media = os.path.join(scratch, "disk-media")
    os.makedirs(media)
    collection.make(media, scratch, files=60, size=250_000, seed=rng.randrange(1 << 30))
    place = os.path.join(scratch, "disk-place")
    os.makedirs(place)
    expected, _ = undisturbed(build, media, place)
    need = sum(os.path.getsize(os.path.join(folder, name))
               for folder, _, names in os.walk(os.path.join(place, "undisturbed")) for name in names)
    # The device keeps a reserve of its own, so "just enough" is a little more.
    largest = need * 1.2 + (8 << 20)
    mount = os.path.join(scratch, "disk")
    os.makedirs(mount)
    full = 0
    for number in range(wanted):
        size = int((1 << 20) + (largest - (1 << 20)) * number / max(1, wanted - 1))
        subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "tmpfs", mount], check=True)
        device = Device(build, os.path.join(mount, "device"), os.path.join(scratch, f"disk-state"))
        try:
            code, _, errors = device.sync(media)
            if code not in (0, 3, 13):
                # The smallest sizes hold no database: then even starting fails, saying why.
                if not (code == 1 and "space" in errors.lower()):
                    raise Failure(f"disk of {size} bytes: ended with {code}: {errors}")
            full += code != 0
            if code in (0, 3, 13) and device.daemon_process():
                if device.orlith("status", "--json").returncode != 0:
                    raise Failure(f"disk of {size} bytes: the daemon does not answer")
                short = [p for p in device.problems() if p.startswith(("missing", "two"))]
                if short:
                    raise Failure(f"disk of {size} bytes: " + "; ".join(short[:5]))
            subprocess.run(["mount", "-o", f"remount,size={need * 3 + (64 << 20)}", mount], check=True)
            finish(device, media, expected, f"disk of {size} bytes, grown")
        finally:
            device.stop_daemon()
            subprocess.run(["umount", "-l", mount], check=True)
            shutil.rmtree(os.path.join(scratch, "disk-state"), ignore_errors=True)
    print(f"disks: {wanted} sizes up to {int(largest)} bytes, {full} of them too small: nothing "
          "half-done was listed, every rerun completed")


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default="build")
    parser.add_argument("--seed", type=int, default=None)
    parser.add_argument("--kills", type=int, default=500)
    parser.add_argument("--files", type=int, default=200)
    parser.add_argument("--mirrors", type=int, default=100)
    parser.add_argument("--names", type=int, default=300)
    parser.add_argument("--disks", type=int, default=100)
    options = parser.parse_args()
    build = os.path.abspath(options.build)
    seed = options.seed if options.seed is not None else random.SystemRandom().randrange(1 << 30)
    print(f"seed {seed} (repeat with --seed {seed})", flush=True)
    scratch = tempfile.mkdtemp(prefix="orlith-torture-")
    try:
        if options.kills:
            kills(build, scratch, random.Random(seed), options.kills, options.files)
        if options.mirrors:
            mirrors(build, scratch, random.Random(seed + 2), options.mirrors, options.files)
        if options.names:
            names(build, seed, options.names)
        if options.disks:
            disks(build, scratch, random.Random(seed + 1), options.disks)
    except Failure as failure:
        print(f"FAILED (seed {seed}): {failure}\nwhat it left lies in {scratch}", file=sys.stderr)
        return 1
    shutil.rmtree(scratch)
    return 0


if __name__ == "__main__":
    sys.exit(main())
