#!/usr/bin/env python3
"""Plants a breach of each rule in a small tree and expects the check to name it."""

import sys
import tempfile
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))
import check_layers  # noqa: E402

LABELS = "".join(f"// {label}: text.\n" for label in check_layers.LABELS)
CLIENT = """
class KVSyncClient {
public:
    // ---- SyncBundle/KVSyncClient.cpp ----
    static std::shared_ptr<KVSyncClient> init();
    KVSyncClient(const KVSyncClient&) = delete;

    // ---- SyncBundle/other.cpp ----
    // first:second:
    bool first(const std::function<void(int)>& second,
               int third) override;

    // ---- instance variables ----
    std::function<void()> _handler;
};
"""


class CheckLayers(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.root = Path(directory.name)
        self.write("platform/values.h", LABELS + "#pragma once\n")
        self.write("SyncBundle/CMakeLists.txt", "library(KVSyncClient.cpp other.cpp)")
        self.write("SyncBundle/KVSyncClient.h", CLIENT)
        self.write("SyncBundle/KVSyncClient.cpp",
                   '#include "platform/values.h"\n'
                   "std::shared_ptr<KVSyncClient> KVSyncClient::init() {\n"
                   "    return KVSyncClient::other();\n}\n")
        self.write("SyncBundle/other.cpp", "bool KVSyncClient::first(int) {\n}\n")

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)

    def found(self):
        return list(check_layers.breaches(self.root))

    def test_a_sound_tree_has_none(self):
        self.assertEqual(self.found(), [])

    def test_an_arrow_upwards(self):
        for name, included in (("device/a.h", "SyncBundle/log.h"), ("SyncBundle/a.h", "device/b.h"),
                               ("SyncBundle/a.h", "common/b.h"), ("common/a.h", "link/b.h"),
                               ("platform/b.h", "common/c.h"), ("device/a.h", "host/b.h"),
                               ("host/a.h", "tests/b.h")):
            with self.subTest(name=name, included=included):
                self.write(name, f'{LABELS}#include "{included}"\n')
                self.assertEqual(len(self.found()), 1)
                self.assertIn(included, self.found()[0])
                (self.root / name).unlink()

    def test_an_arrow_downwards_is_allowed(self):
        self.write("apps/a.h", '#include "host/b.h"\n#include "device/c.h"\n')
        self.write("device/c.h", '#include "common/d.h"\n#include <fmt/format.h>\n')
        self.assertEqual(self.found(), [])

    def test_a_library_in_the_plug_in(self):
        self.write("SyncBundle/a.h", "#include <fmt/format.h>\n")
        self.assertIn("only the standard library", self.found()[0])

    def test_sqlite_outside_its_wrapper(self):
        self.write("device/a.h", "#include <sqlite3.h>\n")
        self.write("common/sqlite/a.h", "#include <sqlite3.h>\n")
        self.assertEqual(len(self.found()), 1)
        self.assertIn("device/a.h", self.found()[0])

    def test_a_platform_header_without_a_label(self):
        self.write("platform/b.h", LABELS.replace("// Failure: text.\n", ""))
        self.assertIn("platform/b.h", self.found()[0])

    def test_a_file_outside_the_build(self):
        self.write("tests/a/CMakeLists.txt", "test(listed_test.cpp) # lost_test.cpp")
        self.write("tests/a/listed_test.cpp", "")
        self.write("tests/a/lost_test.cpp", "")
        self.assertEqual(self.found(), ["tests/a/lost_test.cpp is in no CMakeLists.txt"])

    def test_a_member_under_the_wrong_heading(self):
        self.write("SyncBundle/other.cpp", "")
        self.write("SyncBundle/KVSyncClient.cpp",
                   "std::shared_ptr<KVSyncClient> KVSyncClient::init() {\n}\n"
                   "bool KVSyncClient::first(int) {\n}\n")
        self.assertEqual(len(self.found()), 2)

    def test_a_heading_without_its_file(self):
        (self.root / "SyncBundle/other.cpp").unlink()
        self.assertIn("does not exist", self.found()[0])


if __name__ == "__main__":
    unittest.main()
