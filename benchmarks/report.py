#!/usr/bin/env python3
"""Writes the figures and charts of README.md and docs/ from the results of kel_benchmarks, and prints the ratios.

Usage: report.py ROOT RESULT.json...

The pages show the processor of the first file. What differs much on the other processors becomes a table. Without the
results of the smallest dictionary and of Qt the pages stay as they are.
"""

import json
import math
import pathlib
import re
import sys
import textwrap
from html import escape

SMALL, MIDDLE, LARGE = 5000, 100000, 1000000
ALL = (SMALL, MIDDLE, LARGE)
PATTERN_SIZES = (500, 5000, 20000, 1000000)


class Row:
    """One line of work. `bound` is the goal as a multiple of `against`, at the same size or at the size `at`; `faster`
    are the peers to be faster than. With `slack` the goal is `against` and so many ns, and below 20,000 items also
    `bound`."""

    def __init__(self, title, key, sizes=ALL, against="limit", bound=None, faster=(), others=(), unit="time",
                 ours="library", at=None, slack=None):
        self.title, self.key, self.sizes, self.unit, self.ours = title, key, sizes, unit, ours
        self.against, self.bound = against, bound
        self.faster, self.others = faster, others
        self.at, self.slack = at, slack


ROWS = [
    Row("`queryValue(id)`", "query_id", bound=1.3, faster=("Qt", "SQLite", "LMDB")),
    Row("`queryValue(name)`", "query_name", bound=1.0, faster=("Qt",)),
    Row("`updateValue`, unchanged", "update_same", bound=1.5),
    Row("`updateValue`, changed, 1,000 a turn", "update_changed", against="bare turns", bound=2, faster=("Qt", "SQLite"),
        others=("limit",)),
    Row("`updateValue`, changed, 1 a turn", "update_turn", bound=1.5, faster=("Qt",)),
    Row("1,000 changes of one item, merged", "update_merged", bound=1.2, others=("unmerged", "Qt", "Qt unmerged")),
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
    Row("reading a JSON dictionary", "read_json", bound=1.2, others=("RapidJSON",)),
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

# The tables below have a line for each row and a column for each size.
READS = [
    Row("`queryValue(id).toDouble()`", "read_double", bound=1.3),
    Row("`queryValue(id).toLongLong()`", "read_longlong", bound=1.3),
    Row("`queryValue(id).toInt()`", "read_int", bound=1.3),
]


def by_id(title, key):
    return Row(title, key, sizes=PATTERN_SIZES, bound=2, slack=2)


def by_name(title, key):
    return Row(title, key, sizes=PATTERN_SIZES, bound=1)


PATTERNS = [
    by_id("IDs: consecutive", "ids_consecutive"),
    by_id("IDs: blocks of 100 in 1,000", "ids_100_of_1000"),
    by_id("IDs: blocks of 256 in 4,096", "ids_256_of_4096"),
    by_id("IDs: steps of 10", "ids_step_10"),
    by_id("IDs: steps of 1,250", "ids_step_1250"),
    by_id("IDs: steps of 4,096", "ids_step_4096"),
    by_id("IDs: steps of 49,100", "ids_step_49100"),
    by_id("IDs: steps of 61,495", "ids_step_61495"),
    by_id("IDs: steps of 65,536", "ids_step_65536"),
    by_id("IDs: steps of 0x0E8B2F51", "ids_step_0x0E8B2F51"),
    by_id("IDs: index and subindex", "ids_index_subindex"),
    by_id("IDs: scattered", "ids_scattered"),
    by_name("names: numbered", "names_numbered"),
    by_name("names: 30 bytes in common", "names_30_in_common"),
    by_name("names: random", "names_random"),
]


class Comparison:
    """What users would use instead. `others` are (who in the results, name in the chart, name in the list that follows
    the sentence). The sentence may name results in braces: `{who}` of this row."""

    def __init__(self, title, key, sentence, others, unit="time"):
        self.title, self.key, self.sentence, self.others, self.unit = title, key, sentence, others, unit


COMPARISONS = [
    Comparison("Lookup by ID", "query_id", "`queryValue(id)` takes {library}", (
        ("limit", "bare map", "a bare `std::unordered_map`"),
        ("Qt", "Qt", "Qt's `QHash`"),
        ("LMDB", "LMDB", "LMDB"),
        ("SQLite", "SQLite", "SQLite in memory"))),
    Comparison("Update with event", "update_changed", "A changed value and the delivery of its event take {library}", (
        ("limit", "bare map, no delivery", "a bare map that delivers nothing"),
        ("Qt", "Qt", "Qt's `QHash` with `postEvent`"),
        ("SQLite", "SQLite", "SQLite with its update hook"))),
    Comparison("Selection by ID range", "select_range", "Reading the values of a tenth of the items takes {library}", (
        ("limit", "bare map", "a pass over a bare map"),
        ("Qt", "Qt", "a pass over a `QHash`"),
        ("LMDB", "LMDB", "LMDB (sorted by ID)"),
        ("SQLite with index", "SQLite", "SQLite with an index"))),
    Comparison("Start: reading the JSON", "read_json", "Reading the dictionary from JSON takes {library}", (
        ("RapidJSON", "RapidJSON alone", "RapidJSON alone (keeps no items)"),
        ("bare maps", "bare maps", "RapidJSON with bare maps"),
        ("Qt", "Qt", "Qt's JSON parser with `QHash`"),
        ("SQLite", "SQLite", "RapidJSON with SQLite in memory"))),
    Comparison("Memory per item", "memory", "An item takes {library}, or {with record list} when read from JSON", (
        ("with record list", "library, from JSON", None),
        ("limit", "bare maps", "bare maps"),
        ("Qt", "Qt", "`QHash`"),
        ("SQLite", "SQLite", "SQLite in memory")), unit="bytes_per_item"),
]


def read_results(paths):
    """{processor: ({(size, "row/who"): entry of the median, or of the only repetition}, contexts)}."""
    runs = {}
    for path in paths:
        data = json.loads(pathlib.Path(path).read_text(encoding="utf-8"))
        context = data["context"]
        entries, contexts = runs.setdefault(context.get("processor", "unknown processor"), ({}, []))
        contexts.append(context)
        size = int(context["items"])
        for entry in data["benchmarks"]:
            if entry.get("aggregate_name", "median") != "median":
                continue
            if entry["run_type"] == "iteration" and entry.get("repetitions", 1) != 1:
                continue
            name = "/".join(entry["run_name"].split("/")[:2])
            entries[size, name] = entry
    return runs


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
        if self.row.bound is None or self.ratio() is None or self.row.at == self.size:
            return None
        if self.row.slack is not None and (self.size >= 20000 or self.ours > self.base + self.row.slack):
            return self.ours <= self.base + self.row.slack
        slower = [who for who in self.row.faster if who in self.peers and self.peers[who] <= self.ours]
        return round(self.ratio(), 2) <= self.row.bound and not slower

    def goal(self):
        if self.row.bound is None:
            return "reported"
        names = {"limit": "limit", "query_id/library": "`queryValue(id)`"}
        against = f"{self.row.at:,} items" if self.row.at else names.get(self.row.against, self.row.against)
        goal = f"≤ {self.row.bound:g} × {against}"
        if self.row.slack is not None:
            goal = f"≤ {against} + {self.row.slack} ns" + (f", {goal}" if self.size < 20000 else "")
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


def compact_table(title, results):
    """Library and limit in ns, a column for each size; what is above its goal in bold."""
    sizes = sorted({r.size for r in results})
    if not sizes:
        return
    yield f"| {title}, in ns | " + " | ".join(f"{size:,} items" for size in sizes) + " |"
    yield "|---|" + "--:|" * len(sizes)
    for row in dict.fromkeys(r.row for r in results):
        cells = []
        for size in sizes:
            r = next((r for r in results if r.row is row and r.size == size), None)
            mark = "" if r is None or r.met() else "**"
            cells.append(f"{mark}{r.ours:,.1f}{mark} / {r.base:,.1f}" if r else "")
        yield f"| {row.title} | " + " | ".join(cells) + " |"


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


def wrapped(text, **how):
    return textwrap.fill(text, 120, break_long_words=False, break_on_hyphens=False, **how)


def machine(processor, contexts):
    context = contexts[0]
    memory = int(file_field("/proc/meminfo", r"^MemTotal: *(\d+)", "0")) / 2**20
    system = file_field("/etc/os-release", r'^PRETTY_NAME="(.*)"$')
    peers = "".join(f", {name} {context[key]}" for key, name in (("qt", "Qt"), ("lmdb", "LMDB")) if key in context)
    loads = ", ".join(f"{c['load_avg'][0]:.1f}" for c in contexts if c.get("load_avg"))
    virtual = " of a virtual machine" if re.search(r"\bhypervisor\b", file_text("/proc/cpuinfo")) else ""
    return wrapped(f"Measured on {context['date'][:10]}: {context['num_cpus']} cores{virtual} ({processor}), "
                   f"{memory:.0f} GiB of memory, {system}, g++ {context['compiler']} with `-O2 -DNDEBUG`, "
                   f"SQLite {context['sqlite']}{peers}. Load of the machine before each part of the run: {loads}.")


def results_of(rows, entries):
    return [Result(row, size, entries) for row in rows for size in row.sizes
            if (size, f"{row.key}/{row.ours}") in entries]


def differences(processor, entries, others):
    """A table for each other processor: goals that are met on one alone, and ratios that differ by more than 25 %."""
    rows = (*ROWS, *READS, *PATTERNS)
    for other, (other_entries, _) in others.items():
        found = {(r.row, r.size): r for r in results_of(rows, other_entries)}
        lines = []
        for ours in results_of(rows, entries):
            theirs = found.get((ours.row, ours.size))
            if ours.met() is None or not theirs or theirs.met() is None:
                continue
            if ours.met() != theirs.met() or abs(math.log(ours.ratio() / theirs.ratio())) > math.log(1.25):
                lines.append(f"| {ours.row.title} | {ours.size:,} | {ours.ratio():.2f} {met_text(ours.met())} "
                             f"| {theirs.ratio():.2f} {met_text(theirs.met())} |")
        yield ""
        if lines:
            yield f"On {other}, these goals are met otherwise, or their ratios differ by more than 25 %:"
            yield from ("", f"| work | items | {processor} | {other} |", "|---|--:|---|---|", *lines)
        else:
            yield f"On {other}, the same goals are met, and no ratio differs by more than 25 %."


def compared(comparison, entries):
    """{who: amount}, the library first, and then the others that were measured; empty without both."""
    found = {who: amount(entries[SMALL, f"{comparison.key}/{who}"], comparison.unit)
             for who in ("library", *(who for who, _, _ in comparison.others))
             if (SMALL, f"{comparison.key}/{who}") in entries}
    return found if "library" in found and len(found) > 1 else {}


def joined(texts):
    return " and ".join((", ".join(texts[:-1]), texts[-1])) if len(texts) > 1 else "".join(texts)


def sentences(entries):
    for comparison in COMPARISONS:
        texts = {who: written(value, comparison.unit) for who, value in compared(comparison, entries).items()}
        against = joined([f"{texts[who]} for {name}" for who, _, name in comparison.others if who in texts and name])
        if against:
            text = f"- **{comparison.title}.** {comparison.sentence.format_map(texts)}, against {against}."
            yield wrapped(text, subsequent_indent="  ")


def figures(entries, processor):
    """README's: three of the small dictionary."""
    names = ("query_id/library", "query_id/Qt", "update_changed/library", "update_changed/Qt", "start_again/library")
    lookup, qt_lookup, update, qt_update, start = (
        written(amount(entries[SMALL, name], "time"), "time") for name in names)
    text = (f"With {SMALL:,} items a lookup by ID takes {lookup} (Qt's `QHash`: {qt_lookup}), an update with the "
            f"delivery of its event {update} (Qt: {qt_update}), and a process reads its first value {start} after its "
            f"start. [Measured](docs/benchmarks.md) on: {processor}.")
    return [wrapped(text)]


class Svg:
    """A card of its own colour, legible on any page."""

    def __init__(self, width, height, title, subtitle):
        self.lines = [
            f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" height="{height}" '
            'font-family="sans-serif" font-size="13" fill="#1f2328" role="img">',
            f"<title>{escape(title)}</title>",
            f'<rect x="1" y="1" width="{width - 2}" height="{height - 2}" rx="8" fill="#ffffff" stroke="#d0d7de"/>']
        self.text(20, 28, title, 'font-size="16" font-weight="bold"')
        self.text(20, 48, subtitle, 'fill="#57606a"')

    def text(self, x, y, content, style="", anchor="start"):
        self.lines.append(f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}" {style}>{escape(content)}</text>')

    def bar(self, x, y, length, colour):
        self.lines.append(f'<rect x="{x:.1f}" y="{y}" width="{length:.1f}" height="15" rx="2" fill="{colour}"/>')

    def vertical(self, x, top, bottom, style):
        self.lines.append(f'<line x1="{x:.1f}" y1="{top}" x2="{x:.1f}" y2="{bottom}" {style}/>')

    def write(self, path):
        path.write_text("\n".join([*self.lines, "</svg>"]) + "\n", encoding="utf-8")


def goal_chart(results):
    """Bars of ratios, by the goal."""
    shown = [r for r in results if r.met() is not None and r.row.unit != "bytes" and
             r.size == (SMALL if SMALL in r.row.sizes else r.row.sizes[0])]
    width, left, top, step = 860, 300, 74, 24
    scale = 330  # pixels for a ratio that is twice its goal
    height = top + step * len(shown) + 30
    svg = Svg(width, height, "Measured cost over the goal's, shorter is better",
              f"{SMALL:,} items, batches of 10,000 rows; in brackets the ratio and the goal")
    goal_x = left + scale / 2
    svg.vertical(goal_x, top - 8, height - 24, 'stroke="#1f2328" stroke-dasharray="4 3"')
    svg.text(goal_x, height - 9, "goal", anchor="middle")
    for index, r in enumerate(shown):
        y = top + step * index
        length = min(r.ratio() / r.row.bound, 2.4) * scale / 2
        svg.text(left - 10, y + 14, r.row.title.replace("`", ""), anchor="end")
        svg.bar(left, y + 3, length, "#1a7f37" if r.met() else "#cf222e")
        label = f"{'met' if r.met() else 'not met'} ({r.ratio():.2f} of {r.row.bound:g})"
        svg.text(max(left + length, goal_x) + 8, y + 15, label)
    return svg


def peer_chart(entries):
    """What others take, as multiples of the library, on a logarithmic scale."""
    shown = {comparison: found for comparison in COMPARISONS if (found := compared(comparison, entries))}
    ratios = [value / found["library"] for found in shown.values() for value in found.values()]
    left, right, width, top, step = 190, 700, 860, 96, 22
    low, high = math.log10(min(ratios)) - 0.1, math.log10(max(ratios)) + 0.05
    height = top + sum(step * len(found) + 14 for found in shown.values()) + 10

    def x(ratio):
        return left + (math.log10(ratio) - low) / (high - low) * (right - left)

    svg = Svg(width, height, "What others take, as a multiple of the library (logarithmic scale)",
              f"{SMALL:,} items. To the right: others take more than the library. To the left: they take less.")
    for tick in (factor * 10.0**decade for decade in range(-3, 5) for factor in (1, 2, 5)):
        if low <= math.log10(tick) <= high:
            svg.vertical(x(tick), top - 16, height - 12, f'stroke="{"#1f2328" if tick == 1 else "#d8dee4"}"')
            svg.text(x(tick), top - 22, f"{tick:g} ×", 'fill="#57606a"', "middle")
    y = top
    for comparison, found in shown.items():
        ours = found["library"]
        svg.text(20, y + 8, comparison.title, 'font-weight="bold"')
        svg.bar(x(1) - 3, y - 4, 6, "#0969da")
        svg.text(x(1) + 9, y + 8, f"library {written(ours, comparison.unit)}", 'font-weight="bold" fill="#0969da"')
        for who, name, _ in comparison.others:
            if who not in found:
                continue
            y += step
            ratio = found[who] / ours
            svg.text(left - 10, y + 8, name, anchor="end")
            svg.bar(min(x(ratio), x(1)), y - 4, abs(x(ratio) - x(1)), "#8c959f" if ratio >= 1 else "#bf8700")
            multiple = f"{ratio:.{1 if ratio >= 10 else 2}f} ×"
            svg.text(max(x(ratio), x(1)) + 8, y + 8, f"{written(found[who], comparison.unit)} ({multiple})")
        y += step + 14
    return svg


def put_between(page, name, lines):
    """Replaces what the page has between the marks of `name`."""
    begin, end = f"<!-- {name} -->\n", f"<!-- end of {name} -->"
    before, rest = page.read_text(encoding="utf-8").split(begin)
    after = rest.split(end)[1]
    page.write_text("".join([before, begin, *(f"{line}\n" for line in lines), end, after]), encoding="utf-8")


def print_results(results):
    for r in results:
        ratio = f"{r.ratio():.2f} of {r.goal().replace('`', '')}" if r.ratio() else r.goal()
        print(f"{r.row.title.replace('`', ''):44} {r.size:>9,}  {written(r.ours, r.row.unit):>9}  {ratio}  "
              f"{met_text(r.met()).strip('*')}  {'; '.join(r.peer_texts())}".rstrip())
    met = [r.met() for r in results if r.met() is not None]
    print(f"{sum(met)} of {len(met)} goals met")


def main():
    root = pathlib.Path(sys.argv[1])
    runs = read_results(sys.argv[2:])
    processor = next(iter(runs))
    entries, contexts = runs.pop(processor)
    results, reads, patterns = (results_of(rows, entries) for rows in (ROWS, READS, PATTERNS))
    print_results([*results, *reads, *patterns])

    if (SMALL, "query_id/Qt") not in entries:
        return
    page, images = root / "docs" / "benchmarks.md", root / "docs" / "images"
    put_between(page, "comparison", sentences(entries))
    put_between(page, "machine", [machine(processor, contexts)])
    put_between(page, "patterns", compact_table("`queryValue`, library / bare map", patterns))
    put_between(page, "reads", compact_table("library / bare map", reads))
    put_between(page, "results", [*table(results), "", *growth(results), *differences(processor, entries, runs)])
    peer_chart(entries).write(images / "peers.svg")
    goal_chart(results).write(images / "benchmarks.svg")
    put_between(root / "README.md", "figures", figures(entries, processor))


if __name__ == "__main__":
    main()
