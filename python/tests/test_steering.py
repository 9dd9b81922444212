# SPDX-License-Identifier: MIT
"""Steering quor-simd's runs: a change made mid-run shows from the next
output point on, and a stochastic run with a seed is reproducible."""

import math

import numpy as np
import pytest

import quor
from conftest import wait_until

# X decays at the rate k: X(t) = X(0) exp(-k t).
DECAY = quor.Net("decay", places={"X": 100.0}, transitions={"decay": "k"},
                 arcs=[("X", "decay")], parameters={"k": 0.1}, interval=(0, 40, 1))


def ratios(values):
    """X[j] / X[j - 1] for every column j >= 1."""
    return values[0, 1:] / values[0, :-1]


@pytest.fixture
def decay(simd):
    with simd.connect() as client:
        client.upload(DECAY)
        # X falls to a few millionths: the solver's absolute tolerance must
        # be far below that for the ratios of neighbouring points to hold.
        client.set_settings("continuous", AbsoluteTolerance=1e-15, RelativeTolerance=1e-10)
        yield client


def columns(client):
    return client.results().values.shape[1]


def pause_part_way(client):
    """Starts a paced run and pauses it after a few output points; returns
    how many it has recorded."""
    client.speed(20)
    client.start()
    wait_until(lambda: columns(client) >= 4, "the first output points")
    client.pause()
    wait_until(lambda: client.state().state == "paused", "the pause")
    return columns(client)


def test_a_change_while_paused_shows_from_the_next_column(decay):
    paused = pause_part_way(decay)
    decay.set_parameters(k=0.5)
    decay.speed(0)
    decay.resume()
    assert decay.wait().state == "finished"
    values = decay.results().values
    assert values.shape == (1, 41)
    # Column j follows column j - 1; the first column of the new rate is
    # the one after the pause.
    np.testing.assert_allclose(ratios(values)[:paused - 1], math.exp(-0.1), rtol=1e-5)
    np.testing.assert_allclose(ratios(values)[paused - 1:], math.exp(-0.5), rtol=1e-5)


def test_a_change_of_the_marking_while_paused(decay):
    paused = pause_part_way(decay)
    decay.set_marking(X=50)
    decay.speed(0)
    decay.resume()
    decay.wait()
    x = decay.results().values[0]
    assert x[paused - 1] == pytest.approx(100 * math.exp(-0.1 * (paused - 1)), rel=1e-5)
    assert x[paused] == pytest.approx(50 * math.exp(-0.1), rel=1e-5)


def test_a_change_while_running_changes_the_trajectory_from_the_next_output_point(decay):
    decay.speed(20)
    decay.start()
    wait_until(lambda: columns(decay) >= 3, "the first output points")
    before = columns(decay)
    decay.set_parameters(k=0.5)
    after = columns(decay)
    assert decay.state().state == "running", "the run ended before the change"
    decay.speed(0)
    decay.wait()
    steps = ratios(decay.results().values)
    old = np.isclose(steps, math.exp(-0.1), rtol=1e-5)
    new = np.isclose(steps, math.exp(-0.5), rtol=1e-5)
    assert np.all(old | new)
    first = int(np.argmax(new)) + 1  # the first column computed with the new k
    assert np.all(old[:first - 1]) and np.all(new[first - 1:])
    # Not before the change was made; at the latest at the point after the
    # one the run had reached when the change had been taken.
    assert before <= first <= after + 1


def test_a_stochastic_run_with_a_seed_is_reproducible(client):
    def run(seed):
        client.set_settings("stochastic", Seed=seed)
        client.start("stochastic", end=50, step=0.5)
        assert client.wait().simulator == "stochastic"
        return client.results().values

    first = run(7)
    again = run(7)
    other = run(8)
    np.testing.assert_array_equal(first, again)
    assert not np.array_equal(first, other)
    # Whole numbers of tokens.
    np.testing.assert_array_equal(first, np.round(first))
