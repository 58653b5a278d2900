"""Following a sync from another process."""

import json
import os
import signal
import subprocess

from flow import BUILD, Flow, main


class Watch(Flow):
    def test_watch_sees_the_total_and_the_end(self):
        self.make(20)
        self.sync("--dry-run")
        watcher = subprocess.Popen(
            [os.path.join(BUILD, "bin/orlith"), "watch", "--device", self.device.root, "--json"],
            env=self.device.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        try:
            first = watcher.stdout.readline()
            self.assertTrue(first, "watch said nothing at its start")
            self.sync()
            seen = [first] + [line for line in iter(watcher.stdout.readline, b"")]
        finally:
            if watcher.poll() is None:
                watcher.send_signal(signal.SIGINT)
            watcher.communicate(timeout=30)
        lines = [json.loads(line) for line in seen]
        self.assertEqual(lines[-1], {"type": "summary", "files": 20})
        self.assertEqual({line["type"] for line in lines[:-1]}, {"progress"})


if __name__ == "__main__":
    main()
