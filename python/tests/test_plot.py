# SPDX-License-Identifier: MIT
"""quor.plot and Results.plot write valid PNG, SVG and PDF files without a
display and without touching pyplot's backend."""

import struct
import sys
import xml.etree.ElementTree as ElementTree
import zlib

import numpy as np
import pytest

import quor

pytest.importorskip("matplotlib")

TIMES = np.linspace(0, 10, 21)
VALUES = np.vstack([100 * np.exp(-0.2 * TIMES), 100 - 100 * np.exp(-0.2 * TIMES)])


def png_chunks(data):
    """The chunks of a PNG file, each (type, payload), CRCs checked."""
    assert data[:8] == b"\x89PNG\r\n\x1a\n", "no PNG signature"
    chunks, at = [], 8
    while at < len(data):
        (length,) = struct.unpack(">I", data[at:at + 4])
        kind, payload = data[at + 4:at + 8], data[at + 8:at + 8 + length]
        (crc,) = struct.unpack(">I", data[at + 8 + length:at + 12 + length])
        assert crc == zlib.crc32(kind + payload), f"bad CRC in chunk {kind!r}"
        chunks.append((kind, payload))
        at += 12 + length
    return chunks


def test_plot_writes_a_valid_png(tmp_path):
    path = quor.plot(TIMES, VALUES, ["X", "Y"], tmp_path / "decay.png", title="decay")
    assert path == tmp_path / "decay.png"
    chunks = png_chunks(path.read_bytes())
    kinds = [kind for kind, _ in chunks]
    assert kinds[0] == b"IHDR" and kinds[-1] == b"IEND" and b"IDAT" in kinds
    width, height = struct.unpack(">II", chunks[0][1][:8])
    assert (width, height) == (800, 450)
    # The picture decompresses and has drawn pixels of more than one colour.
    pixels = zlib.decompress(b"".join(p for k, p in chunks if k == b"IDAT"))
    assert len(set(pixels)) > 10


def test_plot_writes_svg_and_pdf(tmp_path):
    svg = quor.plot(TIMES, VALUES, ["X", "Y"], str(tmp_path / "decay.svg"))
    root = ElementTree.parse(svg).getroot()
    assert root.tag.endswith("svg")
    assert quor.plot(TIMES, VALUES[0], ["X"], tmp_path / "x.pdf").read_bytes()[:5] == b"%PDF-"


def test_plot_checks_its_arguments(tmp_path):
    with pytest.raises(ValueError, match="file type"):
        quor.plot(TIMES, VALUES, ["X", "Y"], tmp_path / "decay.gif")
    with pytest.raises(ValueError, match="1 names for 2 rows"):
        quor.plot(TIMES, VALUES, ["X"], tmp_path / "decay.png")
    with pytest.raises(ValueError, match="do not match"):
        quor.plot(TIMES[:-1], VALUES, ["X", "Y"], tmp_path / "decay.png")


def test_results_plot_themselves(tmp_path):
    results = quor.Results(TIMES, VALUES, ["X", "Y"])
    png_chunks(results.plot(tmp_path / "r.png").read_bytes())
    np.testing.assert_array_equal(results.row("Y"), VALUES[1])
    with pytest.raises(KeyError):
        results.row("Z")


def test_plotting_leaves_pyplot_alone(tmp_path):
    quor.plot(TIMES, VALUES, ["X", "Y"], tmp_path / "decay.png")
    assert "matplotlib.pyplot" not in sys.modules
