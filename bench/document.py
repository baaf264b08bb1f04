"""The tables of results, and their places between markers in docs/performance.md.

A run is what bench/run writes into a results file: a date, a machine and results.
"""

import collections

import figures
import machine

BEGIN = "<!-- The table of results: bench/run writes what stands between these two lines. -->"
END = "<!-- End of the table of results. -->"
BEGIN_GROWTH = "<!-- The tables of growth: bench/run writes what stands between these two lines. -->"
END_GROWTH = "<!-- End of the tables of growth. -->"
OWN = ["module", "allocations", "plain", "limit", "limit_at_boundary", "narrow"]
PEERS = ["rust", "go", "node", "python", "java", "boost", "c_library"]
LEGEND = (
    f'"ok" and "!" say whether a target is met, if there is one. "~" marks what scatters by more than '
    f"{figures.SCATTERED:.0%}: the interquartile range over the rounds, of the ratios that are taken within a "
    "round (or of the times of the module), divided by their median.\n"
)
GROWTH_LEGEND = (
    f'"!" marks a cost per unit that is more than {figures.SCATTERED:.0%} above or below that of the smallest '
    "size. The peak of memory is that of the process of the module.\n"
)
THREADS_LEGEND = (
    "Throughput as a multiple of that of one thread. In parentheses: the share of the time of all threads that "
    "these waited for locks, measured in a run of its own.\n"
)


def table(runs, columns):
    """A header and rows: each column is there once for each of the machines, side by side."""
    found = [{result["name"]: result for result in run["results"]} for run in runs]
    titles = [f" {title}" for title in titles_of(runs)] if len(runs) > 1 else [""]
    return [["workload", *(column + title for column in columns for title in titles)]] + [
        [name, *(cell(of_run.get(name), column) for column in columns for of_run in found)]
        for name in dict.fromkeys(name for of_run in found for name in of_run)
    ]


def titles_of(runs):
    """The processors, numbered where several machines have the same."""
    names = [run["machine"]["processor"] for run in runs]
    return [
        f"{name} ({names[: place + 1].count(name)})" if names.count(name) > 1 else name
        for place, name in enumerate(names)
    ]


def cell(result, column):
    """Empty for what was not measured."""
    if result is None:
        return ""
    if column == "module":
        return duration(result["nanoseconds"]["module"]["minimum"]) + scatter_mark(
            result["nanoseconds"]["module"]
        )
    if column == "allocations":
        return "" if result["allocations"] is None else f"{result['allocations']:.3g}"
    return ratio(result["ratios"].get(column))


def ratio(found):
    if found is None:
        return ""
    mark = "" if found["target"] is None else " ok" if found["minima"] <= found["target"] else " !"
    return f"{found['minima']:.2f}{mark}{scatter_mark(found)}"


def scatter_mark(figure):
    return " ~" if figures.is_scattered(figure) else ""


def duration(nanoseconds):
    for unit, size in [("s", 1e9), ("ms", 1e6), ("µs", 1e3)]:
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def without_points(run):
    """The run without the results that are only points of a plot."""
    shown = [
        result
        for result in run["results"]
        if result["curve"] is None or any(each["target"] is not None for each in result["ratios"].values())
    ]
    return run | {"results": shown}


def growth_table(run):
    """The cost per unit at each size, and beside it how it and that of the limits relate to the smallest size."""
    lines = [["growth of", "size", "one unit", "relative", "limit", "limit_at_boundary", "peak of memory"]]
    for name, points in curves(run, "growth").items():
        for point in points:
            peak = point.get("peak")
            lines.append(
                [
                    name,
                    f"{point['curve']['size']:,}",
                    duration(cost(point, "module")) + scatter_mark(point["nanoseconds"]["module"]),
                    *(relative(points[0], point, who) for who in ["module", "limit", "limit_at_boundary"]),
                    "" if peak is None else f"{peak:.2f} x",
                ]
            )
    return lines


def relative(first, point, who):
    if not all(who in each["nanoseconds"] for each in (first, point)):
        return ""
    found = cost(point, who) / cost(first, who)
    return f"{found:.2f}" + (" !" if who == "module" and abs(found - 1) > figures.SCATTERED else "")


def cost(point, who):
    return point["nanoseconds"][who]["minimum"] / point["curve"]["units"]


def threads_table(run):
    found = curves(run, "threads")
    sizes = sorted({point["curve"]["size"] for points in found.values() for point in points})
    lines = [["on threads", *map(str, sizes)]]
    for name, points in found.items():
        for who in ["module", "limit", "limit_at_boundary"]:
            if who in points[0]["nanoseconds"]:
                by_size = {point["curve"]["size"]: throughput(points[0], point, who) for point in points}
                lines.append([f"{name}, {who}", *(by_size.get(size, "") for size in sizes)])
    return lines


def throughput(first, point, who):
    if who not in point["nanoseconds"]:
        return ""
    gain = cost(first, who) / cost(point, who)
    waited = point.get("waited") if who == "module" else None
    return f"{gain:.2f}" + ("" if waited is None else f" ({waited:.0%})")


def curves(run, kind):
    """The points of the curves of a kind by the curve's name, from the smallest size to the largest."""
    found = collections.defaultdict(list)
    for result in run["results"]:
        if result["curve"] and result["curve"]["kind"] == kind:
            found[result["curve"]["name"]].append(result)
    return {name: sorted(points, key=lambda point: point["curve"]["size"]) for name, points in found.items()}


def markdown(lines):
    header, *rest = lines
    return "".join(f"| {' | '.join(line)} |\n" for line in [header, ["---"] * len(header), *rest]) + "\n"


def results_section(runs):
    """One table of one machine; of several one table of the module's own forms, and one of the peers."""
    shown = [without_points(run) for run in runs]
    parts = [OWN + PEERS] if len(runs) == 1 else [OWN, PEERS]
    tables = "".join(markdown(table(shown, columns)) for columns in parts)
    return machines(runs) + tables + LEGEND


def growth_section(runs):
    parts = []
    for title, run in zip(titles_of(runs), runs):
        parts += [f"{title}:\n\n"] if len(runs) > 1 else []
        parts += [markdown(growth_table(run)), markdown(threads_table(run))]
    return "".join(parts) + GROWTH_LEGEND + "\n" + THREADS_LEGEND


def machines(runs):
    return "".join(f"- {run['date']}: {machine.line(run['machine'])}\n" for run in runs) + "\n"


def write(runs, path):
    """Replaces the tables in the document, and nothing else in it."""
    text = replace(path.read_text(), BEGIN, END, results_section(runs), path)
    path.write_text(replace(text, BEGIN_GROWTH, END_GROWTH, growth_section(runs), path))


def replace(text, begin, end, content, path):
    before, _, after = split(text, begin, end, path)
    return f"{before}{begin}\n\n{content.rstrip()}\n\n{end}{after}"


def split(text, begin, end, path):
    """What stands before, between and after the markers of a document."""
    if text.count(begin) != 1 or text.count(end) != 1:
        raise SystemExit(f"{path}: expected once: {begin} and {end}")
    before, rest = text.split(begin)
    return before, *rest.split(end)
