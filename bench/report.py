#!/usr/bin/python3
"""Renders docs/performance.md and its charts from one run of vyrax_bench.

    bench/report.py RUN.json... OUT_DIR

Each RUN.json is Google Benchmark's JSON output of one run (with repetitions:
the medians are used), with the machine in its context (cpu, kernel,
compiler): the library's benchmarks and the peer benchmark, run one after the
other.
Every number in the report comes from that file; a benchmark the report
needs that is missing or failed stops the script with its name.
"""
import json
import os
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402

UNIT_SECONDS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}
FILE_KIB = [4, 64, 1024, 16 << 10, 256 << 10, 1 << 20]
KEYS = [1, 100, 1000]


def fail(message):
    sys.exit("bench-report: " + message)


def load(path):
    with open(path) as f:
        data = json.load(f)
    rows = {}
    for row in data["benchmarks"]:
        if row.get("run_type") == "aggregate" and row.get("aggregate_name") != "median":
            continue
        rows[row.get("run_name", row["name"])] = row
    return data["context"], rows


class Run:
    def __init__(self, paths):
        self.rows, self.context, self.paths = {}, {}, paths
        for path in paths:
            context, rows = load(path)
            self.rows.update(rows)
            self.context = {**context, **self.context}  # the first run's machine wins

    def row(self, name):
        row = self.rows.get(name) or self.rows.get(name + "/manual_time")
        if row is None:
            fail(f"benchmark {name} is missing from the run")
        if row.get("error_occurred"):
            fail(f"benchmark {name} failed: {row.get('error_message')}")
        return row

    def seconds(self, name):
        row = self.row(name)
        return row["real_time"] * UNIT_SECONDS[row.get("time_unit", "ns")]

    def counter(self, name, counter):
        row = self.row(name)
        if counter not in row:
            fail(f"benchmark {name} has no counter {counter}")
        return row[counter]

    def machine(self):
        c = self.context
        return (f"{c.get('cpu', 'unknown CPU')}, {c.get('num_cpus')} cores, "
                f"Linux {c.get('kernel', '?')}, {c.get('compiler', '?')}, "
                f"{c.get('date', '')[:10]}")


def size_label(kib):
    return f"{kib >> 20} GiB" if kib >= 1 << 20 else f"{kib >> 10} MiB" if kib >= 1024 else f"{kib} KiB"


def finish(fig, run, path):
    fig.text(0.01, 0.01, run.machine(), fontsize=7, color="0.35")
    fig.tight_layout(rect=(0, 0.03, 1, 1))
    fig.savefig(path, dpi=110)
    plt.close(fig)


def chart_open(run, out):
    sizes = [k * 1024 for k in FILE_KIB]
    create = [run.seconds(f"BM_CreateWholeFile/{k}") * 1e6 for k in FILE_KIB]
    floor = [run.seconds(f"BM_FloorOpenStatMapClose/{k}") * 1e6 for k in FILE_KIB]
    read = [run.seconds(f"BM_ReadWholeFile/{k}") * 1e6 for k in FILE_KIB]
    ratios = [c / f for c, f in zip(create, floor)]
    fig, ax = plt.subplots(figsize=(7.5, 4.6))
    ax.loglog(sizes, read, "s-", label="read() of the whole file into memory")
    ax.loglog(sizes, create, "o-", label="VYR_IBuffer::Create (whole file)")
    ax.loglog(sizes, floor, "^--", label="floor: open + fstat + mmap + close + munmap")
    ax.set_xticks(sizes, [size_label(k) for k in FILE_KIB])
    ax.minorticks_off()
    ax.set_xlabel("file size (in the page cache)")
    ax.set_ylabel("time per open (µs, log scale)")
    ax.set_title(f"Opening a file: Create costs {min(ratios):.2f}–{max(ratios):.2f}× a bare mapping,\n"
                 f"flat in the file's size; read() grows with it", fontsize=10)
    ax.grid(True, which="major", alpha=0.3)
    ax.legend(fontsize=8)
    finish(fig, run, os.path.join(out, "open.png"))
    return list(zip(FILE_KIB, create, floor, read, ratios))


def chart_read(run, out):
    sizes = [k * 1024 for k in FILE_KIB]
    through = [run.counter(f"BM_SumThroughBuffer/{k}", "bytes_per_second") / 1e9 for k in FILE_KIB]
    read = [run.counter(f"BM_SumThroughRead/{k}", "bytes_per_second") / 1e9 for k in FILE_KIB]
    fig, ax = plt.subplots(figsize=(7.5, 4.6))
    ax.semilogx(sizes, through, "o-", label="Create, then sum every byte through Buffer()")
    ax.semilogx(sizes, read, "s-", label="open + read() into memory, then sum")
    ax.set_xticks(sizes, [size_label(k) for k in FILE_KIB])
    ax.minorticks_off()
    ax.set_ylim(bottom=0)
    ax.set_xlabel("file size (in the page cache)")
    ax.set_ylabel("bandwidth (GB/s)")
    ax.set_title(f"Reading every byte: through the mapping {through[-1]:.2f} GB/s, "
                 f"through read() {read[-1]:.2f} GB/s at 1 GiB", fontsize=10)
    ax.grid(True, alpha=0.3)
    ax.legend(fontsize=8)
    finish(fig, run, os.path.join(out, "read.png"))
    return list(zip(FILE_KIB, through, read))


def chart_commit(run, out):
    sidecar = [run.seconds(f"BM_Metadata/commit_disk/{k}") * 1e3 for k in KEYS]
    floor = [run.seconds(f"BM_Metadata/commit_floor_disk/{k}") * 1e3 for k in KEYS]
    xattr = [run.seconds(f"BM_Metadata/xattr_tmpfs/{k}") * 1e3 for k in KEYS]
    ratios = [s / f for s, f in zip(sidecar, floor)]
    fig, ax = plt.subplots(figsize=(7.5, 4.6))
    width = 0.27
    at = range(len(KEYS))
    ax.bar([i - width for i in at], sidecar, width, label="side-car commit (disk)")
    ax.bar(list(at), floor, width, label="floor: temporary file + fdatasync + rename (disk)")
    ax.bar([i + width for i in at], xattr, width,
           label="extended attributes: set, rescan, get (tmpfs)")
    for i, r in zip(at, ratios):
        ax.annotate(f"{r:.2f}×", (i - width, sidecar[i]), ha="center", va="bottom", fontsize=8)
    ax.set_xticks(list(at), [f"{k} key{'s' if k > 1 else ''} of 1 KiB" for k in KEYS])
    ax.set_yscale("log")
    ax.set_ylim(top=max(sidecar + floor) * 60)  # room for the legend above the bars
    ax.set_ylabel("time per commit (ms, log scale)")
    ax.set_title(f"A metadata commit costs {min(ratios):.2f}–{max(ratios):.2f}× writing the same\n"
                 "bytes durably by hand", fontsize=10)
    ax.legend(fontsize=8)
    finish(fig, run, os.path.join(out, "commit.png"))
    return list(zip(KEYS, sidecar, floor, xattr, ratios))


# The stream cases and the libraries beside this one, as the peer benchmark
# names them: <case>/<library>, with a "bytes" counter. The peers write the
# class identity as this library does ("+id"); the table shows them without
# it too.
STREAM_CASES = [("tag", "VYR_TTag"), ("dict", "QEN_TDict, 100 string→int32"),
                ("ticket", "FullInfo ticket")]
STREAM_LIBRARIES = [("vyrax", "vyrax"), ("cereal+id", "cereal, class identity"),
                    ("boost+id", "Boost, class identity"), ("floor", "hand-written floor")]
BARE_PEERS = [("cereal", "cereal, no class identity"), ("boost", "Boost, no class identity")]


def chart_streams(run, out):
    table = {}
    for case, _ in STREAM_CASES:
        for lib, _ in STREAM_LIBRARIES + BARE_PEERS:
            name = f"{case}/{lib}"
            table[case, lib] = (run.seconds(name) * 1e9, run.counter(name, "bytes"))
    fig, (time_ax, size_ax) = plt.subplots(1, 2, figsize=(10, 4.6))
    width = 0.2
    at = range(len(STREAM_CASES))
    for j, (lib, label) in enumerate(STREAM_LIBRARIES):
        offset = (j - 1.5) * width
        time_ax.bar([i + offset for i in at], [table[c, lib][0] for c, _ in STREAM_CASES], width,
                    label=label)
        size_ax.bar([i + offset for i in at], [table[c, lib][1] for c, _ in STREAM_CASES], width,
                    label=label)
    for ax in (time_ax, size_ax):
        ax.set_xticks(list(at), [label for _, label in STREAM_CASES], fontsize=8)
        ax.set_yscale("log")
    time_ax.set_ylabel("pack + unpack into a new object (ns, log scale)")
    size_ax.set_ylabel("packed size (bytes, log scale)")
    dict_ratio = table["dict", "vyrax"][0] / table["dict", "cereal+id"][0]
    ticket_ratio = table["ticket", "vyrax"][0] / table["ticket", "cereal+id"][0]
    time_ax.set_title(f"Round trip, vyrax / cereal (both with class identity):\n"
                      f"{dict_ratio:.2f}× (dictionary), {ticket_ratio:.2f}× (ticket)", fontsize=10)
    size_ax.set_title("Packed size, with class identity", fontsize=10)
    size_ax.legend(fontsize=8)
    finish(fig, run, os.path.join(out, "streams.png"))
    return table


def write_markdown(run, out, opened, read, commits, streams):
    lines = ["# Performance", "",
             f"Measured on {run.machine()}, Release build (`-O2`, the peers' code too), one run of `vyrax_bench` "
             f"(`make bench-report`); each number is the median of "
             f"{run.context.get('repetitions', 'several')} repetitions. Files sit in the page cache. "
             f"The run's own output, which every number here comes from: "
             + ", ".join(f"[{os.path.basename(p)}](performance/{os.path.basename(p)})" for p in run.paths)
             + ".",
             "", "## Opening a file", "", "![opening a file](performance/open.png)", "",
             "| file | `Create` | floor (open+fstat+mmap+close) | `read()` whole file | Create / floor |",
             "|---|---|---|---|---|"]
    for kib, create, floor, rd, ratio in opened:
        lines.append(f"| {size_label(kib)} | {create:.2f} µs | {floor:.2f} µs | {rd:.1f} µs | {ratio:.2f}× |")
    lines += ["", "## Reading every byte", "", "![bandwidth](performance/read.png)", "",
              "| file | through `Buffer()` | through `read()` |", "|---|---|---|"]
    for kib, through, rd in read:
        lines.append(f"| {size_label(kib)} | {through:.2f} GB/s | {rd:.2f} GB/s |")
    lines += ["", "Each pass through the mapping maps the file afresh and takes a page fault per "
              "page it reads; `read()` copies into memory that is faulted in already, its best "
              "case. The mapping's gain is in opening (above) and in reading only what is needed.",
              "", "## A metadata commit", "", "![metadata commit](performance/commit.png)", "",
              "| keys | side-car commit | durable-write floor | commit / floor | extended attributes (tmpfs) |",
              "|---|---|---|---|---|"]
    for keys, sidecar, floor, xattr, ratio in commits:
        lines.append(f"| {keys} | {sidecar:.3f} ms | {floor:.3f} ms | {ratio:.2f}× | {xattr:.3f} ms |")
    lines += ["", "ext4 keeps about 4 KiB of extended attributes per file, so the attribute rows "
              "use tmpfs, where 1,000 values of 1 KiB fit.", "",
              "## Binary streams beside cereal and Boost", "", "![streams](performance/streams.png)",
              "", "Pack + unpack into a new object, time and packed size:", "",
              "| case | " + " | ".join(label for _, label in STREAM_LIBRARIES + BARE_PEERS) + " |",
              "|---|" + "---|" * len(STREAM_LIBRARIES + BARE_PEERS)]
    for case, label in STREAM_CASES:
        cells = [f"{streams[case, lib][0]:,.0f} ns / {streams[case, lib][1]:,.0f} B"
                 for lib, _ in STREAM_LIBRARIES + BARE_PEERS]
        lines.append(f"| {label} | " + " | ".join(cells) + " |")
    with open(os.path.join(out, "..", "performance.md"), "w") as f:
        f.write("\n".join(lines) + "\n")


def main():
    if len(sys.argv) < 3:
        fail("usage: report.py RUN.json... OUT_DIR")
    run = Run(sys.argv[1:-1])
    out = sys.argv[-1]
    os.makedirs(out, exist_ok=True)
    opened = chart_open(run, out)
    read = chart_read(run, out)
    commits = chart_commit(run, out)
    streams = chart_streams(run, out)
    write_markdown(run, out, opened, read, commits, streams)


if __name__ == "__main__":
    main()
