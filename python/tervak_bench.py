"""Figures of the Python layer (a benchmark, not a test):

    PYTHONPATH=python /usr/bin/python3 python/tervak_bench.py [--quick]

runs per second of a drained triaxial test through tervak.run on one and
two workers, the wall time of a three-parameter fit to three triaxial
curves, and the wall time of a 1,000-run study on a two-worker LocalCluster.
"""
import os
import sys
import time
from concurrent.futures import ThreadPoolExecutor

import numpy as np

import tervak as tv

HERE = os.path.dirname(os.path.abspath(__file__))


def main():
    quick = "--quick" in sys.argv
    sand = tv.Soil.from_toml(os.path.join(HERE, "..", "examples", "soils", "dense_sand.toml"))
    tx = tv.triaxial(100.0, 0.1, 200, name="txc100")
    n = 20 if quick else 60
    print(f"load average at start: {os.getloadavg()[0]:.1f} on {os.cpu_count()} cores")
    tv.run(sand, tx)
    for workers in (1, 2):
        t0 = time.perf_counter()
        with ThreadPoolExecutor(workers) as pool:
            list(pool.map(lambda _: tv.run(sand, tx), range(n)))
        dt = time.perf_counter() - t0
        print(f"drained triaxial (200 increments), {workers} worker(s): {n / dt:.1f} runs/s")

    tests = []
    for p0 in (50.0, 100.0, 200.0):
        t = tv.triaxial(p0, 0.1, 200, name=f"txc{p0:g}")
        r = tv.run(sand, t)
        idx = np.arange(10, len(r), 10)
        t.measured = tv.Measured({c: r[c][idx] for c in ("eps_yy", "q", "eps_v")})
        tests.append(t)
    free = ["Ei_ref", "m", "phi"]
    start = {k: sand[k] * f for k, f in zip(free, (0.7, 1.3, 0.7))}
    t0 = time.perf_counter()
    f = tv.fit(sand, tests, free, start=start, workers=2)
    dt = time.perf_counter() - t0
    err = max(abs(f.values[k] / sand[k] - 1) for k in free)
    print(f"fit of {', '.join(free)} to three triaxial curves (200 increments each): {dt:.1f} s, "
          f"{f.nfev} evaluations, largest error {err:.1e}")

    runs = 200 if quick else 1000
    for steps in (100, 200):
        t0 = time.perf_counter()
        st = tv.study(sand, [tv.triaxial(100.0, 0.1, steps, name="tx")],
                      {"phi": {"mean": 38.0, "sd": 1.5}, "Ei_ref": {"min": 9e4, "max": 1.4e5}},
                      n=runs, seed=1, workers=2)
        dt = time.perf_counter() - t0
        print(f"study of {runs} drained triaxial runs ({steps} increments) on a 2-worker LocalCluster: "
              f"{dt:.1f} s ({len(st)} rows)")
    print(f"load average at end: {os.getloadavg()[0]:.1f}")


if __name__ == "__main__":
    main()
