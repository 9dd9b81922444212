# SPDX-License-Identifier: MIT
"""Simulations written in Python, served with quor.serve(): steered by the
Python client, by a C++ client (the library's SteeringClient) and by the
steering demo; stopping is prompt; a step that fails or returns nonsense
fails the run with a reason every client reads."""

import csv
import gc
import logging
import math
import socket
import threading

import numpy as np
import pytest

import quor
from conftest import DEADLINE, STEER_CHECK, STEER_DEMO, Program, python_program, wait_until

DECAY = quor.Net("decay", places={"X": 100.0}, parameters={"k": 0.1}, interval=(0, 40, 1))


def decay_step(t, t_next, marking, parameters):
    return marking * math.exp(-parameters["k"] * (t_next - t))


@pytest.fixture
def served():
    with quor.serve(decay_step, DECAY) as server:
        yield server


def attached(server):
    return quor.connect(port=server.port, timeout=30).attach(0)


def test_a_served_simulation_offers_its_net(served):
    assert served.port > 0 and served.serving
    assert served.address == f"127.0.0.1:{served.port}"
    with attached(served) as client:
        assert client.models() == ["decay"]
        assert client.net.places == ["X"] and client.net.parameters == {"k": 0.1}
        assert client.net.interval == quor.Interval(0, 40, 1)
        assert client.simulators() == [quor.Simulator("continuous", "Continuous", 0)]
        client.start()
        assert client.wait().state == "finished"
        times, values, names = client.results()
        np.testing.assert_allclose(values[0], 100 * np.exp(-0.1 * times), rtol=1e-12)


def test_the_python_client_steers_a_served_simulation(served):
    with attached(served) as client:
        client.speed(20)
        client.start()
        wait_until(lambda: client.results().values.shape[1] >= 4, "the first output points")
        client.pause()
        wait_until(lambda: client.state().state == "paused", "the pause")
        paused = client.results().values.shape[1]
        client.set_parameters(k=0.5)
        client.speed(0)
        client.resume()
        assert client.wait().state == "finished"
        x = client.results().values[0]
        np.testing.assert_allclose(x[1:paused] / x[:paused - 1], math.exp(-0.1))
        np.testing.assert_allclose(x[paused:] / x[paused - 1:-1], math.exp(-0.5))


def test_a_cpp_client_steers_a_served_simulation(served):
    with Program([STEER_CHECK, str(served.port)]) as check:
        assert check.wait() == 0, "".join(check.err)
    lines = dict(line.split(" ", 1) for line in "".join(check.out).splitlines())
    assert lines["model"] == "decay" and lines["places"] == "X"
    assert lines["parameters"] == "k=0.10000000000000001"
    paused = int(lines["paused"])
    name, *values = lines["row"].split()
    x = np.array([float(v) for v in values])
    assert name == "X" and len(x) == 41 and 4 <= paused < 41
    np.testing.assert_allclose(x[1:paused] / x[:paused - 1], math.exp(-0.1))
    np.testing.assert_allclose(x[paused:] / x[paused - 1:-1], math.exp(-0.5))


def sir_step(t, t_next, marking, parameters):
    """SIR by small Euler steps (mass action, as the reference server)."""
    s, i, r = marking
    beta, gamma = parameters["beta"], parameters["gamma"]
    steps = 20
    h = (t_next - t) / steps
    for _ in range(steps):
        infection, recovery = beta * s * i, gamma * i
        s, i, r = s - h * infection, i + h * (infection - recovery), r + h * recovery
    return [s, i, r]


def test_the_steering_demo_steers_a_served_simulation(tmp_path):
    if not STEER_DEMO:
        pytest.skip("quor-steer-demo is not built (QUOR_BUILD_APPS is OFF)")
    net = quor.Net("SIR in Python", places={"S": 990, "I": 10, "R": 0},
                   parameters={"beta": 0.0003, "gamma": 0.1}, interval=(0, 50, 0.25))
    with quor.serve(sir_step, net) as server:
        with Program([STEER_DEMO, "--port", server.port, "--speed", "400", "--csv",
                      tmp_path / "sir.csv"]) as demo:
            assert demo.wait() == 0, "".join(demo.err)
        with attached(server) as client:
            assert client.parameters["beta"] == pytest.approx(0.0001)
    assert "lowering beta from 0.0003 to 0.0001" in "".join(demo.out)
    with open(tmp_path / "sir.csv") as table:
        rows = list(csv.reader(table))
    assert rows[0] == ["time", "S", "I", "R"] and len(rows) == 202
    assert sum(float(v) for v in rows[-1][1:]) == pytest.approx(1000)


def blocking_net():
    return quor.Net("slow", places={"X": 1.0}, parameters={"k": 1.0}, interval=(0, 10, 1))


class BlockingStep:
    """A step that runs until its run is asked to end, then gives up."""

    def __init__(self):
        self.entered = threading.Event()
        self.gave_up = threading.Event()

    def __call__(self, t, t_next, marking, parameters):
        self.entered.set()
        while not quor.should_stop():
            threading.Event().wait(0.005)
        self.gave_up.set()
        return None


def test_stopping_from_a_client_returns_promptly():
    step = BlockingStep()
    with quor.serve(step, blocking_net()) as server, attached(server) as client:
        client.start()
        assert step.entered.wait(DEADLINE)
        # The step would never return by itself: the stop reaches it.
        client.stop()
        assert client.wait().state == "stopped"
        assert step.gave_up.is_set()
        assert client.results().values.tolist() == [[1.0]]


def test_stopping_the_server_while_a_step_runs_and_a_client_is_connected():
    step = BlockingStep()
    server = quor.serve(step, blocking_net())
    client = attached(server)
    client.start()
    assert step.entered.wait(DEADLINE)
    server.stop()
    assert step.gave_up.is_set() and not server.serving
    with pytest.raises(quor.ConnectError):
        client.state()
    server.stop()
    with pytest.raises(quor.ConnectError):
        quor.connect(port=server.port)


def test_a_failing_step_fails_the_run_with_its_reason():
    def step(t, t_next, marking, parameters):
        if parameters["k"] > 1 and t >= 3:
            raise ValueError("k is too large for this model")
        return decay_step(t, t_next, marking, parameters)

    with quor.serve(step, DECAY) as server, attached(server) as client, \
            attached(server) as other:
        client.set_parameters(k=2)
        client.start()
        with pytest.raises(quor.RunFailed, match="ValueError: k is too large") as caught:
            client.wait()
        assert caught.value.state.state == "failed"
        assert client.results().values.shape == (1, 4)
        with pytest.raises(quor.RunFailed, match="ValueError"):
            list(other.watch())
        # The failure is the model's, not a refusal of later requests.
        client.set_parameters(k=0.1)
        client.start()
        assert client.wait().state == "finished"


@pytest.mark.parametrize("result, reason", [
    (lambda m: [1.0, 2.0], "returned 2 values"),
    (lambda m: m * np.nan, "not finite|made the marking of 'X' nan"),
    (lambda m: None, "returned None"),
    (lambda m: {"Y": 1.0}, "'Y', which is not a place"),
    (lambda m: "text", "could not convert|returned"),
])
def test_what_a_step_returns_is_checked(result, reason):
    with quor.serve(lambda t, t_next, m, p: result(m), DECAY) as server, \
            attached(server) as client:
        client.start()
        with pytest.raises(quor.RunFailed, match=reason):
            client.wait()


def test_a_step_sees_steered_values_and_may_return_a_dict():
    seen = []

    def step(t, t_next, marking, parameters):
        assert isinstance(marking, np.ndarray) and isinstance(parameters, dict)
        seen.append((t, marking.tolist(), dict(parameters)))
        return {"X": marking[0] + parameters["k"]}

    with quor.serve(step, DECAY) as server, attached(server) as client:
        client.speed(20)
        client.start(end=10, step=1)
        wait_until(lambda: len(seen) >= 2, "two steps")
        client.pause()
        wait_until(lambda: client.state().state == "paused", "the pause")
        client.set_marking(X=0)
        client.set_parameters(k=1)
        client.resume()
        client.speed(0)
        client.wait()
        assert client.results().values.shape == (1, 11)
    after = [s for s in seen if s[2]["k"] == 1]
    assert after and after[0][1] == [0.0]


def test_a_step_cannot_stop_its_own_server():
    box = {}

    def step(t, t_next, marking, parameters):
        box["server"].stop()

    with quor.serve(step, DECAY) as server, attached(server) as client:
        box["server"] = server
        client.start()
        with pytest.raises(quor.RunFailed, match="cannot stop the server that runs it"):
            client.wait()
        assert server.serving


def test_a_port_in_use():
    with quor.serve(decay_step, DECAY) as server:
        with pytest.raises(OSError, match=f"cannot listen on 127.0.0.1:{server.port}"):
            quor.serve(decay_step, DECAY, port=server.port)


def test_a_server_no_longer_referenced_stops():
    server = quor.serve(decay_step, DECAY)
    port = server.port
    del server
    gc.collect()
    with pytest.raises(quor.ConnectError):
        quor.connect(port=port)


def test_serve_checks_its_arguments():
    with pytest.raises(TypeError, match="callable"):
        quor.serve(None, DECAY)
    with pytest.raises(TypeError, match="quor.Net"):
        quor.serve(decay_step, {"places": ["X"]})
    with pytest.raises(ValueError, match="port"):
        quor.serve(decay_step, DECAY, port=-1)
    with pytest.raises(ValueError, match="ASCII"):
        quor.serve(decay_step, DECAY, simulator="ü")
    assert not quor.should_stop()


def test_a_simulator_name_of_its_own():
    with quor.serve(decay_step, DECAY, simulator=("Python", "exact decay")) as server, \
            attached(server) as client:
        assert client.simulators() == [quor.Simulator("exact decay", "Python", 0)]
        with pytest.raises(ValueError, match="no simulator 'continuous'"):
            client.start()
        client.start("exact decay")
        assert client.wait().simulator == "exact decay"


EXITING = '''
import threading, time, quor
net = quor.Net("slow", places={"X": 1.0}, interval=(0, 1000, 1))
entered = threading.Event()
def step(t, t_next, marking, parameters):
    entered.set()
    while not quor.should_stop():
        time.sleep(0.005)
server = quor.serve(step, net)
client = quor.connect(port=server.port).attach(0)
client.start()
assert entered.wait(60)
print("exiting", flush=True)
'''


def test_an_interpreter_that_exits_while_it_serves_and_steers(tmp_path):
    script = tmp_path / "exiting.py"
    script.write_text(EXITING)
    with python_program(script) as program:
        assert program.wait() == 0, "".join(program.err)
    assert "".join(program.out) == "exiting\n"


FORKING = '''
import os, sys, quor
net = quor.Net("decay", places={"X": 1.0}, interval=(0, 10, 1))
server = quor.serve(lambda t, t_next, m, p: m, net)
with quor.connect(port=server.port) as client:
    client.attach(0)
child = os.fork()
if child == 0:
    with quor.connect(port=server.port) as client:
        client.attach(0)
        client.start()
        print("child:", client.wait().state, flush=True)
    try:
        quor.serve(lambda t, t_next, m, p: m, net)
    except RuntimeError as error:
        print("child:", error, flush=True)
    sys.exit(0)
print("parent: child", os.waitpid(child, 0)[1], flush=True)
'''


def test_clients_work_in_a_forked_child_and_serving_there_is_refused(tmp_path):
    script = tmp_path / "forking.py"
    script.write_text(FORKING)
    with python_program(script) as program:
        assert program.wait() == 0, "".join(program.err)
    out = "".join(program.out)
    assert "child: finished" in out and "parent: child 0" in out
    assert "child: quor cannot serve a simulation in a process forked" in out


# A C exit handler registered before the fork aborts the process that
# runs it: the parent leaves with os._exit, so only the child could.
FORKED_EXIT = '''
import ctypes, os, sys, quor
net = quor.Net("decay", places={"X": 1.0}, interval=(0, 10, 1))
server = quor.serve(lambda t, t_next, m, p: m, net)
libc = ctypes.CDLL("libc.so.6")
libc.on_exit(ctypes.cast(libc.abort, ctypes.c_void_p), None)
child = os.fork()
if child == 0:
    print("child: leaving")  # flushed when the interpreter finalises
    sys.exit(3)
print("parent: child", os.waitpid(child, 0)[1], flush=True)
os._exit(0)
'''


def test_a_forked_child_ends_with_its_status_without_what_was_registered_before_the_fork(
        tmp_path):
    # The child's C++ static objects and exit handlers from before the fork
    # may find locks that threads of the parent held: the child ends with
    # _exit once the interpreter has finalised.
    script = tmp_path / "forked_exit.py"
    script.write_text(FORKED_EXIT)
    with python_program(script) as program:
        assert program.wait() == 0, "".join(program.err)
    out = "".join(program.out)
    assert "child: leaving" in out
    assert "parent: child %d" % (3 << 8) in out, out


def test_a_server_let_go_of_while_it_logs_a_connection_stops():
    # The line of an accepted connection is handed to Python from within the
    # server's own accept event: the last reference to the server goes
    # there, and the server stops after that event, not inside it.
    holder = [quor.serve(decay_step, DECAY)]
    port = holder[0].port
    seen = threading.Event()
    listening_after_let_go = []

    class LetGo(logging.Handler):
        def emit(self, record):
            if "connected from" in record.getMessage() and holder:
                holder.clear()
                # Still within the event: the listening socket is open.
                try:
                    socket.create_connection(("127.0.0.1", port), timeout=5).close()
                    listening_after_let_go.append(True)
                except OSError:
                    listening_after_let_go.append(False)
                seen.set()

    logger = logging.getLogger("quor")
    handler, level = LetGo(), logger.level
    logger.addHandler(handler)
    logger.setLevel(logging.INFO)
    try:
        try:
            quor.connect(port=port, timeout=5).close()
        except quor.ConnectError:
            pass  # the server may be gone before it has answered
        assert seen.wait(DEADLINE)
        assert listening_after_let_go == [True]

        def refused():
            try:
                quor.connect(port=port, timeout=5).close()
            except quor.ConnectError:
                return True
            return False
        wait_until(refused, "the server let go of to stop")
    finally:
        logger.removeHandler(handler)
        logger.setLevel(level)
