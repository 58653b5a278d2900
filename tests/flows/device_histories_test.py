"""A host, two devices and their owners, with bad luck in between: in the end all agree and are quiet."""

import os
import random
import shutil
import threading

from flow import DONE, PARTLY, Flow, main
from folder import Folder

HISTORIES = 4
STEPS = 16


def tracks_of(device):
    """In an order that is the same in each run: identifiers are not."""
    return sorted(device.lines("list", "--json")[:-1], key=lambda track: track["title"])


class Owner:
    """Edits a device at random; what cannot be done is refused."""

    def __init__(self, device, rng):
        self.device = device
        self.rng = rng

    def change(self):
        tracks = tracks_of(self.device)
        if not tracks:
            return
        title = self.rng.choice(tracks)["title"]
        playlist = f"Own {self.rng.randrange(2)}"
        self.device.orlith(*self.rng.choice([
            ("rate", title, str(self.rng.randrange(6))),
            ("played", title),
            ("edit", title, f"comment={self.rng.randrange(99)}"),
            ("delete", title),
            ("playlist", "create", playlist, title),
            ("playlist", "add", playlist, title),
            ("playlist", "remove", playlist, "1"),
            ("playlist", "rename", playlist, f"Own {self.rng.randrange(2)}"),
            ("playlist", "delete", playlist),
        ]))


class BadLuck:
    """What happens to a device that nobody wished for."""

    def __init__(self, device, rng):
        self.device = device
        self.rng = rng
        self.copy = None

    def strike(self):
        self.rng.choice([self.wear_out_a_file, self.lose_a_file, self.device.kill_daemon,
                         self.keep_a_copy, self.go_back])()

    def a_file(self):
        paths = [self.device.real(track["path"])
                 for track in tracks_of(self.device) if track["path"]]
        paths = [path for path in paths if os.path.exists(path)]
        return self.rng.choice(paths) if paths else None

    def wear_out_a_file(self):
        path = self.a_file()
        if path:
            with open(path, "r+b") as file:
                file.seek(self.rng.randrange(1000))
                file.write(self.rng.randbytes(16))

    def lose_a_file(self):
        path = self.a_file()
        if path:
            os.unlink(path)

    def keep_a_copy(self):
        self.copy = self.device.root + ".copy"
        shutil.rmtree(self.copy, ignore_errors=True)
        self.take(self.device.root, self.copy)

    def go_back(self):
        """To the copy: a device that was restored from an older state of its directory."""
        if self.copy:
            self.device.stop_daemon()
            shutil.rmtree(self.device.root)
            self.take(self.copy, self.device.root)

    def take(self, source, target):
        self.device.stop_daemon()
        shutil.copytree(source, target, symlinks=True, ignore=shutil.ignore_patterns("*.sock"))


class DeviceHistories(Flow):
    def test_all_agree_in_the_end_whatever_happened(self):
        for seed in range(HISTORIES):
            with self.subTest(seed=seed):
                self.live(random.Random(seed), f"first {seed}", f"second {seed}")

    def live(self, rng, first_name, second_name):
        shutil.rmtree(self.media)
        folder = Folder(self, rng)
        first, second = self.another(first_name), self.another(second_name)
        self.follow_folder(first)
        self.mirror(first, second)
        owners = [Owner(device, rng) for device in (first, second)]
        misfortunes = [BadLuck(device, rng) for device in (first, second)]
        syncs = [lambda: first.sync(self.media, "--delete", "--max-delete", "1000"),
                 lambda: second.mirror_from(first), lambda: first.mirror_from(second)]
        for _ in range(STEPS):
            rng.choice([folder.change, folder.change, lambda: rng.choice(owners).change(),
                        lambda: rng.choice(owners).change(),
                        lambda: rng.choice(misfortunes).strike(),
                        lambda: self.with_a_kill(rng, rng.choice([first, second]),
                                                 rng.choice(syncs))])()
        self.come_to_rest(first, second)

    def with_a_kill(self, rng, device, work):
        """Not always, and perhaps too late."""
        if rng.random() < 0.6:
            return work()
        kill = threading.Timer(rng.random() * 0.6, device.kill_daemon)
        kill.start()
        try:
            return work()
        finally:
            kill.join()

    def come_to_rest(self, first, second):
        # A device whose other end was killed may still be at it.
        for device in (first, second):
            self.assertComesTo(
                lambda: device.orlith("check", "--full", "--repair").returncode, DONE)
        for _ in range(3):
            self.follow_folder(first)
            for source, target in ((first, second), (second, first)):
                self.assertIn(target.mirror_from(source)[0], (DONE, PARTLY))
        self.assertMovesNothing(first, second)
        self.assertMovesNothing(second, first)
        summary = self.follow_folder(first)
        self.assertEqual((summary["sent"], summary["removed"]), (0, 0))
        self.assertEqualDevices(first, second)
        for device in (first, second):
            self.assertComesTo(lambda: self.disagreements(device), [])

    def disagreements(self, device):
        return device.orlith("check", "--full", "--json").stdout.decode().splitlines()[:-1]


if __name__ == "__main__":
    main()
