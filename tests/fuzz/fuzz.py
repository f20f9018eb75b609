"""fuzz.py BUILD-DIR MINUTES [TARGET...] - runs each fuzz target for so many minutes of processor
time, in slices, on as many cores as there are. New inputs are kept in BUILD-DIR/found/TARGET and
used by the next run; an input that fails is named, and the exit status is 1."""
import concurrent.futures
import os
import pathlib
import re
import resource
import subprocess
import sys

SLICE_SECONDS = 60
HERE = pathlib.Path(__file__).parent


def run_slice(binary, found, seconds):
    """Returns executions, processor seconds, and what was said when an input failed."""
    found.mkdir(parents=True, exist_ok=True)
    command = [binary, f"-max_total_time={seconds}", "-print_final_stats=1", "-timeout=20",
               "-rss_limit_mb=2048", "-max_len=20000", f"-artifact_prefix={found.parent}/failed-",
               found, HERE / "corpus" / binary.name]
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    said = process.stderr.read().decode("utf-8", "replace")
    _, status, usage = os.wait4(process.pid, 0)
    runs = re.search(r"number_of_executed_units:\s*(\d+)", said)
    failed = os.waitstatus_to_exitcode(status) != 0
    return (int(runs.group(1)) if runs else 0, usage.ru_utime + usage.ru_stime,
            said[said.find("==ERROR"):][:4000] if failed else "")


def run_target(build, name, minutes):
    binary = build / "tests" / "fuzz" / name
    found = build / "found" / name
    runs = seconds = 0
    while seconds < minutes * 60:
        left = minutes * 60 - seconds
        more, used, failure = run_slice(binary, found, max(1, min(SLICE_SECONDS, int(left) + 1)))
        runs += more
        seconds += used
        if failure:
            return f"{name}: FAILED after {runs} executions\n{failure}", False
    inputs = sum(1 for _ in found.iterdir())
    return f"{name}: {runs:,} executions in {seconds / 60:.1f} CPU minutes, {inputs} inputs", True


def main():
    build, minutes = pathlib.Path(sys.argv[1]).resolve(), float(sys.argv[2])
    names = sys.argv[3:] or sorted(path.stem for path in HERE.glob("*_fuzz.cpp"))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        results = []
        for text, good in pool.map(lambda name: run_target(build, name, minutes), names):
            print(text, flush=True)
            results.append(good)
    sys.exit(0 if all(results) else 1)


main()
