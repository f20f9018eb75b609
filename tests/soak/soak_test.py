"""Mails by the thousand through Postfix: each arrives exactly once. They come from several processes
of the same number, as in containers that share the data directory: their working files, rings and
logs have the same names, and somebody deletes these all the time. Each process ends as it began.
OVRMAIL_SOAK_MAILS and OVRMAIL_SOAK_PROCESSES say how many; see scripts/soak.sh."""
import collections
import concurrent.futures
import os
import pathlib
import re
import subprocess
import threading
import unittest

import e2e

MAILS = int(os.environ.get("OVRMAIL_SOAK_MAILS", "180"))
PROCESSES = int(os.environ.get("OVRMAIL_SOAK_PROCESSES", "2"))
CYCLE = 30  # every kind of mail comes up in so many
ALLOWED_GROWTH = (128, 1024, 0)  # after a cycle: KiB resident, bytes of heap, mappings
USERS = [f"s{number:02}" for number in range(20)]
DATA = pathlib.Path("/var/opt/Quorvin")
LOGS_OFF, LOGS_ON = "[LOG]\nLOGNUM=0\n[ACERT]\nTRACELEVEL=0\n", \
    "[LOG]\nLOGSIZE=10\nLOGNUM=5\n[ACERT]\nTRACESIZE=5\nTRACELEVEL=2\nTRACENUM=3\n"
TWIN = ("unshare", "--pid", "--fork", "--kill-child", "setarch", "--addr-no-randomize")
SMALL_SIZES, SPLIT_SIZE = (0, 51, 1000, 20_000), 25_000


class Host:
    """A process that sends, and what it holds."""

    def __init__(self, environment):
        texts = [part.encode(charset) for charset in ("shift_jis", "euc_jp")
                 for part in (e2e.SUBJECT, e2e.TEXT)]
        self.process = subprocess.Popen([*TWIN, os.environ["OVRMAIL_SOAK"], *texts],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                                        env={**os.environ, **environment})
        self.samples = []

    def order(self, *order):
        print(*order, file=self.process.stdin, flush=True)
        result, self.heap = map(int, self.process.stdout.readline().split())
        return result

    def proc(self):
        """Of the program itself, the child of unshare."""
        parent = self.process.pid
        [child] = pathlib.Path(f"/proc/{parent}/task/{parent}/children").read_text().split()
        return pathlib.Path("/proc", child)

    def sample(self):
        """Resident KiB, heap bytes in use, mappings."""
        resident = re.search(r"Rss:\s*(\d+)", (self.proc() / "smaps_rollup").read_text())
        maps = (self.proc() / "maps").read_text()
        self.samples.append((int(resident[1]), self.heap, maps.count("\n")))

    def end(self):
        self.process.stdin.close()
        self.process.stdout.close()
        return self.process.wait(60)


class Soak(unittest.TestCase):
    def setUp(self):
        self.sandbox = e2e.Sandbox()
        self.addCleanup(self.sandbox.cleanup)
        self.postfix = e2e.Postfix(self.sandbox, USERS)
        self.addCleanup(self.postfix.stop)
        locales = self.sandbox.make("locales")
        subprocess.run(["localedef", "-i", "ja_JP", "-f", "EUC-JP", locales / "ja_JP.eucJP"],
                       check=True, stderr=subprocess.DEVNULL)
        self.small = [self.sandbox.random_file(f"small{size}", size) for size in SMALL_SIZES]
        self.large = self.sandbox.random_file("large", SPLIT_SIZE)
        self.environment = {"LOCPATH": str(locales)}

    def host(self):
        host = Host(self.environment)
        self.addCleanup(host.end)
        return host

    def attachment(self, number):
        """Every third has one; so has every tenth, which is split."""
        if number % 10 == 0:
            return self.large
        return self.small[number // 3 % len(self.small)] if number % 3 == 0 else None

    def order(self, number):
        kind = "euc" if number % 5 == 1 else "thread" if number % 7 == 2 else "plain"
        order = {"to": f"{USERS[number % len(USERS)]}@{e2e.DOMAIN}", "port": self.postfix.port,
                 "split": 0 if number % 10 else 10, "path": self.attachment(number) or "-"}
        return {"number": number, "kind": kind, **order}

    def check_delivery(self, mails):
        """Every number once, with its text and its file; of a split mail every piece once."""
        queue = [self.postfix.queue / name for name in
                 ("maildrop", "incoming", "active", "deferred")]  # the way a mail goes
        e2e.wait_until(lambda: not any(path.is_file() for folder in queue
                                       for path in folder.rglob("*")), "an empty queue", 600)
        arrived, pieces = collections.Counter(), collections.defaultdict(list)
        for path in self.postfix.boxes.glob("*/new/*"):
            raw = path.read_bytes()
            piece = re.search(rb'number=(\d+); total=(\d+);\r?\n\tid="(.*)"', raw)
            if piece is None:
                arrived[self.judge(raw, joined=False)] += 1
            else:
                body = raw.split(b"\n\n", 1)[1]
                pieces[piece[3]].append((int(piece[1]), int(piece[2]), body))
        for parts in pieces.values():
            parts.sort()
            total = parts[0][1]
            self.assertEqual([part[0] for part in parts], list(range(1, total + 1)))
            arrived[self.judge(b"".join(part[2] for part in parts), joined=True)] += 1
        numbers = arrived.keys() | set(range(mails))
        self.assertEqual({number: arrived[number] for number in numbers if arrived[number] != 1},
                         {}, "mails that did not arrive once")
        print(f"{len(arrived)} mails arrived, each once; {len(pieces)} of them in "
              f"{sum(map(len, pieces.values()))} pieces", flush=True)

    def judge(self, raw, joined):
        """Returns the number of a mail that is whole."""
        number = int(re.search(rb"^mail (\d{6})\r?$", raw, re.M)[1])
        path = self.attachment(number)
        self.assertEqual(joined, number % 10 == 0)
        mail = e2e.Mail([path] if path else [], text=f"mail {number:06}\n{e2e.TEXT}")
        mail.check(self, raw, joined)
        return number


    def delete_files(self, stop):
        while not stop.wait(0.002):
            for path in DATA.glob("t*/*"):
                path.unlink(missing_ok=True)

    def send_share(self, host, numbers):
        """Mails, and between them some that fail; returns those with another result than meant."""
        unknown = {"to": f"unknown@{e2e.DOMAIN}"}, -6
        missing = {"path": self.sandbox.path / "missing"}, -8
        refused = {"port": self.postfix.refusing_port}, -6
        wrong = []
        for count, number in enumerate(numbers, 1):
            for changes, expected in ({}, 0), *{7: [unknown], 17: [missing], 23: [refused]}.get(
                    count % CYCLE, []):
                result = host.order(*{**self.order(number), **changes}.values())
                if result != expected:
                    wrong.append((number, changes, result))
            if count % CYCLE == 0:
                host.sample()
        return wrong

    def send_all(self, hosts, numbers):
        stop = threading.Event()
        with concurrent.futures.ThreadPoolExecutor(len(hosts) + 1) as pool:
            pool.submit(self.delete_files, stop)
            try:
                shares = [numbers[first::len(hosts)] for first in range(len(hosts))]
                self.assertEqual(sum(pool.map(self.send_share, hosts, shares), []), [])
            finally:
                stop.set()

    def test_every_mail_is_its_own(self):
        hosts = [self.host() for _ in range(PROCESSES)]
        half = MAILS // 2
        for settings, numbers in ((LOGS_ON, range(half)), (LOGS_OFF, range(half, MAILS))):
            pathlib.Path("/etc/opt/Quorvin/trc_conf").write_text(settings)
            self.send_all(hosts, numbers)
        for host in hosts:
            self.assertEqual(sorted(os.listdir(host.proc() / "fd")), ["0", "1", "2"])
            first, *_, last = host.samples
            print("resident {} KiB, heap {} B, {} mappings; in the end {}, {}, {}".format(
                *first, *last), flush=True)
            for allowed, before, after in zip(ALLOWED_GROWTH, first, last):
                self.assertLessEqual(after - before, allowed, host.samples)
            self.assertEqual(host.end(), 0)
        self.assertEqual(os.listdir(DATA / "tmp"), [])
        self.assertEqual(len(list(DATA.glob("log/rmsmtp1.log"))), 1)  # the names were the same
        self.check_delivery(MAILS)


if __name__ == "__main__":
    e2e.main(root=True, commands=("postfix", "localedef"))
