"""Thousands of mails through Postfix: each arrives exactly once. From one process, which ends with
its directories as it began; and from several at once, whose working files bear the same names.
OVRMAIL_SOAK_MAILS and OVRMAIL_SOAK_PROCESSES say how many; see scripts/soak.sh."""
import collections
import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys
import threading
import unittest

sys.path.append(str(pathlib.Path(__file__).resolve().parent.parent / "e2e"))
import e2e  # noqa: E402

MAILS = int(os.environ.get("OVRMAIL_SOAK_MAILS", "120"))
PROCESSES = int(os.environ.get("OVRMAIL_SOAK_PROCESSES", "2"))
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

    def __init__(self, environment, wrapper=()):
        texts = [part.encode(charset) for charset in ("shift_jis", "euc_jp")
                 for part in (e2e.SUBJECT, e2e.TEXT)]
        self.process = subprocess.Popen(
            [*wrapper, os.environ["OVRMAIL_SOAK"], *texts], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            text=True, env={**os.environ, **environment})
        self.proc = pathlib.Path(f"/proc/{self.process.pid}")
        self.log = DATA / f"log/rmsmtp{self.process.pid}.log"
        self.log_number, self.rotations, self.pruned = None, 0, 0
        # Files of processes long gone, more than may stay: every send has to prune.
        self.strangers = [DATA / f"log/rmsmtp1.log{n}" for n in range(LOG_COUNT + 1)] + \
            [DATA / f"tmp2/acert1-{n}.trc" for n in range(RING_COUNT + 1)]

    def order(self, *order):
        print(*order, file=self.process.stdin, flush=True)
        result, self.heap = map(int, self.process.stdout.readline().split())
        return result

    def send(self, *order):
        for stranger in self.strangers:
            stranger.touch()
            os.utime(stranger, (0, 0))
        result = self.order(*order)
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

    def end(self):
        self.process.stdin.close()
        self.process.stdout.close()
        return self.process.wait(60)


class Mails(unittest.TestCase):
    """What is sent, and how it has to arrive."""

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

    def host(self, wrapper=()):
        host = Host(self.environment, wrapper)
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


class Soak(Mails):
    def send(self, host, number, expected=0, **changes):
        result = host.send(*{**self.order(number), **changes}.values())
        after = f"after mail {number} {changes or ''}"
        self.assertEqual(result, expected, after)
        self.assertEqual(host.descriptors(), [0, 1, 2], after)
        self.assertEqual(os.listdir(DATA / "tmp"), [], after)
        self.assertLessEqual(len(os.listdir(DATA / "log")), LOG_COUNT, after)
        self.assertLessEqual(len(os.listdir(DATA / "tmp2")), RING_COUNT, after)

    def test_soak(self):
        [closed_port] = e2e.free_ports(1)
        # Sends that fail, between those that don't: every so many, from where, with which result.
        failures = ((CYCLE, 7, -6, {"to": f"unknown@{e2e.DOMAIN}"}),
                    (CYCLE, 17, -8, {"path": self.sandbox.path / "missing"}),
                    (CYCLE, 23, -6, {"port": self.postfix.refusing_port}),
                    (1000, 27, -10, {"port": closed_port}))
        pathlib.Path("/etc/opt/Quorvin/trc_conf").write_text(SETTINGS)
        host = self.host()
        samples = []
        for number in range(MAILS):
            for every, first, expected, changes in failures:
                if number % every == first:
                    self.send(host, number, expected, **changes)
            self.send(host, number)
            if number % CYCLE == CYCLE - 1:
                samples.append(host.memory())
                if len(samples) <= WARM_UP + 1 or len(samples) % (MAILS // CYCLE // 10 or 1) == 0:
                    print("{:6} mails: resident {} KiB, heap {} B, {} mappings".format(
                        number + 1, *samples[-1]), flush=True)
        sanitized = host.is_sanitized()
        self.assertEqual(host.end(), 0)
        print(f"{host.rotations} log rotations, {host.pruned} old files pruned")
        self.assertGreaterEqual(host.rotations, MAILS // CYCLE)
        if not sanitized:  # those keep what is freed
            for at_most, values in zip(ALLOWED_GROWTH, zip(*samples[WARM_UP:])):
                self.assertLessEqual(max(values) - values[0], at_most, values)
        self.check_delivery(MAILS)


class Neighbours(Mails):
    """Processes of the same number, as in containers that share the data directory: their working
    files, rings and logs have the same names, and somebody deletes them all the time."""
    TWIN = ("unshare", "--pid", "--fork", "--kill-child", "setarch", "--addr-no-randomize")

    def delete_files(self, stop):
        while not stop.wait(0.002):
            for path in DATA.glob("t*/*"):
                path.unlink(missing_ok=True)

    def run_all(self, hosts, numbers):
        def send_share(share):
            return [(number, result) for number in numbers[share::len(hosts)]
                    if (result := hosts[share].order(*self.order(number).values())) != 0]
        stop = threading.Event()
        with concurrent.futures.ThreadPoolExecutor(len(hosts) + 1) as pool:
            pool.submit(self.delete_files, stop)
            try:
                failed = sum(pool.map(send_share, range(len(hosts))), [])
            finally:
                stop.set()
        self.assertEqual(failed, [])

    def test_every_mail_is_its_own(self):
        hosts = [self.host(self.TWIN) for _ in range(PROCESSES)]
        logs_off, logs_on = "[LOG]\nLOGNUM=0\n[ACERT]\nTRACELEVEL=0\n", SETTINGS
        for turn, settings in enumerate((logs_off, logs_on)):
            pathlib.Path("/etc/opt/Quorvin/trc_conf").write_text(settings)
            self.run_all(hosts, range(turn * MAILS, (turn + 1) * MAILS))
        self.check_delivery(2 * MAILS)
        self.assertEqual(len(list(DATA.glob("log/rmsmtp1.log"))), 1)  # the names were the same


if __name__ == "__main__":
    e2e.main(root=True, commands=("postfix", "localedef"))
