"""Turns the results of run.py into the document."""
import pathlib
import platform
import statistics
import subprocess

from measure import CURL, LIMIT, OFF, ON

NOTES = pathlib.Path(__file__).resolve().parent / "notes.md"


def median(runs, figure):
    return statistics.median(run[figure] for run in runs)


def spread(runs, figure="wall"):
    """Half the distance between the quartiles, as a share of the median: how noisy it was."""
    values = [run[figure] for run in runs]
    if len(values) < 2:
        return 0.0
    low, middle, high = statistics.quantiles(values, n=4, method="inclusive")
    return (high - low) / 2 / middle if middle else 0.0


def duration(seconds):
    return f"{seconds * 1e6:,.0f} µs" if seconds < 0.01 else f"{seconds * 1e3:,.1f} ms"


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|---" + "|---:" * (len(header) - 1) + "|"]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows]) + "\n"


def work_table(runs):
    product, limit = median(runs[OFF], "wall"), median(runs[LIMIT], "wall")
    rows = []
    for client in sorted(runs, key=lambda name: median(runs[name], "wall")):
        wall = median(runs[client], "wall")
        rows.append([client, duration(wall), duration(median(runs[client], "cpu")),
                     f"{wall / product:.2f}", f"{wall / limit:.2f}",
                     f"{median(runs[client], 'peak') / 1024:.1f} MiB", f"± {spread(runs[client]):.0%}"])
    return table(["client", "wall", "CPU", "× off", "× limit", "peak memory", "noise"], rows)


class Targets:
    """The figures to reach, each computed from one run."""

    def __init__(self, results):
        self.works, self.calls, self.micro = results["works"], results["calls"], results["micro"]
        self.delay = results["delay_ms"] / 1000
        self.rows = []

    def wall(self, work, client, figure="wall"):
        return median(self.works[work][client], figure)

    def best_peer(self, work, figure):
        return min(self.wall(work, client, figure) for client in self.works[work]
                   if client not in (OFF, ON, LIMIT))

    def at_most(self, what, value, limit, form="{:.2f}"):
        self.rows.append([what, "≤ " + form.format(limit), form.format(value),
                          "reached" if value <= limit else "**not reached**"])

    def at_least(self, what, value, limit):
        self.rows.append([what, f"≥ {limit:.2f}", f"{value:.2f}",
                          "reached" if value >= limit else "**not reached**"])

    def small_mails(self):
        for figure in ("wall", "cpu"):
            for work, name in (("a", "small mail"), ("a-one", "small mail, one processor"),
                               ("a-seg", "small mail, 1,448")):
                curl, limit = (self.wall(work, peer, figure) for peer in (CURL, LIMIT))
                off, on = (self.wall(work, client, figure) for client in (OFF, ON))
                self.at_most(f"{name}, off ÷ libcurl, {figure}", off / curl, 1.0)
                self.at_most(f"{name}, off ÷ limit, {figure}", off / limit, 1.6)
                self.at_most(f"{name}, on ÷ libcurl, {figure}", on / curl, 1.7)
        for work, name in (("d", ""), ("d-one", ", one processor")):
            for client, limit in ((OFF, 0.9), (ON, 1.2)):
                self.at_most(f"20 recipients{name}, {client.split()[-1]} ÷ libcurl, wall",
                             self.wall(work, client) / self.wall(work, CURL), limit)
        slowest = statistics.median(
            max(run["slowest"] for run in self.works[work][client])
            for work in ("a", "a-one", "a-seg", "d", "d-one", "f") for client in (OFF, ON))
        self.at_most("slowest single small mail of a run, ms", slowest * 1000, 40, "{:.1f}")

    def attachments(self):
        for suffix, name in (("", ""), ("-seg", ", 1,448")):
            for client in (OFF, ON):
                state = client.split()[-1]
                self.at_most(f"10 MiB{name}, {state} ÷ best peer, wall",
                             self.wall("b" + suffix, client) / self.best_peer("b" + suffix, "wall"), 0.4)
                self.at_most(f"10 MiB{name}, {state} ÷ best peer, CPU",
                             self.wall("b" + suffix, client, "cpu") / self.best_peer("b" + suffix, "cpu"), 1.0)
                self.at_most(f"100 MiB{name}, {state} ÷ best peer, wall",
                             self.wall("c" + suffix, client) / self.best_peer("c" + suffix, "wall"), 0.9)
        for client in (OFF, ON):
            state = client.split()[-1]
            peak = self.wall("c", client, "peak")
            self.at_most(f"growth of peak memory, small mail to 100 MiB, {state}, MiB",
                         (peak - self.wall("a", client, "peak")) / 1024, 0.5)
            self.at_most(f"peak memory at 100 MiB, {state} ÷ lowest peer",
                         peak / self.best_peer("c", "peak"), 1.0)

    def counts(self):
        trips = self.wall("e", OFF) / self.delay
        self.at_most("round trips of a small mail", trips, 7 + 0.5, "{:.1f}")
        for client, limit in ((OFF, 70), (ON, 120)):
            self.at_most(f"system calls of a small mail, {client.split()[-1]}",
                         self.calls["a"][client], limit, "{:,.0f}")
        self.at_most("system calls of a 10 MiB mail", self.calls["b"][OFF], 1000, "{:,.0f}")

    def kernels(self):
        time = {name: entry["ns"] for name, entry in self.micro.items()}
        self.at_least("base64, speed ÷ modp_b64", time["base64_modp"] / time["base64_product"], 1.4)
        self.at_least("ISO-2022-JP, speed ÷ iconv",
                      time["japanese_iconv"] / time["japanese_product"], 10)
        self.at_least("MD5, speed ÷ OpenSSL", time["md5_openssl"] / time["md5_product"], 0.85)
        self.at_most("trace record, ns", time["record_product"], 50, "{:.0f}")
        self.at_most("profile of 100 sections, time ÷ inih",
                     time["profile_product/100"] / time["profile_inih/100"], 1.0)

    def table(self):
        self.small_mails()
        self.attachments()
        self.counts()
        if self.micro:
            self.kernels()
        return table(["figure", "wanted", "measured", ""], self.rows)


def micro_table(micro):
    rows = []
    for name, entry in sorted(micro.items()):
        speed = entry.get("bytes_per_second")
        label = f" ({entry['label']})" if entry["label"] else ""
        rows.append([name + label, f"{entry['ns']:,.0f} ns",
                     f"{speed / 1e6:,.0f} MB/s" if speed else "", f"± {entry['spread']:.0%}"])
    return table(["benchmark", "time", "speed", "noise"], rows)


def growth_tables(growth, micro):
    attachment = [[f"{size} MiB", duration(median(runs, "wall")),
                   duration(median(runs, "wall") / int(size)),
                   f"{median(runs, 'peak') / 1024:.1f} MiB", f"± {spread(runs):.0%}"]
                  for size, runs in growth["attachment"].items()]
    files = [[count, duration(median(growth["foreign"][count], "wall")),
              duration(median(growth["own"][count], "wall"))] for count in growth["own"]]
    profile = [[name.split("/")[1], f"{entry['ns'] / 1000:,.1f} µs"]
               for name, entry in micro.items() if name.startswith("profile_product/")]
    profile.sort(key=lambda row: int(row[0]))
    return "\n".join([
        table(["attachment", "wall", "wall per MiB", "peak memory", "noise"], attachment),
        "Files in the log directory; logs of other processes are pruned down to the number kept, "
        "once:\n",
        table(["files", "a mail, none of them logs", "first mail, all of them old logs"], files),
        "Sections of a profile; open, ten gets, close:\n", table(["sections", "time"], profile)])


def machine():
    with open("/proc/cpuinfo") as info:
        model = next(line.split(":")[1].strip() for line in info if line.startswith("model name"))
    with open("/proc/cpuinfo") as info:
        cores = sum(line.startswith("processor") for line in info)
    packages = ["g++", "libcurl4-gnutls-dev", "libcurl4-openssl-dev", "libesmtp-dev", "libetpan-dev",
                "libvmime-dev", "libpoco-dev", "msmtp", "python3", "libssl-dev", "libmodpbase64-dev",
                "liblttng-ust-dev", "libinih-dev", "libglib2.0-dev"]
    listed = subprocess.run(["dpkg-query", "-W", "-f", "${db:Status-Status} ${Package} ${Version}\n",
                             *packages], capture_output=True, text=True, check=False).stdout
    installed = [line.removeprefix("installed ") for line in listed.splitlines()
                 if line.startswith("installed ")]
    return f"{model}, {cores} cores, Linux {platform.release()}; {', '.join(installed)}."


def document(results):
    text = ["# Performance", "",
            "Written by `scripts/bench.sh`; every figure is of one run on one machine:", machine(), "",
            f"Medians of {len(results['works']['a'][OFF])} interleaved rounds "
            f"({len(results['works']['c'][OFF])} with attachments), per mail; noise is half the "
            f"distance between the quartiles; the load average was {results['load']:.1f} at the start, "
            "and the bench by itself adds about one. Every client is a process of its own, sends to the same sink on "
            "loopback over a fresh connection per mail, and was checked by content first. Client and "
            "sink have a processor each, where the title says nothing else. Files lie in memory. "
            "\"Off\" and \"on\" are log and trace of the library; on is the default. "
            "The limit is a message composed beforehand, sent from memory in the same dialogue. "
            "The sink offers PIPELINING; libESMTP uses it.", "",
            "## Figures to reach", "", Targets(results).table()]
    for letter, runs in results["works"].items():
        text += [f"## {results['titles'][letter]}", "", work_table(runs)]
    calls = results["calls"]
    text += ["## System calls of one mail", "",
             table(["client", "small mail", "10 MiB"],
                   [[client, f"{calls['a'][client]:,.0f}", f"{calls['b'][client]:,.0f}"]
                    for client in sorted(calls["a"], key=calls["a"].get)])]
    if results["micro"]:
        text += ["## Parts by themselves", "", micro_table(results["micro"])]
    text += ["## How cost grows", "", growth_tables(results["growth"], results["micro"])]
    if NOTES.exists():
        text += [NOTES.read_text()]
    return "\n".join(text)
