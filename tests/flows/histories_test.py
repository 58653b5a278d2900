"""Random histories: what a device comes to must not depend on how it came there."""

import os
import random
import shutil

import check_test
from flow import DONE, PARTLY, Flow, collection, main

HISTORIES = 4
COVERS = [None] + [(collection.png([40 * n, 20, 90], 32 + n), "image/png") for n in range(4)]


class Folder:
    """A media folder that somebody works on."""

    def __init__(self, flow, rng):
        self.flow = flow
        self.rng = rng
        self.songs = {}  # name: title, artist, album and cover
        self.made = 0
        for _ in range(8):
            self.add()

    def place(self):
        self.made += 1
        return f"{self.rng.choice('ABC')}/{self.made}.mp3"

    def any(self):
        return self.rng.choice(sorted(self.songs))

    def write(self, name):
        title, artist, album, cover = self.songs[name]
        self.flow.song(name, title, cover, TPE1=artist, TALB=album)

    def add(self):
        name = self.place()
        self.songs[name] = [f"Title {self.made}", f"Artist {self.made % 3}",
                            f"Album {self.made % 2}", self.rng.choice(COVERS)]
        self.write(name)

    def remove(self):
        if len(self.songs) > 3:
            name = self.any()
            del self.songs[name]
            os.unlink(os.path.join(self.flow.media, name))

    def rename(self):
        name, other = self.any(), self.place()
        target = os.path.join(self.flow.media, other)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        os.rename(os.path.join(self.flow.media, name), target)
        self.songs[other] = self.songs.pop(name)

    def retag(self):
        name = self.any()
        self.songs[name][self.rng.randrange(3)] = f"Other {self.rng.randrange(1000)}"
        self.write(name)

    def change_cover(self):
        name = self.any()
        self.songs[name][3] = self.rng.choice(COVERS)
        self.write(name)

    def change_folder_picture(self):
        path = os.path.join(self.flow.media, self.rng.choice("ABC"), "folder.png")
        cover = self.rng.choice(COVERS)
        if cover:
            self.flow.write(path, cover[0])
        elif os.path.exists(path):
            os.unlink(path)

    def change_playlist(self):
        name = f"List {self.rng.randrange(3)}.m3u8"
        chosen = [self.any() for _ in range(self.rng.randrange(6))]
        self.flow.write(name, "\n".join(chosen).encode())

    def change(self):
        self.rng.choice([self.add, self.remove, self.rename, self.retag, self.change_cover,
                         self.change_folder_picture, self.change_playlist])()


class Histories(Flow):
    def test_a_device_that_followed_every_change_is_like_a_fresh_one(self):
        for seed in range(HISTORIES):
            with self.subTest(seed=seed):
                self.follow(random.Random(seed), f"followed {seed}", f"fresh {seed}")

    def follow(self, rng, followed_name, fresh_name):
        shutil.rmtree(self.media)
        folder = Folder(self, rng)
        followed, fresh = self.another(followed_name), self.another(fresh_name)
        for _ in range(6):
            self.sync_all(followed)
            for _ in range(rng.randint(1, 4)):
                folder.change()
        self.sync_all(followed)
        again = self.sync_all(followed)
        self.assertEqual((again["sent"], again["removed"], again["playlists"]), (0, 0, 0))
        self.sync_all(fresh)
        self.assertEqual(followed.state(), fresh.state())
        self.assertComesTo(followed.picture_hashes, fresh.picture_hashes())
        self.assertComesTo(lambda: followed.orlith("check", "--full").returncode, DONE)
        self.assertEqual(followed.problems(), [])

    def sync_all(self, device):
        """The summary. A playlist may name a file that has left."""
        code, lines, errors = device.sync(self.media, "--delete", "--max-delete", "1000")
        self.assertIn(code, (DONE, PARTLY), errors)
        return lines[-1]


class Damages(check_test.Check):
    ROWS = "(SELECT item_id FROM item ORDER BY item_pid LIMIT 2 OFFSET {})"
    STATEMENTS = [
        "DELETE FROM artwork WHERE artwork_token = "
        "(SELECT artwork_token FROM artwork LIMIT 1 OFFSET {})",
        "UPDATE artwork SET relative_path = 'zz/zz/zz' WHERE artwork_token = "
        "(SELECT artwork_token FROM artwork LIMIT 1 OFFSET {})",
        "DELETE FROM kenning_metadata WHERE kenning_id = "
        "(SELECT kenning_id FROM kenning_metadata LIMIT 1 OFFSET {})",
        "DELETE FROM kenning_similarities WHERE kenning_id = "
        "(SELECT kenning_id FROM kenning_similarities LIMIT 1 OFFSET {})",
        "UPDATE item_extra SET location_file_name = '' WHERE item_id IN " + ROWS,
        "UPDATE item SET base_location_id = 0 WHERE item_id IN " + ROWS,
        "UPDATE item_extra SET total_size = 1 WHERE item_id IN " + ROWS,
        "UPDATE item_extra SET pending_kenning_checksum = NULL WHERE item_id IN " + ROWS,
    ]

    def test_a_repair_and_a_sync_bring_back_whatever_was_damaged(self):
        pictures = self.device.picture_hashes()
        for seed in range(HISTORIES):
            with self.subTest(seed=seed):
                rng = random.Random(seed)
                for _ in range(3):
                    rng.choice([self.damage_a_file, self.damage_a_row])(rng)
                self.assertEqual(self.device.orlith("check", "--full", "--repair").returncode, DONE)
                self.assertEqual(self.check("--full"), [])
                self.sync()
                self.assertEqual(self.check("--full"), [])
                self.assertEqual(self.held(), self.before)
                self.assertEqual(len(self.device.picture_hashes()), len(pictures))
                self.assertSound()

    def damage_a_file(self, rng):
        found = []
        for tree in (check_test.MUSIC, check_test.ORIGINALS, "/var/mobile/Media/Podcasts"):
            for folder, _, names in os.walk(self.device.real(tree)):
                found += [os.path.join(folder, name) for name in names]
        path = rng.choice(sorted(found))
        rng.choice([os.unlink, lambda p: os.truncate(p, 0), lambda p: os.rename(p, p + ".moved"),
                    self.begin_with_noise])(path)

    def begin_with_noise(self, path):
        with open(path, "r+b") as file:
            file.write(bytes(range(100, 150)))

    def damage_a_row(self, rng):
        self.sql(rng.choice(self.STATEMENTS).format(rng.randrange(6)))


if __name__ == "__main__":
    main()
