"""Turns the results of run.py into the document."""
import pathlib
import platform
import statistics
import subprocess

import pictures
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
    return table(["client", "wall", "CPU", "× off", "× bare", "peak memory", "noise"], rows)


class Figures:
    """Ratios of medians and counts of one run, beside what is wanted of them."""

    def __init__(self, results):
        self.works, self.calls, self.micro = results["works"], results["calls"], results["micro"]
        self.trips = self.median("e", OFF) / (results["delay_ms"] / 1000)

    def median(self, work, client, figure="wall"):
        return median(self.works[work][client], figure)

    def ratio(self, work, client, other, figure="wall"):
        return self.median(work, client, figure) / self.median(work, other, figure)

    def to_best_peer(self, work, client, figure="wall"):
        return self.median(work, client, figure) / min(
            self.median(work, peer, figure) for peer in self.works[work]
            if peer not in (OFF, ON, LIMIT))

    def growth(self, client):
        return (self.median("c", client, "peak") - self.median("a", client, "peak")) / 1024

    def aims(self):
        return at_most([
            ("small mail, on ÷ off, wall", self.ratio("a-one", ON, OFF), 1.5),
            ("small mail, on ÷ libcurl, wall", self.ratio("a-one", ON, CURL), 1.1),
            ("small mail, off ÷ bare dialogue, wall", self.ratio("a-one", OFF, LIMIT), 1.25),
            ("small mail, off ÷ bare dialogue, CPU", self.ratio("a-one", OFF, LIMIT, "cpu"), 1.5),
            ("20 recipients, on ÷ libcurl, wall", self.ratio("d-one", ON, CURL), 0.95),
            ("10 MiB, on ÷ best peer, CPU", self.to_best_peer("b", ON, "cpu"), 0.85),
            ("100 MiB, on ÷ best peer, wall", self.to_best_peer("c", ON), 0.75),
            ("100 MiB, on ÷ best peer, CPU", self.to_best_peer("c", ON, "cpu"), 0.9),
            ("100 MiB, on ÷ off, CPU", self.ratio("c", ON, OFF, "cpu"), 1.05),
            ("memory that 100 MiB add to a small mail, on, MiB", self.growth(ON), 0.5),
        ])

    def others(self):
        rows = at_most([
            ("small mail, a processor each, on ÷ libcurl, wall", self.ratio("a", ON, CURL), 1.1),
            ("small mail, 1,448, on ÷ libcurl, wall", self.ratio("a-seg", ON, CURL), 1.1),
            ("10 MiB, 1,448, on ÷ best peer, wall", self.to_best_peer("b-seg", ON), 0.4),
            ("10 MiB, 1,448, on ÷ best peer, CPU", self.to_best_peer("b-seg", ON, "cpu"), 0.85),
            ("100 MiB, 1,448, on ÷ best peer, wall", self.to_best_peer("c-seg", ON), 0.75),
            ("peak memory at 100 MiB, on ÷ lowest peer", self.to_best_peer("c", ON, "peak"), 1.0),
            ("round trips of a small mail", self.trips, 7.5),
            ("system calls of a small mail, off", self.calls["a"][OFF], 70),
            ("system calls of a small mail, on", self.calls["a"][ON], 100),
            ("system calls of a 10 MiB mail, off", self.calls["b"][OFF], 1000)])
        return rows + (self.kernels() if self.micro else [])

    def kernels(self):
        time = {name: entry["ns"] for name, entry in self.micro.items()}
        return at_most([
            ("base64, time ÷ modp_b64", time["base64_product"] / time["base64_modp"], 0.7),
            ("ISO-2022-JP, time ÷ iconv", time["japanese_product"] / time["japanese_iconv"], 0.1),
            ("MD5, time ÷ OpenSSL", time["md5_product"] / time["md5_openssl"], 1.18),
            ("trace record, ns", time["record_product"], 50),
            ("profile of 100 sections, time ÷ inih",
             time["profile_product/100"] / time["profile_inih/100"], 1.0)])


def at_most(figures):
    return [[what, f"≤ {limit:g}", f"{value:.2f}",
             "reached" if value <= limit else "**not reached**"] for what, value, limit in figures]


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


def how(results):
    return (
        f"Medians of {len(results['works']['a'][OFF])} interleaved rounds "
        f"({len(results['works']['c'][OFF])} with attachments), per mail. The load average was "
        f"{results['load']:.1f} at the start, and the bench by itself adds about one. Every client "
        "is a process of its own, sends to the same sink on loopback over a fresh connection per "
        "mail, and was checked by content first. Files lie in memory. \"Off\" and \"on\" are log "
        "and trace of the library; on is the default. The bare dialogue is a message composed "
        "beforehand, sent from memory. The sink offers PIPELINING; libESMTP uses it. Library and "
        "tools are built as they are shipped, with all hardening flags.")


def document(results, name):
    """The short page. Its pictures and its long tables are files of the same folder."""
    return "\n".join([
        "# Performance", "",
        f"Written by `scripts/bench.sh`; every figure is of one run on one machine: {machine()}", "",
        f"![Time per mail of every client](images/{name}-time.svg)", "",
        f"![Memory over the size of the attachment](images/{name}-memory.svg)", "",
        "## Figures to reach", "",
        "Small mails and 20 recipients: client and sink on one processor.", "",
        table(["figure", "wanted", "measured", ""], Figures(results).aims()),
        how(results), "", NOTES.read_text()])


def tables(results):
    text = ["# Performance: all tables", "",
            "Written by `scripts/bench.sh` with [performance.md](performance.md), which tells how "
            "to read them. Noise is half the distance between the quartiles. Client and sink have "
            "a processor each, where the title says nothing else.", "",
            table(["other figures", "wanted", "measured", ""], Figures(results).others())]
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
    return "\n".join(text)


def write(results, out):
    """OUT.md, OUT-tables.md and the pictures images/OUT-*.svg."""
    out.write_text(document(results, out.stem))
    out.with_name(f"{out.stem}-tables.md").write_text(tables(results))
    pictures.draw(results["works"], out.parent / "images" / out.stem)
