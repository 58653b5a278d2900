"""Several devices, and one host: however tracks travel, none is there twice."""

import os

from flow import Flow, main


class SeveralDevices(Flow):
    def folder(self, name, titles):
        folder = os.path.join(self.scratch, name)
        media, self.media = self.media, folder
        for title in titles:
            self.song(f"{title}.mp3", title=title)
        self.media = media
        return folder

    def test_two_devices_of_one_host_do_not_double_their_tracks(self):
        self.make(10)
        other = self.another("other")
        self.sync()
        self.sync(device=other)
        before = self.titles()
        self.assertEqual(self.mirror(self.device, other)["assets"], 0)
        self.mirror(other, self.device)
        self.assertEqual(self.titles(), before)
        self.assertEqualDevices(self.device, other)
        self.assertMovesNothing(self.device, other)
        self.assertMovesNothing(other, self.device)
        for device in (self.device, other):
            self.assertEqual(self.sync(device=device)[-1]["sent"], 0)
        self.assertEqualDevices(self.device, other)

    def test_a_track_that_one_of_them_has_alone_comes_with_its_file(self):
        self.make(4)
        other = self.another("other")
        self.sync()
        self.sync(device=other)
        self.sync(device=other, media=self.folder("more", ["Only there"]))
        self.assertEqual(self.mirror(other, self.device)["assets"], 1)
        self.assertIn("Only there", self.titles())
        self.assertEqualDevices(self.device, other)

    def test_a_ring_of_three_comes_to_rest_with_everything_once(self):
        ring = [self.device, self.another("second"), self.another("third")]
        titles = [["One", "Two"], ["Three"], ["Four", "Five", "Six"]]
        for number, device in enumerate(ring):
            self.sync(device=device, media=self.folder(f"folder {number}", titles[number]))
        for _ in range(2):
            for number, device in enumerate(ring):
                self.mirror(device, ring[(number + 1) % 3])
        self.assertEqual(self.titles(), sorted(sum(titles, [])))
        self.assertEqualDevices(*ring)
        for number, device in enumerate(ring):
            self.assertMovesNothing(device, ring[(number + 1) % 3])

    def test_an_edit_goes_round_a_ring(self):
        ring = [self.device, self.another("second"), self.another("third")]
        self.sync(media=self.folder("folder", ["One"]))
        for source, target in ((0, 1), (1, 2), (2, 0)):
            self.mirror(ring[source], ring[target])
        ring[1].orlith("edit", "One", "title=Uno")
        ring[2].orlith("rate", "One", "5")
        for source, target in ((1, 2), (2, 0), (0, 1)):
            self.mirror(ring[source], ring[target])
        self.assertEqual([(t["title"], t["rating"]) for t in self.tracks()], [("Uno", 100)])
        self.assertEqualDevices(*ring)


if __name__ == "__main__":
    main()
