"""Runs the Google Benchmark program, with an LTTng session recording while the sessions' daemon can
be started."""
import contextlib
import json
import os
import pathlib
import shutil
import subprocess
import time


@contextlib.contextmanager
def lttng_session(directory):
    """Records the bench's event for as long as it is open; does nothing where that is not possible."""
    if not shutil.which("lttng-sessiond"):
        yield
        return
    home = directory / "lttng"
    home.mkdir()
    environment = os.environ | {"LTTNG_HOME": str(home)}

    def lttng(*words):
        subprocess.run(["lttng", "--no-sessiond", *words], env=environment, check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    daemon = subprocess.Popen(["lttng-sessiond", "--no-kernel"], env=environment,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        time.sleep(2)  # it has no word for being ready
        try:
            # Overwriting buffers without output: a ring, like the library's own.
            lttng("create", "bench", "--snapshot")
            lttng("enable-event", "--userspace", "ovrmail_bench:record")
            lttng("start")
        except subprocess.CalledProcessError:
            pass  # the benchmark then says that nothing recorded
        yield
    finally:
        daemon.terminate()
        daemon.wait()


def run(build, directory):
    """{name: {"ns", "spread", "bytes_per_second", "label"}} of every micro-benchmark built here."""
    program = pathlib.Path(build, "bench", "bench_micro")
    if not program.exists():
        return {}
    with lttng_session(directory):
        done = subprocess.run([program, "--benchmark_format=json", "--benchmark_repetitions=7",
                               "--benchmark_min_time=0.1",
                               "--benchmark_enable_random_interleaving=true"],
                              capture_output=True, text=True, check=True)
    results = {}
    for line in json.loads(done.stdout)["benchmarks"]:
        entry = results.setdefault(line["run_name"], {"label": line.get("label", "")})
        if line.get("aggregate_name") == "median":
            entry["ns"] = line["cpu_time"]
            entry["bytes_per_second"] = line.get("bytes_per_second")
        elif line.get("aggregate_name") == "cv":
            entry["spread"] = line["cpu_time"]
    return results
