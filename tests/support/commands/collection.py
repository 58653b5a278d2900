"""Makes a collection of small tagged files, playlists and covers, the same for the same seed."""

import os
import random
import struct
import subprocess
import zlib


def _syncsafe(n):
    return bytes((n >> shift) & 0x7F for shift in (21, 14, 7, 0))


def _frame(name, body):
    return name.encode() + _syncsafe(len(body)) + b"\0\0" + body


def _text(name, text):
    return _frame(name, b"\x03" + text.encode())


def id3(tags, cover=None):
    """An ID3v2.4 tag of text frames and, if given, a cover (bytes, MIME type)."""
    body = b"".join(_text(name, text) for name, text in tags.items())
    if cover:
        body += _frame("APIC", b"\x03" + cover[1].encode() + b"\0\x03\0" + cover[0])
    return b"ID3\x04\0\0" + _syncsafe(len(body)) + body


def png(rgb, size=64):
    """A square picture of one colour."""
    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data
                + struct.pack(">I", zlib.crc32(kind + data)))
    rows = b"".join(b"\0" + bytes(rgb) * size for _ in range(size))
    return (b"\x89PNG\r\n\x1a\n"
            + chunk(b"IHDR", struct.pack(">IIBBBBB", size, size, 8, 2, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


def mp3_body(folder, seconds=1):
    """Encoded audio without any tag."""
    path = os.path.join(folder, "body.mp3")
    if not os.path.exists(path):
        subprocess.run(
            ["ffmpeg", "-v", "error", "-f", "lavfi", "-i", f"sine=440:duration={seconds}",
             "-b:a", "64k", "-write_xing", "0", "-id3v2_version", "0", path], check=True)
    with open(path, "rb") as file:
        return file.read()


def make(folder, scratch, files=200, size=None, seed=1, covers=True):
    """`files` tracks of about `size` bytes (default: as small as they come) in albums of ten."""
    rng = random.Random(seed)
    body = mp3_body(scratch)
    names = []
    for i in range(files):
        album = i // 10
        if i % 10 == 0:
            colour = [rng.randrange(256) for _ in range(3)]
            cover = (png(colour), "image/png") if covers else None
        tag = id3({"TIT2": f"Title {i:05d}", "TPE1": f"Artist {album % 7}",
                   "TALB": f"Album {album:04d}", "TRCK": str(i % 10 + 1),
                   "TCON": ["Jazz", "Rock", "Folk"][album % 3]}, cover)
        # Whole frames more, so that the file stays well-formed at any size.
        sound = body * max(1, ((size or 0) - len(tag)) // len(body))
        where = os.path.join(folder, f"Artist {album % 7}", f"Album {album:04d}")
        os.makedirs(where, exist_ok=True)
        path = os.path.join(where, f"{i % 10 + 1:02d} Title {i:05d}.mp3")
        with open(path, "wb") as file:
            file.write(tag + sound)
        names.append(os.path.relpath(path, folder))
    for number in range(3):
        chosen = rng.sample(names, min(len(names), 25))
        with open(os.path.join(folder, f"List {number}.m3u8"), "w") as file:
            file.write("#EXTM3U\n" + "\n".join(chosen) + "\n")
    return names
