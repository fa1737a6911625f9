"""Task 7 of the library for users: calibrated Ei_ref and K0_nc, checked in
the laboratory's own drained triaxial and oedometer at p_ref."""
import ctypes
import os
import tempfile
import warnings

from ._lib import TervakError, lab, library_path, model_library
from .lab import ModelStop, oedometer, run, triaxial
from .soil import Soil

# What drives each checked stiffness, for the warning.
DRIVERS = {
    "E50": "Ei_ref (13), R_f (11), phi (6), c (5), m (4)",
    "Eoed_ref": "beta (15) and alpha (14) of the cap, K0_nc (10), m (4)",
}


class Calibration:
    def __init__(self, soil, before, output, checks, path):
        self.soil, self.before, self.output, self.checks, self.path = soil, before, output, checks, path

    def __repr__(self):
        return (f"Calibration(Ei_ref {self.before['Ei_ref']:.10g} -> {self.soil['Ei_ref']:.10g}, "
                f"K0_nc {self.before['K0_nc']:.10g} -> {self.soil['K0_nc']:.10g})")


def _task7(soil, show):
    """Runs task 7 in a child process; returns (props, progress text)."""
    api = lab()
    model_library()
    n = len(soil.props)
    d = tempfile.mkdtemp(prefix="tervak-cal-")
    res, out = os.path.join(d, "props"), os.path.join(d, "stdout")
    pid = os.fork()
    if pid == 0:
        status = 3
        try:
            if not show:
                fd = os.open(out, os.O_WRONLY | os.O_CREAT | os.O_TRUNC)
                os.dup2(fd, 1)
            props = (ctypes.c_double * n)(*soil.props)
            err = ctypes.create_string_buffer(1024)
            status = api.tervak_lab_calibrate(library_path().encode(), soil.model, props, n, err, 1024)
            with open(res, "w") as f:
                f.write("\n".join(repr(x) for x in props) if status == 0 else err.value.decode())
        finally:
            os._exit(status)
    _, st = os.waitpid(pid, 0)
    code = os.waitstatus_to_exitcode(st)
    text = open(res).read() if os.path.exists(res) else ""
    progress = open(out).read() if os.path.exists(out) else ""
    for p in (res, out):
        if os.path.exists(p):
            os.remove(p)
    os.rmdir(d)
    if code == 2:
        raise TervakError(text)
    if code != 0:
        raise ModelStop(f"task 7 did not finish: the model ended the process (status {code})")
    return [float(x) for x in text.split()], progress


def calibrate(soil, path=None, show=True, check=True, tolerance=0.10):
    """Runs the library's task 7 on a model 1 soil (a Soil or a soil file),
    writes the calibrated soil file when path is given, and checks E50 and
    Eoed at p_ref in the laboratory, warning beyond `tolerance`."""
    if not isinstance(soil, Soil):
        soil = Soil.from_toml(soil)
    if soil.model != 1:
        raise TervakError(f"'model' = {soil.model}: task 7 calibrates model 1 (hardening soil) only")
    props, progress = _task7(soil, show)
    cal = Soil(soil.model, props, soil.title, soil.units)
    if path:
        cal.to_toml(path, note=f"{soil.title}: parameters after the library's task 7 (tervak.calibrate)")
    checks = {}
    if check:
        pref, k0 = cal["p_ref"], cal["K0_nc"]
        tests = {"E50": (triaxial(pref, 0.1, 400, name="txc"), "E50_ref"),
                 "Eoed_ref": (oedometer([2 * pref], 0.1 * pref, k0, 400, name="oed"), "Eoed_ref")}
        for key, (t, target) in tests.items():
            got = run(cal, t).summary.get(key, float("nan"))
            want = cal[target]
            dev = (got - want) / want
            checks[key] = (got, want, dev)
            if show:
                print(f"check {t.name:4s} {key:8s} = {got:.6g}, target {target} = {want:.6g} ({100 * dev:+.1f} %)")
            if not abs(dev) <= tolerance:
                warnings.warn(f"{key} = {got:.6g} differs from {target} = {want:.6g} by more than "
                              f"{100 * tolerance:g} %; it is driven by {DRIVERS[key]}", stacklevel=2)
    return Calibration(cal, soil.values(), progress, checks, path)
