"""The man pages and completions as they were written: read by man, run by bash."""

import glob
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

BUILD = os.environ["ORLITH_BUILD"]
PAGES = os.path.join(BUILD, "share")

COMPLETE = """
source "$1"; shift
compopt() { :; }
COMP_WORDS=("$@"); COMP_CWORD=$(( $# - 1 ))
_orlith
printf '%s\\n' "${COMPREPLY[@]}"
"""


class ManPages(unittest.TestCase):
    def test_there_is_one_for_each_command_that_help_lists(self):
        told = subprocess.run([os.path.join(BUILD, "bin/orlith"), "--help"], capture_output=True,
                              text=True, check=True).stdout
        commands = re.findall(r"^  ([a-z][a-z-]+)  +[A-Z]", told, re.MULTILINE)
        self.assertIn("sync", commands)
        for command in commands:
            self.assertTrue(os.path.exists(f"{PAGES}/man/orlith-{command}.1"), command)
        self.assertTrue(os.path.exists(f"{PAGES}/man/orlithd.8"))

    @unittest.skipUnless(shutil.which("man") and shutil.which("groff"), "man is not installed")
    def test_they_are_shown_without_a_warning(self):
        pages = glob.glob(f"{PAGES}/man/*")
        self.assertGreater(len(pages), 15)
        for page in pages:
            shown = subprocess.run(["man", "--warnings", "-P", "cat", "-l", page],
                                   capture_output=True, text=True,
                                   env={**os.environ, "LC_ALL": "C.UTF-8", "MANWIDTH": "200"})
            self.assertEqual((shown.returncode, shown.stderr), (0, ""), page)
            self.assertIn("SYNOPSIS", shown.stdout)


class BashCompletion(unittest.TestCase):
    def setUp(self):
        self.scratch = tempfile.mkdtemp(prefix="orlith-completion-")
        for name in ("Some Music", "Device"):
            os.mkdir(os.path.join(self.scratch, name))
        open(os.path.join(self.scratch, "changes.qorx"), "w").close()

    def tearDown(self):
        shutil.rmtree(self.scratch)

    def complete(self, *words):
        done = subprocess.run(["bash", "-c", COMPLETE, "bash", f"{PAGES}/bash/orlith", "orlith",
                               *words], capture_output=True, text=True, cwd=self.scratch)
        self.assertEqual(done.stderr, "")
        return set(done.stdout.split("\n")) - {""}

    def test_the_scripts_are_well_formed(self):
        for script in glob.glob(f"{PAGES}/bash/*"):
            subprocess.run(["bash", "-n", script], check=True)

    def test_commands_and_actions_are_offered(self):
        self.assertEqual(self.complete("sy"), {"sync"})
        self.assertEqual(self.complete("playlist", "re"), {"remove", "rename"})
        self.assertEqual(self.complete("playlist", "--device", "create", "mo"), {"move"})

    def test_options_are_offered_those_of_an_action_with_its_commands(self):
        self.assertEqual(self.complete("sync", "--max"), {"--max-delete"})
        self.assertEqual(self.complete("playlist", "create", "--s"), {"--smart"})
        self.assertEqual(self.complete("playlist", "create", "--dev"), {"--device"})

    def test_directories_files_and_kinds_are_offered(self):
        self.assertEqual(self.complete("sync", "So"), {"Some Music"})
        self.assertEqual(self.complete("sync", "--device", "De"), {"Device"})
        self.assertEqual(self.complete("import", "ch"), {"changes.qorx"})
        self.assertEqual(self.complete("mirror", "--kinds", "mov"), {"movie"})
        self.assertEqual(self.complete("rate", "--device", "Device", "x"), set())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
