"""What a send costs: memory that does not grow with the mail, and few system calls."""
import queue
import re
import socket
import subprocess
import threading
import unittest

import e2e

KIB, MIB = 1024, 1024 * 1024
ALLOWED_GROWTH_KIB = 512
ALLOWED_CALLS = 1000


class Sink(threading.Thread):
    """Answers one SMTP conversation, throws the message away, asks at_quit before the last reply."""

    def __init__(self):
        super().__init__(daemon=True)
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.bytes = 0
        self.at_quit = queue.SimpleQueue()
        self.answer = None

    def run(self):
        with self.listener:
            connection, _ = self.listener.accept()
        with connection:
            connection.sendall(b"220 sink\r\n")
            while (line := connection.recv(1024)):
                if line.startswith(b"DATA"):
                    connection.sendall(b"354 go\r\n")
                    self.discard(connection)
                elif line.startswith(b"QUIT"):
                    self.answer = self.at_quit.get()()
                connection.sendall(b"250 ok\r\n")

    def discard(self, connection):
        block, tail = bytearray(MIB), b""
        while tail != b"\r\n.\r\n":
            count = connection.recv_into(block)
            self.bytes += count
            tail = (tail + block[max(count - 5, 0):count])[-5:]


class Footprint(unittest.TestCase):
    def setUp(self):
        self.sandbox = e2e.Sandbox()
        self.addCleanup(self.sandbox.cleanup)

    def sparse_file(self, size):
        path = self.sandbox.path / f"{size}.dat"
        with open(path, "wb") as file:
            file.truncate(size)
        return path

    def run_helper(self, path, ask, *prefix):
        """Sends one mail to a sink; ask(pid) is called while the helper waits for the last reply."""
        sink = Sink()
        sink.start()
        with subprocess.Popen([*prefix, e2e.HELPER, "port", str(sink.port), "to", "a@e.test",
                               "text", "hello", "attach", path], stdout=subprocess.PIPE) as helper:
            sink.at_quit.put(lambda: ask(helper.pid))
            output = helper.stdout.read()
        self.assertEqual((helper.returncode, output), (0, b"0\n"))
        self.assertGreater(sink.bytes, path.stat().st_size * 4 // 3)
        return sink.answer

    def peak_kib(self, size):
        # Of the program alone: what the kernel tells of a finished child counts its parent in.
        def ask(pid):
            with open(f"/proc/{pid}/status", encoding="ascii") as status:
                return int(re.search(r"VmHWM:\s*(\d+) kB", status.read()).group(1))
        return self.run_helper(self.sparse_file(size), ask)

    def test_memory_is_flat(self):
        small, large = self.peak_kib(KIB), self.peak_kib(500 * MIB)
        print(f"peak resident size: {small} KiB with 1 KiB attached, {large} KiB with 500 MiB")
        self.assertLess(large - small, ALLOWED_GROWTH_KIB)

    def test_composing_takes_few_system_calls(self):
        log = self.sandbox.path / "calls"
        self.run_helper(self.sparse_file(10 * MIB), id, "strace", "-f", "-o", log)
        calls = log.read_text().splitlines()
        opened = next(n for n, call in enumerate(calls) if re.search(r'open.*/tmp/EST', call))
        connected = next(n for n, call in enumerate(calls) if "socket(AF_INET" in call)
        print(f"system calls: {connected - opened} to compose 10 MiB, {len(calls)} in all")
        self.assertLess(connected - opened, ALLOWED_CALLS)


if __name__ == "__main__":
    e2e.main(commands=("strace",))
