"""Artwork at the limit of size, beyond it, too large to decode, and no image at all."""

import struct
import zlib

from flow import PARTLY, Flow, collection, main

LIMIT = 10_485_760


def padded_png(size):
    """A small picture whose file has exactly `size` bytes."""
    picture = collection.png((10, 20, 30))
    head, end = picture[:-12], picture[-12:]
    filler = bytes(size - len(picture) - 12)
    chunk = b"prIv" + filler
    return head + struct.pack(">I", len(filler)) + chunk + struct.pack(">I", zlib.crc32(chunk)) + end


def bomb():
    """20000 x 20000 pixels in a few hundred kilobytes."""
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
    packer = zlib.compressobj(9)
    row = bytes(20000 // 8 + 1)
    data = b"".join(packer.compress(row) for _ in range(20000)) + packer.flush()
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", 20000, 20000, 1, 0, 0, 0, 0))
            + chunk(b"IDAT", data) + chunk(b"IEND", b""))


class BadArtwork(Flow):
    def test_a_cover_of_exactly_the_limit_arrives(self):
        self.song("A/a.mp3", title="A")
        self.write("A/cover.png", padded_png(LIMIT))
        self.sync()
        self.assertTrue(self.tracks()[0]["artwork"])

    def test_a_cover_of_one_byte_more_is_made_smaller_or_listed_and_the_track_arrives(self):
        self.song("A/a.mp3", title="A")
        self.write("A/cover.png", padded_png(LIMIT + 1))
        code, lines, errors = self.device.sync(self.media)
        self.assertIn(code, (0, PARTLY), errors)
        listed = [f for f in lines if f["type"] == "failure"]
        track = self.tracks()[0]
        self.assertIsNotNone(track["path"])
        self.assertEqual(track["artwork"], not listed)
        self.assertSound()

    def test_a_picture_that_is_too_large_to_decode_is_listed_and_the_track_arrives(self):
        self.song("A/a.mp3", title="A")
        self.write("A/cover.png", bomb())
        lines = self.sync(expect=PARTLY)
        self.assertIn("cover.png", self.of_type(lines, "failure")[0]["path"])
        self.assertFalse(self.tracks()[0]["artwork"])
        self.assertSound()

    def test_a_cover_that_is_no_image_is_listed_and_the_track_arrives(self):
        self.song("A/a.mp3", title="A")
        self.write("A/cover.jpg", b"no image at all" * 100)
        lines = self.sync(expect=PARTLY)
        self.assertIn("cover.jpg", self.of_type(lines, "failure")[0]["path"])
        self.assertEqual(self.titles(), ["A"])
        self.assertSound()


if __name__ == "__main__":
    main()
