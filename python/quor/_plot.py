# SPDX-License-Identifier: MIT
"""Curves to a picture file, with matplotlib's Agg renderer."""

import os
import pathlib

import numpy as np

# The file types written, by suffix.
FORMATS = {".png": "png", ".svg": "svg", ".pdf": "pdf"}


def plot(times, values, names, path, title=None, xlabel="time", ylabel="marking"):
    """Draws one curve per row of ``values`` (rows x len(times)) against
    ``times``, labelled with ``names``, and writes it to ``path``: a PNG,
    SVG or PDF file by its suffix. Returns the path.

    Needs matplotlib (Debian: python3-matplotlib). It draws with the Agg
    renderer and leaves pyplot and its backend alone, so it works without
    a display and inside notebooks alike.
    """
    path = pathlib.Path(os.fspath(path))
    fmt = FORMATS.get(path.suffix.lower())
    if fmt is None:
        raise ValueError(f"cannot tell the file type of {str(path)!r}: use a name ending in "
                         + ", ".join(FORMATS))
    times = np.asarray(times, dtype=float)
    values = np.asarray(values, dtype=float)
    if values.ndim == 1:
        values = values[np.newaxis, :]
    names = list(names)
    if values.ndim != 2 or values.shape[1] != times.shape[0]:
        raise ValueError(f"values of shape {values.shape} do not match {times.shape[0]} times")
    if len(names) != values.shape[0]:
        raise ValueError(f"{len(names)} names for {values.shape[0]} rows of values")
    try:
        from matplotlib.backends.backend_agg import FigureCanvasAgg
        from matplotlib.figure import Figure
    except ImportError:
        raise ImportError("plotting needs matplotlib (Debian: apt-get install "
                          "python3-matplotlib)") from None
    figure = Figure(figsize=(8, 4.5), dpi=100)
    FigureCanvasAgg(figure)
    axes = figure.add_subplot()
    for name, row in zip(names, values):
        axes.plot(times, row, label=name)
    axes.set_xlabel(xlabel)
    axes.set_ylabel(ylabel)
    if title:
        axes.set_title(title)
    if names:
        axes.legend()
    axes.grid(True, alpha=0.3)
    figure.tight_layout()
    figure.savefig(path, format=fmt)
    return path
