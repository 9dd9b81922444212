# SPDX-License-Identifier: MIT
"""Nets as plain Python objects: what a client reads, uploads and serves."""

import math
import numbers
from dataclasses import dataclass, field
from typing import Dict, List, NamedTuple, Union

from . import _quor

# The kinds of arcs, rows and curves, named after the library's enumerations
# (CONNECTION_READ_ARC is "read", RM_ROW_TYPE_PLACE is "place", ...).
ARC_KINDS = {name[len("CONNECTION_"):].replace("_ARC", "").lower(): int(value)
             for name, value in _quor.ConnectionType.__members__.items()}
ROW_KINDS = {name[len("RM_ROW_TYPE_"):].lower(): int(value)
             for name, value in _quor.RM_ROW_TYPE.__members__.items()}
_ARC_KIND_NAMES = {code: name for name, code in ARC_KINDS.items()}
_ROW_KIND_NAMES = {code: name for name, code in ROW_KINDS.items()}

# Texts travel one byte per character and their lengths as 16-bit numbers.
MAX_NAME_LENGTH = 32767


class Interval(NamedTuple):
    """Output points start, start + step, ... up to end."""

    start: float
    end: float
    step: float

    def points(self):
        """The number of output points of the interval."""
        spans = (self.end - self.start) / self.step
        return int(math.floor(spans + 1e-9 * (1.0 + spans))) + 1


@dataclass
class Arc:
    """An arc from a place to a transition (an input arc) or from a
    transition to a place (an output arc), by name.

    ``kind`` is one of ARC_KINDS ("standard", "read", "inhibitor", ...);
    output arcs are always "standard".
    """

    source: str
    target: str
    weight: float = 1.0
    kind: str = "standard"


@dataclass
class Curve:
    """One curve of a view: result row ``index`` of the ``kind`` "place",
    "transition", "parameter" or "observer"."""

    name: str
    index: int = 0
    kind: str = "place"
    color: str = ""
    show: bool = True
    width: int = 2
    style: int = 0


@dataclass
class View:
    """A plot view that a client may show: a title, axis labels, curves."""

    name: str
    title: str = ""
    x_label: str = ""
    y_label: str = ""
    curves: List[Curve] = field(default_factory=list)


@dataclass
class Net:
    """A Petri net: places, transitions, arcs, the initial marking,
    parameters, rates, the suggested output interval and plot views.

    Built by hand for Client.upload() and quor.serve(), or read from a
    server (Client.net). Shorthands: ``places`` may be a dict of place to
    initial marking, ``transitions`` a dict of transition to rate, arcs
    tuples ``(source, target)`` or ``(source, target, weight)``:

        net = quor.Net("decay", places={"X": 100.0}, transitions={"decay": "k"},
                       arcs=[("X", "decay")], parameters={"k": 0.1},
                       interval=(0, 50, 0.5))

    ``marking`` (place to amount, 0 when left out) and ``parameters``
    (name to value) are the initial values. ``rates`` gives each
    transition's rate as the server reads it: a number, or the name of a
    parameter (1 when left out; the reference server runs mass action with
    it). ``interval`` is (start, end, step).
    """

    name: str = "net"
    places: List[str] = field(default_factory=list)
    transitions: List[str] = field(default_factory=list)
    arcs: List[Arc] = field(default_factory=list)
    marking: Dict[str, float] = field(default_factory=dict)
    parameters: Dict[str, float] = field(default_factory=dict)
    rates: Dict[str, Union[float, str]] = field(default_factory=dict)
    interval: Interval = Interval(0.0, 100.0, 1.0)
    views: List[View] = field(default_factory=list)

    def __post_init__(self):
        if isinstance(self.places, dict):
            self.marking = {**self.places, **self.marking}
            self.places = list(self.places)
        else:
            self.places = list(self.places)
        if isinstance(self.transitions, dict):
            self.rates = {**self.transitions, **self.rates}
            self.transitions = list(self.transitions)
        else:
            self.transitions = list(self.transitions)
        self.arcs = [arc if isinstance(arc, Arc) else Arc(*arc) for arc in self.arcs]
        self.marking = dict(self.marking)
        self.parameters = dict(self.parameters)
        self.rates = dict(self.rates)
        self.interval = Interval(*self.interval)
        self.views = list(self.views)

    def check(self):
        """Raises KeyError, ValueError or TypeError for a net that cannot
        be sent: names that are empty, repeated, not ASCII or unknown,
        values that are negative or not finite, arcs that do not join a
        place and a transition, an unusable interval."""
        _check_name(self.name, "the net's name")
        for kind, names in (("place", self.places), ("transition", self.transitions),
                            ("parameter", list(self.parameters))):
            seen = set()
            for name in names:
                _check_name(name, f"a {kind} name")
                if name in seen:
                    raise ValueError(f"the {kind} name {name!r} is used twice")
                seen.add(name)
        places, transitions = set(self.places), set(self.transitions)
        for place, amount in self.marking.items():
            if place not in places:
                raise KeyError(f"the marking names {place!r}, which is not a place of the net")
            _check_amount(amount, f"the marking of {place!r}")
        for name, value in self.parameters.items():
            _check_amount(value, f"parameter {name!r}")
        for transition, rate in self.rates.items():
            if transition not in transitions:
                raise KeyError(f"a rate is given for {transition!r}, which is not a transition")
            if isinstance(rate, str) and _is_number_text(rate):
                _check_amount(float(rate), f"the rate of {transition!r}")
            elif isinstance(rate, str):
                if rate not in self.parameters:
                    raise KeyError(f"the rate of {transition!r} names {rate!r}, which is not "
                                   "a parameter of the net")
            else:
                _check_amount(rate, f"the rate of {transition!r}")
        for arc in self.arcs:
            if arc.kind not in ARC_KINDS:
                raise ValueError(f"arc {arc.source!r} -> {arc.target!r}: kind {arc.kind!r} is "
                                 f"not one of {', '.join(ARC_KINDS)}")
            if arc.source in places and arc.target in transitions:
                pass
            elif arc.source in transitions and arc.target in places:
                if arc.kind != "standard":
                    raise ValueError(f"arc {arc.source!r} -> {arc.target!r}: an arc from a "
                                     "transition to a place is a standard arc")
            else:
                raise KeyError(f"arc {arc.source!r} -> {arc.target!r} does not join a place "
                               "and a transition of the net")
            _check_amount(arc.weight, f"the weight of arc {arc.source!r} -> {arc.target!r}")
        start, end, step = self.interval
        if not all(isinstance(v, numbers.Real) and math.isfinite(v) for v in self.interval):
            raise ValueError(f"the interval {tuple(self.interval)} holds a value that is not a "
                             "finite number")
        if not step > 0:
            raise ValueError(f"the interval's step must be greater than 0 (it is {step})")
        if end < start:
            raise ValueError(f"the interval ends ({end}) before it starts ({start})")
        for view in self.views:
            _check_name(view.name, "a view name")
            for text in (view.title, view.x_label, view.y_label):
                _check_text(text, f"a text of view {view.name!r}")
            for curve in view.curves:
                _check_text(curve.name, f"a curve name of view {view.name!r}")
                _check_text(curve.color, f"a curve colour of view {view.name!r}")
                if curve.kind not in ROW_KINDS:
                    raise ValueError(f"curve {curve.name!r}: kind {curve.kind!r} is not one of "
                                     f"{', '.join(ROW_KINDS)}")
                if not isinstance(curve.index, numbers.Integral) or curve.index < 0:
                    raise ValueError(f"curve {curve.name!r}: the index must be a whole number "
                                     "of 0 or more")
        return self

    # Conversions to and from the compiled part's plain form.

    def _to_data(self):
        self.check()
        place_at = {name: i for i, name in enumerate(self.places)}
        transition_at = {name: i for i, name in enumerate(self.transitions)}
        arcs = []
        for arc in self.arcs:
            if arc.source in place_at and arc.target in transition_at:
                arcs.append((transition_at[arc.target], place_at[arc.source], True,
                             ARC_KINDS[arc.kind], float(arc.weight)))
            else:
                arcs.append((transition_at[arc.source], place_at[arc.target], False,
                             ARC_KINDS["standard"], float(arc.weight)))
        return {
            "name": self.name,
            "places": list(self.places),
            "transitions": list(self.transitions),
            "parameters": list(self.parameters),
            "parameter_values": [float(v) for v in self.parameters.values()],
            "marking": [float(self.marking.get(p, 0.0)) for p in self.places],
            "rates": [_rate_text(self.rates.get(t, 1.0)) for t in self.transitions],
            "arcs": arcs,
            "interval": tuple(float(v) for v in self.interval),
            "views": [{"name": v.name, "title": v.title, "x_label": v.x_label,
                       "y_label": v.y_label,
                       "curves": [{"index": int(c.index), "name": c.name, "type": ROW_KINDS[c.kind],
                                   "color": c.color, "show": bool(c.show), "width": int(c.width),
                                   "style": int(c.style)} for c in v.curves]}
                      for v in self.views],
            "active_view": 0,
        }

    @classmethod
    def _from_data(cls, data):
        places, transitions = data["places"], data["transitions"]

        def name(names, i, kind):
            return names[i] if i < len(names) else f"{kind} {i}"

        arcs = []
        for transition, place, pre, kind, weight in data["arcs"]:
            t, p = name(transitions, transition, "transition"), name(places, place, "place")
            arcs.append(Arc(p, t, weight, _ARC_KIND_NAMES.get(kind, str(kind))) if pre
                        else Arc(t, p, weight))
        views = [View(v["name"], v["title"], v["x_label"], v["y_label"],
                      [Curve(c["name"], c["index"], _ROW_KIND_NAMES.get(c["type"], str(c["type"])),
                             c["color"], c["show"], c["width"], c["style"]) for c in v["curves"]])
                 for v in data["views"]]
        return cls(name=data["name"], places=list(places), transitions=list(transitions),
                   arcs=arcs, marking=dict(zip(places, data["marking"])),
                   parameters=dict(zip(data["parameters"], data["parameter_values"])),
                   rates={t: _rate_value(r) for t, r in zip(transitions, data["rates"])},
                   interval=Interval(*data["interval"]), views=views)


def _check_text(text, what):
    if not isinstance(text, str):
        raise TypeError(f"{what} must be a str, not {type(text).__name__}")
    if not text.isascii():
        raise ValueError(f"{what} ({text!r}) is not ASCII: the steering protocol carries "
                         "texts one byte per character")
    if len(text) > MAX_NAME_LENGTH:
        raise ValueError(f"{what} is longer than {MAX_NAME_LENGTH} characters")


def _check_name(text, what):
    _check_text(text, what)
    if not text:
        raise ValueError(f"{what} is empty")


def _check_amount(value, what):
    if isinstance(value, bool) or not isinstance(value, numbers.Real):
        try:
            value = float(value)
        except (TypeError, ValueError):
            raise TypeError(f"{what} must be a number, not {type(value).__name__}") from None
    if not math.isfinite(value) or value < 0:
        raise ValueError(f"{what} must be a finite number of 0 or more (it is {value})")


def _is_number_text(text):
    try:
        return math.isfinite(float(text))
    except ValueError:
        return False


def _rate_text(rate):
    return rate if isinstance(rate, str) else repr(float(rate))


def _rate_value(text):
    return float(text) if _is_number_text(text) else text
