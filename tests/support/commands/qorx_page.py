"""Reads QORX streams by docs/formats.md alone: no generated code, no protobuf library.

The tables below are those of the page. Names are the ones that `orlith qorx --json` gives the fields.
"""

import ctypes
import struct

MAGIC = b"QORX"
VERSION = 1
LONGEST_RECORD = 16 << 20


class Damaged(Exception):
    pass


def xxh3(data):
    library = ctypes.CDLL("libxxhash.so.0")
    library.XXH3_64bits.restype = ctypes.c_uint64
    library.XXH3_64bits.argtypes = (ctypes.c_char_p, ctypes.c_size_t)
    return library.XXH3_64bits(data, len(data))


# --- The values of a field, by the page's words for them. Each takes what the wire holds.

def _signed(number):
    return number - (1 << 64) if number >> 63 else number


def _id(value):
    return str(struct.unpack("<q", value)[0])


def _int(value):
    return _signed(value)


def _unsigned(value):
    return value


def _number_as_text(value):
    return str(_signed(value))


def _flag(value):
    return value != 0


def _text(value):
    return value.decode("utf-8")


def _hex(value):
    return value.hex()


def _path(value):
    return value.decode("utf-8", errors="replace")


def _one_of(*names):
    return lambda value: names[value]


# The wire type that each of them has.
VARINT, EIGHT_BYTES, BYTES = 0, 1, 2
WIRE = {_id: EIGHT_BYTES, _int: VARINT, _unsigned: VARINT, _number_as_text: VARINT, _flag: VARINT,
        _text: BYTES, _hex: BYTES, _path: BYTES}
NOTHING = (0, "", "0", False)


class Field:
    def __init__(self, name, kind, absent=False, many=False):
        self.name, self.kind, self.absent, self.many = name, kind, absent, many

    @property
    def wire(self):
        if isinstance(self.kind, dict):
            return BYTES
        return WIRE.get(self.kind, VARINT)  # an enumeration is a number

    def read(self, value):
        return message(value, self.kind) if isinstance(self.kind, dict) else self.kind(value)


def _fields(kind, *names, first, absent=False):
    return {first + i: Field(name, kind, absent) for i, name in enumerate(names)}


STORE = {
    1: Field("account_id", _number_as_text, True),
    2: Field("item_id", _number_as_text, True),
    3: Field("flavor", _text, True),
    4: Field("matched_status", _int, True),
    5: Field("redownloaded_status", _int, True),
    6: Field("veska_id", _number_as_text, True),
    7: Field("podcast_guid", _text, True),
}
RATING = {1: Field("value", _unsigned), 2: Field("changed_ms", _int)}
BOOKMARK = {1: Field("position_ms", _unsigned), 2: Field("changed_ms", _int)}
PLAYS = {1: Field("origin_uid", _text), 2: Field("play_count", _unsigned),
         3: Field("skip_count", _unsigned), 4: Field("last_played_ms", _int),
         5: Field("last_skipped_ms", _int)}
FIELD_CHANGE = {1: Field("field", _unsigned), 2: Field("changed_ms", _int)}
IDS = _fields(_id, "persistent_id", "sync_id", "global_id", "own_id", first=1)

HEADER = {
    1: Field("purpose", _one_of("unknown", "host_data", "saved_metadata", "saved_playlists",
                                "changes")),
    2: Field("exporter_uid", _text),
    3: Field("complete", _flag),
    4: Field("covered_revision", _number_as_text),
    5: Field("importer_uid", _text),
}
TRACK = {
    **IDS,
    5: Field("media_type", _unsigned),
    **_fields(_text, "title", "artist", "album", "album_artist", "composer", "genre", "comment",
              "grouping", "sort_title", "sort_artist", "sort_album", "sort_album_artist", first=6,
              absent=True),
    **_fields(_unsigned, "year", "disc_number", "disc_count", "track_number", "track_count",
              first=18),
    23: Field("compilation", _flag),
    **_fields(_unsigned, "total_time_ms", "total_size", "bit_rate", "sample_rate", "bpm", first=24),
    29: Field("file_extension", _text),
    30: Field("content_hash", _hex),
    31: Field("host_path", _path, True),
    **_fields(_int, "date_added", "release_date", first=32),
    34: Field("is_rental", _flag),
    36: Field("show", _text, True),
    **_fields(_unsigned, "season_number", "episode_number", first=37),
    **_fields(_text, "episode_id", "description", "artwork_token", first=39, absent=True),
    42: Field("chapter_data", _hex, True),
    **_fields(_id, "kenning_id", "kenning_checksum", first=43, absent=True),
    45: Field("store", STORE, True),
    46: Field("rating", RATING, True),
    47: Field("plays", PLAYS, many=True),
    48: Field("bookmark", BOOKMARK, True),
    **_fields(_int, "metadata_changed_ms", "added_ms", first=49),
    51: Field("field_changes", FIELD_CHANGE, many=True),
}
PLAYLIST = {
    **IDS,
    5: Field("name", _text),
    6: Field("kind", _one_of("plain", "smart")),
    7: Field("smart_rules", _hex),
    8: Field("built_in_kind", _unsigned),
    9: Field("items", IDS, many=True),
    **_fields(_int, "changed_ms", "name_changed_ms", "items_changed_ms", "added_ms", first=10),
}
DELETION = {
    1: Field("entity", _one_of("track", "playlist")),
    **_fields(_id, "persistent_id", "sync_id", "global_id", "own_id", first=2),
    6: Field("media_type", _unsigned),
    7: Field("deleted_ms", _int),
}
END = _fields(_unsigned, "tracks", "playlists", "deletions", first=1)
KINDS = {1: ("header", HEADER), 2: ("track", TRACK), 3: ("playlist", PLAYLIST),
         4: ("deletion", DELETION), 5: ("end", END)}


def varint(data, at):
    number = shift = 0
    while True:
        if at >= len(data) or shift > 63:
            raise Damaged("a number without an end")
        byte = data[at]
        at += 1
        number |= (byte & 0x7F) << shift
        shift += 7
        if byte < 0x80:
            return number & (1 << 64) - 1, at


def wire_fields(data):
    """(number, wire type, value) of each field of a record."""
    at = 0
    while at < len(data):
        tag, at = varint(data, at)
        number, kind = tag >> 3, tag & 7
        if kind == VARINT:
            value, at = varint(data, at)
        else:
            size = {EIGHT_BYTES: 8, 5: 4}.get(kind)
            if kind == BYTES:
                size, at = varint(data, at)
            if size is None or at + size > len(data):
                raise Damaged(f"field {number} of wire type {kind}")
            value, at = data[at:at + size], at + size
        yield number, kind, value


def message(data, table):
    """A record as a dictionary; what is 0 or empty and cannot be absent is left out."""
    found = {}
    for number, wire, value in wire_fields(data):
        field = table.get(number)
        if field is None:
            raise Damaged(f"field {number} does not stand on the page")
        if wire != field.wire:
            raise Damaged(f"{field.name} has wire type {wire}")
        if field.many:
            found.setdefault(field.name, []).append(field.read(value))
        else:
            found[field.name] = field.read(value)
    named = {field.name: field for field in table.values()}
    plain = {"purpose": "unknown", "kind": "plain", "entity": "track"}
    return {name: value for name, value in found.items()
            if named[name].absent or named[name].many
            or not (value in NOTHING and not isinstance(value, (list, dict))
                    or plain.get(name) == value)}


def stream(data):
    """The header and the records (kind, fields) of one whole stream."""
    body, checksum = data[:-8], data[-8:]
    if struct.unpack("<Q", checksum)[0] != xxh3(body):
        raise Damaged("the checksum is another")
    if body[:4] != MAGIC or body[4] != VERSION:
        raise Damaged("not QORX version 1")
    at, records = 5, []
    while at < len(body):
        size, at = varint(body, at)
        if size > LONGEST_RECORD or at + size > len(body):
            raise Damaged("a record beyond the end")
        for number, _, value in wire_fields(body[at:at + size]):
            kind, table = KINDS[number]
            records.append((kind, message(value, table)))
        at += size
    if records[0][0] != "header" or records[-1][0] != "end":
        raise Damaged("no header or no end")
    counts = {kind: sum(k == kind for k, _ in records) for kind in ("track", "playlist", "deletion")}
    said = records[-1][1]
    if any(said.get(kind + "s", 0) != count for kind, count in counts.items()):
        raise Damaged("the counts are others")
    return records[0][1], records[1:-1]
