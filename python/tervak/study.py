"""Parameter studies: Monte Carlo or grid variation of parameters, each run
an independent task on dask.distributed (a LocalCluster by default, or a
cluster given by its scheduler address). Rows are written to the CSV file
as they come back, so nothing finished is lost."""
import csv
import itertools
import math
import sys
import time

import numpy as np

from ._lib import TervakError
from .lab import RunFailed, Test, check, run
from .soil import Soil


def _samples(soil, vary, n, method, seed):
    """The parameter sets, in run order; the same for the same seed."""
    params = {p.name: p for p in soil.parameters}
    names = list(vary)
    if not names:
        raise TervakError("study: 'vary' names no parameter")
    for k in names:
        if k not in params:
            raise TervakError(f"study: vary: '{k}' is not a parameter of model {soil.model} "
                              f"({', '.join(params)})")
    rng = np.random.default_rng(seed)
    if method == "grid":
        axes = []
        for k in names:
            dist = vary[k]
            if isinstance(dist, dict) and "values" in dist:
                axes.append([float(v) for v in dist["values"]])
            elif isinstance(dist, dict) and {"min", "max"} <= set(dist):
                m = int(dist.get("points", 3))
                if m < 1:
                    raise TervakError(f"study: vary: '{k}': 'points' = {m} must be at least 1")
                axes.append(list(np.linspace(float(dist["min"]), float(dist["max"]), m)))
            elif isinstance(dist, (list, tuple)):
                axes.append([float(v) for v in dist])
            else:
                raise TervakError(f"study: vary: '{k}': a grid needs 'values' or 'min', 'max', 'points'")
        sets = [dict(zip(names, c)) for c in itertools.product(*axes)]
    else:
        if not isinstance(n, int) or isinstance(n, bool) or n <= 0:
            raise TervakError(f"study: 'n' = {n!r}: the number of runs must be a positive integer")
        cols = {}
        for k in names:
            dist = vary[k]
            if isinstance(dist, (list, tuple)) and len(dist) == 2:
                dist = {"min": dist[0], "max": dist[1]}
            if not isinstance(dist, dict):
                raise TervakError(f"study: vary: '{k}': give {{min, max}}, {{mean, sd}} or {{values}}")
            if {"mean", "sd"} <= set(dist):
                if not float(dist["sd"]) >= 0:
                    raise TervakError(f"study: vary: '{k}': 'sd' must not be negative")
                cols[k] = rng.normal(float(dist["mean"]), float(dist["sd"]), n)
            elif {"min", "max"} <= set(dist):
                lo, hi = float(dist["min"]), float(dist["max"])
                if not hi >= lo:
                    raise TervakError(f"study: vary: '{k}': 'max' = {hi:g} is below 'min' = {lo:g}")
                cols[k] = rng.uniform(lo, hi, n)
            elif "values" in dist:
                cols[k] = rng.choice(np.asarray(dist["values"], dtype=float), n)
            else:
                raise TervakError(f"study: vary: '{k}': give {{min, max}}, {{mean, sd}} or {{values}}")
        sets = [{k: float(cols[k][i]) for k in names} for i in range(n)]
    for i, s in enumerate(sets):
        for k, v in s.items():
            if not params[k].contains(v):
                raise TervakError(f"study: run {i + 1}: '{k}' = {v:g} is outside its valid range "
                                  f"{params[k].range_text()} (narrow 'vary')")
    return sets


def one_run(index, soil, tests, values):
    """One study run: the summary of every test (a task on a worker)."""
    row = {"run": index, **values, "status": "ok"}
    s = soil.with_values(**values)
    for t in tests:
        try:
            r = run(s, t)
            for k, v in r.summary.items():
                row[f"{t.name}:{k}"] = v
        except RunFailed as e:
            row["status"] = f"failed: {e}"
    return row


class StudyResult:
    def __init__(self, rows, names, path, seconds):
        self.rows = sorted(rows, key=lambda r: r["run"])
        self.names = names
        self.path = path
        self.seconds = seconds
        keys = []
        for r in self.rows:
            keys += [k for k in r if ":" in k and k not in keys]
        self.outputs = keys

    def __len__(self):
        return len(self.rows)

    def column(self, key):
        return np.array([r.get(key, math.nan) for r in self.rows], dtype=float)

    def summary(self, q=(5, 50, 95)):
        """Percentiles of each summary value over the finished runs."""
        out = {}
        for k in self.outputs:
            v = self.column(k)
            v = v[np.isfinite(v)]
            if len(v):
                out[k] = {f"p{p:g}": float(np.percentile(v, p)) for p in q} | {"mean": float(v.mean()),
                                                                                "runs": len(v)}
        return out

    def sensitivity(self, output):
        """Per varied parameter: the mean of `output` over the runs in the
        lowest and in the highest fifth of that parameter."""
        y = self.column(output)
        res = {}
        for k in self.names:
            x = self.column(k)
            ok = np.isfinite(y)
            if ok.sum() < 2 or np.ptp(x[ok]) == 0:
                continue
            lo, hi = np.percentile(x[ok], [20, 80])
            a, b = y[ok & (x <= lo)], y[ok & (x >= hi)]
            if len(a) and len(b):
                res[k] = (float(a.mean()), float(b.mean()))
        return res

    def tornado(self, output=None, path=None):
        """Sensitivity (tornado) plot of one summary value."""
        import matplotlib
        if path:
            matplotlib.use("Agg")
        import matplotlib.pyplot as plt
        output = output or self.outputs[0]
        sens = sorted(self.sensitivity(output).items(), key=lambda kv: abs(kv[1][1] - kv[1][0]))
        base = float(np.nanmedian(self.column(output)))
        fig, ax = plt.subplots(figsize=(6, 1 + 0.5 * max(len(sens), 1)))
        for i, (k, (a, b)) in enumerate(sens):
            ax.barh(i - 0.2, a - base, left=base, height=0.4, color="tab:blue")
            ax.barh(i + 0.2, b - base, left=base, height=0.4, color="tab:orange")
        ax.set_yticks(range(len(sens)), [k for k, _ in sens])
        ax.axvline(base, color="k", lw=0.8)
        ax.set_xlabel(f"{output} (blue: lowest fifth of the parameter, orange: highest fifth)")
        fig.tight_layout()
        if path:
            fig.savefig(path, dpi=100)
            plt.close(fig)
        return fig


def study(soil, tests, vary, n=100, method="monte_carlo", seed=0, scheduler=None, workers=2,
          out=None, progress=False):
    """Runs the tests on `n` variants of `soil` (or on the grid of `vary`).

    vary: parameter name -> {min, max} (uniform), {mean, sd} (normal),
    {values} (drawn from, or the grid's values) or, for a grid, {min, max,
    points}. scheduler: None for a LocalCluster of `workers` processes, a
    "tcp://host:port" address, or "serial" to run in this process. out: CSV
    file written row by row as runs come back.
    """
    if not isinstance(soil, Soil):
        soil = Soil.from_toml(soil)
    tests = [tests] if isinstance(tests, Test) else list(tests)
    if not tests:
        raise TervakError("study: no tests")
    if method not in ("monte_carlo", "grid"):
        raise TervakError(f"study: 'method' = {method!r}: 'monte_carlo' or 'grid'")
    if scheduler is None and (not isinstance(workers, int) or workers < 1):
        raise TervakError(f"study: 'workers' = {workers!r} must be a positive integer")
    sets = _samples(soil, vary, n, method, seed)
    check(soil, tests)
    names = list(vary)
    t0 = time.perf_counter()
    rows = []
    f = w = None
    header = None

    def keep(row):
        nonlocal w, header
        rows.append(row)
        if f is None:
            return
        if w is None:
            header = ["run", *names, "status"] + [k for k in row if ":" in k]
            w = csv.DictWriter(f, fieldnames=header, extrasaction="ignore", restval="")
            w.writeheader()
        w.writerow(row)
        f.flush()
        if progress:
            print(f"\r{len(rows)}/{len(sets)} runs", end="", file=sys.stderr, flush=True)

    if out:
        f = open(out, "w", newline="")
    try:
        if scheduler == "serial":
            for i, s in enumerate(sets):
                keep(one_run(i + 1, soil, tests, s))
        else:
            _distributed(sets, soil, tests, scheduler, workers, keep)
    finally:
        if f:
            f.close()
        if progress:
            print(file=sys.stderr)
    return StudyResult(rows, names, out, time.perf_counter() - t0)


def _distributed(sets, soil, tests, scheduler, workers, keep):
    from distributed import Client, LocalCluster, as_completed
    import logging
    logging.getLogger("distributed").setLevel(logging.ERROR)
    cluster = None
    if scheduler:
        if not isinstance(scheduler, str) or not scheduler.startswith(("tcp://", "tls://", "inproc://")):
            raise TervakError(f"study: scheduler = {scheduler!r}: give an address such as tcp://host:8786")
        try:
            client = Client(scheduler, timeout="5s")
        except (OSError, TimeoutError) as e:
            raise TervakError(f"study: scheduler {scheduler}: cannot reach it ({e})") from None
    else:
        cluster = LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                               dashboard_address=None, silence_logs=logging.ERROR)
        client = Client(cluster)
    try:
        s = client.scatter(soil, broadcast=True)
        t = client.scatter(tests, broadcast=True)
        futures = [client.submit(one_run, i + 1, s, t, v, pure=False, retries=2)
                   for i, v in enumerate(sets)]
        for fut in as_completed(futures):
            keep(fut.result())
            fut.release()
    finally:
        client.close()
        if cluster:
            cluster.close()
