"""What a send costs: memory that does not grow with the mail, and few system calls."""
import pathlib
import re
import subprocess

import e2e
from receiver import Receiver, Scratch

KIB, MIB = 1024, 1024 * 1024
ALLOWED_GROWTH_KIB = 512
ALLOWED_CALLS = 1000


class Footprint(Scratch):
    def run_helper(self, size, *prefix):
        """Sends a mail with so many bytes attached; returns the peak memory before its end, in KiB.
        Of the program alone: what the kernel tells of a finished child counts its parent in."""
        path, peaks = self.dir / "attached", []
        with open(path, "wb") as file:
            file.truncate(size)

        def look():
            status = pathlib.Path(f"/proc/{helper.pid}/status").read_text()
            peaks.append(int(re.search(r"VmHWM:\s*(\d+) kB", status)[1]))

        with Receiver({"QUIT": look}) as server:
            helper = subprocess.Popen([*prefix, e2e.HELPER, "port", str(server.port), "to",
                                       "a@e.test", "text", "hello", "attach", path],
                                      stdout=subprocess.PIPE)
            self.assertEqual((helper.communicate()[0], helper.returncode), (b"0\n", 0))
            self.assertGreater(len(server.mails[0]), size * 4 // 3)
        return peaks[0]

    def test_memory_is_flat(self):
        small, large = self.run_helper(KIB), self.run_helper(64 * MIB)
        print(f"peak resident size: {small} KiB with 1 KiB attached, {large} KiB with 64 MiB")
        self.assertLess(large - small, ALLOWED_GROWTH_KIB)

    def test_composing_takes_few_system_calls(self):
        log = self.dir / "calls"
        self.run_helper(10 * MIB, "strace", "-f", "-o", log)
        calls = log.read_text().splitlines()
        opened = next(n for n, call in enumerate(calls) if re.search(r'open.*/tmp/EST', call))
        connected = next(n for n, call in enumerate(calls) if "socket(AF_INET" in call)
        print(f"system calls: {connected - opened} to compose 10 MiB, {len(calls)} in all")
        self.assertLess(connected - opened, ALLOWED_CALLS)


if __name__ == "__main__":
    e2e.main(commands=("strace",))
