"""Writes docs/performance.md, its plots and the figures of README.md from the recorded results."""

import json

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as pyplot  # noqa: E402

from measure import Results  # noqa: E402
from rows import MET, MISSED, OPENING, OPENING_PLOT, SUBSYSTEMS, SUMMARY  # noqa: E402

# Keeps text as text, and makes the files reproducible.
matplotlib.rcParams.update({"svg.fonttype": "none", "svg.hashsalt": "dalnim", "font.size": 9})

# A peer has the same colour in all plots; labels that are not listed get one of the remaining colours.
COLOURS = {
    "dalnim": "#1f4e9c", "dalnim, String": "#1f4e9c", "dalnim, push parser": "#1f4e9c",
    "dalnim, stream": "#4fa3e0", "dalnim, consumers": "#4fa3e0",
    "spdlog": "tab:orange", "log4cplus": "tab:green", "glog": "tab:red", "POCO": "tab:purple",
    "Boost.Log": "tab:brown", "Boost": "tab:brown", "OpenSSL": "tab:olive", "expat": "tab:pink",
    "pugixml in place": "tab:cyan",
    "write": "black", "memchr": "black", "getline": "black", "ofstream": "grey",
}

TITLE = """# Performance

What long-running servers do most, with this library and with the peer that they would use instead:
"""

HEAD = """
## How to read the tables

This page is written by `./benchmarks/report`; do not edit it by hand.

Each row is the median of repetitions that were interleaved with those of its peers, in one run of one program;
every repetition writes to a new file. The number in brackets after a peer or a limit is dalnim's cost divided by
its cost: below 1, dalnim is faster. Goals are ratios where possible, since absolute times depend on the machine.
Rows that were not measured are omitted; a goal whose peer was not measured is marked as such. Percentiles
(p50, p99, p99.9) are the medians of those of the repetitions.

Where a goal is missed, a profile follows the table. Its instructions were counted by callgrind, with the command
that is named; its times are processor time on an AMD EPYC with 2 cores, unless another machine is named.
"""

REPEAT = """
## How to repeat it

```sh
./benchmarks/report                # all of it, on an idle machine: about half an hour
./benchmarks/report --quick        # a few minutes, to check that it works
./benchmarks/report --only log     # measures one subsystem, and uses the recorded results of the others
```

The script installs the peers from Debian's packages, builds the release preset with the benchmarks in
`build/benchmarks`, and stores the raw results as JSON in `build/benchmarks/results`. The library itself needs none
of the peers.
"""

README_BEGIN, README_END = "<!-- figures: written by benchmarks/report -->", "<!-- end of figures -->"


def time_text(seconds):
    for unit, size in (("s", 1), ("ms", 1e-3), ("µs", 1e-6), ("ns", 1e-9)):
        if seconds >= size:
            return f"{seconds / size:.3g} {unit}"
    return f"{seconds / 1e-9:.2g} ns"


def cost_text(cost, rate):
    if not rate:
        return time_text(cost)
    value = 1e-6 / cost
    return (f"{value:,.0f}" if value >= 100 else f"{value:.3g}") + " " + rate


def costs_of(row, results, pairs):
    """The costs of those samples of a row that were measured, by label."""
    costs = {}
    for label, name in pairs:
        sample = results.get(row.program, name)
        if sample is not None:
            costs[label] = sample.cost(row.clock, row.per)
    return costs


def goals_text(row, cost, others):
    """The goals and their verdicts: one for each goal if they differ."""
    verdicts = [goal.verdict(cost, others) for goal in row.goals]
    if len(set(verdicts)) > 1:
        verdicts = [f"{goal.text}: {verdict}" for goal, verdict in zip(row.goals, verdicts)]
    return "; ".join(goal.text for goal in row.goals), "; ".join(dict.fromkeys(verdicts))


def table(subsystem, results):
    """The table of the measured rows with the reasons for missed goals; how many rows met and missed theirs."""
    lines = ["| row | dalnim | peers | limits | goal | |", "|---|---|---|---|---|---|"]
    reasons = []
    unexplained = []
    met = missed = 0
    for row in subsystem.rows:
        sample = results.get(row.program, row.own)
        if sample is None:
            continue
        cost = sample.cost(row.clock, row.per)
        peers = costs_of(row, results, row.peers)
        limits = costs_of(row, results, row.limits)
        columns = [row.title, cost_text(cost, row.rate)]
        for others in (peers, limits):
            columns.append(", ".join(f"{label} {cost_text(other, row.rate)} ({cost / other:.2f})"
                                     for label, other in others.items()))
        columns += goals_text(row, cost, {**peers, **limits})
        met += columns[-1] == MET
        missed += MISSED in columns[-1]
        lines.append("| " + " | ".join(columns) + " |")
        if MISSED in columns[-1]:
            known = [reason for titles, reason in subsystem.reasons if row.title.startswith(titles)]
            reasons += known
            if not known:
                unexplained.append(row.title)
    if unexplained:
        reasons.append(f"Without a profile yet: {'; '.join(unexplained)}.")
    if reasons:
        lines += ["", "Missed goals, and where the time goes:", "",
                  *(f"- {reason}" for reason in dict.fromkeys(reasons))]
    return (lines if len(lines) > 2 else []), met, missed


def draw(plot, results, directory):
    """Draws the measured series of a plot. Returns false if there are too few points for a line."""
    figure, axes = pyplot.subplots(figsize=(7, 4))
    lines = 0
    for label, name in plot.series:
        points = [(x, results.get(plot.program, name.format(x=x))) for x in plot.xs]
        points = [(x, sample.cost(plot.clock, plot.per)) for x, sample in points if sample is not None]
        if len(points) < 2:
            continue
        lines += 1
        own = label.startswith("dalnim")
        axes.plot([x for x, _ in points],
                  [1e-6 / cost if plot.rate else cost / 1e-9 for _, cost in points],
                  marker="o", markersize=4, linewidth=2.5 if own else 1.2, zorder=3 if own else 2,
                  color=COLOURS.get(label), label=label)
    if lines > 0:
        axes.set_xscale("log", base=2 if plot.xlabel == "threads" else 10)
        if plot.xlabel == "threads":
            axes.set_xticks(plot.xs, [str(x) for x in plot.xs])
        if plot.linear:
            axes.set_ylim(bottom=0)
        else:
            axes.set_yscale("log")
        axes.set(title=plot.title, xlabel=plot.xlabel, ylabel=plot.rate or "ns")
        axes.grid(True, which="major", linewidth=0.4)
        axes.legend(fontsize=8, loc="center left", bbox_to_anchor=(1, 0.5))
        figure.tight_layout()
        figure.savefig(directory / f"{plot.file}.svg", metadata={"Date": None})
    pyplot.close(figure)
    return lines > 0


def machine_section(machine, everything):
    lines = ["", "## Machine", ""]
    contexts = [context["report"] for _, results in everything for context in results.contexts]

    def values(key):
        return ", ".join(sorted({str(context[key]) for context in contexts}))

    quick = [subsystem.name for subsystem, results in everything
             if any(context["report"]["quick"] for context in results.contexts)]
    if quick:
        lines += [f"**A quick run** of {', '.join(quick)}: few and short repetitions, and no large "
                  "sizes. It shows that the report works; its numbers are too noisy to be compared.", ""]
    for note in dict.fromkeys(context["note"] for context in contexts if context["note"]):
        lines += [note, ""]
    lines += ["| | |", "|---|---|",
              f"| processor | {machine['processor']}, {machine['cores']} cores, {machine['clock']} |",
              f"| load average at the end | {', '.join(map(str, machine['load']))} |",
              f"| kernel | {machine['kernel']} |",
              f"| compiler | {machine['compiler']} |",
              f"| dalnim | {values('revision')} |",
              f"| measured | {values('date')}, medians of {values('repetitions')} repetitions |",
              f"| peers | {', '.join(' '.join(peer) for peer in machine['peers'].items() if peer[1])} |"]
    return lines


def footprint_section(machine):
    lines = []
    for title, key in (("library, stripped", "library_size"),
                       ("additional private memory of a process", "private_memory")):
        if machine[key] is not None:
            size = machine[key] / 2**20
            verdict = MET if size < 1 else MISSED
            lines.append(f"| {title} | {size:.2f} MiB | under 1 MiB | {verdict} |")
    return ["", "## Size", "", "| row | dalnim | goal | |", "|---|---|---|---|", *lines] if lines else []


def row_cells(row, results):
    """The cost of a measured row, and the costs of its peers with their ratios."""
    cost = results.get(row.program, row.own).cost(row.clock, row.per)
    peers = costs_of(row, results, row.peers)
    return cost_text(cost, row.rate), ", ".join(
        f"{label} {cost_text(other, row.rate)} ({cost / other:.2f})" for label, other in peers.items())


def find_row(everything, name, title):
    """Returns a row that was measured, and the results of its subsystem, or None and None."""
    for subsystem, results in everything:
        for row in subsystem.rows:
            if (subsystem.name, row.title) == (name, title) and results.get(row.program, row.own):
                return row, results
    return None, None


def opening(everything):
    """The first table of the report: few rows, with one peer each. Rows that were not measured are omitted."""
    lines = ["", "| | dalnim | peer | dalnim's cost |", "|---|---|---|---|"]
    for title, name, row_title, label in OPENING:
        row, results = find_row(everything, name, row_title)
        peer = costs_of(row, results, row.peers).get(label) if row else None
        if peer is not None:
            cost = results.get(row.program, row.own).cost(row.clock, row.per)
            lines.append(f"| {title} | {cost_text(cost, row.rate)} | {label} {cost_text(peer, row.rate)} "
                         f"| {cost / peer:.2f} × {label} |")
    return lines if len(lines) > 3 else []


def write_summary(readme, everything):
    """Replaces the figures of README.md. Rows that were not measured are omitted."""
    head, rest = readme.read_text(encoding="utf-8").split(README_BEGIN)
    tail = rest.split(README_END)[1]
    lines = [README_BEGIN, "| | dalnim | peers |", "|---|---|---|"]
    for title, name, row_title in SUMMARY:
        row, results = find_row(everything, name, row_title)
        if row:
            lines.append("| " + " | ".join((title, *row_cells(row, results))) + " |")
    readme.write_text(head + "\n".join(lines + [README_END]) + tail, encoding="utf-8")


def write(tree, directory):
    machine = json.loads((directory / "machine.json").read_text(encoding="utf-8"))
    docs = tree / "docs"
    plots = docs / "performance"
    plots.mkdir(parents=True, exist_ok=True)
    for old in plots.glob("*.svg"):
        old.unlink()

    everything = [(subsystem, Results(subsystem, directory)) for subsystem in SUBSYSTEMS]
    body = []
    opening_plot = []
    met = missed = 0
    for subsystem, results in everything:
        lines, met_here, missed_here = table(subsystem, results)
        if not lines:
            continue
        met += met_here
        missed += missed_here
        body += ["", f"## {subsystem.title}", ""]
        for remark in subsystem.remarks:
            body += [remark, ""]
        body += lines
        for plot in subsystem.plots:
            if draw(plot, results, plots):
                link = ["", f"![{plot.title}](performance/{plot.file}.svg)"]
                if plot.file == OPENING_PLOT:
                    opening_plot = link
                else:
                    body += link
    body += footprint_section(machine)

    summary = ["", f"Of the rows below that have goals, {met} meet all of them and {missed} miss at least one."]
    text = TITLE.splitlines() + opening(everything) + opening_plot + HEAD.rstrip().splitlines() + summary
    text += machine_section(machine, everything)
    text += REPEAT.rstrip().splitlines() + body
    (docs / "performance.md").write_text("\n".join(text) + "\n", encoding="utf-8")
    write_summary(tree / "README.md", everything)
