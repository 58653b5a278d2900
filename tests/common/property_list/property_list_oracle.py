"""The standard library's property lists, as an oracle.

generate DIR SEED COUNT   writes random values: N.xml, N.bin, and what they are as text: N.txt
dump DIR                  reads every *.plist and writes what it is as text: *.txt
"""

import datetime
import pathlib
import plistlib
import random
import struct
import sys

EPOCH = datetime.datetime(1970, 1, 1)


def text_of(value):
    if isinstance(value, bool):
        return "t" if value else "f"
    if isinstance(value, int):
        return f"i{value}"
    if isinstance(value, float):
        return "r" + struct.pack(">d", value).hex()
    if isinstance(value, str):
        return "s" + value.encode().hex()
    if isinstance(value, bytes):
        return "b" + value.hex()
    if isinstance(value, datetime.datetime):
        return f"d{int((value - EPOCH).total_seconds())}"
    if isinstance(value, list):
        return "(" + ",".join(text_of(v) for v in value) + ")"
    keys = sorted(value, key=lambda key: key.encode())
    return "{" + ",".join(key.encode().hex() + ":" + text_of(value[key]) for key in keys) + "}"


def random_text(rng):
    alphabets = ["abc <>&\"'\n\t", "äöüßé", "日本語", "𝄞😀\U0010fffd", "]]>"]
    return "".join(rng.choice(rng.choice(alphabets)) for _ in range(rng.choice([0, 1, 5, 14, 15, 16, 300])))


def random_integer(rng):
    bits = rng.choice([1, 8, 16, 31, 32, 33, 63, 64])
    number = rng.getrandbits(bits)
    return rng.choice([number, -number if number <= 1 << 63 else number, 2**64 - 1, -(2**63), 0, 255, 256])


def random_value(rng, depth):
    kind = rng.randrange(9 if depth < 5 else 7)
    if kind == 0:
        return rng.random() < 0.5
    if kind == 1:
        return random_integer(rng)
    if kind == 2:
        return rng.choice([rng.uniform(-1e9, 1e9), rng.random(), 1e300, -5e-324, 0.0, float("inf"), 1.0])
    if kind in (3, 4):
        return random_text(rng)
    if kind == 5:
        return rng.randbytes(rng.choice([0, 1, 2, 3, 15, 100, 1000]))
    if kind == 6:
        return EPOCH + datetime.timedelta(seconds=rng.randrange(-(2**35), 2**36))
    if kind == 7:
        return [random_value(rng, depth + 1) for _ in range(rng.choice([0, 1, 3, 15, 20]))]
    return {random_text(rng): random_value(rng, depth + 1) for _ in range(rng.choice([0, 1, 3, 20]))}


def generate(directory, seed, count):
    rng = random.Random(seed)
    for number in range(count):
        value = random_value(rng, 0)
        (directory / f"{number}.txt").write_text(text_of(value))
        (directory / f"{number}.xml").write_bytes(plistlib.dumps(value, fmt=plistlib.FMT_XML))
        (directory / f"{number}.bin").write_bytes(plistlib.dumps(value, fmt=plistlib.FMT_BINARY))


def dump(directory):
    for path in directory.glob("*.plist"):
        path.with_suffix(".txt").write_text(text_of(plistlib.loads(path.read_bytes())))


if sys.argv[1] == "generate":
    generate(pathlib.Path(sys.argv[2]), int(sys.argv[3]), int(sys.argv[4]))
else:
    dump(pathlib.Path(sys.argv[2]))
