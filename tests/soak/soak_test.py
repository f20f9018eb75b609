"""Thousands of mails from one process through Postfix: each arrives exactly once, and the process
and its directories end as they began. OVRMAIL_SOAK_MAILS says how many; see scripts/soak.sh."""
import collections
import email
import os
import pathlib
import re
import subprocess
import sys
import unittest

sys.path.append(str(pathlib.Path(__file__).resolve().parent.parent / "e2e"))
import e2e  # noqa: E402

MAILS = int(os.environ.get("OVRMAIL_SOAK_MAILS", "120"))
CYCLE = 30  # every kind of mail comes up in so many
WARM_UP = 2  # cycles
ALLOWED_GROWTH = (128, 1024, 0)  # KiB resident, bytes of heap, mappings
USERS = [f"s{number:02}" for number in range(20)]
DATA = pathlib.Path("/var/opt/Quorvin")
LOG_COUNT, RING_COUNT = 5, 3
SETTINGS = f"""[LOG]\nLOGSIZE=10\nLOGNUM={LOG_COUNT}
[ACERT]\nTRACESIZE=5\nTRACELEVEL=2\nTRACENUM={RING_COUNT}\n"""
SMALL_SIZES, SPLIT_SIZE = (0, 51, 1000, 20_000), 25_000


class Host:
    """The process that sends, what it holds, and what lies in the library's directories."""

    def __init__(self, environment):
        texts = [part.encode(charset) for charset in ("shift_jis", "euc_jp")
                 for part in (e2e.SUBJECT, e2e.TEXT)]
        self.process = subprocess.Popen(
            [os.environ["OVRMAIL_SOAK"], *texts], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            text=True, env={**os.environ, **environment})
        self.proc = pathlib.Path(f"/proc/{self.process.pid}")
        self.log = DATA / f"log/rmsmtp{self.process.pid}.log"
        self.log_number, self.rotations, self.pruned = None, 0, 0
        # Files of processes long gone, more than may stay: every send has to prune.
        self.strangers = [DATA / f"log/rmsmtp1.log{n}" for n in range(LOG_COUNT + 1)] + \
            [DATA / f"tmp2/acert1-{n}.trc" for n in range(RING_COUNT + 1)]

    def send(self, *order):
        for stranger in self.strangers:
            stranger.touch()
            os.utime(stranger, (0, 0))
        print(*order, file=self.process.stdin, flush=True)
        result, self.heap = map(int, self.process.stdout.readline().split())
        self.pruned += sum(not stranger.exists() for stranger in self.strangers)
        log_number = self.log.stat().st_ino
        self.rotations += self.log_number not in (None, log_number)
        self.log_number = log_number
        return result

    def memory(self):
        """Resident KiB, heap bytes in use, mappings."""
        resident = re.search(r"Rss:\s*(\d+)", (self.proc / "smaps_rollup").read_text())
        return int(resident[1]), self.heap, (self.proc / "maps").read_text().count("\n")

    def descriptors(self):
        return sorted(map(int, os.listdir(self.proc / "fd")))

    def is_sanitized(self):
        return "libasan" in (self.proc / "maps").read_text()


class Soak(unittest.TestCase):
    def setUp(self):
        self.sandbox = e2e.Sandbox()
        self.addCleanup(self.sandbox.cleanup)
        self.postfix = e2e.Postfix(self.sandbox, USERS)
        self.addCleanup(self.postfix.stop)
        [closed_port] = e2e.free_ports(1)
        locales = self.sandbox.make("locales")
        subprocess.run(["localedef", "-i", "ja_JP", "-f", "EUC-JP", locales / "ja_JP.eucJP"],
                       check=True, stderr=subprocess.DEVNULL)
        self.small = [self.sandbox.random_file(f"small{size}", size) for size in SMALL_SIZES]
        self.large = self.sandbox.random_file("large", SPLIT_SIZE)
        # Sends that fail, between those that don't: every so many, from where, with which result.
        self.failures = ((CYCLE, 7, -6, {"to": f"unknown@{e2e.DOMAIN}"}),
                         (CYCLE, 17, -8, {"path": self.sandbox.path / "missing"}),
                         (CYCLE, 23, -6, {"port": self.postfix.refusing_port}),
                         (1000, 27, -10, {"port": closed_port}))
        pathlib.Path("/etc/opt/Quorvin/trc_conf").write_text(SETTINGS)
        self.host = Host({"LOCPATH": str(locales)})
        self.addCleanup(self.host.process.wait)
        self.addCleanup(self.host.process.stdin.close)
        self.addCleanup(self.host.process.stdout.close)

    def attachment(self, number):
        """Every third has one; so has every tenth, which is split."""
        if number % 10 == 0:
            return self.large
        return self.small[number // 3 % len(self.small)] if number % 3 == 0 else None

    def send(self, number, expected=0, **changes):
        kind = "euc" if number % 5 == 1 else "thread" if number % 7 == 2 else "plain"
        order = {"to": f"{USERS[number % len(USERS)]}@{e2e.DOMAIN}", "port": self.postfix.port,
                 "split": 0 if number % 10 else 10, "path": self.attachment(number) or "-"}
        order.update(changes)
        result = self.host.send(number, kind, *order.values())
        after = f"after mail {number} {changes or ''}"
        self.assertEqual(result, expected, after)
        self.assertEqual(self.host.descriptors(), [0, 1, 2], after)
        self.assertEqual(os.listdir(DATA / "tmp"), [], after)
        self.assertLessEqual(len(os.listdir(DATA / "log")), LOG_COUNT, after)
        self.assertLessEqual(len(os.listdir(DATA / "tmp2")), RING_COUNT, after)

    def test_soak(self):
        samples = []
        for number in range(MAILS):
            for every, first, expected, changes in self.failures:
                if number % every == first:
                    self.send(number, expected, **changes)
            self.send(number)
            if number % CYCLE == CYCLE - 1:
                samples.append(self.host.memory())
                if len(samples) <= WARM_UP + 1 or len(samples) % (MAILS // CYCLE // 10 or 1) == 0:
                    print("{:6} mails: resident {} KiB, heap {} B, {} mappings".format(
                        number + 1, *samples[-1]), flush=True)
        sanitized = self.host.is_sanitized()
        self.host.process.stdin.close()
        self.assertEqual(self.host.process.wait(60), 0)
        print(f"{self.host.rotations} log rotations, {self.host.pruned} old files pruned")
        self.assertGreaterEqual(self.host.rotations, MAILS // CYCLE)
        if not sanitized:  # those keep what is freed
            for at_most, values in zip(ALLOWED_GROWTH, zip(*samples[WARM_UP:])):
                self.assertLessEqual(max(values) - values[0], at_most, values)
        self.check_delivery()

    def check_delivery(self):
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
        numbers = arrived.keys() | set(range(MAILS))
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


if __name__ == "__main__":
    e2e.main(root=True, commands=("postfix", "localedef"))
