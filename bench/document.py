"""The table of results, and its place between two markers in docs/performance.md."""

BEGIN = "<!-- The table of results: bench/run writes what stands between these two lines. -->"
END = "<!-- End of the table of results. -->"
PEERS = ["plain", "limit", "narrow", "rust", "go", "node", "python", "java", "boost", "c_library"]
HEADER = ["workload", "module", "allocations", *PEERS]


def rows(results):
    """The cells of each result, in the order of the header."""
    return [
        [
            result["name"],
            duration(result["nanoseconds"]["module"]["minimum"]),
            "" if result["allocations"] is None else f"{result['allocations']:.3g}",
            *(ratio(result, peer) for peer in PEERS),
        ]
        for result in results
    ]


def ratio(result, peer):
    """The ratio to a peer, with "ok" or "!" where there is a target: empty when it did not take part."""
    found = result["ratios"].get(peer)
    if found is None:
        return ""
    mark = "" if found["target"] is None else " ok" if found["minima"] <= found["target"] else " !"
    return f"{found['minima']:.2f}{mark}"


def duration(nanoseconds):
    for unit, size in [("s", 1e9), ("ms", 1e6), ("µs", 1e3)]:
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def markdown(results):
    """The table for the document, without the results that are only points of a plot."""
    shown = [
        result
        for result in results
        if result["curve"] is None or any(each["target"] is not None for each in result["ratios"].values())
    ]
    lines = [HEADER, ["---"] * len(HEADER), *rows(shown)]
    return "".join(f"| {' | '.join(line)} |\n" for line in lines)


def write(results, path):
    """Replaces the table in the document, and nothing else in it."""
    text = path.read_text()
    if text.count(BEGIN) != 1 or text.count(END) != 1:
        raise SystemExit(f"{path}: expected each of the two markers of the table once")
    before, rest = text.split(BEGIN)
    after = rest.split(END)[1]
    path.write_text(f"{before}{BEGIN}\n\n{markdown(results)}\n{END}{after}")
