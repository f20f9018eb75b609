"""Sinks, clients and configurations: everything that starts a process and reads its figures."""
import contextlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
CONFIG = pathlib.Path("/etc/opt/Quorvin/trc_conf")
LOG_DIR = pathlib.Path("/var/opt/Quorvin/log")
# The sink has the first processor. Clients have the last one, or share the sink's: then nothing
# depends on how fast one processor wakes the other, and wall time is all the work there is.
SINK_CPU = min(os.sched_getaffinity(0))
CLIENT_CPU = max(os.sched_getaffinity(0))

QUIET = "[ACERT]\nTRACELEVEL=0\n[LOG]\nLOGNUM=0\n"

OFF = "libovrmail, log and trace off"
ON = "libovrmail, log and trace on"
LIMIT = "bare dialogue"
CURL = "libcurl"


def find_clients(build):
    """Name -> command, of what was built here."""
    bench = pathlib.Path(build) / "bench"
    programs = {OFF: "product", ON: "product", LIMIT: "limit", CURL: "curl", "libESMTP": "esmtp",
                "libetpan": "etpan", "VMime": "vmime", "Poco Net": "poco"}
    clients = {name: [str(bench / f"bench_{program}")] for name, program in programs.items()
               if (bench / f"bench_{program}").exists()}
    if (bench / "bench_msmtp").exists() and shutil.which("msmtp"):
        clients["msmtp"] = [str(bench / "bench_msmtp")]
    if (bench / "bench_curl").exists():
        clients["Python smtplib"] = [sys.executable, str(HERE / "peers" / "smtplib_client.py")]
    return clients


@contextlib.contextmanager
def sink(build, **options):
    """A running sink; yields its port."""
    command = [str(pathlib.Path(build) / "bench" / "bench_sink")]
    for name, value in options.items():
        command += [f"--{name}", str(value)]
    with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                          preexec_fn=lambda: os.sched_setaffinity(0, {SINK_CPU})) as server:
        try:
            yield int(server.stdout.readline())
        finally:
            server.stdin.close()  # the sink ends with its standard input


def configure(client):
    """Log and trace as the client's name says: the defaults, or off."""
    if client == ON:
        CONFIG.unlink(missing_ok=True)
    else:
        CONFIG.write_text(QUIET)


def arguments(work, port, count, warm=0):
    return ["--port", str(port), "--count", str(count), "--warm", str(warm),
            "--from", "sender@bench.test", "--to", ",".join(work["recipients"]),
            "--subject", work["subject"], "--body", str(work["body"]),
            "--charset", work["charset"], "--attach", str(work["attachment"] or "")]


def run(client, command, work, port, count, warm=0):
    """One measured run: figures per mail, seconds and KiB."""
    configure(client)
    cpu = SINK_CPU if work.get("shared") else CLIENT_CPU
    done = subprocess.run(command + arguments(work, port, count, warm), capture_output=True,
                          text=True, timeout=600, check=False,
                          preexec_fn=lambda: os.sched_setaffinity(0, {cpu}))
    if done.returncode != 0:
        raise RuntimeError(f"{client}: {done.stderr.strip() or done.returncode}")
    figures = json.loads(done.stdout)
    return {"wall": figures["wall_s"] / count, "slowest": figures["slowest_s"],
            "cpu": (figures["user_s"] + figures["sys_s"]) / count, "peak": figures["peak_kib"]}


def system_calls(client, command, work, port, count):
    """System calls of one mail: the difference between two runs, so that start-up drops out."""
    configure(client)

    def calls(mails):
        with tempfile.NamedTemporaryFile("r") as table:
            subprocess.run(["strace", "-f", "-c", "-o", table.name, *command,
                            *arguments(work, port, mails, warm=1)], check=True,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            total = re.search(r"^100\.00\s+\S+\s+(?:\S+\s+)?(\d+)\s.*total$", table.read(), re.M)
            return int(total.group(1))

    return (calls(1 + count) - calls(1)) / count


def fill_log_dir(prefix, count):
    shutil.rmtree(LOG_DIR, ignore_errors=True)
    LOG_DIR.mkdir()
    for number in range(count):
        path = LOG_DIR / f"{prefix}{number}.log"
        path.write_text("line\r\n")
        os.utime(path, (number, number))
