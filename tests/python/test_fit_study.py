"""Fitting recovers the parameters that made its synthetic data; a study on
a real LocalCluster gives what a serial run with the same seed gives."""
import csv
import os
import sys

import numpy as np
import pytest

import tervak as tv

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


@pytest.fixture(scope="module")
def sand():
    return tv.Soil.from_toml(os.path.join(ROOT, "examples", "soils", "dense_sand.toml"))


def synthetic(soil, test, columns, every=10):
    r = tv.run(soil, test)
    idx = np.arange(every, len(r), every)
    test.measured = tv.Measured({c: r[c][idx] for c in columns})
    return test


@pytest.mark.parametrize("free, factors, make_tests", [
    # three drained triaxial curves (q and volumetric strain against axial strain)
    (["Ei_ref", "m", "phi"], (0.7, 1.3, 0.7),
     lambda s: [synthetic(s, tv.triaxial(p, 0.1, 100, name=f"tx{p}"), ["eps_yy", "q", "eps_v"])
                for p in (50.0, 100.0, 200.0)]),
    # dilatancy from the volumetric curve, cap stiffness from an oedometer
    (["psi", "beta"], (1.3, 0.7),
     lambda s: [synthetic(s, tv.triaxial(100.0, 0.1, 100), ["eps_yy", "eps_v"]),
                synthetic(s, tv.oedometer([400.0], 25.0, s["K0_nc"], 80), ["sig_yy", "eps_yy"], 8)]),
])
def test_fit_recovers_known_parameters(sand, free, factors, make_tests):
    tests = make_tests(sand)
    start = {k: sand[k] * f for k, f in zip(free, factors)}
    r = tv.fit(sand, tests, free, start=start)
    for k in free:
        assert r.values[k] == pytest.approx(sand[k], rel=0.01), r.report()
        assert r.stderr[k] < 0.01 * abs(sand[k])
    assert max(r.residual_per_test.values()) < 1e-3
    assert r.soil.values() == {**sand.values(), **r.values}


def test_failed_run_is_a_large_residual_not_a_crash(sand, monkeypatch):
    t = synthetic(sand, tv.triaxial(100.0, 0.05, 50), ["eps_yy", "q"])

    def fail(*a, **k):
        raise tv.RunFailed("no convergence")
    fitting = sys.modules["tervak.fit"]
    monkeypatch.setattr(fitting, "run", fail)
    parts, results = fitting.residuals([sand], [t])[0]
    assert results == [None] and np.all(parts[0] > 1.0)


def test_study_on_local_cluster_matches_serial(sand, tmp_path):
    tests = [tv.triaxial(100.0, 0.05, 25, name="tx")]
    vary = {"phi": {"mean": 38.0, "sd": 1.5}, "Ei_ref": {"min": 9e4, "max": 1.4e5}, "psi": [4.0, 12.0]}
    out = tmp_path / "study.csv"
    dist = tv.study(sand, tests, vary, n=200, seed=7, workers=2, out=str(out))
    serial = tv.study(sand, tests, vary, n=200, seed=7, scheduler="serial")
    assert len(dist) == len(serial) == 200
    assert dist.summary() == serial.summary()
    assert all(r["status"] == "ok" for r in dist.rows)
    with open(out) as f:
        rows = list(csv.DictReader(f))
    assert sorted(int(r["run"]) for r in rows) == list(range(1, 201))
    # each row is the run of its own parameters
    some = serial.rows[17]
    one = tv.run(sand.with_values(**{k: some[k] for k in vary}), tests[0])
    assert one.summary["q_peak"] == some["tx:q_peak"]
    # stronger soils are stronger: the tornado puts phi first
    sens = serial.sensitivity("tx:q_peak")
    assert sens["phi"][1] > sens["phi"][0]
    assert max(sens, key=lambda k: abs(sens[k][1] - sens[k][0])) == "phi"
