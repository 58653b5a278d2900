"""Random histories: what a device comes to must not depend on how it came there."""

import os
import random
import shutil

import check_test
from flow import DONE, Flow, main
from folder import Folder

HISTORIES = 4


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
            self.follow_folder(followed)
            for _ in range(rng.randint(1, 4)):
                folder.change()
        self.follow_folder(followed)
        again = self.follow_folder(followed)
        self.assertEqual((again["sent"], again["removed"], again["playlists"]), (0, 0, 0))
        self.follow_folder(fresh)
        self.assertEqual(followed.state(), fresh.state())
        self.assertComesTo(followed.picture_hashes, fresh.picture_hashes())
        self.assertComesTo(lambda: followed.orlith("check", "--full").returncode, DONE)
        self.assertEqual(followed.problems(), [])


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
