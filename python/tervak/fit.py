"""Fitting parameters to measured curves: weighted least squares with
scipy.optimize.least_squares, bounds from the library's parameter ranges.
A run that cannot converge is a large residual, not a crash."""
import math
import time
from concurrent.futures import ThreadPoolExecutor

import numpy as np

from ._lib import TervakError
from .lab import RunFailed, Test, check, run
from .soil import Soil

# A failed run costs this much per measured point (a good fit is ~1e-2).
PENALTY = 10.0

_CURVES = {
    "triaxial": [("eps_yy", "q"), ("eps_yy", "eps_v")],
    "oedometer": [("sig_yy", "eps_yy")],
    "isotropic": [("p", "eps_v")],
    "simple_shear": [("gamma", "G_ratio"), ("gamma", "damping")],
    "general": [("p", "q")],
}
_LOGX = {"sig_yy", "p", "gamma"}


def default_curves(test):
    return _CURVES.get(test.type, [("p", "q")])


def curves_of(test):
    m = test.measured
    if m.curves:
        return m.curves
    cs = [c for c in default_curves(test) if c[0] in m.data and c[1] in m.data]
    if not cs:
        raise TervakError(f"test '{test.name}': the measured data has none of the curves "
                          f"{default_curves(test)} (columns: {', '.join(m.data)})")
    return cs


def _branch(x, y):
    """The first monotone branch of a simulated curve, increasing in x."""
    if len(x) < 2:
        return x, y
    sign = 1.0 if x[-1] >= x[0] else -1.0
    d = np.diff(sign * x)
    stop = np.nonzero(d < 0)[0]
    n = stop[0] + 1 if len(stop) else len(x)
    xs, ys = sign * x[:n], y[:n]
    return (xs, ys) if sign > 0 else (xs, ys)


def curve_residual(result, x, y, mx, my):
    sx, sy = result[x], result[y]
    if len(sx) < 2:
        raise RunFailed("too few rows")
    sign = 1.0 if sx[-1] >= sx[0] else -1.0
    bx, by = _branch(sx, sy)
    qx = sign * mx
    if x in _LOGX and np.all(bx > 0) and np.all(qx > 0):
        bx, qx = np.log(bx), np.log(qx)
    ys = np.interp(qx, bx, by)
    scale = max(np.max(np.abs(my)), 1e-300)
    return (ys - my) / scale


def _test_residual(soil, t):
    """One test's weighted residual and its Result (None when it failed)."""
    n = sum(len(t.measured.data[c[1]]) for c in curves_of(t))
    try:
        r = run(soil, t)
        v = np.concatenate([curve_residual(r, x, y, t.measured.data[x], t.measured.data[y])
                            for x, y in curves_of(t)])
    except RunFailed:
        r, v = None, np.full(n, PENALTY)
    return t.measured.weight * v / math.sqrt(n), r


def residuals(soils, tests, pool=None):
    """For each soil: the per-test residuals and Results. All runs of all
    soils are independent tasks of one pool (each run is a child process)."""
    jobs = [(s, t) for s in soils for t in tests]
    out = list(pool.map(lambda a: _test_residual(*a), jobs)) if pool else [_test_residual(*a) for a in jobs]
    k = len(tests)
    return [([o[0] for o in out[i * k:(i + 1) * k]], [o[1] for o in out[i * k:(i + 1) * k]])
            for i in range(len(soils))]


class FitResult:
    def __init__(self, soil, start, free, values, stderr, per_test, results, opt, seconds):
        self.soil, self.start, self.free = soil, start, free
        self.values, self.stderr = values, stderr
        self.residual_per_test = per_test
        self.results = results
        self.cost, self.nfev, self.success, self.message = opt.cost, opt.nfev, opt.success, opt.message
        self.seconds = seconds

    def report(self):
        lines = [f"fit of {', '.join(self.free)}: {self.message} ({self.nfev} evaluations, "
                 f"{self.seconds:.1f} s)"]
        for k in self.free:
            lines.append(f"  {k:10s} = {self.values[k]:.8g}  (standard error {self.stderr[k]:.3g}, "
                         f"start {self.start[k]:.8g})")
        for name, rms in self.residual_per_test.items():
            lines.append(f"  residual {name}: {rms:.4g} (RMS, relative to the measured range)")
        return "\n".join(lines)

    def to_toml(self, path=None):
        return self.soil.to_toml(path, note=f"{self.soil.title}: fitted {', '.join(self.free)} "
                                            f"(tervak fit)")

    def plot(self, path=None):
        """Measured against fitted curves, one panel per curve."""
        import matplotlib
        if path:
            matplotlib.use("Agg")
        import matplotlib.pyplot as plt
        panels = [(r, t, c) for r, t in zip(self.results, self.tests) for c in curves_of(t)]
        fig, axes = plt.subplots(1, len(panels), figsize=(4.5 * len(panels), 4), squeeze=False)
        for a, (r, t, (x, y)) in zip(axes[0], panels):
            if r is not None:
                a.plot(r[x], r[y], "-", label="fitted")
            a.plot(t.measured.data[x], t.measured.data[y], "o", mfc="none", label="measured")
            if x in ("gamma",) or (x == "sig_yy" and t.type == "oedometer"):
                a.set_xscale("log")
            a.set_xlabel(x)
            a.set_ylabel(y)
            a.set_title(t.name)
            a.legend()
        fig.tight_layout()
        if path:
            fig.savefig(path, dpi=100)
            plt.close(fig)
        return fig


def fit(soil, tests, free, start=None, workers=2, diff_step=1e-4, max_nfev=100, verbose=False):
    """Fits the `free` parameters of `soil` so that the tests reproduce
    their measured data (each Test with a Measured). `start` overrides the
    start values by name. Returns a FitResult."""
    from scipy.optimize import least_squares
    if not isinstance(soil, Soil):
        soil = Soil.from_toml(soil)
    tests = [tests] if isinstance(tests, Test) else list(tests)
    if not tests:
        raise TervakError("fit: no tests")
    for t in tests:
        if t.measured is None:
            raise TervakError(f"fit: test '{t.name}' has no measured data")
        curves_of(t)
    if not free:
        raise TervakError("fit: no free parameters")
    params = {p.name: p for p in soil.parameters}
    for k in free:
        if k not in params:
            raise TervakError(f"fit: free: '{k}' is not a parameter of model {soil.model} "
                              f"({', '.join(params)})")
    soil0 = soil.with_values(**(start or {}))
    check(soil0, tests)
    x0 = np.array([soil0[k] for k in free])
    s = np.where(x0 != 0, np.abs(x0), 1.0)
    lo = np.array([params[k].bounds()[0] for k in free]) / s
    hi = np.array([params[k].bounds()[1] for k in free]) / s
    t0 = time.perf_counter()
    pool = ThreadPoolExecutor(max(1, workers))
    cache = {}

    def soil_at(z):
        return soil0.with_values(**{k: float(v) for k, v in zip(free, z * s)})

    npts = sum(len(t.measured.data[c[1]]) for t in tests for c in curves_of(t))

    def evaluate(zs):
        todo = [z for z in zs if tuple(z) not in cache]
        soils, keys = [], []
        for z in todo:
            try:
                soils.append(soil_at(z))
                keys.append(tuple(z))
            except TervakError:  # a value the library rejects: as bad as a failed run
                cache[tuple(z)] = np.full(npts, PENALTY)
        for key, (parts, _) in zip(keys, residuals(soils, tests, pool)):
            cache[key] = np.concatenate(parts)
        return [cache[tuple(z)] for z in zs]

    def fun(z):
        return evaluate([z])[0]

    def jac(z):
        f0 = fun(z)
        zs = []
        for j in range(len(z)):
            h = diff_step * max(abs(z[j]), 1e-3)
            if z[j] + h > hi[j]:
                h = -h
            zj = z.copy()
            zj[j] += h
            zs.append((zj, h))
        fs = evaluate([a[0] for a in zs])
        return np.column_stack([(fj - f0) / a[1] for fj, a in zip(fs, zs)])

    z0 = np.clip(np.ones(len(free)), lo, hi)
    try:
        opt = least_squares(fun, z0, jac=jac, bounds=(lo, hi), x_scale=1.0, max_nfev=max_nfev,
                            ftol=1e-12, xtol=1e-10, gtol=1e-12, verbose=2 if verbose else 0)
        parts, results = residuals([soil_at(opt.x)], tests, pool)[0]
    finally:
        pool.shutdown()
    fitted = soil_at(opt.x)
    m, n = len(opt.fun), len(free)
    J = opt.jac / s  # with respect to the parameters themselves
    stderr = {}
    try:
        s2 = 2 * opt.cost / max(m - n, 1)
        cov = np.linalg.inv(J.T @ J) * s2
        stderr = {k: float(math.sqrt(max(cov[i, i], 0.0))) for i, k in enumerate(free)}
    except np.linalg.LinAlgError:
        stderr = {k: float("nan") for k in free}
    per_test = {t.name: float(np.sqrt(np.mean(p ** 2)) * math.sqrt(len(p)) / t.measured.weight)
                for t, p in zip(tests, parts)}
    res = FitResult(fitted, soil0.values(), list(free), {k: fitted[k] for k in free}, stderr, per_test,
                    results, opt, time.perf_counter() - t0)
    res.tests = tests
    return res
