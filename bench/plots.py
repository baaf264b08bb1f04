"""The plots: ratios of all workloads, and how costs grow with size."""

import collections

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.hashsalt"] = "quen-io"  # the same picture for the same figures

import matplotlib.pyplot as plt

CURVES = {"validate": "bytes of text", "read whole": "bytes of file", "list": "entries",
          "normalize": "bytes of path", "write among open handles": "open handles",
          "write on threads": "threads"}
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
    """Time of one call against size, for everybody who answered, both axes logarithmic."""
    figure, axes = plt.subplots(figsize=(6, 4), layout="constrained")
    for contestant in SHOWN:
        line = [(size, times[contestant]["minimum"]) for size, times in points if contestant in times]
        if line:
            axes.plot(*zip(*line), marker=".", label=contestant,
                      linewidth=2.5 if contestant == "module" else 1)
    axes.set(xscale="log", yscale="log", title=name, ylabel="nanoseconds",
             xlabel=next((unit for key, unit in CURVES.items() if name.startswith(key)), "size"))
    axes.grid(alpha=0.3)
    axes.legend(fontsize="small")
    figure.savefig(folder / (name.replace(" ", "-").replace(",", "") + ".svg"), metadata={"Date": None})
    plt.close(figure)
