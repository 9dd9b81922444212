# SPDX-License-Identifier: MIT
"""`cmake --install` puts the module below the install prefix, where the
interpreter imports it and it finds the installed library by itself. The
components runtime (the library) and python (the module) are enough."""

import ast
import os
import subprocess
import sys

import pytest

CHECK = '''
import quor
print(quor.__file__)
net = quor.Net("decay", places={"X": 1.0}, interval=(0, 2, 1))
with quor.serve(lambda t, t_next, m, p: m / 2, net) as server, \\
        quor.connect(port=server.port) as client:
    client.attach(0)
    client.start()
    client.wait()
    print(client.results().values.tolist())
with open("/proc/self/maps") as maps:
    print(sorted({line.split()[-1] for line in maps if "QUOR_SteeringAPI" in line}))
'''


def test_the_installed_module(tmp_path):
    build, cmake = os.environ.get("QUOR_BUILD_DIR"), os.environ.get("CMAKE_COMMAND")
    if not build or not cmake:
        pytest.skip("run by ctest, which names the build directory")
    prefix = tmp_path / "prefix"
    for component in ("runtime", "python"):
        subprocess.run([cmake, "--install", build, "--prefix", prefix, "--component", component],
                       check=True, capture_output=True)
    packages = prefix / os.environ["QUOR_PYTHON_INSTALL_DIR"]
    assert (packages / "quor" / "__init__.py").is_file()
    environment = dict(os.environ, PYTHONPATH=str(packages))
    environment.pop("LD_LIBRARY_PATH", None)
    checked = subprocess.run([sys.executable, "-c", CHECK], env=environment, cwd=tmp_path,
                             capture_output=True, text=True, timeout=120)
    assert checked.returncode == 0, checked.stderr
    module, results, libraries = checked.stdout.splitlines()
    assert module == str(packages / "quor" / "__init__.py")
    assert results == "[[1.0, 0.5, 0.25]]"
    loaded = ast.literal_eval(libraries)
    assert loaded and all(path.startswith(str(prefix)) for path in loaded), libraries
