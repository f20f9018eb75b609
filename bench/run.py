"""Measures the library beside its peers and writes the document; started by scripts/bench.sh.

    run.py --build DIR [--rounds N] [--minutes N] [--smoke] [--report-only] [--out FILE]

Rounds are interleaved: every client runs once per round, in an order that turns, so that a noisy
moment of the machine meets all of them. Every client's mail is checked by content first. --smoke
sends a few small mails only, checks them, and times nothing."""
import argparse
import json
import os
import pathlib
import sys
import tempfile
import time

import content
import measure
import micro
from measure import LIMIT, OFF, ON

MIB = 1024 * 1024
MAXSEG = 1460  # less 12 bytes of time stamp: segments of 1,448 bytes
DELAY_MS = 20
ATTACHMENT_ROUNDS = 5  # long runs are less noisy
RUN_SECONDS = 1  # a client that stalls sends fewer mails per run


def make_works(directory, sizes):
    """The works, by letter, and the sizes of the growth line."""
    ascii_text = ("All jobs of the night run have ended; see the list of the node.\n" * 16)[:1024]
    kana = "監視サーバでジョブが異常終了しました。確認してください。\n"
    japanese = (kana * 200).encode("cp932")[:10_000 // 56 * 56].decode("cp932", "ignore")
    bodies = {"ascii": (ascii_text, "ascii"), "sjis": (japanese, "cp932")}
    for name, (text, codec) in bodies.items():
        (directory / name).write_bytes(text.encode(codec))
    block = os.urandom(MIB)
    for size in sizes:
        with open(directory / f"{size}m", "wb") as file:
            for number in range(size):
                file.write(block[number:] + block[:number])

    def work(title, count, body="ascii", recipients=1, attachment=None, shared=False, **sink):
        return {"title": title, "count": count, "body": directory / body, "charset": body,
                "text": bodies[body][0], "subject": "Night run",
                "recipients": [f"u{n:02}@b.test" for n in range(recipients)],
                "attachment": directory / attachment if attachment else None, "shared": shared,
                "sink": sink}

    seg = {"maxseg": MAXSEG}
    return {
        "a": work("Small mail, 1 KiB of text", 500),
        "a-one": work("Small mail, client and sink on one processor", 500, shared=True),
        "a-seg": work("Small mail, segments of 1,448 bytes", 500, **seg),
        "b": work("Attachment of 10 MiB", 5, attachment="10m"),
        "b-seg": work("Attachment of 10 MiB, segments of 1,448 bytes", 5, attachment="10m", **seg),
        "c": work("Attachment of 100 MiB", 1, attachment="100m"),
        "c-seg": work("Attachment of 100 MiB, segments of 1,448 bytes", 1, attachment="100m", **seg),
        "d": work("20 recipients", 200, recipients=20),
        "d-one": work("20 recipients, client and sink on one processor", 200, recipients=20,
                      shared=True),
        "e": work(f"Small mail, {DELAY_MS} ms before each reply", 2, delay=DELAY_MS),
        "f": work("Japanese body of 10,000 bytes", 300, body="sjis"),
    }, {size: work(f"{size} MiB", 1, attachment=f"{size}m") for size in sizes}


def check_content(build, clients, works, directory):
    """Every client, every kind of mail; a wrong one ends the bench."""
    kept = directory / "kept"
    with measure.sink(build, keep=kept) as port:
        for work in works:
            for client, command in clients.items():
                kept.unlink(missing_ok=True)
                measure.run(client, command, work, port, 1)
                problem = content.check(kept.read_bytes(), work)
                if problem:
                    sys.exit(f"{client}: {work['title']}: {problem}")
    kept.unlink()


def mails_per_run(clients, work, port):
    """As many mails as the work says, fewer for a client that stalls."""
    counts = {}
    for client, command in clients.items():
        counts[client] = 1
        if work["count"] > 1:
            sample = measure.run(client, command, work, port, 1, warm=1)["wall"]
            counts[client] = max(1, min(work["count"], int(RUN_SECONDS / sample)))
    return counts


def time_works(build, clients, works, rounds, minutes):
    """{work: {client: [figures of each round]}}; stops early, after whole rounds, when the time is
    over."""
    results = {letter: {client: [] for client in clients} for letter in works}
    counts = {}
    names = list(clients)
    end = time.monotonic() + minutes * 60
    for number in range(rounds):
        turn = number % len(names)
        for letter, work in works.items():
            if work["attachment"] and number >= ATTACHMENT_ROUNDS:
                continue
            print(f"round {number + 1}: {work['title']}", file=sys.stderr)
            with measure.sink(build, **work["sink"]) as port:
                if letter not in counts:
                    counts[letter] = mails_per_run(clients, work, port)
                for client in names[turn:] + names[:turn]:
                    results[letter][client].append(
                        measure.run(client, clients[client], work, port, counts[letter][client],
                                    warm=0 if work["attachment"] else 1))
        if time.monotonic() > end:
            break
    return results


def count_calls(build, clients, works):
    counts = {}
    with measure.sink(build) as port:
        for letter, mails in (("a", 10), ("b", 1)):
            counts[letter] = {client: measure.system_calls(client, command, works[letter], port, mails)
                              for client, command in clients.items()}
    return counts


def grow(build, clients, works, sizes, rounds):
    """How cost grows with the attachment and with the log directory, of this library alone."""
    growth = {"attachment": {}, "foreign": {}, "own": {}}
    with measure.sink(build) as port:
        for size, work in sizes.items():
            growth["attachment"][size] = [
                measure.run(OFF, clients[OFF], work, port, max(1, 50 // size)) for _ in range(rounds)]
        for files in (1, 10, 100, 500, 1000, 2000):
            growth["foreign"][files], growth["own"][files] = [], []
            for _ in range(rounds):
                measure.fill_log_dir("other", files)
                growth["foreign"][files].append(
                    measure.run(ON, clients[ON], works["a"], port, 20, warm=1))
                measure.fill_log_dir("rmsmtp", files)  # all but the newest are pruned, once
                growth["own"][files].append(measure.run(ON, clients[ON], works["a"], port, 1))
    measure.fill_log_dir("other", 0)
    return growth


def write_report(saved, out):
    import report  # needs matplotlib, which --smoke does not
    report.write(json.loads(saved.read_text()), pathlib.Path(out))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--minutes", type=float, default=30, help="no new round begins later")
    parser.add_argument("--smoke", action="store_true")
    parser.add_argument("--out", default="performance.md")
    parser.add_argument("--report-only", action="store_true",
                        help="write the document from the results of the last run")
    options = parser.parse_args()
    saved = pathlib.Path(options.build, "bench-results.json")
    if options.report_only:
        write_report(saved, options.out)
        return
    if os.environ.get("OVRMAIL_PRIVATE_DIRS") != "1":
        sys.exit("run.py: to be started in private directories, see scripts/bench.sh")

    clients = measure.find_clients(options.build)
    with tempfile.TemporaryDirectory(dir="/var/opt") as name:  # in memory there
        directory = pathlib.Path(name)
        works, sizes = make_works(directory, (1,) if options.smoke else (1, 10, 100, 500))
        if options.smoke:
            check_content(options.build, clients, [works[k] for k in "adf"] + [sizes[1]], directory)
            return
        check_content(options.build, clients, [works[k] for k in "abcdf"], directory)
        results = {"load": os.getloadavg()[0],
                   "titles": {letter: work["title"] for letter, work in works.items()},
                   "calls": count_calls(options.build, clients, works),
                   "micro": micro.run(options.build, directory),
                   "growth": grow(options.build, clients, works, sizes,
                                  min(options.rounds, ATTACHMENT_ROUNDS)),
                   "works": time_works(options.build, clients, works, options.rounds,
                                       options.minutes),
                   "delay_ms": DELAY_MS}
    saved.write_text(json.dumps(results, indent=1))
    write_report(saved, options.out)


if __name__ == "__main__":
    main()
