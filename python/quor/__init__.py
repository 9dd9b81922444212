# SPDX-License-Identifier: MIT
"""quor: steer running Petri-net simulations from Python, and make Python
simulations steerable.

Steering a simulation that a server runs (quor-simd, or any program that
speaks the steering protocol)::

    import quor

    with quor.connect("127.0.0.1", 3000) as client:
        print(client.models())
        client.attach(0)
        client.set_parameters(beta=0.0002)
        client.start(end=50, step=0.5)
        client.wait()
        client.results().plot("run.png")

Serving a simulation written in Python::

    def step(t, t_next, marking, parameters):
        return marking * math.exp(-parameters["k"] * (t_next - t))

    net = quor.Net("decay", places={"X": 100.0}, parameters={"k": 0.1})
    with quor.serve(step, net, port=3000) as server:
        server.serve_forever()

The module wraps the steering library's own classes (the wire protocol is
the library's); see help(quor.Client), help(quor.serve) and quor.errors.
The library's log lines go to the Python logger "quor".
"""

import atexit as _atexit

from . import _quor, errors
from ._client import STATES, Client, Point, Results, Setting, Simulator, State, connect
from ._net import ARC_KINDS, ROW_KINDS, Arc, Curve, Interval, Net, View
from ._plot import plot
from ._server import Server, serve, should_stop
from .errors import ConnectError, Refused, RunFailed, VersionMismatch

__version__ = _quor.VERSION
PROTOCOL_VERSION = _quor.PROTOCOL_VERSION
DEFAULT_PORT = _quor.DEFAULT_PORT

# Served simulations stop, and quor's runtime thread ends, before the
# interpreter goes.
_atexit.register(_quor.shutdown)

__all__ = [
    "ARC_KINDS", "Arc", "Client", "ConnectError", "Curve", "DEFAULT_PORT", "Interval", "Net",
    "PROTOCOL_VERSION", "Point", "ROW_KINDS", "Refused", "Results", "RunFailed", "STATES",
    "Server", "Setting", "Simulator", "State", "VersionMismatch", "View", "connect", "errors",
    "plot", "serve", "should_stop",
]
