"""Where the libraries are, and what the model library says about itself.

The model library is opened with ctypes only to read its parameter tables
(names, units, valid ranges); every computation goes through the
laboratory's C API, which calls the library through user_mod_ as a host.
"""
import ctypes
import math
import os
from dataclasses import dataclass
from functools import lru_cache

_HERE = os.path.dirname(os.path.abspath(__file__))
_REPO = os.path.dirname(os.path.dirname(_HERE))


class TervakError(Exception):
    """Bad input: a file, a parameter or an option the tools reject."""


def _find(env, candidates, what):
    path = os.environ.get(env)
    if path:
        if not os.path.exists(path):
            raise TervakError(f"{env}={path}: no such file")
        return path
    for c in candidates:
        if os.path.exists(c):
            return c
    raise TervakError(f"cannot find {what}: build it (make build) or set {env}")


def build_dir():
    return os.environ.get("TERVAK_BUILD", os.path.join(_REPO, "build"))


def library_path():
    return _find("TERVAK_LIB", [os.path.join(build_dir(), "libtervak.so")], "libtervak.so")


def lab_library_path():
    b = build_dir()
    return _find("TERVAK_LAB_LIB", [os.path.join(b, "tools", "lab", "libtervak-lab.so"),
                                     os.path.join(b, "libtervak-lab.so")], "libtervak-lab.so")


def cli_path():
    return _find("TERVAK_CLI", [os.path.join(build_dir(), "tervak-lab")], "tervak-lab")


@lru_cache(maxsize=None)
def lab():
    """The laboratory's C API (libtervak-lab.so)."""
    lib = ctypes.CDLL(lab_library_path())
    c, i, d, s = ctypes.c_char_p, ctypes.c_int, ctypes.POINTER(ctypes.c_double), ctypes.c_size_t
    lib.tervak_lab_run_file.argtypes = [c, c, c, c, s]
    lib.tervak_lab_check_file.argtypes = [c, c, c, s]
    lib.tervak_lab_calibrate.argtypes = [c, i, d, i, c, s]
    return lib


@lru_cache(maxsize=None)
def model_library():
    # Loaded once in this process, so that every forked run finds it loaded.
    return ctypes.CDLL(library_path())


@dataclass(frozen=True)
class Parameter:
    position: int
    name: str
    unit: str
    lo: float = -math.inf
    hi: float = math.inf
    lo_open: bool = False
    hi_open: bool = False
    checked: bool = False

    def contains(self, x):
        if not math.isfinite(x):
            return False
        if not self.checked:
            return True
        ok_lo = x > self.lo if self.lo_open else x >= self.lo
        ok_hi = x < self.hi if self.hi_open else x <= self.hi
        return ok_lo and ok_hi

    def range_text(self):
        t = f"{self.lo:g} {'<' if self.lo_open else '<='} value"
        if math.isfinite(self.hi):
            t += f" {'<' if self.hi_open else '<='} {self.hi:g}"
        return t

    def bounds(self):
        """Closed bounds for an optimiser, just inside open ends."""
        lo, hi = (self.lo, self.hi) if self.checked else (-math.inf, math.inf)
        if self.checked and self.lo_open and math.isfinite(lo):
            lo = lo + max(abs(lo), 1.0) * 1e-9
        if self.checked and self.hi_open and math.isfinite(hi):
            hi = hi - max(abs(hi), 1.0) * 1e-9
        return lo, hi


def _counted(buf):
    raw = buf.raw
    n = min(raw[0], len(raw) - 1)
    return raw[1:1 + n].decode("utf-8", "replace").rstrip(" \0")


@lru_cache(maxsize=None)
def parameters(model):
    """The parameters of a model as the library publishes them."""
    lib = model_library()
    i32 = ctypes.c_int32
    try:
        count, name, unit = lib.getparamcount_, lib.getparamname_, lib.getparamunit_
    except AttributeError:
        raise TervakError(f"{library_path()} does not publish its parameters")
    m, n = i32(model), i32(0)
    count(ctypes.byref(m), ctypes.byref(n))
    if n.value <= 0:
        raise TervakError(f"the library has no model {model}")
    rng = getattr(lib, "getparamrange_", None)
    out = []
    for k in range(1, n.value + 1):
        kk = i32(k)
        nb, ub = ctypes.create_string_buffer(64), ctypes.create_string_buffer(64)
        name(ctypes.byref(m), ctypes.byref(kk), nb, ctypes.c_size_t(64))
        unit(ctypes.byref(m), ctypes.byref(kk), ub, ctypes.c_size_t(64))
        lo, hi, kind = ctypes.c_double(0), ctypes.c_double(0), i32(0)
        if rng is not None:
            rng(ctypes.byref(m), ctypes.byref(kk), ctypes.byref(lo), ctypes.byref(hi), ctypes.byref(kind))
        kd = kind.value
        out.append(Parameter(k, _counted(nb), _counted(ub), lo.value, hi.value,
                             bool(kd & 2), bool(kd & 4), kd != 0))
    return tuple(out)
