#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Prints the engine's rows of the benchmark table (bench/engine/run).

  format_rows.py ENGINE.json SCIPY.json

ENGINE.json is the Google Benchmark output of quor_bench_engine, SCIPY.json
what solve_ivp.py printed. Continuous rows: wall time of one run, ours
beside SciPy's solve_ivp on the same net. Stochastic rows: time per event,
ours beside the minimal direct-method loop of the benchmark. Ratio = ours /
floor, as in bench/format_table.py (whose reader of the benchmark output
this uses).
"""

import json
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from format_table import fmt_count, fmt_time, load_times, print_table  # noqa: E402


def per_event(entry):
    rate = entry.get("items_per_second")
    return 1.0 / rate if rate else None


def fmt_event(seconds):
    return "%.0f ns" % (seconds * 1e9)


def main(argv):
    if len(argv) != 3:
        sys.stderr.write("usage: format_rows.py ENGINE.json SCIPY.json\n")
        return 2
    _context, times, _spreads = load_times(argv[1])
    with open(argv[2]) as f:
        scipy = json.load(f)

    rows, missing, notes = [], [], []

    def row(label, ours, floor, fmt=fmt_time):
        if ours is None or floor is None:
            missing.append(label)
            rows.append((label, "failed" if ours is None else fmt(ours),
                         "failed" if floor is None else fmt(floor), "—"))
        else:
            rows.append((label, fmt(ours), fmt(floor), "%.1f×" % (ours / floor)))

    for places in (1000, 10000):
        net = scipy.get("ode-%d" % places, {})
        label = "Continuous, %s places, %s transitions, mass action" % (
            fmt_count(places), fmt_count(2 * places))
        for method, what in (("BDF", "BDF (CVODE, sparse LU)"), ("Adams", "Adams (CVODE)")):
            ours = times.get("engine:ode-%s-%d" % (method, places))
            ours = ours[0] if ours else None
            for floor_key, floor_label in (("lsoda", "SciPy solve_ivp LSODA"),
                                           ("bdf", "SciPy solve_ivp BDF, exact sparse Jacobian")):
                if method == "Adams" and floor_key == "bdf":
                    continue
                floor = net.get(floor_key, {})
                row("%s: %s — vs %s" % (label, what, floor_label), ours, floor.get("seconds"))
        for floor_key in ("lsoda", "bdf"):
            floor = net.get(floor_key, {})
            if "error" in floor:
                notes.append(floor["error"])
            if "deviation" in floor:
                notes.append("%s places, SciPy %s: final marking within %.2g tolerances of ours"
                             % (fmt_count(places), floor_key.upper(), floor["deviation"]))

    for transitions, name in ((0, "SIR net (2 transitions)"), (100, None), (1000, None),
                              (10000, None)):
        name = name or "%s transitions" % fmt_count(transitions)
        ours = times.get("engine:ssa-ours-%d" % transitions)
        floor = times.get("engine:ssa-floor-%d" % transitions)
        ours_event = per_event(ours[1]) if ours else None
        floor_event = per_event(floor[1]) if floor else None
        events = " (%.2f M events/s)" % (1e-6 / ours_event) if ours_event else ""
        row("Stochastic, %s: time per event%s — vs direct method with sum tree and dependency graph"
            % (name, events), ours_event, floor_event, fmt_event)

    print_table(rows)
    print()
    print("SciPy %s; tolerances of both: relative 1e-6, absolute 1e-8." % scipy.get("scipy", "?"))
    for note in notes:
        print("- " + note)
    if missing:
        sys.stderr.write("missing or failed: %s\n" % ", ".join(missing))
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
