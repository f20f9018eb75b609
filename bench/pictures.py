"""Draws the pictures of the document, with matplotlib."""
import statistics

import matplotlib
from matplotlib import pyplot
from measure import LIMIT, OFF, ON

# Both have the same axis: the works, by the size of their attachment.
SIZES = {"a-one": "1 KiB", "b": "10 MiB", "c": "100 MiB"}
MARKERS = "ov^D<>pPX*"
PRODUCT = {ON: "#c1272d", OFF: "#e88a8d"}


def line_of(works, client, figure, scale):
    return [statistics.median(run[figure] for run in works[work][client]) * scale
            for work in SIZES]


def picture(works, figure, scale, label, path):
    axes = pyplot.figure(figsize=(8, 4.5), layout="constrained").add_subplot()
    last = len(SIZES) - 1
    peers = sorted(name for name in works["a-one"] if name not in (*PRODUCT, LIMIT))
    for number, client in enumerate(peers):  # side by side, so that none hides another
        aside = (number - (len(peers) - 1) / 2) * 0.06
        axes.plot([place + aside for place in range(len(SIZES))],
                  line_of(works, client, figure, scale), MARKERS[number], markersize=6,
                  label=client)
    axes.plot(line_of(works, LIMIT, figure, scale), "k--", linewidth=1, label=LIMIT)
    for client, colour in PRODUCT.items():
        axes.plot(line_of(works, client, figure, scale), "s-", color=colour, markersize=7,
                  label=client)
    axes.set_xticks(range(len(SIZES)), SIZES.values())
    axes.set_xlim(-0.3, last + 0.3)
    axes.set_yscale("log")
    axes.yaxis.set_major_formatter(matplotlib.ticker.FuncFormatter(lambda value, _: f"{value:,g}"))
    axes.set_xlabel("text, or attachment with a text")
    axes.set_ylabel(label)
    axes.grid(axis="y", color="#dddddd")
    axes.set_axisbelow(True)
    axes.legend(bbox_to_anchor=(1.01, 0.5), loc="center left", frameon=False, fontsize=9)
    axes.figure.savefig(path, metadata={"Date": None})
    pyplot.close(axes.figure)


def draw(works, stem):
    """Writes STEM-time.svg and STEM-memory.svg: the same bytes for the same figures."""
    matplotlib.use("svg")
    matplotlib.rcParams["svg.hashsalt"] = stem.name
    stem.parent.mkdir(exist_ok=True)
    picture(works, "wall", 1000, "time per mail, ms", f"{stem}-time.svg")
    picture(works, "peak", 1 / 1024, "peak memory of the process, MiB", f"{stem}-memory.svg")
