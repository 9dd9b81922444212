#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Prints the benchmark table: one row per figure of ours beside one floor.

Reads the Google Benchmark JSON of quor_bench and the JSON object printed by
quor_bench_memory. Times are the medians of the repetitions (real time),
each followed by the spread of its repetitions (their coefficient of
variation, ±%).
Benchmark names follow <group>:<case>:ours and <group>:<case>:floor-<what>.
"""

import json
import sys


def load_times(path):
    """Median real time in seconds (and the counters) per benchmark name."""
    with open(path) as f:
        data = json.load(f)
    scale = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}
    medians, singles, spreads = {}, {}, {}
    for entry in data.get("benchmarks", []):
        name = entry.get("run_name", entry["name"]).split("/")[0]
        if entry.get("error_occurred"):
            singles[name] = None
            continue
        if entry.get("run_type") == "aggregate" and entry.get("aggregate_name") == "cv":
            # A fraction, whatever the time unit says.
            spreads[name] = entry["real_time"]
            continue
        seconds = entry["real_time"] * scale[entry.get("time_unit", "ns")]
        if entry.get("run_type") == "aggregate":
            if entry.get("aggregate_name") == "median":
                medians[name] = (seconds, entry)
        else:
            # Without repetitions there is one plain entry: keep the last.
            singles[name] = (seconds, entry)
    result = dict(singles)
    result.update(medians)
    return data.get("context", {}), result, spreads


def fmt_time(seconds):
    if seconds < 1e-3:
        return "%.1f µs" % (seconds * 1e6)
    if seconds < 1.0:
        return "%.2f ms" % (seconds * 1e3)
    return "%.2f s" % seconds


def fmt_spread(cv):
    """The spread of the repetitions beside a median."""
    if cv is None:
        return ""
    return " ±%.0f%%" % (cv * 100)


def fmt_rate(per_second):
    return "{:,.0f}/s".format(per_second)


def fmt_mb(nbytes):
    return "%.1f MB" % (nbytes / 1e6)


def fmt_count(n):
    return "{:,}".format(n)


def print_table(rows):
    """Prints (case, ours, floor, ratio) rows as a Markdown table."""
    header = ("case", "ours", "floor", "ratio")
    widths = [max(len(r[i]) for r in rows + [header]) for i in range(4)]

    def line(cells):
        return "| " + " | ".join(
            cells[i].ljust(widths[i]) if i == 0 else cells[i].rjust(widths[i])
            for i in range(4)) + " |"

    print(line(header))
    print("|" + "|".join("-" * (w + 2) if i == 0 else "-" * (w + 1) + ":"
                         for i, w in enumerate(widths)) + "|")
    for r in rows:
        print(line(r))


def main(argv):
    if len(argv) != 3:
        sys.stderr.write("usage: format_table.py BENCH.json MEMORY.json\n")
        return 2
    context, times, spreads = load_times(argv[1])
    with open(argv[2]) as f:
        memory = json.load(f)

    rows = []
    missing = []
    compressor = context.get("quor_compressor", "?")

    def row(label, ours_name, floor_names, floor_label):
        """One row; a floor of several names is the sum of their times."""
        if isinstance(floor_names, str):
            floor_names = [floor_names]
        lost = [n for n in [ours_name] + floor_names if not times.get(n)]
        if lost:
            missing.extend(lost)
            rows.append((label + " — vs " + floor_label, "failed", "failed", "—"))
            return
        ours = times[ours_name][0]
        floor = sum(times[n][0] for n in floor_names)
        floor_spread = max([spreads.get(n, 0.0) for n in floor_names])
        rows.append((label + " — vs " + floor_label,
                     fmt_time(ours) + fmt_spread(spreads.get(ours_name)),
                     fmt_time(floor) + fmt_spread(floor_spread if floor_names else None),
                     "%.2f×" % (ours / floor)))

    for request, frames in (("ChangeCurrentParameterValues", 3), ("CMD_Start", 5),
                            ("ReadSimulatorState", 2)):
        base = "request:%s:" % request
        row("%s (%d frames)" % (request, frames), base + "ours", base + "floor-raw",
            "raw POSIX ping-pong of the same frames")

    for clients in (8, 32, 64):
        base = "concurrent:ReadSimulatorState-%d:" % clients
        label = "ReadSimulatorState, %d clients at once" % clients
        floor_label = "%d raw ping-pong pairs at once" % clients
        lost = [n for n in (base + "ours", base + "floor-raw") if not times.get(n)]
        if lost:
            missing.extend(lost)
            rows.append((label + " — vs " + floor_label, "failed", "failed", "—"))
            continue
        ours, floor = times[base + "ours"][1], times[base + "floor-raw"][1]
        # Throughput: the ratio is floor / ours, so that above 1 is slower
        # than the floor, as for the times.
        rps_ours, rps_floor = ours["requests_per_second"], floor["requests_per_second"]
        rows.append(("%s: requests per second — vs %s" % (label, floor_label),
                     fmt_rate(rps_ours), fmt_rate(rps_floor), "%.1f×" % (rps_floor / rps_ours)))
        for key, what in (("p50_seconds", "median latency"), ("p99_seconds", "99th percentile")):
            rows.append(("%s: %s — vs %s" % (label, what, floor_label), fmt_time(ours[key]),
                         fmt_time(floor[key]), "%.1f×" % (ours[key] / floor[key])))

    for r, c in ((100, 1000), (1000, 1000), (1000, 10000)):
        base = "bulk:ReadResultMatrix-%dx%d:" % (r, c)
        label = "ReadResultMatrix %s×%s (%s)" % (fmt_count(r), fmt_count(c), fmt_mb(r * c * 8))
        row(label, base + "ours", base + "floor-zlib", "zlib compress+uncompress")
        row(label, base + "ours", base + "floor-deflate",
            "the library's compressor (%s), compress+uncompress" % compressor)
        row(label, base + "ours", base + "floor-raw", "raw socket transfer, uncompressed")
        row(label, base + "ours", [base + "floor-deflate", base + "floor-raw"],
            "its compressor plus the raw transfer")

    for size in (1000, 100000):
        floors = "model:net-%d:" % size
        pack = times.get(floors + "floor-pack")
        packed = ""
        if pack and "packed_bytes" in pack[1]:
            packed = ", %s packed" % fmt_mb(pack[1]["packed_bytes"])
        for way, what in (("upload", "Initialize(model)"), ("download", "Initialize(index)")):
            label = "Model %s %s places+transitions%s, %s" % (way, fmt_count(size), packed, what)
            ours = "model:%s-%d:ours" % (way, size)
            row(label, ours, floors + "floor-pack", "pack+unpack in memory")
            row(label, ours, [floors + "floor-pack", floors + "floor-deflate"],
                "pack+compress+uncompress+unpack (%s)" % compressor)
            row(label, ours, [floors + "floor-pack", floors + "floor-zlib"],
                "pack+compress+uncompress+unpack (zlib)")

    matrix = memory["matrix_bytes"]
    shape = "%s×%s" % (fmt_count(memory["rows"]), fmt_count(memory["columns"]))
    if memory.get("complete"):
        for side, prefix in (("receiving", ""), ("sending", "sender_")):
            label = "Peak memory %s %s" % (side, shape)
            for key, what in (("heap_peak_bytes", "peak live heap"),
                              ("resident_peak_growth_bytes", "peak RSS growth")):
                value = memory.get(prefix + key, -1)
                if value < 0:
                    missing.append("memory (%s)" % side)
                    rows.append(("%s: %s — vs the matrix itself" % (label, what), "failed",
                                 fmt_mb(matrix), "—"))
                    continue
                rows.append(("%s: %s — vs the matrix itself" % (label, what),
                             fmt_mb(value), fmt_mb(matrix), "%.2f×" % (value / matrix)))
    else:
        missing.append("memory")
        rows.append(("Peak memory receiving %s — vs the matrix itself" % shape, "failed",
                     fmt_mb(matrix), "—"))

    print_table(rows)
    if missing:
        sys.stderr.write("missing or failed: %s\n" % ", ".join(missing))
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
