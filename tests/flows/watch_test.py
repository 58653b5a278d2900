"""Following a sync from another process."""

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
        text = b"".join(seen).decode()
        self.assertIn("20", text)


if __name__ == "__main__":
    main()
