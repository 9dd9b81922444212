# SPDX-License-Identifier: MIT
"""Errors are exceptions with the server's words: no server, a wrong port,
another protocol version, bad model indices, unknown names and bad values
(refused before anything is sent), refusals, a broken connection."""

import math
import signal

import pytest

import quor
from conftest import background, free_port


def test_no_server(simd):
    port = free_port()
    with pytest.raises(quor.ConnectError, match=f"127.0.0.1:{port}.*refused") as caught:
        quor.connect(port=port)
    assert isinstance(caught.value, ConnectionError)


def test_unknown_host():
    with pytest.raises(quor.ConnectError, match="unknown host"):
        quor.connect("no-such-host.invalid", 3000)


def test_arguments_are_checked_before_connecting():
    with pytest.raises(ValueError, match="port"):
        quor.connect(port=0)
    with pytest.raises(ValueError, match="port"):
        quor.connect(port=70000)
    with pytest.raises(ValueError, match="timeout"):
        quor.connect(port=free_port(), timeout=0)


def test_wrong_port_a_service_that_speaks_something_else(raw_server):
    def serve_http():
        peer = raw_server.accept()
        peer.socket.sendall(b"HTTP/1.0 400 Bad Request\r\n\r\n")
        return peer

    with background(serve_http):
        with pytest.raises(quor.VersionMismatch, match="does not look like a steering server"):
            quor.connect(port=raw_server.port, timeout=5)


def test_wrong_port_a_service_that_says_nothing(raw_server):
    with background(raw_server.accept):
        with pytest.raises(quor.ConnectError,
                           match="announced no steering protocol version within 1 s"):
            quor.connect(port=raw_server.port, timeout=1)


def test_version_mismatch(raw_server):
    def announce_version_6():
        peer = raw_server.accept()
        peer.send_u32(6)
        # The client closes the connection after reading the version.
        return peer.socket.recv(1)

    with background(announce_version_6) as box:
        with pytest.raises(quor.VersionMismatch) as caught:
            quor.connect(port=raw_server.port)
    assert box["result"] == b""
    error = caught.value
    assert isinstance(error, quor.ConnectError)
    assert (error.server_version, error.client_version) == (6, quor.PROTOCOL_VERSION)
    assert str(error) == (f"the server at 127.0.0.1:{raw_server.port} speaks steering protocol "
                          "version 6; this client speaks version 7")


def test_bad_model_index_or_name_is_refused_before_anything_is_sent(simd):
    with simd.connect() as client:
        with pytest.raises(IndexError, match=r"runs no model 1; it runs 0: 'SIR epidemic'"):
            client.attach(1)
        with pytest.raises(IndexError):
            client.attach(-1)
        with pytest.raises(KeyError, match="no model 'flu'"):
            client.attach("flu")
        with pytest.raises(TypeError):
            client.attach(1.0)
        # The server drops a connection that asks for a model it lacks.
        assert client.connected
        client.attach(0)


def test_unknown_parameter_name(client):
    with pytest.raises(KeyError, match="no parameter 'alpha'; its parameters are beta, gamma"):
        client.set_parameters(beta=0.0001, alpha=1.0)
    assert client.parameters == {"beta": 0.0003, "gamma": 0.1}
    with pytest.raises(KeyError, match="no place 'X'"):
        client.set_marking(X=1)


def test_negative_or_odd_markings_and_parameters(client):
    for bad in (-1, math.nan, math.inf):
        with pytest.raises(ValueError, match="finite number of 0 or more"):
            client.set_marking(S=500, I=bad)
    with pytest.raises(TypeError):
        client.set_marking(I="many")
    with pytest.raises(TypeError):
        client.set_parameters(beta=True)
    with pytest.raises(ValueError):
        client.set_parameters(gamma=-0.1)
    assert client.marking == {"S": 990.0, "I": 10.0, "R": 0.0}
    assert client.parameters == {"beta": 0.0003, "gamma": 0.1}


def test_start_arguments_are_checked(client):
    with pytest.raises(ValueError, match="no simulator 'euler'; it offers continuous"):
        client.start("euler")
    with pytest.raises(ValueError, match="step must be greater than 0"):
        client.start(step=0)
    with pytest.raises(ValueError, match="lies before the start"):
        client.start(start=5, end=1)
    with pytest.raises(ValueError, match="finite"):
        client.start(end=math.inf)
    with pytest.raises(ValueError, match="speed"):
        client.speed(-1)
    assert client.state().state == "idle"
    # Simulators by category name and in any case.
    client.start("STOCHASTIC", end=1, step=1)
    client.wait()


def test_settings_are_checked_against_the_simulators(client):
    with pytest.raises(KeyError, match="has no setting 'seed'; its settings are Seed"):
        client.set_settings("stochastic", seed=3)
    with pytest.raises(ValueError, match="between"):
        client.set_settings("continuous", RelativeTolerance=2.0)
    with pytest.raises(KeyError, match="no settings for a simulator 'euler'"):
        client.set_settings("euler", Seed=1)
    assert client.settings("stochastic") == {"Seed": 1, "Runs": 1}


def test_refusals_carry_the_servers_words_to_the_client_that_asked(simd, client):
    with pytest.raises(quor.Refused, match="^pause refused: no run is going on") as caught:
        client.pause()
    assert caught.value.reason.startswith("pause refused")
    client.speed(20)
    client.start()
    with pytest.raises(quor.Refused, match="start refused: a run is going on"):
        client.start()
    with simd.connect() as other:
        other.attach(0)
        # Not told of the first client's refusals.
        other.set_parameters(gamma=0.2)
        other.stop()
    client.wait()


def test_a_request_without_a_model(simd):
    with simd.connect() as client:
        with pytest.raises(RuntimeError, match="attach"):
            client.state()
        with pytest.raises(RuntimeError, match="attach"):
            client.start()


def test_a_connection_that_breaks(simd, client):
    simd.program.signal(signal.SIGKILL)
    simd.program.wait()
    with pytest.raises(quor.ConnectError, match="failed .*the connection is closed"):
        client.state()
    assert not client.connected
    with pytest.raises(quor.ConnectError, match="not connected"):
        client.models()


def test_nets_are_checked_before_they_are_sent(simd):
    with simd.connect() as client:
        for net, error, text in [
            (quor.Net("d", places=["α"]), ValueError, "not ASCII"),
            (quor.Net("d", places=["X", "X"]), ValueError, "used twice"),
            (quor.Net("d", places=["X"], marking={"Y": 1}), KeyError, "'Y'"),
            (quor.Net("d", places=["X"], marking={"X": -1}), ValueError, "0 or more"),
            (quor.Net("d", places=["X"], transitions=["t"], arcs=[("X", "Y")]), KeyError,
             "does not join"),
            (quor.Net("d", places=["X"], transitions=["t"], rates={"t": "k"}), KeyError,
             "not a parameter"),
            (quor.Net("d", places=["X"], transitions=["t"], arcs=[("t", "X", 1, "read")]),
             ValueError, "standard arc"),
            (quor.Net("d", places=["X"], interval=(0, 10, 0)), ValueError, "step"),
            (quor.Net(""), ValueError, "empty"),
        ]:
            with pytest.raises(error, match=text):
                client.upload(net)
        with pytest.raises(TypeError):
            client.upload({"places": ["X"]})
        assert client.models() == ["SIR epidemic"]


def test_errors_pickle():
    import pickle
    error = quor.VersionMismatch("h:1", 6, 7)
    copy = pickle.loads(pickle.dumps(error))
    assert (type(copy), str(copy), copy.server_version) == (quor.VersionMismatch, str(error), 6)
    failed = pickle.loads(pickle.dumps(quor.RunFailed("why")))
    assert (failed.reason, str(failed)) == ("why", "why")
