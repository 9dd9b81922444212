# SPDX-License-Identifier: MIT
"""Steering a running simulation: quor.connect() and quor.Client."""

import math
import numbers
import threading
import time
from typing import Dict, List, NamedTuple, Optional

import numpy as np

from . import _quor
from ._net import Interval, Net, _check_text
from ._plot import plot as _plot
from .errors import ConnectError, Refused, RunFailed

# The simulator states, by code, as the library names them.
STATES = tuple(_quor.simulator_state_name(int(code))
               for code in _quor.SimulatorState.__members__.values())
_ACTIVE = {_quor.simulator_state_name(int(_quor.SimulatorState.SIMULATOR_RUNNING)),
           _quor.simulator_state_name(int(_quor.SimulatorState.SIMULATOR_PAUSED))}
_FAILED = _quor.simulator_state_name(int(_quor.SimulatorState.SIMULATOR_FAILED))

# How often wait() and watch() ask the server, by default (seconds).
POLL_INTERVAL = 0.05


class State(NamedTuple):
    """The state of a model's run, as the server reports it.

    ``state`` is the name of the simulator state ("idle", "running",
    "paused", "stopped", "finished", "failed"; ``code`` is its number),
    ``progress`` the fraction of the output points done (0 to 1),
    ``runtime`` the seconds of running (pauses not counted), ``speed`` the
    pace in output points per second (0: as fast as it goes),
    ``category`` and ``simulator`` the names of the simulator of the last
    run, ``error`` the name of the error state ("none", "refused",
    "run failed"; ``error_code`` its number).
    """

    state: str
    code: int
    progress: float
    runtime: float
    speed: int
    category: str
    simulator: str
    error: str
    error_code: int

    @property
    def active(self):
        """True while a run goes on (running or paused)."""
        return self.state in _ACTIVE

    def __str__(self):
        return (f"{self.state} ({self.progress:.0%} of the output points, "
                f"{self.runtime:.2f} s, {self.simulator or 'no simulator'})")


class Results(NamedTuple):
    """A result (or rate) matrix with its times and row names.

    ``values[i, j]`` is row ``names[i]`` (a place, or a transition for
    rates) at output point ``j``, time ``times[j]``. Unpacks as
    ``times, values, names = client.results()``.
    """

    times: np.ndarray
    values: np.ndarray
    names: List[str]

    def row(self, name):
        """The values of one row (a place or a transition) by name."""
        try:
            return self.values[self.names.index(name)]
        except ValueError:
            raise KeyError(f"no row {name!r}; the rows are {', '.join(self.names)}") from None

    def frame(self):
        """A pandas DataFrame: one column per row name, indexed by time."""
        try:
            import pandas
        except ImportError:
            raise ImportError("a DataFrame needs pandas (Debian: apt-get install "
                              "python3-pandas)") from None
        return pandas.DataFrame(self.values.T.copy(), columns=list(self.names),
                                index=pandas.Index(self.times, name="time"))

    def plot(self, path, **options):
        """Writes the curves to a PNG, SVG or PDF file (see quor.plot)."""
        return _plot(self.times, self.values, self.names, path, **options)


class Point(NamedTuple):
    """One output point of a run: its number, its time and the marking."""

    index: int
    time: float
    marking: Dict[str, float]


class Simulator(NamedTuple):
    """A simulator that the server offers, and its category."""

    name: str
    category: str
    category_id: int


class Setting(NamedTuple):
    """One setting of a simulator: its value (a number when it reads as
    one), caption, range (``minimum`` to ``maximum``), the values to choose
    from (empty when it is free) and the server's input-control code."""

    name: str
    value: object
    caption: str
    minimum: float
    maximum: float
    choices: List[str]
    gui_type: int


def connect(host="127.0.0.1", port=_quor.DEFAULT_PORT, timeout=10.0):
    """Connects to a steering server and returns a Client.

    ``timeout`` (seconds, rounded up to whole seconds) bounds the connection
    and every exchange with the server. Raises quor.ConnectError when no
    steering server answers there, quor.VersionMismatch when it speaks
    another protocol version. Use the client in a ``with`` block, or call
    close() when done.
    """
    return Client(host, port, timeout)


class Client:
    """A connection to a steering server, attached to one of its models.

    Typical use::

        with quor.connect(port=3000) as client:
            client.attach("SIR epidemic")
            client.set_parameters(beta=0.0002)
            client.start(end=50, step=0.5)
            client.wait()
            times, values, names = client.results()

    Requests that change something (start, pause, set_parameters, ...)
    raise quor.Refused with the server's words when the server refuses
    them. Names and values are checked against the model before anything
    is sent: an unknown name raises KeyError, a bad value ValueError.

    Threads: the client releases the GIL while it waits for the network,
    so other Python threads run meanwhile. One client may be shared by
    several threads: it serialises their requests (each method is one
    turn), so they never mix on the connection.
    """

    def __init__(self, host="127.0.0.1", port=_quor.DEFAULT_PORT, timeout=10.0):
        """Connects at once (see quor.connect)."""
        _check_text(host, "the host")
        if isinstance(port, bool) or not isinstance(port, numbers.Integral) or not 0 < port < 65536:
            raise ValueError(f"the port must be a whole number from 1 to 65535, not {port!r}")
        self._lock = threading.RLock()
        self._handle = _quor.ClientHandle(host, int(port), float(timeout))
        self._net = None
        self._handle.connect()

    # Connection.

    def close(self):
        """Closes the connection (nothing happens on the server's side: a
        run goes on). Safe to call again."""
        with self._lock:
            self._handle.close()
            self._net = None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __repr__(self):
        model = f", model {self._net.name!r}" if self._net is not None else ""
        state = "connected" if self._handle.connected else "closed"
        return f"<quor.Client {self._handle.where}, {state}{model}>"

    @property
    def connected(self):
        """True while the connection is open."""
        return self._handle.connected

    # Models.

    def models(self):
        """The names of the models the server runs, in index order."""
        with self._lock:
            return self._handle.model_names()

    def attach(self, model=0):
        """Works on a model of the server from now on: by index (as in
        models()) or by name. Raises IndexError or KeyError when the server
        runs no such model. Returns the client."""
        with self._lock:
            names = self._handle.model_names()
            if isinstance(model, str):
                if model not in names:
                    raise KeyError(f"the server runs no model {model!r}; it runs "
                                   f"{_listing(names)}")
                index = names.index(model)
            elif isinstance(model, numbers.Integral) and not isinstance(model, bool):
                if not 0 <= model < len(names):
                    raise IndexError(f"the server runs no model {model}; it runs "
                                     f"{_listing(names, numbered=True)}")
                index = int(model)
            else:
                raise TypeError(f"a model is chosen by index or name, not by "
                                f"{type(model).__name__}")
            self._net = None
            self._handle.attach(index)
            self._net = Net._from_data(self._handle.describe())
            return self

    def upload(self, net):
        """Uploads a quor.Net; the server runs it as a model of its own,
        which this client works on from now on. Raises KeyError, ValueError
        or TypeError for a net that cannot be sent (see Net.check). Returns
        the client."""
        if not isinstance(net, Net):
            raise TypeError(f"upload takes a quor.Net, not {type(net).__name__}")
        data = net._to_data()
        with self._lock:
            self._net = None
            self._handle.upload(data)
            self._net = Net._from_data(self._handle.describe())
            return self

    @property
    def net(self):
        """The current model as a quor.Net (places, transitions, arcs,
        initial marking, parameters, rates, interval, views), as the server
        described it when the client attached."""
        return self._model()

    # Values.

    @property
    def parameters(self):
        """The current parameter values: a dict of name to value."""
        with self._lock:
            names = list(self._model().parameters)
            return dict(zip(names, self._handle.values(False)))

    def set_parameters(self, values=None, /, **more):
        """Changes parameters by name: ``set_parameters(beta=0.0002)`` or
        ``set_parameters({"beta": 0.0002})``. During a run the change holds
        from the next output point on; it lasts until reset_parameters(),
        also for later runs. All values are checked before any is sent."""
        with self._lock:
            self._change(False, list(self._model().parameters), "parameter", values, more)

    def reset_parameters(self):
        """Returns every parameter to its initial value."""
        self._steer(self._handle.reset_values, False)

    @property
    def marking(self):
        """The current marking (the running one during a run): a dict of
        place to amount."""
        with self._lock:
            return dict(zip(self._model().places, self._handle.values(True)))

    def set_marking(self, values=None, /, **more):
        """Changes the marking of places by name: ``set_marking(I=50)`` or
        ``set_marking({"I": 50})``. During a run the change holds from the
        next output point on. Amounts must be finite and not negative."""
        with self._lock:
            self._change(True, self._model().places, "place", values, more)

    def reset_marking(self):
        """Returns the marking to the initial one."""
        self._steer(self._handle.reset_values, True)

    # Simulators and their settings.

    def simulators(self):
        """The simulators the server offers: a list of quor.Simulator."""
        with self._lock:
            return [Simulator(name, category, category_id)
                    for category, category_id, names in self._handle.simulators()
                    for name in names]

    def settings(self, simulator, details=False):
        """A simulator's settings: a dict of name to value (numbers as
        numbers), or with ``details=True`` a list of quor.Setting."""
        _check_text(simulator, "the simulator's name")
        with self._lock:
            settings = [Setting(s["name"], _setting_value(s["value"]), s["caption"], s["min"],
                                s["max"], list(s["choices"]), s["gui_type"])
                        for s in self._handle.settings(simulator)]
        return settings if details else {s.name: s.value for s in settings}

    def set_settings(self, simulator, values=None, /, **more):
        """Changes settings of a simulator by name, for example
        ``set_settings("stochastic", Seed=42)``. Names are checked against
        the simulator's settings, values against their range and choices,
        before anything is sent; the server applies them to later runs
        (and to a run of that simulator from its next step on)."""
        changes = dict(values or {}, **more)
        _check_text(simulator, "the simulator's name")
        with self._lock:
            known = {s["name"]: s for s in self._handle.settings(simulator)}
            if not known:
                raise KeyError(f"the server has no settings for a simulator {simulator!r}")
            entries = []
            for name, value in changes.items():
                if name not in known:
                    raise KeyError(f"{simulator} has no setting {name!r}; its settings are "
                                   f"{', '.join(known)}")
                entry = dict(known[name])
                entry["value"] = _setting_text(name, value, entry)
                entries.append(entry)
            if entries:
                self._steer(self._handle.write_settings, simulator, entries)

    # Runs.

    def start(self, simulator="continuous", start=None, end=None, step=None):
        """Starts a run of the current model with a simulator the server
        offers (by its name or its category's), with output points from
        ``start`` to ``end`` every ``step`` (by default the model's own
        interval). It starts from the initial marking with the current
        parameter values. Refused (quor.Refused) while a run goes on."""
        self._start(simulator, start, end, step, False)

    def restart(self, simulator="continuous", start=None, end=None, step=None):
        """As start(), but a run that goes on is stopped first."""
        self._start(simulator, start, end, step, True)

    def pause(self):
        """Pauses the run at its next output point."""
        self._steer(self._handle.command, int(_quor.CMD_TYPE.CMD_PAUSE))

    def resume(self):
        """Resumes a paused run."""
        self._steer(self._handle.command, int(_quor.CMD_TYPE.CMD_RESUME))

    def stop(self):
        """Stops the run at its next output point; its results stay."""
        self._steer(self._handle.command, int(_quor.CMD_TYPE.CMD_STOP))

    def speed(self, points_per_second):
        """Paces the runs of the model: output points per second of wall
        clock time; 0 runs as fast as the simulator goes. Holds at once
        and for later runs."""
        if (isinstance(points_per_second, bool) or not isinstance(points_per_second, numbers.Integral)
                or not 0 <= points_per_second < 2 ** 32):
            raise ValueError("the speed is a whole number of output points per second, "
                             f"0 or more, not {points_per_second!r}")
        self._steer(self._handle.set_speed, int(points_per_second))

    def state(self):
        """The state of the model's run: a quor.State."""
        with self._lock:
            self._model()
            s = self._handle.statistics()
        return State(_quor.simulator_state_name(s["state"]), s["state"],
                     min(max(s["progress"] / 100.0, 0.0), 1.0), s["runtime"], s["speed"],
                     s["category"], s["simulator"], _quor.simulator_error_state_name(s["error"]),
                     s["error"])

    def wait(self, timeout=None, progress=None, interval=POLL_INTERVAL):
        """Waits until the run has ended and returns its final quor.State.

        ``progress(fraction)`` is called whenever the fraction of output
        points done changes. Raises TimeoutError after ``timeout`` seconds,
        quor.RunFailed (with the server's reason) when the run failed. A
        model that is not running returns at once. Other threads may use
        the client meanwhile.
        """
        deadline = None if timeout is None else time.monotonic() + timeout
        reported = None
        while True:
            state = self.state()
            if progress is not None and state.progress != reported:
                reported = state.progress
                progress(state.progress)
            if not state.active:
                if state.state == _FAILED:
                    raise RunFailed(self._failure(), state)
                return state
            if deadline is not None and time.monotonic() >= deadline:
                raise TimeoutError(f"the run is still {state.state} after {timeout} s "
                                   f"({state.progress:.0%} done)")
            time.sleep(interval)

    def watch(self, timeout=None, interval=POLL_INTERVAL):
        """Yields the output points of the current run as the server
        publishes them, from the first one on, as quor.Point (index, time,
        marking as a dict), and ends when the run has ended. Raises
        TimeoutError after ``timeout`` seconds and quor.RunFailed when the
        run failed (after the points it produced)."""
        deadline = None if timeout is None else time.monotonic() + timeout
        seen = 0
        times = None
        while True:
            with self._lock:
                places = self._model().places
                state = self.state()
                values = self._handle.matrix(False)
                if times is None or values.shape[1] < seen:
                    # A new run: its own interval.
                    seen = 0
                    times = Interval(*self._handle.interval())
            for i in range(seen, values.shape[1]):
                yield Point(i, times.start + i * times.step,
                            dict(zip(_row_names(places, values.shape[0]), values[:, i].tolist())))
            seen = values.shape[1]
            if not state.active:
                if state.state == _FAILED:
                    raise RunFailed(self._failure(), state)
                return
            if deadline is not None and time.monotonic() >= deadline:
                raise TimeoutError(f"the run is still {state.state} after {timeout} s")
            time.sleep(interval)

    def results(self, frame=False):
        """The result matrix so far: quor.Results (times, values with one
        row per place and one column per output point, place names), or
        with ``frame=True`` a pandas DataFrame (a column per place, indexed
        by time)."""
        return self._matrix(False, frame)

    def rates(self, frame=False):
        """The rate matrix so far (one row per transition), as results()."""
        return self._matrix(True, frame)

    def log_message(self):
        """The model's last event as the server tells it (run started,
        finished, stopped, failed)."""
        with self._lock:
            self._model()
            return self._handle.log_message()

    # Helpers.

    def _model(self):
        if self._net is None:
            if not self._handle.connected:
                raise ConnectError(f"not connected to {self._handle.where}")
            raise RuntimeError("the client works on no model yet: attach() to one of the "
                               "server's models, or upload() a net")
        return self._net

    def _matrix(self, rates, frame):
        with self._lock:
            net = self._model()
            interval = Interval(*self._handle.interval())
            values = self._handle.matrix(rates)
        names = _row_names(net.transitions if rates else net.places, values.shape[0])
        times = interval.start + interval.step * np.arange(values.shape[1], dtype=float)
        results = Results(times, values, names)
        return results.frame() if frame else results

    def _steer(self, request, *args):
        with self._lock:
            self._model()
            refusal = request(*args)
        if refusal:
            raise Refused(refusal)

    def _change(self, places, names, kind, values, more):
        changes = dict(values or {}, **more)
        if not changes:
            return
        positions = {name: i for i, name in reversed(list(enumerate(names)))}
        pairs = []
        for name, value in changes.items():
            if name not in positions:
                raise KeyError(f"the model has no {kind} {name!r}; its {kind}s are "
                               f"{', '.join(names) or 'none'}")
            if isinstance(value, bool):
                raise TypeError(f"{kind} {name!r}: a number, not a bool")
            try:
                number = float(value)
            except (TypeError, ValueError):
                raise TypeError(f"{kind} {name!r}: a number, not {type(value).__name__}") from None
            if not math.isfinite(number) or number < 0:
                raise ValueError(f"{kind} {name!r} must be a finite number of 0 or more "
                                 f"(not {value!r})")
            pairs.append((positions[name], number))
        self._steer(self._handle.change_values, places, pairs)

    def _start(self, simulator, start, end, step, restart):
        _check_text(simulator, "the simulator's name")
        with self._lock:
            self._model()
            offered = self.simulators()
            known = {s.name.lower() for s in offered} | {s.category.lower() for s in offered}
            if offered and simulator.strip().lower() not in known:
                raise ValueError(f"the server offers no simulator {simulator!r}; it offers "
                                 + ", ".join(f"{s.name} ({s.category})" for s in offered))
            current = Interval(*self._handle.interval())
            interval = Interval(*(current[i] if v is None else v
                                  for i, v in enumerate((start, end, step))))
            for name, value in zip(("start", "end", "step"), interval):
                if isinstance(value, bool) or not isinstance(value, numbers.Real) \
                        or not math.isfinite(value):
                    raise ValueError(f"the {name} must be a finite number, not {value!r}")
            if not interval.step > 0:
                raise ValueError(f"the step must be greater than 0 (it is {interval.step})")
            if interval.end < interval.start:
                raise ValueError(f"the end ({interval.end}) lies before the start "
                                 f"({interval.start})")
            self._steer(self._handle.start, simulator, float(interval.start),
                        float(interval.end), float(interval.step), restart)

    def _failure(self):
        # The first read takes refusals that may wait; the second is the
        # model's own error message.
        with self._lock:
            self._handle.error_message()
            return self._handle.error_message()


def _listing(names, numbered=False):
    if not names:
        return "none"
    return ", ".join(f"{i}: {n!r}" if numbered else repr(n) for i, n in enumerate(names))


def _row_names(names, rows):
    return list(names) if len(names) == rows else [f"row {i}" for i in range(rows)]


def _setting_value(text):
    for kind in (int, float):
        try:
            return kind(text)
        except ValueError:
            pass
    return text


def _setting_text(name, value, entry):
    if isinstance(value, bool):
        text = "1" if value else "0"
    elif isinstance(value, numbers.Real):
        if not math.isfinite(value):
            raise ValueError(f"setting {name!r} must be finite, not {value!r}")
        low, high = entry["min"], entry["max"]
        if low < high and not low <= value <= high:
            raise ValueError(f"setting {name!r} must lie between {low:g} and {high:g} "
                             f"(not {value!r})")
        text = str(int(value)) if isinstance(value, numbers.Integral) else repr(float(value))
    elif isinstance(value, str):
        text = value
    else:
        raise TypeError(f"setting {name!r}: a number or a text, not {type(value).__name__}")
    _check_text(text, f"setting {name!r}")
    if entry["choices"] and text not in entry["choices"]:
        raise ValueError(f"setting {name!r} is one of {', '.join(entry['choices'])} "
                         f"(not {text!r})")
    return text
