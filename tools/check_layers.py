#!/usr/bin/env python3
"""Checks the rules of the tree that no compiler knows; prints each breach and fails if there is one.

- Include arrows run only downwards: apps -> host, device -> link -> common -> platform, and
  SyncBundle -> platform.
- platform/ and SyncBundle/ include nothing but the standard library beside that; sqlite3.h is
  included in common/sqlite/ alone (benchmarks have it as a peer).
- Every header of platform/ begins with five labelled lines.
- Every source file is listed in a CMakeLists.txt: a test outside the build is lost.
- SyncBundle/KVSyncClient.h declares each operation under the file that defines it.

Usage: check_layers.py [root of the tree]
"""

import re
import sys
from pathlib import Path

# What each folder may include, itself apart.
LOWER_FOLDERS = {
    "platform": set(),
    "SyncBundle": {"platform"},
    "common": {"platform"},
    "link": {"common", "platform"},
    "device": {"link", "common", "platform"},
    "host": {"link", "common", "platform"},
    "apps": {"host", "device", "link", "common", "platform"},
}
# These stand above everything.
FREE_FOLDERS = ("tests", "bench", "fuzz", "examples")
STANDARD_ONLY = ("platform", "SyncBundle")
SQLITE_HOME = "common/sqlite/"
LABELS = ["Purpose", "Calling thread", "Callback thread", "Ownership", "Failure"]
CLIENT_HEADER = "SyncBundle/KVSyncClient.h"
CLIENT = "KVSyncClient"

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)
STANDARD_HEADER = re.compile(r"^[a-z_]+$")
HEADING = re.compile(r"^\s*// ---- (.+?) ----$")
DECLARED_NAME = re.compile(r"(~?\w+)\s*\(")


def source_files(root):
    for folder in (*LOWER_FOLDERS, *FREE_FOLDERS):
        for path in sorted((root / folder).rglob("*")):
            if path.suffix in (".h", ".cpp"):
                yield path


def include_breaches(root):
    for path in source_files(root):
        name = path.relative_to(root).as_posix()
        folder = name.split("/")[0]
        if folder in FREE_FOLDERS:
            continue
        allowed = LOWER_FOLDERS[folder] | {folder}
        for kind, included in INCLUDE.findall(path.read_text()):
            target = included.split("/")[0]
            if target in LOWER_FOLDERS or target in FREE_FOLDERS:
                if target not in allowed:
                    yield f"{name} includes {included}: not below {folder}/"
            elif folder in STANDARD_ONLY and not (kind == "<" and STANDARD_HEADER.match(included)):
                yield f"{name} includes {included}: only the standard library may be"
            if included == "sqlite3.h" and not name.startswith(SQLITE_HOME):
                yield f"{name} includes sqlite3.h: only {SQLITE_HOME} may"


def header_label_breaches(root):
    for path in sorted((root / "platform").glob("*.h")):
        found = []
        for line in path.read_text().splitlines():
            if not line.startswith("//"):
                break
            label = re.match(r"// (\w[\w ]*): \S", line)
            if label and label.group(1) in LABELS:
                found.append(label.group(1))
        if found != LABELS:
            yield f"{path.relative_to(root).as_posix()} does not begin with the lines {LABELS}"


def build_breaches(root):
    listings = {}
    for path in source_files(root):
        if path.suffix != ".cpp":
            continue
        listed = False
        for folder in path.relative_to(root).parents:
            listing = root / folder / "CMakeLists.txt"
            if not listing.is_file():
                continue
            if listing not in listings:
                text = re.sub(r"#.*", "", listing.read_text())
                listings[listing] = set(re.split(r'[\s()"]+', text))
            if path.relative_to(root / folder).as_posix() in listings[listing]:
                listed = True
                break
        if not listed:
            yield f"{path.relative_to(root).as_posix()} is in no CMakeLists.txt"


def declarations_by_file(header):
    """The member functions of the client's header under each heading that names a file."""
    declared = {}
    heading = None
    statement = ""
    for line in header.splitlines():
        found = HEADING.match(line)
        if found:
            heading = found.group(1)
            statement = ""
            continue
        code = re.sub(r"//.*", "", line).strip()
        if heading is None or not heading.endswith(".cpp") or not code:
            continue
        if code in ("public:", "private:") or code.startswith("friend "):
            continue
        statement += " " + code
        if not code.endswith((";", "{", "}")):
            continue
        name = DECLARED_NAME.search(statement)
        if name and "=" not in statement.rsplit(")", 1)[-1]:
            declared.setdefault(heading, set()).add(name.group(1))
        statement = ""
    return declared


def client_breaches(root):
    header = root / CLIENT_HEADER
    if not header.is_file():
        return
    declared = declarations_by_file(header.read_text())
    definition = re.compile(rf"\b{CLIENT}::(~?\w+)\s*\(")
    for file, names in declared.items():
        path = root / file
        if not path.is_file():
            yield f"{CLIENT_HEADER} names {file}, which does not exist"
            continue
        defined = set(definition.findall(path.read_text()))
        for name in sorted(names - defined):
            yield f"{CLIENT_HEADER} declares {name} under {file}, which does not define it"
    for path in sorted((root / "SyncBundle").rglob("*.cpp")):
        file = path.relative_to(root).as_posix()
        defined = set()
        for line in path.read_text().splitlines():
            # A definition stands at the margin and its line is no statement.
            if line and not line[0].isspace() and not line.endswith(";"):
                defined |= set(definition.findall(line))
        for name in sorted(defined - declared.get(file, set())):
            yield f"{file} defines {name}, which {CLIENT_HEADER} declares elsewhere"


def breaches(root):
    for check in (include_breaches, header_label_breaches, build_breaches, client_breaches):
        yield from check(root)


def main():
    root = Path(sys.argv[1] if len(sys.argv) > 1 else Path(__file__).parent.parent).resolve()
    found = list(breaches(root))
    for breach in found:
        print(breach)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
