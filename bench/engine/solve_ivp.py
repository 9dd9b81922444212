#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""SciPy's solve_ivp (LSODA and BDF) on the nets that quor_bench_engine wrote.

  solve_ivp.py NET.json... > scipy.json

Each NET.json holds a mass-action net (initial amounts; per transition the
rate constant and the input and output arcs), the output grid and the
tolerances of our run, and our final marking. The equations are the
engine's: flux_j = k_j * prod x_p^w_p over the inputs, dx = S flux with S
the stoichiometry; BDF gets the exact Jacobian as a sparse matrix, LSODA
(whose Jacobian is dense) gets none and estimates it when it needs one.
Prints one JSON object: per net ("ode-1000") and method ("lsoda", "bdf")
the median of three wall-clock times in seconds, the largest difference
of its final marking from ours relative to the tolerances, and an error
text when SciPy failed.
"""

import json
import sys
import time

import numpy as np
import scipy
from scipy.integrate import solve_ivp
from scipy.sparse import coo_matrix, csc_matrix

REPETITIONS = 3


def load(path):
    with open(path) as f:
        return json.load(f)


def system(net):
    """The right-hand side and the Jacobian of the net's mass-action ODEs."""
    n = net["places"]
    transitions = net["transitions"]
    m = len(transitions)
    k = np.array([t["k"] for t in transitions])
    # Inputs: every transition has one or two input arcs of weight 1.
    first = np.empty(m, dtype=np.int64)
    second = np.full(m, -1, dtype=np.int64)
    rows, cols, vals = [], [], []
    for j, t in enumerate(transitions):
        if not 1 <= len(t["in"]) <= 2 or any(w != 1 for _, w in t["in"]):
            raise ValueError("transition %d: inputs other than one or two of weight 1" % j)
        first[j] = t["in"][0][0]
        if len(t["in"]) == 2:
            second[j] = t["in"][1][0]
        for p, w in t["in"]:
            rows.append(p)
            cols.append(j)
            vals.append(-w)
        for p, w in t["out"]:
            rows.append(p)
            cols.append(j)
            vals.append(w)
    stoichiometry = csc_matrix(coo_matrix((vals, (rows, cols)), shape=(n, m)))
    pair = second >= 0
    second_or_first = np.where(pair, second, first)

    def flux(x):
        x = np.maximum(x, 0.0)
        f = k * x[first]
        f[pair] *= x[second[pair]]
        return f

    def rhs(_t, x):
        return stoichiometry @ flux(x)

    # d flux / dx: k * (other input) for the first input, k * x_first for
    # the second; a transition with one input has k there.
    d_rows = np.concatenate([np.arange(m), np.arange(m)[pair]])
    d_cols = np.concatenate([first, second[pair]])

    def jac(_t, x):
        x = np.maximum(x, 0.0)
        d_first = k * np.where(pair, x[second_or_first], 1.0)
        d_second = (k * x[first])[pair]
        derivative = csc_matrix(
            coo_matrix((np.concatenate([d_first, d_second]), (d_rows, d_cols)), shape=(m, n)))
        return (stoichiometry @ derivative).tocsc()

    return rhs, jac


def measure(net, method):
    rhs, jac = system(net)
    start, end, step = net["grid"]
    points = int(round((end - start) / step)) + 1
    t_eval = start + step * np.arange(points)
    y0 = np.array(net["initial"], dtype=float)
    options = {"rtol": net["rtol"], "atol": net["atol"], "t_eval": t_eval}
    if method == "BDF":
        options["jac"] = jac
    times, result = [], None
    for _ in range(REPETITIONS):
        began = time.perf_counter()
        result = solve_ivp(rhs, (start, end), y0, method=method, **options)
        times.append(time.perf_counter() - began)
        if not result.success:
            return {"error": "SciPy %s failed: %s" % (method, result.message)}
    ours = np.array(net["final"])
    deviation = np.max(np.abs(result.y[:, -1] - ours) / (net["atol"] + net["rtol"] * np.abs(ours)))
    return {"seconds": sorted(times)[REPETITIONS // 2], "deviation": float(deviation),
            "evaluations": int(result.nfev)}


def main(argv):
    if len(argv) < 2:
        sys.stderr.write("usage: solve_ivp.py NET.json...\n")
        return 2
    out = {"scipy": scipy.__version__}
    for path in argv[1:]:
        net = load(path)
        name = "ode-%d" % net["places"]
        out[name] = {"ours_seconds": net["seconds"]}
        for method in ("LSODA", "BDF"):
            out[name][method.lower()] = measure(net, method)
    json.dump(out, sys.stdout, indent=1)
    print()
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
