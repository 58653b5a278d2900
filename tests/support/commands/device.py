"""Runs the programs against a device directory and reads back its state in a comparable form."""

import hashlib
import json
import os
import select
import signal
import subprocess

# How long a daemon may take to end.
END_SECONDS = 60


class Device:
    def __init__(self, build, root, state):
        self.build = build
        self.root = root
        self.environment = dict(os.environ, XDG_STATE_HOME=state, NO_COLOR="1")

    def orlith(self, *arguments, timeout=300):
        return subprocess.run([os.path.join(self.build, "bin", "orlith"), *arguments,
                               "--device", self.root], env=self.environment, timeout=timeout,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def orlith_alone(self, *arguments, timeout=300):
        """A command that asks no device."""
        return subprocess.run([os.path.join(self.build, "bin", "orlith"), *arguments],
                              env=self.environment, timeout=timeout, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE)

    def start_sync(self, media, *arguments):
        return subprocess.Popen([os.path.join(self.build, "bin", "orlith"), "sync", media, "--device",
                                 self.root, "--json", *arguments], env=self.environment,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                start_new_session=True)

    def sync(self, media, *arguments):
        """(exit code, JSON lines)"""
        done = self.orlith("sync", media, "--json", *arguments)
        return done.returncode, _lines(done.stdout), done.stderr.decode(errors="replace")

    def start(self, *arguments):
        """A command of `orlith` that runs on."""
        return subprocess.Popen([os.path.join(self.build, "bin", "orlith"), *arguments],
                                env=self.environment, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, start_new_session=True)

    def start_mirror_from(self, other, *arguments):
        return self.start("mirror", "--from", other.root, "--to", self.root, "--json", *arguments)

    def mirror_from(self, other, *arguments):
        """(exit code, JSON lines, errors)"""
        process = self.start_mirror_from(other, *arguments)
        output, errors = process.communicate(timeout=300)
        return process.returncode, _lines(output), errors.decode(errors="replace")

    def daemon_process(self):
        """The daemon's process id by its open root, or None."""
        wanted = os.path.realpath(self.root)
        for entry in os.listdir("/proc"):
            if not entry.isdigit():
                continue
            try:
                with open(f"/proc/{entry}/cmdline", "rb") as file:
                    words = file.read().split(b"\0")
            except OSError:
                continue
            if words and words[0].endswith(b"orlithd") and any(
                    os.path.realpath(os.fsdecode(w)) == wanted for w in words[1:] if w):
                return int(entry)
        return None

    def kill_daemon(self):
        """Whether there was one; it is gone then."""
        return self._end_daemon(signal.SIGKILL)

    def stop_daemon(self):
        return self._end_daemon(signal.SIGTERM)

    def _end_daemon(self, how):
        process = self.daemon_process()
        if process is None:
            return False
        handle = os.pidfd_open(process)
        try:
            os.kill(process, how)
            if not select.select([handle], [], [], END_SECONDS)[0]:
                raise RuntimeError("the daemon does not end")
        finally:
            os.close(handle)
        return True

    def state(self):
        """Everything of the device that an undisturbed run determines, ids replaced by titles."""
        tracks = _lines(self._checked("list", "--json"))
        playlists = _lines(self._checked("list", "--playlists", "--json"))
        title = {t["persistent_id"]: t["title"] for t in tracks if t["type"] == "track"}
        rows = []
        for track in tracks:
            if track["type"] != "track":
                continue
            row = {key: track[key] for key in
                   ("title", "artist", "album", "disc_number", "track_number", "media_type",
                    "asset_type", "size", "artwork", "kenning", "chapters", "rating", "play_count")}
            row["sha256"] = self._hash(track["path"])
            rows.append(row)
        lists = [(p["name"], p["smart"], [title.get(t, "?") for t in p["tracks"]])
                 for p in playlists if p["type"] == "playlist" and not p["smart"]]
        return {"tracks": sorted(rows, key=lambda r: json.dumps(r, sort_keys=True)),
                "playlists": sorted(lists)}

    def shared_state(self):
        """What devices that have mirrored each other have in common."""
        state = self.state()
        for track in state["tracks"]:
            del track["kenning"]
        state["tracks"].sort(key=lambda track: json.dumps(track, sort_keys=True))
        return state

    def picture_hashes(self):
        """Of covers and chapters, whoever asks for them."""
        found = []
        originals = self.real("/var/mobile/Media/Tessel_Control/Artwork/Originals")
        for folder, _, files in os.walk(originals):
            for name in files:
                with open(os.path.join(folder, name), "rb") as file:
                    found.append(hashlib.sha256(file.read()).hexdigest())
        return sorted(found)

    def problems(self):
        """What should not be on a device at rest."""
        found = []
        tracks = [t for t in _lines(self._checked("list", "--json")) if t["type"] == "track"]
        owned = set()
        for track in tracks:
            if track["path"] is None:
                found.append(f"no file: {track['title']}")
                continue
            path = self.real(track["path"])
            if path in owned:
                found.append(f"two tracks share {path}")
            owned.add(path)
            if not os.path.isfile(path) or os.path.getsize(path) != track["size"]:
                found.append(f"missing or short: {track['path']}")
        media = os.path.join(self.root, "var/mobile/Media")
        for tree in ("Tessel_Control/Music", "Podcasts"):
            for folder, _, files in os.walk(os.path.join(media, tree)):
                found += [f"nobody owns {name}" for name in files
                          if os.path.join(folder, name) not in owned]
        for folder, _, files in os.walk(os.path.join(media, "Stagehold")):
            found += [f"left in staging: {os.path.join(folder, name)}" for name in files]
        return found

    def lines(self, *arguments):
        """The JSON lines of a command that must succeed."""
        return _lines(self._checked(*arguments))

    def real(self, device_path):
        """Where a path of the device lies on this machine."""
        return os.path.join(self.root, device_path.lstrip("/"))

    def _hash(self, device_path):
        if device_path is None:
            return None
        try:
            with open(self.real(device_path), "rb") as file:
                return hashlib.sha256(file.read()).hexdigest()
        except OSError:
            return None

    def _checked(self, *arguments):
        done = self.orlith(*arguments)
        if done.returncode != 0:
            raise RuntimeError(f"orlith {' '.join(arguments)} ended with {done.returncode}: "
                               + done.stderr.decode(errors="replace"))
        return done.stdout


def _lines(output):
    return [json.loads(line) for line in output.splitlines() if line.strip()]
