# SPDX-License-Identifier: MIT
"""Threads: the GIL is released while a request waits for the network, one
client shared by several threads serialises their requests, and several
clients work on one model at once."""

import threading

import pytest

import quor
from conftest import DEADLINE, background, wait_until


def connected_to(raw_server, **options):
    """A client connected to the raw server, which announces version 7."""
    def announce():
        peer = raw_server.accept()
        peer.send_u32(quor.PROTOCOL_VERSION)
        return peer

    with background(announce) as box:
        client = quor.connect(port=raw_server.port, **options)
    return client, box["result"]


def test_other_threads_run_while_a_request_waits(raw_server):
    client, peer = connected_to(raw_server)
    main_thread_ran = threading.Event()

    def answer():
        # GetRuningModelNames (request 2), answered only after the test's
        # main thread has run Python code: the client must not hold the GIL
        # while it waits for the answer.
        assert peer.receive_u32() == 2
        assert main_thread_ran.wait(DEADLINE)
        peer.send_strings(["only"])

    with background(answer):
        with background(client.models) as request:
            main_thread_ran.set()
    assert request["result"] == ["only"]
    client.close()


def test_a_shared_client_takes_its_threads_requests_one_at_a_time(raw_server):
    client, peer = connected_to(raw_server)
    second_started = threading.Event()

    def second():
        second_started.set()
        return client.models()

    def serve():
        assert peer.receive_u32() == 2
        # The first request waits for its answer; the second thread asks
        # meanwhile, and nothing of its request may reach the server yet.
        with background(second) as box:
            assert second_started.wait(DEADLINE)
            for _ in range(20):
                assert not peer.pending(), "a second request overtook the first"
                threading.Event().wait(0.01)
            peer.send_strings(["first"])
            assert peer.receive_u32() == 2
            peer.send_strings(["second"])
        return box["result"]

    with background(serve) as served:
        assert client.models() == ["first"]
    assert served["result"] == ["second"]
    client.close()


def test_two_threads_share_one_client(client):
    client.speed(100)
    client.start(end=50, step=0.25)
    errors = []

    def steer():
        try:
            for i in range(40):
                client.set_parameters(gamma=0.1 + i * 0.001)
                assert client.parameters["gamma"] == pytest.approx(0.1 + i * 0.001)
        except Exception as error:
            errors.append(error)

    def read():
        try:
            for _ in range(40):
                assert client.state().state in quor.STATES
                assert client.results().values.shape[0] == 3
                assert set(client.marking) == {"S", "I", "R"}
        except Exception as error:
            errors.append(error)

    threads = [threading.Thread(target=steer), threading.Thread(target=read)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(DEADLINE)
    assert not errors, errors
    assert client.parameters["gamma"] == pytest.approx(0.139)
    client.wait()


def test_two_clients_at_once(simd, client):
    client.speed(20)
    client.start(end=50, step=0.25)
    with simd.connect() as other:
        other.attach("SIR epidemic")
        other.pause()
        wait_until(lambda: client.state().state == "paused", "the pause")
        other.set_parameters(beta=0.0001)
        assert client.parameters["beta"] == 0.0001
        client.speed(0)
        client.resume()
        assert other.wait().state == "finished"
        assert client.results().values.tolist() == other.results().values.tolist()


def test_clients_on_threads_of_their_own(simd):
    def session(index):
        with simd.connect() as client:
            client.attach(0)
            for _ in range(10):
                assert client.models() == ["SIR epidemic"]
                assert client.net.places == ["S", "I", "R"]
                assert client.state().state in quor.STATES
            return index

    boxes = []
    threads = []
    for index in range(4):
        box = {}
        thread = threading.Thread(target=lambda b=box, i=index: b.update(result=session(i)))
        boxes.append(box)
        threads.append(thread)
        thread.start()
    for thread in threads:
        thread.join(DEADLINE)
    assert [box.get("result") for box in boxes] == [0, 1, 2, 3]
