# SPDX-License-Identifier: MIT
"""The README's Python examples are the files of examples/python, and they
run as written: one steers quor-simd's SIR epidemic and saves the plot,
the other serves an SIR epidemic written in Python that clients steer.
Every public name of quor has a docstring."""

import inspect
import re
import signal

import numpy as np
import pytest

import quor
from conftest import SOURCE_DIR, python_program
from test_plot import png_chunks

EXAMPLES = SOURCE_DIR / "examples" / "python"
README = SOURCE_DIR / "README.md"


def shown(path):
    """A file as the README shows it: all but its licence line."""
    return path.read_text().split("\n", 1)[1]


def test_the_readmes_python_examples_are_the_example_files():
    blocks = re.findall(r"```python\n(.*?)```\n", README.read_text(), re.S)
    files = {name: shown(EXAMPLES / name) for name in ("steer_sir.py", "serve_sir.py")}
    for name, text in files.items():
        assert text in blocks, f"README.md does not show examples/python/{name}"
    assert all(block in files.values() for block in blocks), \
        "README.md shows Python code that is no example file"


def test_the_served_simulation_takes_under_40_lines():
    assert len((EXAMPLES / "serve_sir.py").read_text().splitlines()) < 40


def test_the_steering_example_runs_against_quor_simd(simd, tmp_path):
    with python_program(EXAMPLES / "steer_sir.py", simd.port, cwd=tmp_path) as example:
        assert example.wait() == 0, "".join(example.err)
    out = "".join(example.out)
    assert "beta lowered to 0.0001" in out and "the run: finished" in out
    png_chunks((tmp_path / "sir-steered.png").read_bytes())
    # It left beta lowered for the next run.
    with simd.connect() as client:
        assert client.attach(0).parameters["beta"] == pytest.approx(0.0001)


def test_the_served_example_is_steered_and_agrees_with_quor_simd(client):
    pytest.importorskip("scipy")
    client.start(end=50, step=0.25)
    client.wait()
    reference = client.results()
    with python_program(EXAMPLES / "serve_sir.py", 0) as example:
        port = example.wait_for_port("on port ")
        with quor.connect(port=port) as served:
            served.attach("SIR in Python")
            assert served.net.parameters == {"beta": 0.0003, "gamma": 0.1}
            served.start()
            assert served.wait().state == "finished"
            results = served.results()
            assert results.names == reference.names
            np.testing.assert_allclose(results.times, reference.times)
            np.testing.assert_allclose(results.values, reference.values, rtol=1e-4, atol=1e-3)
            served.set_parameters(beta=0.0001)
            served.restart()
            served.wait()
            assert served.results().values[1].max() < reference.values[1].max() / 2
        example.signal(signal.SIGINT)
        assert example.wait() == 0, "".join(example.err)


def public_members(obj):
    for name, member in inspect.getmembers(obj):
        if not name.startswith("_") and (inspect.isfunction(member) or
                                         isinstance(member, property)):
            yield name, member


def test_every_public_name_has_a_docstring():
    missing = []
    for name in quor.__all__:
        obj = getattr(quor, name)
        if inspect.isclass(obj) or inspect.isfunction(obj):
            if not inspect.getdoc(obj):
                missing.append(name)
            if inspect.isclass(obj):
                missing += [f"{name}.{member}" for member, value in public_members(obj)
                            if not inspect.getdoc(value)]
    assert not missing, f"no docstring: {', '.join(missing)}"
    text = pydoc_text(quor.Client)
    assert "set_parameters" in text and "serialises" in text


def pydoc_text(obj):
    import pydoc
    return pydoc.render_doc(obj, renderer=pydoc.plaintext)


def test_the_version_is_the_librarys():
    header = (SOURCE_DIR / "include" / "quor" / "version.h").read_text()
    parts = [re.search(rf"#define QUOR_VERSION_{part} (\d+)", header).group(1)
             for part in ("MAJOR", "MINOR", "PATCH")]
    assert quor.__version__ == ".".join(parts)
