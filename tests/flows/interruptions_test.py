"""Killed, interrupted and refused syncs; the long form is `make torture`."""

import os
import signal
import subprocess
import time

from flow import BUSY, DONE, Flow, main


class Interruptions(Flow):
    def wait_for(self, condition, what, seconds=30):
        deadline = time.monotonic() + seconds
        while not condition():
            self.assertLess(time.monotonic(), deadline, what)
            subprocess.run(["sleep", "0.005"], check=False)

    def files_on_device(self):
        music = os.path.join(self.device.root, "var/mobile/Media/Tessel_Control/Music")
        return sum(len(names) for _, _, names in os.walk(music))

    def interrupted(self, end, files=150):
        """A sync that `end` is done to when some files have arrived."""
        self.make(files, size=200_000)
        process = self.device.start_sync(self.media)
        self.wait_for(lambda: self.files_on_device() > 5 or process.poll() is not None, "no file came")
        end(process)
        process.communicate(timeout=60)
        return process.returncode

    def assertCompletes(self):
        summary = self.sync()[-1]
        self.assertEqual(summary["failed"], 0)
        self.assertSameFiles()
        self.assertSound()
        self.assertEqual(self.sync()[-1]["sent"], 0)
        return summary

    def test_a_killed_host_goes_on_where_it_stopped(self):
        self.interrupted(lambda process: process.kill())
        self.assertLess(self.assertCompletes()["sent"], 150)

    def test_a_killed_daemon_goes_on_where_it_stopped(self):
        code = self.interrupted(lambda process: self.device.kill_daemon())
        self.assertNotEqual(code, DONE)
        self.assertLess(self.assertCompletes()["sent"], 150)

    def test_an_interrupt_ends_in_order_and_the_next_run_completes(self):
        code = self.interrupted(lambda process: process.send_signal(signal.SIGINT))
        self.assertEqual(code, 130)
        status = self.device.lines("status", "--json")[-1]
        self.assertFalse(status["background_suppressed"])
        self.assertCompletes()

    def test_two_interrupts_end_at_once(self):
        def twice(process):
            process.send_signal(signal.SIGINT)
            process.send_signal(signal.SIGINT)
        self.interrupted(twice)
        self.assertCompletes()

    def test_a_second_sync_is_refused_with_busy_and_its_owner(self):
        self.make(2)
        self.sync()
        self.make(100, size=200_000)
        with self.held_sync() as first:
            code, _, errors = self.device.sync(self.media)
            self.assertEqual(code, BUSY, errors)
            self.assertIn(str(first.pid), errors)
        self.assertSound()

    def test_the_daemon_leaves_when_idle(self):
        self.song("a.mp3", title="A")
        self.device.environment["ORLITH_IDLE_SECONDS"] = "1"
        self.sync()
        self.wait_for(lambda: self.device.daemon_process() is None, "the daemon stayed")


if __name__ == "__main__":
    main()
