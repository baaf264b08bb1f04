"""The plots: how costs grow with size."""

import collections
import io

import matplotlib

matplotlib.use("agg")

import matplotlib.pyplot as plt
from PIL import Image

CURVES = {
    "validate": "bytes of text",
    "read whole": "bytes of file",
    "list": "entries",
    "normalize": "bytes of path",
    "write among open handles": "open handles",
    "write on threads": "threads",
}
SHOWN = ["module", "plain", "limit", "rust", "go", "node", "python", "java"]


def draw(results, folder):
    folder.mkdir(exist_ok=True)
    curves = collections.defaultdict(list)
    for result in results:
        if result["curve"]:
            name, size = result["curve"]
            curves[name].append((size, result["nanoseconds"]))
    for name, points in curves.items():
        draw_curve(name, sorted(points, key=lambda point: point[0]), folder)


def draw_curve(name, points, folder):
    """Time of one call against size, for each implementation that was measured, both axes logarithmic."""
    figure, axes = plt.subplots(figsize=(6, 4), layout="constrained")
    for implementation in SHOWN:
        line = [(size, times[implementation]["minimum"]) for size, times in points if implementation in times]
        if line:
            axes.plot(
                *zip(*line),
                marker=".",
                label=implementation,
                linewidth=2.5 if implementation == "module" else 1
            )
    axes.set(
        xscale="log",
        yscale="log",
        title=name,
        ylabel="nanoseconds",
        xlabel=next((unit for key, unit in CURVES.items() if name.startswith(key)), "size"),
    )
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
