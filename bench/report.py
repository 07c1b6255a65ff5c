"""Makes the table, the page and the chart from the programs' numbers."""

import os
import platform
import re
import statistics
import subprocess

BEGIN = "<!-- written by bench/run --doc: begin -->\n"
END = "<!-- written by bench/run --doc: end -->\n"
MEBIBYTE = 1024 * 1024

BY_HAND = "COM server with the same VM and JNI call"
CONSTANT = "COM server that answers a constant"
# question, program, ours, measured against (its name in the numbers, its name for readers), limit of the ratio or None
RATIOS = [
    ("A call inside the server", "call", "object", "looked up, clock read", "bare JNI, look-up and clock readings", 1.3),
    ("A call inside the server, clock included", "call", "object", "looked up", "bare JNI, look-up each time", None),
    ("A call inside the server, id kept", "call", "object", "kept", "bare JNI, kept method id", None),
    ("A call across processes, early bound", "remote", "early", "early, by hand", BY_HAND, 1.02),
    ("A call across processes, late bound", "remote", "late", "late, by hand", BY_HAND, 1.02),
    ("A call across processes, early bound, Java included", "remote", "early", "early, constant", CONSTANT, None),
    ("A call across processes, late bound, Java included", "remote", "late", "late, constant", CONSTANT, None),
    ("Start until the frame's id is answered", "start", "server", "bare", "COM server with the same VM and frame", 1.05),
    ("Start with class data, activation apart", "warm", "with", "without", "the same start without the archive", 0.7),
    ("A log statement that is off", "off", "statement", "comparison", "comparison with a volatile integer", 1.2),
    ("A log scope that is off", "off", "scope", "clock and slots", "clock and two thread-local accesses", 1.5),
    ("A written log line", "line", "line", "library", "logging library, same sinks and text", 1.0),
    ("Hand-over of an event by Java's thread", "event", "native", "bare", "lock, append, post", 1.3),
    ("Draining 1,000 events, each", "event", "drain 1000", "drain 100", "draining 100, each", 2),
    ("Draining 10,000 events, each", "event", "drain 10000", "drain 100", "draining 100, each", 2),
    ("Draining 100,000 events, each", "event", "drain 100000", "drain 100", "draining 100, each", 2),
]
MEMORY_LIMIT = 4  # MiB more than the minimal program
# A few pages of memory, over 100,000 calls and events: less than three bytes each.
GROWTH_LIMIT = 0.25


def quartiles(values):
    if len(values) < 2:
        return [values[0], values[0]]
    low, _, high = statistics.quantiles(values, n=4, method="inclusive")
    return [low, high]


def rows(series):
    """The table's rows; one whose program failed has no numbers. Ratios are those of the two turns of one round."""
    result = []
    for question, program, ours, base, against, limit in RATIOS:
        if program not in series:
            continue
        row = {"question": question, "against": against, "unit": "ns", "limit": limit, "rounds": 0, "reached": False}
        if series[program]:
            mine, others = series[program][ours], series[program][base]
            ratios = [one / other for one, other in zip(mine, others, strict=True)]
            middle = statistics.median(ratios)
            row |= {
                "ours": statistics.median(mine),
                "base": statistics.median(others),
                "value": middle,
                "quartiles": quartiles(ratios),
                "rounds": len(ratios),
                "reached": limit is None or round(middle, 2) <= limit,
            }
        result.append(row)
    if "memory" in series:
        result += memory_rows(series["memory"])
    return result


def memory_rows(memory):
    start = {
        "question": "Memory after the start",
        "against": "program with the same VM and frame",
        "unit": "MiB",
        "limit": MEMORY_LIMIT,
        "rounds": 0,
        "reached": False,
    }
    growth = {
        "question": "Memory after 100,000 calls and events",
        "against": "itself before them",
        "unit": "MiB",
        "limit": GROWTH_LIMIT,
        "rounds": 0,
        "reached": False,
    }
    com = {
        "question": "Memory after the start, COM apart",
        "against": "that program as a COM server",
        "unit": "MiB",
        "limit": None,
        "rounds": 0,
        "reached": True,
    }
    if memory:
        beyond = [(one - other) / MEBIBYTE for one, other in zip(memory["server"], memory["COM host"], strict=True)]
        com |= {
            "ours": statistics.median(memory["server"]) / MEBIBYTE,
            "base": statistics.median(memory["COM host"]) / MEBIBYTE,
            "value": statistics.median(beyond),
            "quartiles": quartiles(beyond),
            "rounds": len(beyond),
        }
        more = [(one - other) / MEBIBYTE for one, other in zip(memory["server"], memory["host"], strict=True)]
        added = [(after - before) / MEBIBYTE for after, before in zip(memory["after"], memory["before"], strict=True)]
        start |= {
            "ours": statistics.median(memory["server"]) / MEBIBYTE,
            "base": statistics.median(memory["host"]) / MEBIBYTE,
            "value": statistics.median(more),
            "quartiles": quartiles(more),
            "rounds": len(more),
        }
        growth |= {
            "ours": memory["after"][0] / MEBIBYTE,
            "base": memory["before"][0] / MEBIBYTE,
            "value": added[0],
            "quartiles": quartiles(added),
            "rounds": len(added),
        }
        for row in (start, growth):
            row["reached"] = row["value"] <= row["limit"]
    return [start, com, growth]


def figures(series):
    """Absolute numbers, as measured on this machine."""

    def median(program, name):
        return statistics.median(series[program][name]) if series.get(program) else None

    found = {}
    for text, program, name in [
        ("callMethod inside the server, log level WARN", "call", "object"),
        ("callMethod inside the server, log level TRACE, lines written to the file", "call", "object, full log"),
        ("callMethod from a C++ client", "remote", "early"),
        ("callMethod from a late-bound client", "remote", "late"),
        ("creation of the object until getBeanFrameID answers", "start", "server"),
        ("that creation without COM's activation of the process", "warm", "without"),
        ("the same with an archive of class data (KESTAtool warm)", "warm", "with"),
        ("a line to the log file and the debugger stream", "line", "line"),
        ("hand-over of an event by Java's thread", "event", "native"),
        ("taking an event out of the queue and firing it to a sink in the process", "event", "drain 100"),
    ]:
        if median(program, name) is not None:
            found[text] = median(program, name)
    if series.get("memory"):
        calls = series["memory"]["calls"][0]
        found["call from a C++ client that raises an event, with the event's way to the client's sink"] = (
            series["memory"]["seconds"][0] * 1e9 / calls
        )
    return found


def amount(value, unit):
    if unit == "MiB":
        return f"{value:.2f} MiB"
    for size, name in ((1e9, "s"), (1e6, "ms"), (1e3, "us")):
        if value >= size:
            return f"{value / size:.2f} {name}"
    return f"{value:.2f} ns"


def cells(row):
    limit = "-" if row["limit"] is None else f"{row['limit']:g}" + (" MiB" if row["unit"] == "MiB" else "")
    if "value" not in row:
        return [row["question"], "-", row["against"], "-", "not measured", "-", limit, "FAILED"]
    digits = "+.2f" if row["unit"] == "MiB" else ".3f"
    low, high = row["quartiles"]
    return [
        row["question"],
        amount(row["ours"], row["unit"]),
        row["against"],
        amount(row["base"], row["unit"]),
        f"{row['value']:{digits}}",
        f"{low:{digits}} to {high:{digits}}",
        limit,
        "" if row["reached"] else "OVER",
    ]


HEADINGS = ["question", "ours", "measured against", "theirs", "ratio", "middle half", "limit", ""]


def table(all_rows):
    """For a terminal."""
    lines = [HEADINGS] + [cells(row) for row in all_rows]
    widths = [max(len(line[column]) for line in lines) for column in range(len(HEADINGS))]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths, strict=True)).rstrip() for line in lines)


def page(result):
    """The part of docs/performance.md that depends on the run."""
    lines = [BEGIN, "| " + " | ".join(HEADINGS) + " |", "|" + "---|" * len(HEADINGS)]
    lines += ["| " + " | ".join(cells(row)) + " |" for row in result["rows"]]
    machine = result["machine"]
    lines += [
        "",
        "![Ratios as parts of their limits](performance.png)",
        "",
        f"Measured {result['date']} at revision {machine['revision']}"
        + (" (a quick run)" if result["quick"] else "")
        + f" on {machine['cores']} cores of {machine['processor']}, {machine['memory']} memory, Linux {machine['kernel']}, "
        f"{machine['system']}, {machine['wine']}, Java {machine['java']}, {machine['compiler']}, "
        f"load before the run {machine['load']:.2f}.",
        "",
        "In absolute numbers, on that machine:",
        "",
        "| what | time | per second |",
        "|---|---|---|",
    ]
    for text, value in result["figures"].items():
        lines.append(
            f"| {text} | {amount(value, 'ns')} | {1e9 / value:,.0f} |" if value < 1e8 else f"| {text} | {amount(value, 'ns')} | |"
        )
    lines += ["", END]
    return "\n".join(lines)


def replace_section(path, text):
    before, _, rest = path.read_text().partition(BEGIN)
    path.write_text(before + text + rest.partition(END)[2])


def machine(project):
    """What the numbers depend on, without paths and names."""

    def output(*command):
        try:
            return subprocess.run(command, cwd=project, capture_output=True, text=True, check=True).stdout.strip()
        except (OSError, subprocess.CalledProcessError):
            return "unknown"

    def first(path, pattern):
        with open(path) as file:
            found = re.search(pattern, file.read(), re.MULTILINE)
        return found.group(1).strip() if found else "unknown"

    revision = output("git", "-c", "safe.directory=*", "rev-parse", "--short", "HEAD")
    if output("git", "-c", "safe.directory=*", "status", "--porcelain", "--untracked-files=no"):
        revision += " with changes"
    java = os.path.basename(os.environ["KESTA_JAVA_21"])
    return {
        "revision": revision,
        "processor": first("/proc/cpuinfo", r"^model name\s*:\s*(.*)$"),
        "cores": os.cpu_count(),
        "memory": f"{int(first('/proc/meminfo', r'^MemTotal:\s*(\d+)')) / MEBIBYTE:.0f} GiB",
        "kernel": platform.release(),
        "system": first("/etc/os-release", r'^PRETTY_NAME="?([^"\n]*)'),
        "wine": output("wine", "--version"),
        "java": java,
        "compiler": "GCC " + output("x86_64-w64-mingw32-g++-posix", "-dumpfullversion"),
        "load": os.getloadavg()[0],
    }


def chart(all_rows, folder):
    """A chart of each ratio as a part of its limit, with the middle half of its rounds."""
    measured = [row for row in all_rows if "value" in row and row["limit"] is not None]
    if not measured:
        return
    data = []
    for place, row in enumerate(reversed(measured), 1):
        low, high = row["quartiles"]
        limit = row["limit"]
        label = f"{row['question']}  ({cells(row)[4]} of {limit:g})"
        data.append(
            f"{place} {max(row['value'], 0) / limit:.4f} {max(low, 0) / limit:.4f} {max(high, 0) / limit:.4f} "
            f'{0 if row["reached"] else 1} "{label}"'
        )
    (folder / "chart.dat").write_text("\n".join(data) + "\n")
    script = f"""
set terminal pngcairo size 1200,{120 + 40 * len(measured)} font "DejaVu Sans,11" background "#ffffff"
set output "chart.png"
set style fill solid noborder
set xrange [0:*]
set yrange [0.4:{len(measured)}.6]
set border 1
set tics nomirror
set format x "%.0f %%"
set xlabel "part of the limit that is used (bar: median; line: middle half of the rounds)"
set grid xtics lc rgb "#dddddd"
set arrow from 100,graph 0 to 100,graph 1 nohead lw 2 lc rgb "#444444" front
plot "chart.dat" using (0):1:(0):($2*100):($1-0.3):($1+0.3):($5 > 0 ? 0xc0392b : 0x2e6da4):ytic(6) \\
         with boxxyerror lc rgb variable notitle, \\
     "" using ($2*100):1:($3*100):($4*100) with xerrorbars lc rgb "#222222" pt 0 notitle
"""
    (folder / "chart.gnuplot").write_text(script)
    subprocess.run(["gnuplot", "chart.gnuplot"], cwd=folder, check=True)
