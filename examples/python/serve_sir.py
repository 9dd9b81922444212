# SPDX-License-Identifier: MIT
"""A steerable SIR epidemic written in Python: every steering client (the
Python client, quor-steer-demo, ...) can attach to it, start, pace, pause,
resume and stop its runs, change beta, gamma and the marking while it runs,
and read the results. Usage: python3 serve_sir.py [PORT] (0: any free one)"""
import sys

from scipy.integrate import solve_ivp

import quor


def sir(t, y, beta, gamma):
    s, i, r = y
    return [-beta * s * i, beta * s * i - gamma * i, gamma * i]


def step(t, t_next, marking, parameters):
    """The marking at t_next, from the marking at t and the parameters."""
    solution = solve_ivp(sir, (t, t_next), marking, rtol=1e-9, atol=1e-9,
                         args=(parameters["beta"], parameters["gamma"]))
    return solution.y[:, -1]


net = quor.Net("SIR in Python", places={"S": 990.0, "I": 10.0, "R": 0.0},
               parameters={"beta": 0.0003, "gamma": 0.1}, interval=(0, 50, 0.25))
port = int(sys.argv[1]) if len(sys.argv) > 1 else 3000
with quor.serve(step, net, port=port) as server:
    print(f"serving {net.name!r} on port {server.port}; Ctrl-C ends it", flush=True)
    server.serve_forever()
