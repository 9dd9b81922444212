# SPDX-License-Identifier: MIT
"""Making a Python simulation steerable: quor.serve() and quor.Server."""

import logging
import math
import numbers
import time
from collections.abc import Mapping

import numpy as np

from . import _quor
from ._net import Net, _check_text

_log = logging.getLogger("quor")


def should_stop():
    """True when the run that called the step function is asked to end
    (a client stopped or restarted it, or the server stops). A step that
    takes long asks now and then and returns None when it is true: the
    run then ends as stopped, without waiting for the step. Cheap; False
    outside a step function."""
    return _quor.should_stop()


def serve(step, net, port=0, bind="127.0.0.1", simulator="continuous"):
    """Serves a simulation written in Python to every steering client.

    ``step(t, t_next, marking, parameters)`` advances the state from one
    output point to the next and returns the marking at ``t_next``:
    ``marking`` is a numpy array (one value per place, in the order of
    ``net.places``), ``parameters`` a dict of name to value, with the
    values steered by clients; return an array or sequence of as many
    values, or a dict of place to value for the places that changed.
    Raising an exception, or returning values that are not finite, ends
    the run as failed: clients read why. A step that takes long checks
    quor.should_stop() and returns None when it is true.

    ``net`` (a quor.Net) names the places, parameters and initial values
    and suggests the output interval. Clients attach to it as model 0,
    start, pause, resume, stop and pace its runs, change parameters and
    markings while it runs, and read the results. ``simulator`` is the
    name it is offered under (clients start it by that name); a tuple
    (category, name) sets the category too.

    Returns a quor.Server, listening on ``bind``:``port`` (port 0: a free
    one, see Server.port) in a thread of quor's own, so the caller goes on
    (a notebook stays usable); stop() it, or use it in a ``with`` block.
    Runs call ``step`` on threads of their own, holding the GIL while it
    runs. Raises OSError when the address cannot be listened on.
    """
    return Server(step, net, port=port, bind=bind, simulator=simulator)


class Server:
    """A simulation served to steering clients (made by quor.serve)."""

    def __init__(self, step, net, port=0, bind="127.0.0.1", simulator="continuous"):
        if not callable(step):
            raise TypeError("the step function must be callable: step(t, t_next, marking, "
                            "parameters) -> marking")
        if not isinstance(net, Net):
            raise TypeError(f"serve takes a quor.Net, not {type(net).__name__}")
        if isinstance(port, bool) or not isinstance(port, numbers.Integral) or not 0 <= port < 65536:
            raise ValueError(f"the port must be a whole number from 0 to 65535, not {port!r}")
        _check_text(bind, "the address to listen on")
        category, name = (simulator if isinstance(simulator, tuple)
                          else (simulator[:1].upper() + simulator[1:], simulator))
        _check_text(category, "the simulator's category")
        _check_text(name, "the simulator's name")
        data = net._to_data()
        self.net = net
        self.bind = bind
        # The runs hold the stepper, not the server: a server that is no
        # longer referenced stops.
        self._handle = _quor.ServerHandle(_Stepper(step, net), data, bind, int(port), category,
                                          name)

    @property
    def port(self):
        """The port the server listens on."""
        return self._handle.port

    @property
    def address(self):
        """"host:port" that clients connect to."""
        return f"{self.bind}:{self.port}"

    @property
    def serving(self):
        """True until the server is stopped."""
        return self._handle.serving

    def stop(self):
        """Stops serving: closes every client's connection, stops the run
        (a step in progress is asked to give up, see quor.should_stop, and
        waited for) and stops listening. Safe to call again."""
        self._handle.stop()

    def serve_forever(self, poll=0.2):
        """Blocks until the server is stopped (by stop() from another
        thread) or Ctrl-C, which stops it."""
        try:
            while self.serving:
                time.sleep(poll)
        except KeyboardInterrupt:
            self.stop()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.stop()

    def __repr__(self):
        state = "serving" if self.serving else "stopped"
        return f"<quor.Server {self.net.name!r} on {self.address}, {state}>"


class _Stepper:
    """The step function as the runs call it (on their threads, with the
    GIL, once per output interval): the marking as a numpy array and the
    parameters as a dict in, the checked marking as a list out; a text
    (the reason) when the run must fail, None when the step gave up."""

    def __init__(self, step, net):
        self._step = step
        self._places = list(net.places)
        self._parameters = list(net.parameters)

    def __call__(self, t, t_next, marking, parameters):
        try:
            before = np.array(marking, dtype=float)
            values = dict(zip(self._parameters, parameters))
            result = self._step(t, t_next, before.copy(), values)
            if result is None:
                if _quor.should_stop():
                    return None
                return ("the step function returned None; it must return the marking at "
                        f"t = {t_next:g}")
            if isinstance(result, Mapping):
                after = before
                for place, value in result.items():
                    if place not in self._places:
                        return (f"the step function returned a value for {place!r}, which is "
                                "not a place")
                    after[self._places.index(place)] = float(value)
            else:
                after = np.asarray(result, dtype=float)
                if after.shape != before.shape:
                    return (f"the step function returned {after.size} values "
                            f"(shape {after.shape}) for {before.size} places")
            for place, value in zip(self._places, after.tolist()):
                if not math.isfinite(value):
                    return (f"the step function made the marking of {place!r} {value} at "
                            f"t = {t_next:g}")
            return after.tolist()
        except Exception as error:  # the run fails with the reason
            _log.error("the step function failed from t = %g to %g", t, t_next, exc_info=True)
            return (f"the step function raised {type(error).__name__}: {error} "
                    f"(from t = {t:g} to {t_next:g})")
