"""A media folder that somebody works on, at random."""

import os

from flow import collection

COVERS = [None] + [(collection.png([40 * n, 20, 90], 32 + n), "image/png") for n in range(4)]


class Folder:
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
