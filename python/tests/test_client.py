# SPDX-License-Identifier: MIT
"""The client against quor-simd: listing, attaching, reading the net and
its values, changing them, simulators and settings, starting, watching and
reading results."""

import math

import numpy as np
import pytest

import quor
from conftest import wait_until


def test_lists_the_models_and_attaches_by_index_and_by_name(simd):
    with simd.connect() as client:
        assert client.models() == ["SIR epidemic"]
        assert client.attach(0) is client
        assert client.net.name == "SIR epidemic"
        client.attach("SIR epidemic")
        assert client.net.name == "SIR epidemic"
        assert "SIR epidemic" in repr(client)


def test_reads_the_net_as_plain_python_objects(client):
    net = client.net
    assert isinstance(net, quor.Net)
    assert net.places == ["S", "I", "R"]
    assert net.transitions == ["infection", "recovery"]
    assert net.marking == {"S": 990.0, "I": 10.0, "R": 0.0}
    assert net.parameters == {"beta": 0.0003, "gamma": 0.1}
    assert net.rates == {"infection": "beta", "recovery": "gamma"}
    assert quor.Arc("S", "infection", 1.0) in net.arcs
    assert quor.Arc("infection", "I", 2.0) in net.arcs
    assert quor.Arc("recovery", "R", 1.0) in net.arcs
    assert len(net.arcs) == 5
    assert net.interval == quor.Interval(0.0, 50.0, 0.25)
    assert [v.name for v in net.views] == ["Marking"]
    assert [c.name for c in net.views[0].curves] == ["S", "I", "R"]
    assert all(c.kind == "place" for c in net.views[0].curves)


def test_changes_parameters_and_markings_and_resets_them(client):
    assert client.parameters == {"beta": 0.0003, "gamma": 0.1}
    client.set_parameters(beta=0.0002)
    client.set_parameters({"gamma": 0.05})
    assert client.parameters == {"beta": 0.0002, "gamma": 0.05}
    client.set_marking(I=20, R=5.5)
    assert client.marking == {"S": 990.0, "I": 20.0, "R": 5.5}
    client.reset_parameters()
    client.reset_marking()
    assert client.parameters == {"beta": 0.0003, "gamma": 0.1}
    assert client.marking == {"S": 990.0, "I": 10.0, "R": 0.0}


def test_a_change_is_seen_by_another_client_of_the_model(simd, client):
    with simd.connect() as other:
        other.attach(0)
        client.set_parameters(gamma=0.2)
        assert other.parameters["gamma"] == 0.2


def test_reads_the_simulators_and_their_settings(client):
    simulators = client.simulators()
    assert quor.Simulator("continuous", "Continuous", 0) in simulators
    assert quor.Simulator("stochastic", "Stochastic", 1) in simulators
    assert client.settings("stochastic") == {"Seed": 1, "Runs": 1}
    seed, runs = client.settings("stochastic", details=True)
    assert seed.name == "Seed" and seed.value == 1 and seed.minimum == 0
    assert runs.name == "Runs" and runs.value == 1 and runs.minimum == 1
    client.set_settings("stochastic", Seed=42, Runs=3)
    assert client.settings("stochastic") == {"Seed": 42, "Runs": 3}


def test_starts_a_run_and_reads_its_state_and_results(client):
    assert client.state().state == "idle"
    client.start("continuous", start=0, end=10, step=0.5)
    final = client.wait()
    assert final.state == "finished" and final.code == int(quor._quor.SimulatorState.SIMULATOR_FINISHED)
    assert final.progress == 1.0 and not final.active
    assert (final.category, final.simulator, final.error) == ("Continuous", "continuous", "none")
    times, values, names = client.results()
    assert names == ["S", "I", "R"]
    assert values.shape == (3, 21)
    np.testing.assert_allclose(times, np.arange(21) * 0.5)
    np.testing.assert_allclose(values[:, 0], [990, 10, 0])
    # The SIR net keeps its total.
    np.testing.assert_allclose(values.sum(axis=0), 1000.0, rtol=1e-6)
    rates = client.rates()
    assert rates.names == ["infection", "recovery"] and rates.values.shape == (2, 21)
    assert "finished" in client.log_message()


def test_the_default_interval_is_the_models(client):
    client.start()
    client.wait()
    assert client.results().values.shape == (3, 201)


def test_results_as_a_data_frame(client):
    pandas = pytest.importorskip("pandas")
    client.start(end=2, step=1)
    client.wait()
    frame = client.results(frame=True)
    assert isinstance(frame, pandas.DataFrame)
    assert list(frame.columns) == ["S", "I", "R"]
    assert frame.index.name == "time" and list(frame.index) == [0.0, 1.0, 2.0]
    assert frame.loc[0.0, "S"] == 990.0
    assert list(client.rates(frame=True).columns) == ["infection", "recovery"]


def test_watch_yields_every_output_point_once_in_order(client):
    client.speed(200)
    client.start(end=20, step=0.5)
    points = list(client.watch())
    assert [p.index for p in points] == list(range(41))
    assert [p.time for p in points] == [0.5 * i for i in range(41)]
    assert points[0].marking == {"S": 990.0, "I": 10.0, "R": 0.0}
    _, values, _ = client.results()
    assert [p.marking["I"] for p in points] == list(values[1])


def test_watch_sees_points_while_the_run_goes_on(client):
    # Paced so that the run is still going when the first points arrive.
    client.speed(20)
    client.start(end=50, step=0.25)
    for point in client.watch():
        if point.index == 2:
            assert client.state().active
            client.stop()
    assert client.state().state == "stopped"
    assert 3 <= client.results().values.shape[1] < 201


def test_pause_and_resume(client):
    client.speed(50)
    client.start(end=50, step=0.25)
    client.pause()
    wait_until(lambda: client.state().state == "paused", "the pause")
    paused = client.results().values.shape[1]
    assert client.results().values.shape[1] == paused
    client.resume()
    client.speed(0)
    assert client.wait().state == "finished"


def test_wait_reports_progress_and_times_out(client):
    client.speed(20)
    client.start(end=50, step=0.25)
    seen = []
    with pytest.raises(TimeoutError, match="still running"):
        client.wait(timeout=0.3, progress=seen.append)
    assert seen and all(0 <= f < 1 for f in seen)
    client.speed(0)
    client.wait(progress=seen.append)
    assert seen[-1] == 1.0 and seen == sorted(seen)


def test_restart_stops_a_run_that_goes_on(client):
    client.speed(20)
    client.start(end=50, step=0.25)
    client.restart(end=5, step=1)
    client.speed(0)
    assert client.wait().state == "finished"
    assert client.results().values.shape == (3, 6)


def test_closing_leaves_the_run_going(simd, client):
    client.speed(20)
    client.start(end=50, step=0.25)
    client.close()
    assert not client.connected
    with simd.connect() as other:
        other.attach(0)
        assert other.state().active
        other.stop()
    with pytest.raises(quor.ConnectError, match="not connected"):
        client.state()


def test_the_exact_solution_of_an_uploaded_decay_net(simd):
    net = quor.Net("decay", places={"X": 100.0}, transitions={"decay": "k"},
                   arcs=[("X", "decay")], parameters={"k": 0.2}, interval=(0, 10, 0.5))
    with simd.connect() as client:
        client.upload(net)
        assert client.net.places == ["X"] and client.net.rates == {"decay": "k"}
        assert "decay" in client.models()
        client.start("continuous")
        client.wait()
        times, values, names = client.results()
        assert names == ["X"] and values.shape == (1, 21)
        np.testing.assert_allclose(values[0], 100.0 * np.exp(-0.2 * times), rtol=1e-5)
        assert values[0, -1] == pytest.approx(100 * math.exp(-2), rel=1e-5)


def test_numpy_numbers_are_numbers(simd):
    with quor.connect(port=np.int64(simd.port)) as client:
        client.attach(np.int64(0))
        client.speed(np.int32(0))
        client.set_parameters(beta=np.float32(0.0002))
        client.start(start=np.int64(0), end=np.int64(5), step=np.float64(0.5))
        client.wait()
        assert client.results().values.shape == (3, 11)
        client.set_settings("stochastic", Seed=np.uint64(5))
        assert client.settings("stochastic")["Seed"] == 5
