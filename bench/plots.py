"""The plots: how costs grow with size."""

import io

import matplotlib

matplotlib.use("agg")

import matplotlib.pyplot as plt
from PIL import Image

import document

# By the kind of the curves: the labels of the axes, and the height of a point.
KINDS = {
    "plot": ("size", "nanoseconds of a call", lambda point, who: point["nanoseconds"][who]["minimum"]),
    "growth": ("size", "nanoseconds of a unit", document.cost),
    "threads": ("threads", "calls per second", lambda point, who: 1e9 / document.cost(point, who)),
}
SHOWN = ["module", "plain", "limit", "limit_at_boundary", "rust", "go", "node", "python", "java"]


def draw(run, folder):
    folder.mkdir(exist_ok=True)
    for kind in KINDS:
        for name, points in document.curves(run, kind).items():
            draw_curve(name, points, kind, folder)


def draw_curve(name, points, kind, folder):
    """A line for each implementation that was measured, both axes logarithmic."""
    size, cost, height = KINDS[kind]
    figure, axes = plt.subplots(figsize=(6, 4), layout="constrained")
    for who in SHOWN:
        line = [
            (point["curve"]["size"], height(point, who)) for point in points if who in point["nanoseconds"]
        ]
        if line:
            axes.plot(*zip(*line), marker=".", label=who, linewidth=2.5 if who == "module" else 1)
    axes.set(xscale="log", yscale="log", title=name, xlabel=size, ylabel=cost)
    axes.grid(alpha=0.3)
    axes.legend(fontsize="small")
    save(figure, folder / (name.replace(" ", "-").replace(",", "") + ".png"))


def save(figure, path):
    """A PNG with a palette of 64 colours, which is a third of the size of a full-colour one."""
    picture = io.BytesIO()
    figure.savefig(picture, format="png", dpi=100, metadata={"Software": None})
    plt.close(figure)
    with Image.open(picture) as image:
        image.convert("RGB").quantize(64, dither=Image.Dither.NONE).save(path, optimize=True)
