"""Soils: a model number and its parameters, by name or from a TOML file."""
import math
import os
import tomllib

from ._lib import TervakError, parameters


class Soil:
    """A model and its parameter values (Props by position), checked
    against the names and valid ranges the library publishes."""

    def __init__(self, model, props, title="", units="kPa", source=None):
        self.model = int(model)
        self.title = title
        self.units = units
        self.source = source
        table = parameters(self.model)
        props = [float(x) for x in props]
        where = f"{source}: " if source else ""
        if len(props) != len(table):
            raise TervakError(f"{where}'props' has {len(props)} values; model {self.model} has "
                              f"{len(table)} parameters ({', '.join(p.name for p in table)})")
        for p, x in zip(table, props):
            if not p.contains(x):
                raise TervakError(f"{where}parameter {p.position} '{p.name}' = {x:g} is outside "
                                  f"its valid range {p.range_text()}")
        self.props = props

    # -- construction -----------------------------------------------------
    @classmethod
    def named(cls, model, title="", units="kPa", **values):
        """A soil from named parameters; every parameter must be given."""
        table = parameters(model)
        names = [p.name for p in table]
        unknown = [k for k in values if k not in names]
        if unknown:
            raise TervakError(f"'{unknown[0]}' is not a parameter of model {model} ({', '.join(names)})")
        missing = [n for n in names if n not in values]
        if missing:
            raise TervakError(f"missing parameter(s) of model {model}: {', '.join(missing)}")
        return cls(model, [values[n] for n in names], title, units)

    @classmethod
    def from_toml(cls, path):
        """A soil file: 'model' and 'props' or [parameters] by name."""
        doc = read_toml(path)
        if "model" not in doc:
            raise TervakError(f"{path}: 'model' is missing")
        model = doc["model"]
        if not isinstance(model, int) or isinstance(model, bool):
            raise TervakError(f"{path}: 'model' must be an integer")
        title = doc.get("title", os.path.splitext(os.path.basename(path))[0])
        units = doc.get("units", "kPa")
        if "props" in doc:
            props = doc["props"]
            if not isinstance(props, list) or not all(isinstance(x, (int, float)) and not isinstance(x, bool)
                                                      for x in props):
                raise TervakError(f"{path}: 'props' must be a list of numbers")
            soil = cls(model, props, title, units, source=path)
            named = doc.get("parameters", {})
            return soil.with_values(**named) if named else soil
        if "parameters" in doc:
            s = cls.named(model, title, units, **doc["parameters"])
            s.source = path
            return s
        raise TervakError(f"{path}: the soil has neither 'props' nor [parameters]")

    # -- access -------------------------------------------------------------
    @property
    def parameters(self):
        return parameters(self.model)

    @property
    def names(self):
        return [p.name for p in self.parameters]

    def position(self, name):
        for p in self.parameters:
            if p.name == name:
                return p.position
        raise TervakError(f"'{name}' is not a parameter of model {self.model} ({', '.join(self.names)})")

    def __getitem__(self, name):
        return self.props[self.position(name) - 1]

    def values(self):
        return dict(zip(self.names, self.props))

    def with_values(self, **changes):
        """A copy with some parameters changed (checked like the rest)."""
        props = list(self.props)
        for k, v in changes.items():
            props[self.position(k) - 1] = float(v)
        return Soil(self.model, props, self.title, self.units)

    def __repr__(self):
        vals = ", ".join(f"{n}={x:g}" for n, x in zip(self.names, self.props))
        return f"Soil(model={self.model}, {vals})"

    def to_toml(self, path=None, note=None):
        """The soil file text; written to path when given."""
        lines = []
        if note:
            lines += [f"# {line}" for line in note.splitlines()]
        lines += [f"title = {_toml_value(self.title)}", f"model = {self.model}",
                  f"units = {_toml_value(self.units)}", "props = ["]
        for p, x in zip(self.parameters, self.props):
            lines.append(f"  {_toml_value(x)},  # {p.position:2d}  {p.name} ({p.unit})")
        lines.append("]")
        text = "\n".join(lines) + "\n"
        if path:
            with open(path, "w") as f:
                f.write(text)
        return text


def read_toml(path):
    """A TOML file as a dict; errors name the file (and the line)."""
    try:
        with open(path, "rb") as f:
            return tomllib.load(f)
    except OSError as e:
        raise TervakError(f"{path}: {e.strerror}") from None
    except tomllib.TOMLDecodeError as e:
        raise TervakError(f"{path}: {e}") from None


def _toml_value(v):
    if isinstance(v, bool):
        return "true" if v else "false"
    if isinstance(v, int):
        return str(v)
    if isinstance(v, float):
        if not math.isfinite(v):
            raise TervakError(f"{v} cannot be written to a file")
        r = repr(v)
        return r if any(c in r for c in ".en") else r + ".0"
    if isinstance(v, str):
        return '"' + v.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n") + '"'
    if isinstance(v, (list, tuple)):
        return "[" + ", ".join(_toml_value(x) for x in v) + "]"
    if isinstance(v, dict):
        return "{ " + ", ".join(f"{k} = {_toml_value(x)}" for k, x in v.items()) + " }"
    raise TervakError(f"{v!r} cannot be written to a test file")
