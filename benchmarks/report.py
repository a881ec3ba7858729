#!/usr/bin/env python3
"""Makes the table and the chart of docs/ from the results of kel_benchmarks, and prints each row's ratios.

Usage: report.py ROOT RESULT.json...
"""

import json
import pathlib
import re
import sys
from html import escape

SMALL, MIDDLE, LARGE = 5000, 100000, 1000000
ALL = (SMALL, MIDDLE, LARGE)
PATTERN_SIZES = (500, 5000, 20000, 1000000)
BEGIN, END = "<!-- results -->", "<!-- end of results -->"


class Row:
    """One line of work. `bound` is the goal as a multiple of `against`, at the same size or at the size `at`; `faster`
    are the peers to be faster than."""

    def __init__(self, title, key, sizes=ALL, against="limit", bound=None, faster=(), others=(), unit="time", ours="library",
                 at=None):
        self.title, self.key, self.sizes, self.unit, self.ours = title, key, sizes, unit, ours
        self.against, self.bound = against, bound
        self.faster, self.others = faster, others
        self.at = at


ROWS = [
    Row("`queryValue(id)`", "query_id", bound=1.3, faster=("Qt", "SQLite", "LMDB")),
    Row("`queryValue(id).toDouble()`", "read_double", bound=1.3),
    Row("`queryValue(id).toLongLong()`", "read_longlong", bound=1.3),
    Row("`queryValue(id).toInt()`", "read_int", bound=1.3),
    Row("`queryValue(name)`", "query_name", bound=1.0, faster=("Qt",)),
    Row("`updateValue`, unchanged", "update_same", against="query_id/library", bound=1.5, others=("limit",)),
    Row("`updateValue`, changed, 1,000 a turn", "update_changed", against="Qt", bound=0.5, others=("limit", "SQLite")),
    Row("`updateValue`, changed, 1 a turn", "update_turn", against="Qt", bound=0.5),
    Row("1,000 changes of one item, merged", "update_merged", against="unmerged", bound=0.2,
        others=("Qt", "Qt unmerged")),
    Row("their delivery alone, merged", "deliver_merged", against="unmerged", bound=0.2),
    Row("safe `queryValue`, 1 thread", "safe_1", bound=1.15),
    Row("safe `queryValue`, 2 threads", "safe_2", bound=1.15),
    Row("`queryValueList`", "list_queryValue", bound=1.05),
    Row("`queryDataList`", "list_queryData", bound=1.05),
    Row("`queryFieldList`", "list_queryField", bound=1.05),
    Row("`IDList`", "list_ID", bound=1.05),
    Row("`updateValueList`", "list_updateValue", bound=1.05),
    Row("selection by range", "select_range", bound=1.5, others=("SQLite with index", "SQLite without index")),
    Row("selection by block", "select_block", bound=1.5, others=("SQLite with index", "SQLite without index")),
    Row("selection by mark", "select_mark", bound=1.5, others=("SQLite with index", "SQLite without index")),
    Row("tick, nothing changed", "tick", against="tick/library", at=SMALL, bound=1.2, others=("limit",)),
    Row("its collection alone", "collection", against="collection/library", at=SMALL, bound=1.2),
    Row("collection of 1 change", "collect_1"),
    Row("collection of 100 changes", "collect_100"),
    Row("collection, every item changed", "collect_all"),
    Row("longest wait of a reader, 1 change", "wait_1"),
    Row("longest wait of a reader, 100 changes", "wait_100"),
    Row("longest wait of a reader, every item changed", "wait_all"),
    Row("reading a JSON dictionary", "read_json", bound=2),
    Row("reading a configuration database", "read_database", bound=2),
    Row("`readConfigFile`, JSON, first start", "first_json", bound=2),
    Row("`readConfigFile`, JSON, restart", "restart_json", bound=2),
    Row("`readConfigFile`, database", "first_database", bound=2),
    Row("batch insert, 10,000 rows", "batch_insert", sizes=(MIDDLE,), bound=1.1),
    Row("batch update, 10,000 rows", "batch_update", sizes=(MIDDLE,), bound=1.1),
    Row("memory per item, indexes", "memory", bound=1.15, others=("Qt",), unit="bytes_per_item"),
    Row("memory per item, with the record list", "memory", others=("limit",), unit="bytes_per_item",
        ours="with record list"),
    Row("bytes written, 1 change", "written_1", sizes=(SMALL,), bound=1, unit="bytes"),
    Row("bytes written, 1,000 changes", "written_1000", sizes=(SMALL,), bound=1, unit="bytes"),
    Row("process start to first value, first start", "start_first", sizes=(SMALL,)),
    Row("process start to first value, restart", "start_again", sizes=(SMALL,)),
]

# Lookups in dictionaries of their own.
PATTERNS = [
    ("IDs: consecutive", "ids_consecutive"),
    ("blocks of 100 in 1,000", "ids_100_of_1000"),
    ("blocks of 256 in 4,096", "ids_256_of_4096"),
    ("steps of 10", "ids_step_10"),
    ("steps of 1,250", "ids_step_1250"),
    ("steps of 4,096", "ids_step_4096"),
    ("steps of 49,100", "ids_step_49100"),
    ("steps of 61,495", "ids_step_61495"),
    ("steps of 65,536", "ids_step_65536"),
    ("steps of 0x0E8B2F51", "ids_step_0x0E8B2F51"),
    ("index and subindex", "ids_index_subindex"),
    ("scattered", "ids_scattered"),
    ("names: numbered", "names_numbered"),
    ("30 bytes in common", "names_30_in_common"),
    ("random", "names_random"),
]


def read_results(paths):
    """{(size, "row/who"): entry of the median, or of the only repetition}, and the contexts."""
    entries, contexts = {}, []
    for path in paths:
        data = json.loads(pathlib.Path(path).read_text(encoding="utf-8"))
        contexts.append(data["context"])
        size = int(data["context"]["items"])
        for entry in data["benchmarks"]:
            if entry.get("aggregate_name", "median") != "median":
                continue
            if entry["run_type"] == "iteration" and entry.get("repetitions", 1) != 1:
                continue
            name = "/".join(entry["run_name"].split("/")[:2])
            entries[size, name] = entry
    return entries, contexts


def amount(entry, unit):
    if unit != "time":
        return entry[unit]
    wall = re.search(r"/(real|manual)_time", entry["run_name"])
    scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[entry["time_unit"]]
    return entry["real_time" if wall else "cpu_time"] * scale


def written(value, unit):
    if unit != "time":
        return f"{value:,.0f} B"
    for limit, scale, name in ((1e3, 1, "ns"), (1e6, 1e3, "µs"), (1e9, 1e6, "ms")):
        if value < limit:
            return f"{value / scale:.3g} {name}"
    return f"{value / 1e9:.3g} s"


class Result:
    """A row at one size, compared."""

    def __init__(self, row, size, entries):
        self.row, self.size = row, size

        def value(who, at=size):
            entry = entries.get((at, who if "/" in who else f"{row.key}/{who}"))
            return amount(entry, row.unit) if entry else None

        self.ours = value(row.ours)
        self.base = value(row.against, row.at or size) if row.bound or row.against != "limit" else None
        self.peers = {who: value(who) for who in (*row.faster, *row.others) if value(who)}

    def ratio(self):
        return self.ours / self.base if self.base else None

    def met(self):
        """None where nothing is asked for."""
        if self.row.bound is None or self.ratio() is None:
            return None
        slower = [who for who in self.row.faster if who in self.peers and self.peers[who] <= self.ours]
        return round(self.ratio(), 2) <= self.row.bound and not slower

    def goal(self):
        if self.row.bound is None:
            return "reported"
        names = {"limit": "limit", "query_id/library": "`queryValue(id)`"}
        against = f"{self.row.at:,} items" if self.row.at else names.get(self.row.against, self.row.against)
        goal = f"≤ {self.row.bound:g} × {against}"
        return goal + (", faster than all" if self.row.faster else "")

    def peer_texts(self):
        unit = self.row.unit
        for who, value in self.peers.items():
            yield f"{who} {written(value, unit)} ({value / self.ours:.2f} ×)"


def met_text(met):
    return {True: "met", False: "**not met**", None: ""}[met]


def table(results):
    yield "| work | items | library | compared with | ratio | goal | | others, and how many times the library |"
    yield "|---|--:|--:|--:|--:|---|---|---|"
    for r in results:
        base = written(r.base, r.row.unit) if r.base else ""
        ratio = f"{r.ratio():.2f}" if r.ratio() else ""
        yield (f"| {r.row.title} | {r.size:,} | {written(r.ours, r.row.unit)} | {base} | {ratio} | {r.goal()} "
               f"| {met_text(r.met())} | {'; '.join(r.peer_texts())} |")


def pattern_met(key, size, ours, limit):
    """By ID at most 2 ns more than the limit, and below 20,000 items at most twice the limit; by name the limit."""
    if key.startswith("names"):
        return ours <= limit
    return ours <= limit + 2 and (size >= 20000 or ours <= 2 * limit)


def patterns(entries):
    """{pattern's key: {size: (library, limit, whether the goal is met)}} of what was measured."""
    found = {}
    for _, key in PATTERNS:
        for size in PATTERN_SIZES:
            entry, base = entries.get((size, f"{key}/library")), entries.get((size, f"{key}/limit"))
            if entry and base:
                ours, limit = amount(entry, "time"), amount(base, "time")
                found.setdefault(key, {})[size] = ours, limit, pattern_met(key, size, ours, limit)
    return found


def pattern_table(found):
    """Library and limit; what is above its goal in bold."""
    yield "| `queryValue`, library of limit | " + " | ".join(f"{size:,} items" for size in PATTERN_SIZES) + " |"
    yield "|---|" + "--:|" * len(PATTERN_SIZES)
    for title, key in PATTERNS:
        if key not in found:
            continue
        cells = []
        for size in PATTERN_SIZES:
            ours, limit, met = found[key].get(size, (None, None, None))
            mark = "" if met else "**"
            cells.append(f"{mark}{written(ours, 'time')}{mark} of {written(limit, 'time')}" if ours else "")
        yield f"| {title} | " + " | ".join(cells) + " |"


def growth(results):
    """Whether loading is linear: time per item at the largest size over that at the smallest."""
    yield ("| loading, time per item | " + " | ".join(f"{size:,} items" for size in ALL) +
           " | growth | of the limit | linear: growth ≤ 2 |")
    yield "|---|--:|--:|--:|--:|--:|---|"
    for key in ("read_json", "read_database", "first_json", "restart_json"):
        rows = {r.size: r for r in results if r.row.key == key}
        if set(rows) != set(ALL):
            continue
        each = [rows[size].ours / size for size in ALL]
        base = [rows[size].base / size for size in ALL]
        yield (f"| {rows[SMALL].row.title} | " + " | ".join(written(t, "time") for t in each) +
               f" | {each[-1] / each[0]:.2f} × | {base[-1] / base[0]:.2f} × | {met_text(each[-1] / each[0] <= 2)} |")


def file_text(path):
    try:
        return pathlib.Path(path).read_text(encoding="utf-8")
    except OSError:
        return ""


def file_field(path, pattern, default="unknown"):
    found = re.search(pattern, file_text(path), re.M)
    return found.group(1) if found else default


def machine(contexts):
    context = contexts[0]
    memory = int(file_field("/proc/meminfo", r"^MemTotal: *(\d+)", "0")) / 2**20
    processor = file_field("/proc/cpuinfo", r"^model name\s*: (.*)$")
    system = file_field("/etc/os-release", r'^PRETTY_NAME="(.*)"$')
    peers = "".join(f", {name} {context[key]}" for key, name in (("qt", "Qt"), ("lmdb", "LMDB")) if key in context)
    loads = ", ".join(f"{c['load_avg'][0]:.1f}" for c in contexts if c.get("load_avg"))
    virtual = " of a virtual machine" if re.search(r"\bhypervisor\b", file_text("/proc/cpuinfo")) else ""
    return (f"Measured on {context['date'][:10]}: {context['num_cpus']} cores{virtual} ({processor}), "
            f"{memory:.0f} GiB of memory, {system}, g++ {context['compiler']} with `-O2 -DNDEBUG`, "
            f"SQLite {context['sqlite']}{peers}. Load of the machine before each part of the run: {loads}.")


def chart(results):
    """Bars of ratios on a card of its own colour, legible on any page."""
    shown = [r for r in results if r.met() is not None and r.row.bound != 1 and
             r.size == (SMALL if SMALL in r.row.sizes else r.row.sizes[0])]
    width, left, top, step = 860, 300, 74, 24
    scale = 330  # pixels for a ratio that is twice its goal
    height = top + step * len(shown) + 30

    def text(x, y, content, style="", anchor="start"):
        return f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}" {style}>{escape(content)}</text>'

    yield (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" height="{height}" '
           'font-family="sans-serif" font-size="13" fill="#1f2328">')
    yield f'<rect x="1" y="1" width="{width - 2}" height="{height - 2}" rx="8" fill="#ffffff" stroke="#d0d7de"/>'
    yield text(20, 28, "Measured cost over the goal's, shorter is better", 'font-size="16" font-weight="bold"')
    yield text(20, 48, f"{SMALL:,} items, batches of 10,000 rows; in brackets the ratio to the limit and the goal", 'fill="#57606a"')
    goal_x = left + scale / 2
    yield f'<line x1="{goal_x}" y1="{top - 8}" x2="{goal_x}" y2="{height - 24}" stroke="#1f2328" stroke-dasharray="4 3"/>'
    yield text(goal_x, height - 9, "goal", anchor="middle")
    for index, r in enumerate(shown):
        y = top + step * index
        share = r.ratio() / r.row.bound
        length = min(share, 2.4) * scale / 2
        colour = "#1a7f37" if r.met() else "#cf222e"
        yield text(left - 10, y + 14, r.row.title.replace("`", ""), anchor="end")
        yield f'<rect x="{left}" y="{y + 3}" width="{length:.1f}" height="15" rx="2" fill="{colour}"/>'
        label = f"{'met' if r.met() else 'not met'} ({r.ratio():.2f} of {r.row.bound:g})"
        yield text(max(left + length, goal_x) + 8, y + 15, label)
    yield "</svg>"


def main():
    root, paths = pathlib.Path(sys.argv[1]), sys.argv[2:]
    entries, contexts = read_results(paths)
    results = [Result(row, size, entries) for row in ROWS for size in row.sizes
               if (size, f"{row.key}/{row.ours}") in entries]

    for r in results:
        ratio = f"{r.ratio():.2f} of {r.goal().replace('`', '')}" if r.ratio() else r.goal()
        print(f"{r.row.title.replace('`', ''):44} {r.size:>9,}  {written(r.ours, r.row.unit):>9}  {ratio}  "
              f"{met_text(r.met()).strip('*')}  {'; '.join(r.peer_texts())}".rstrip())
    found = patterns(entries)
    for line in pattern_table(found):
        print(line)
    met = [r.met() for r in results if r.met() is not None]
    met += [met for sizes in found.values() for _, _, met in sizes.values()]
    print(f"{sum(met)} of {len(met)} goals met")

    page = root / "docs" / "benchmarks.md"
    before, rest = page.read_text(encoding="utf-8").split(BEGIN)
    after = rest.split(END)[1]
    generated = "\n".join([machine(contexts), "", *table(results), "", *pattern_table(found), "", *growth(results)])
    page.write_text(f"{before}{BEGIN}\n{generated}\n{END}{after}", encoding="utf-8")
    (root / "docs" / "images" / "benchmarks.svg").write_text("\n".join(chart(results)) + "\n", encoding="utf-8")


if __name__ == "__main__":
    main()
