"""A machine in trouble around the library: full disks, directories that vanish, settings that are
none, odd process attributes, kill -9.

Nothing is simulated: small file systems are mounted inside the private directories, limits are the
kernel's. A row is one call in a process of its own (tests/e2e/send_mail.c, which fails when a call
changes open descriptors or the thread's signals), without root's right to pass over file modes. It
is judged by what arrived, result and detail, the trace ring, the mail log, and what is left behind.
"""
import dataclasses
import itertools
import os
import pathlib
import resource
import signal
import stat
import subprocess
import sys
import tempfile
import unittest

import receiver

HELPER, TRACE_TOOL = os.environ["OVRMAIL_SEND_MAIL"], os.environ["OVRMAIL_TRACE"]
SANITIZED = "OVRMAIL_SANITIZED" in os.environ
VALGRIND = "OVRMAIL_VALGRIND" in os.environ  # it lives within the limits of its program
DATA = pathlib.Path("/var/opt/Quorvin")
COMMAND = ("setpriv", "--bounding-set", "-dac_override,-dac_read_search", HELPER)
SLOW_SECONDS = 50  # below every budget of a send
PAGE, RING_BYTES = 4096, 8192
ATTACHMENT = "/var/opt/attachment.bin"
ATTACHED = bytes(range(256)) * 400
ATTACH = ("attach", ATTACHMENT)
TOO_LARGE, FULL = "27", "28"  # errno as detail
WORK_FILE = -3
LONG_REPLY = {"EHLO": ("250-" + "x" * 900 + "\r\n") * 6 + "250 ok"}  # more than a page of log

# What every row begins with. full DIRECTORY PAGES [FILES]: so many are left there.
SHELL = f"""
V={DATA} E=/etc/opt/Quorvin H={HELPER}
full() {{
    mount -t tmpfs -o size=$((4 * $2 + 4))k,nr_inodes=$((2 + ${{3:-9}})) tmpfs $V/$1
    head -c {PAGE} /dev/zero >$V/$1/filler
}}
"""
FRESH = SHELL + """
for d in tmp tmp2 log; do if mountpoint -q $V/$d; then umount $V/$d; fi; done
rm -rf $V $E; mkdir -p $V/tmp $V/tmp2 $V/log $E
"""
QUIET = r"printf '[LOG]\nLOGNUM=0\n[ACERT]\nTRACELEVEL=0\n[RMMAIL]\nCONTENT_DISPOSITION=1\n'"


def shell(commands):
    subprocess.run(["sh", "-euc", commands], check=True)


@dataclasses.dataclass
class Row:
    name: str
    prepare: str = ""      # shell commands
    code: int = 0
    detail: str = ""
    traced: bool = True    # a whole ring is there; None: not looked at
    logged: bool = True    # the log goes up to its closing banner; None: not looked at
    keys: tuple = ()       # of the helper
    at: str = ""           # the commands come when the server is asked this, not before the call
    before: object = None  # called in the process, before the helper
    rules: dict = dataclasses.field(default_factory=dict)  # of the receiver
    text: str = "hello"
    left: int = 0          # working files


def files(directory):
    path = DATA / directory
    return [file for file in path.iterdir() if file.name != "filler"] if path.is_dir() else []


def one_whole(directory, size, end):
    found = [file.read_bytes() for file in files(directory)]
    return len(found) == 1 and len(found[0]) >= size and end in found[0]


class Surroundings(unittest.TestCase):
    def setUp(self):
        pathlib.Path(ATTACHMENT).write_bytes(ATTACHED)

    def run_helper(self, port, row):
        keys = ["port", str(port), "to", "a@e.test", "text", row.text, *row.keys]
        done = subprocess.run([*COMMAND, *keys], stdout=subprocess.PIPE, preexec_fn=row.before,
                              timeout=SLOW_SECONDS, check=False)
        self.assertEqual(done.returncode, 0)
        code, detail = done.stdout.decode().split("\n", 1)
        return int(code), detail

    def check(self, row):
        """Runs a row; returns the receiver for a further look."""
        shell(FRESH + ("" if row.at else row.prepare))
        rules = {**row.rules, **({row.at: lambda: shell(SHELL + row.prepare)} if row.at else {})}
        with self.subTest(row.name), receiver.Receiver(rules) as server:
            self.assertEqual(self.run_helper(server.port, row), (row.code, row.detail))
            self.assertEqual(len(server.mails), row.code >= 0)
            for raw in server.mails:
                mail = receiver.parse(raw)
                text, *attached = list(mail.iter_parts()) or [mail]
                self.assertEqual(text.get_content().strip(), row.text)
                self.assertEqual([part.get_content() for part in attached],
                                 [ATTACHED] * row.keys.count("attach"))
                for part in attached:  # the form of the default
                    self.assertRegex(part["Content-Disposition"], "attachment; *filename=")
            self.assertEqual(len(files("tmp")), row.left)
            self.assertEqual([], [file for file in files("tmp2") if file.name.startswith("trc")])
            if row.traced is not None:
                self.assertEqual(one_whole("tmp2", RING_BYTES, b"ACERTFFFF"), row.traced, "ring")
            if row.logged is not None:
                self.assertEqual(one_whole("log", 0, b" END\r\n\r\n"), row.logged, "log")
        return server

    def test_full_disk(self):
        for row in (
                Row("body file", "full tmp 0", WORK_FILE, FULL),
                Row("composed file cannot be made", "full tmp 99 1", WORK_FILE, FULL),
                Row("attachment", "full tmp 9", WORK_FILE, FULL, keys=ATTACH),
                Row("no more than is needed", "full tmp 99 2", keys=ATTACH),
                Row("ring cannot be made", "full tmp2 99 0", traced=False),
                Row("half a ring", "full tmp2 1", traced=False),
                Row("file beside the ring", "full tmp2 3", traced=False),
                Row("ring and file", "full tmp2 4"),
                Row("log line", "full log 1", logged=False, rules=LONG_REPLY, keys=ATTACH),
                Row("log and trace", "full tmp2 0; full log 0", 0, "", False, False)):
            self.check(row)

    def test_copy_on_write(self):
        """Overwriting a block takes a new one, and the disk fills up during the call: through a
        mapping that would be the end of the process."""
        disk = pathlib.Path("/var/opt/disk")
        disk.mkdir()
        with tempfile.NamedTemporaryFile(dir="/var/opt") as image:
            image.truncate(114 * 1024 * 1024)
            try:
                subprocess.run(["mkfs.btrfs", "-q", image.name], check=True,
                               stderr=subprocess.DEVNULL)
                subprocess.run(["mount", "-o", "loop", image.name, disk], check=True)
            except (OSError, subprocess.CalledProcessError) as missing:
                self.skipTest(f"no btrfs here: {missing}")
            self.addCleanup(subprocess.run, ["umount", disk])
            fill = f"cat /dev/zero >{disk}/zero 2>/dev/null || :; sync -f {disk}"
            self.check(Row("full", fill, at="GREETING", keys=ATTACH, traced=None, before=lambda: (
                os.rmdir(DATA / "tmp2"), os.symlink(disk, DATA / "tmp2"))))
            self.assertTrue(list(disk.glob("acert*.trc")))

    def test_directories(self):
        ways = {"absent": ("rm -r $D", "2"), "a file": ("rm -r $D; : >$D", "20"),
                "not writable": ("chmod 555 $D", "13"),
                "read only": ("mount -t tmpfs -o ro tmpfs $D", "30"),
                "a link to nowhere": ("rm -r $D; ln -s /nowhere $D", "2")}
        for name, (way, (commands, errno)) in itertools.product(("tmp", "tmp2", "log"),
                                                                ways.items()):
            commands = f"D=$V/{name}; {commands}"
            work, ring, log = (name == directory for directory in ("tmp", "tmp2", "log"))
            self.check(Row(f"{name} {way}", commands, WORK_FILE if work else 0,
                           errno if work else "", not ring, not log))
            # What is open stays so. Only in a closed directory nothing can be deleted.
            self.check(Row(f"{name} {way} later", commands, at="DATA", traced=None if ring else True,
                           logged=None if log else True, left=work and way == "not writable"))

    def test_settings_that_are_none(self):
        ways = {"a program": "cp $H $F", "NUL bytes": "head -c 5000 /dev/zero >$F",
                "a directory": "mkdir $F", "a FIFO": "mkfifo $F", "a loop": "ln -s $F $F",
                "without end": "ln -s /dev/zero $F", "unreadable": f"{QUIET} >$F; chmod 0 $F",
                "a line of 10 MiB": r"head -c 10485760 /dev/zero | tr '\0' = >$F"}
        for (way, commands), file in itertools.product(ways.items(), ("trc_conf", "rmmail.ini")):
            self.check(Row(f"{file} {way}", f"F=$E/{file}; {commands}", keys=ATTACH))
        self.check(Row("no directory", "rmdir $E; : >$E", keys=ATTACH))
        self.check(Row("readable", f"{QUIET} >$E/trc_conf", traced=False, logged=False))

    @unittest.skipIf(VALGRIND, "valgrind makes files of its own")
    def test_process_attributes(self):
        # Rings are readable by all; working files and log are less the mask, here: for nobody.
        for mask in (0o022, 0o077, 0o777):
            self.check(Row(f"umask {mask:o}", "chmod 755 $V/*",
                           before=lambda mask=mask: os.umask(mask)))
            modes = [stat.S_IMODE(files(name)[0].stat().st_mode) for name in ("tmp2", "log")]
            self.assertEqual(modes, [0o644, 0o644 & ~mask])

    def with_pop(self, row):
        """Runs a row without and with POP before SMTP; returns the commands."""
        with receiver.Receiver(protocol="pop3") as pop:
            keys = ("pop-port", str(pop.port), "user", "u")
            plain = self.check(row)
            after_pop = self.check(dataclasses.replace(row, keys=(*row.keys, *keys)))
            return plain.commands, pop.commands, after_pop.commands

    def test_closed_descriptors(self):
        said = [self.with_pop(Row(f"{closed=}", keys=("close", closed, *ATTACH)))
                for closed in ("", "0", "1", "2", "01", "02", "12", "012")]
        self.assertEqual(said, said[:1] * len(said))

    @unittest.skipIf(VALGRIND, "valgrind would run out as well")
    def test_file_size_limit(self):
        def limited(size, action):
            if action == "ignored":
                signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            if action == "waiting":
                signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGXFSZ])
                os.kill(os.getpid(), signal.SIGXFSZ)
            resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))

        for action, (size, row) in itertools.product(("ignored", "waiting"), (
                (0, Row("nothing", "", WORK_FILE, TOO_LARGE, False, False)),
                (1, Row("one byte", "", WORK_FILE, FULL, False, False)),
                (PAGE, Row("no long log", "", 0, "", False, False, rules=LONG_REPLY)),
                (RING_BYTES, Row("enough")))):
            self.check(dataclasses.replace(row, name=f"{row.name}, SIGXFSZ {action}", before=lambda
                                           size=size, action=action: limited(size, action)))

    def test_small_stack(self):
        self.with_pop(Row("", keys=("stack-kib", "256" if SANITIZED else "64", *ATTACH)))

    def test_killed(self):
        shell(FRESH + r"printf '[LOG]\nLOGNUM=5\n' >$E/trc_conf")
        for count, stage in enumerate(("GREETING", "DATA", "END", "END"), 1):
            with self.subTest(stage):
                with receiver.Receiver({stage: "stall"}) as server:
                    process = subprocess.Popen([HELPER, "port", str(server.port), "to", "a@e.test"],
                                               stdout=subprocess.DEVNULL)
                    self.assertTrue(server.stalled.wait(SLOW_SECONDS))
                    process.kill()
                    self.assertEqual(process.wait(), -signal.SIGKILL)
                with receiver.Receiver() as server:
                    self.assertEqual(self.run_helper(server.port, Row("")), (0, ""))
                # The message of the dead stays; rings and logs keep to their number.
                self.assertEqual([file.name[:3] for file in files("tmp")], ["EST"] * count)
                self.assertEqual([len(files("tmp2")), len(files("log"))], [min(5, 2 * count)] * 2)
                for log in files("log"):
                    subprocess.run([TRACE_TOOL, "--mail-log", log, *files("tmp2")], check=True,
                                   stdout=subprocess.DEVNULL)


if __name__ == "__main__":
    if os.environ.get("OVRMAIL_PRIVATE_DIRS") != "1":
        print("skipped: full disks need a mount namespace of their own")
        sys.exit(77)
    unittest.main(verbosity=2)
