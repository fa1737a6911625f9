"""Laboratory tests through the laboratory's C API, one child process per
run: a model that ends its process (a fatal stop) ends the child only, and
the parent raises ModelStop with the rows converged before it."""
import ctypes
import json
import os
import shutil
import tempfile

import numpy as np

from ._lib import TervakError, lab, library_path, model_library
from .soil import Soil, _toml_value


class RunFailed(Exception):
    """A run that did not finish: no convergence or a model's stop.
    `result` holds the rows converged before it."""

    def __init__(self, message, result=None):
        super().__init__(message)
        self.result = result


class ModelStop(RunFailed):
    """The model library ended the run's process (its fatal stop)."""


class Test:
    """A laboratory test: its type and the keys of a [[test]] table of a
    test file (compression positive), and optionally measured data."""

    def __init__(self, type, name=None, stages=None, measured=None, **keys):
        self.type = type
        self.name = name or type
        self.keys = keys
        self.stages = stages or []
        self.measured = measured

    def with_keys(self, **keys):
        return Test(self.type, self.name, self.stages, self.measured, **{**self.keys, **keys})

    def toml(self):
        out = ["[[test]]", f"name = {_toml_value(self.name)}", f"type = {_toml_value(self.type)}"]
        out += [f"{k} = {_toml_value(v)}" for k, v in self.keys.items()]
        for st in self.stages:
            out.append("  [[test.stage]]")
            out += [f"  {k} = {_toml_value(v)}" for k, v in st.items()]
        return "\n".join(out) + "\n"

    def __repr__(self):
        return f"Test({self.type!r}, name={self.name!r}, {self.keys})"


def triaxial(p0=100.0, axial_strain=0.1, steps=200, drained=True, name=None, **keys):
    """Consolidated triaxial test (compression; direction="extension" too)."""
    return Test("triaxial", name or f"tx{'d' if drained else 'u'}{p0:g}", p0=p0,
                axial_strain=axial_strain, steps=steps, drained=drained, **keys)


def oedometer(vertical_stress, sigma_v0=25.0, k0=0.5, steps=100, name=None, **keys):
    """One-dimensional compression through the given vertical stresses."""
    return Test("oedometer", name or "oed", sigma_v0=sigma_v0, k0=k0,
                vertical_stress=list(vertical_stress), steps=steps, **keys)


def isotropic(pressures, p0=25.0, steps=100, name=None, **keys):
    return Test("isotropic", name or "iso", p0=p0, pressures=list(pressures), steps=steps, **keys)


def simple_shear(amplitudes, sigma_v0=100.0, k0=0.5, cycles=2, steps_per_cycle=80, name=None, **keys):
    """Cyclic simple shear at the given strain amplitudes (G/G0 and damping)."""
    return Test("simple_shear", name or "dss", sigma_v0=sigma_v0, k0=k0, amplitudes=list(amplitudes),
                cycles=cycles, steps_per_cycle=steps_per_cycle, **keys)


def general(stages, name=None, **initial):
    """A general path: stages as dicts of a [[test.stage]] table."""
    return Test("general", name or "path", stages=list(stages), **initial)


class Result:
    """One run: a row per converged increment (every CSV column of the
    laboratory, compression positive), the summary and the model's output."""

    def __init__(self, soil, test, columns, data, summary, cyclic, ok, error, output):
        self.soil, self.test = soil, test
        self.columns = list(columns)
        self.data = data
        self.summary = summary
        self.cyclic = cyclic
        self.ok, self.error = ok, error
        self.output = output

    def __getitem__(self, column):
        if column in ("gamma", "G_ratio", "damping", "G"):
            return np.array([c[column] for c in self.cyclic], dtype=float)
        try:
            return self.data[:, self.columns.index(column)]
        except ValueError:
            raise KeyError(f"no column '{column}' (columns: {', '.join(self.columns)})") from None

    def __len__(self):
        return len(self.data)

    def table(self):
        """The rows as a dict of column arrays."""
        return {c: self.data[:, i] for i, c in enumerate(self.columns)}

    def plot(self, ax=None, measured=True):
        """The test's usual figure: q and volumetric strain against axial
        strain, axial strain against log vertical stress, G/G0 and damping
        against shear strain, or q against p; measured points overlaid."""
        import matplotlib.pyplot as plt
        from .fit import default_curves
        curves = default_curves(self.test)
        if ax is None:
            fig, axes = plt.subplots(1, len(curves), figsize=(5 * len(curves), 4), squeeze=False)
            axes = axes[0]
        else:
            axes = np.atleast_1d(ax)
        for a, (x, y) in zip(axes, curves):
            a.plot(self[x], self[y], "-", label=f"{self.soil.title or 'model'}")
            m = self.test.measured
            if measured and m is not None and x in m.data and y in m.data:
                a.plot(m.data[x], m.data[y], "o", mfc="none", label="measured")
            if x == "sig_yy" and self.test.type == "oedometer":
                a.set_xscale("log")
            if x == "gamma":
                a.set_xscale("log")
            a.set_xlabel(x)
            a.set_ylabel(y)
            a.set_title(self.test.name)
            a.legend()
        axes[0].figure.tight_layout()
        return axes


def test_file_text(soil, tests, title="tervak"):
    text = [f"title = {_toml_value(title)}", f"model = {soil.model}",
            f"units = {_toml_value(soil.units)}", f"props = {_toml_value(soil.props)}", ""]
    return "\n".join(text) + "".join(t.toml() for t in tests)


def check(soil, tests):
    """Checks the test file of these tests with the laboratory's reader;
    raises TervakError naming the field."""
    tests = [tests] if isinstance(tests, Test) else list(tests)
    d = tempfile.mkdtemp(prefix="tervak-")
    try:
        path = os.path.join(d, "run.toml")
        with open(path, "w") as f:
            f.write(test_file_text(soil, tests))
        err = ctypes.create_string_buffer(4096)
        if lab().tervak_lab_check_file(path.encode(), library_path().encode(), err, 4096) != 0:
            raise TervakError(err.value.decode(errors="replace").replace(path, "test"))
    finally:
        shutil.rmtree(d, ignore_errors=True)


def run(soil, test, output="discard"):
    """Runs one test on a soil in a child process and returns its Result.

    output: "discard" (default) drops the model's own lines, "capture"
    keeps them in Result.output, "inherit" leaves them on standard output.
    Raises TervakError for a test the laboratory rejects, ModelStop when
    the model ends the process, RunFailed when the run cannot converge.
    """
    if not isinstance(soil, Soil):
        raise TervakError("run: soil must be a tervak.Soil")
    if output not in ("discard", "capture", "inherit"):
        raise TervakError(f"run: output = {output!r}: one of 'discard', 'capture', 'inherit'")
    api = lab()
    model_library()
    d = tempfile.mkdtemp(prefix="tervak-")
    try:
        path = os.path.join(d, "run.toml")
        with open(path, "w") as f:
            f.write(test_file_text(soil, [test]))
        out_path, err_path, msg_path = (os.path.join(d, n) for n in ("stdout", "stderr", "message"))
        pid = os.fork()
        if pid == 0:  # the child: never returns into the interpreter
            status = 3
            try:
                fd = os.open(out_path if output == "capture" else os.devnull,
                             os.O_WRONLY | os.O_CREAT | os.O_TRUNC)
                if output != "inherit":
                    os.dup2(fd, 1)
                efd = os.open(err_path, os.O_WRONLY | os.O_CREAT | os.O_TRUNC)
                os.dup2(efd, 2)
                err = ctypes.create_string_buffer(4096)
                status = api.tervak_lab_run_file(path.encode(), library_path().encode(),
                                                 os.path.join(d, "out").encode(), err, 4096)
                # Written only when the laboratory returns: without it, the
                # model ended the process.
                with open(msg_path, "wb") as f:
                    f.write(b"%d\n" % status + err.value)
            finally:
                os._exit(status)
        _, st = os.waitpid(pid, 0)
        code = os.waitstatus_to_exitcode(st)
        status, _, message = _read(msg_path).partition("\n")
        if status in ("0", "1", "2") and code == int(status):
            code = int(status)
        else:
            code = code if code < 0 else 100 + code  # the model ended the process
        message = message.strip()
        if code == 2:
            raise TervakError(message.replace(path, "test"))
        result = _collect(soil, test, d, code == 0, message, _read(out_path))
        if code == 1:
            raise RunFailed(f"{test.name}: {message}", result)
        if code != 0:
            stop = _read(err_path).strip()
            how = f"exit status {code - 100}" if code > 0 else f"signal {-code}"
            raise ModelStop(f"{test.name}: the model ended the run ({how}) after {len(result)} rows"
                            + (f": {stop}" if stop else ""), result)
        return result
    finally:
        shutil.rmtree(d, ignore_errors=True)


def _read(path):
    try:
        with open(path, "rb") as f:
            return f.read().decode(errors="replace")
    except OSError:
        return ""


def _collect(soil, test, d, ok, error, output):
    out = os.path.join(d, "out")
    stem = f"run_{test.name}"
    columns, data = [], np.zeros((0, 0))
    csv = os.path.join(out, stem + ".csv")
    if os.path.exists(csv):
        with open(csv) as f:
            columns = f.readline().strip().split(",")
        if columns and columns != [""]:
            # Empty fields (a column the test does not fill, such as e
            # without e0) read as NaN.
            data = np.genfromtxt(csv, delimiter=",", skip_header=1, ndmin=2,
                                 filling_values=np.nan)
            if data.size == 0:
                data = np.zeros((0, len(columns)))
    summary, cyclic = {}, []
    js = os.path.join(out, stem + ".json")
    if os.path.exists(js):
        with open(js) as f:
            doc = json.load(f)
        summary = {k: v for k, v in doc.get("summary", {}).items() if v is not None}
        cyclic = doc.get("cyclic", [])
    return Result(soil, test, columns, data, summary, cyclic, ok, error, output)
