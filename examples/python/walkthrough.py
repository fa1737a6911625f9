"""A walk through the Python package (runs as a script or cell by cell in a
Jupyter notebook):

    PYTHONPATH=python /usr/bin/python3 examples/python/walkthrough.py
"""
import os

import matplotlib

matplotlib.use("Agg")
import tervak as tv  # noqa: E402

HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.environ.get("TERVAK_OUT", "results")


def main():
    os.makedirs(OUT, exist_ok=True)
    # A soil from a bundled file; parameters by name, with their units and ranges.
    sand = tv.Soil.from_toml(os.path.join(HERE, "..", "soils", "dense_sand.toml"))
    for p in sand.parameters:
        print(f"{p.position:2d} {p.name:9s} {sand[p.name]:12.6g} {p.unit:6s} {p.range_text()}")

    # Drained and undrained triaxial tests and an oedometer: one row per increment.
    r = tv.run(sand, tv.triaxial(p0=100.0, axial_strain=0.1, steps=200))
    print(r.summary)
    ax = r.plot()
    ax[0].figure.savefig(os.path.join(OUT, "python_txd100.png"))
    u = tv.run(sand, tv.triaxial(p0=100.0, axial_strain=0.05, drained=False))
    print("undrained: peak q", u["q"].max(), "pore pressure at the end", u["u"][-1])
    oed = tv.run(sand, tv.oedometer([400.0, 100.0, 800.0], sigma_v0=25.0, k0=sand["K0_nc"]))
    oed.plot()[0].figure.savefig(os.path.join(OUT, "python_oed.png"))

    # A looser variant: parameters changed by name (checked against their ranges).
    loose = sand.with_values(phi=32.0, psi=2.0)
    print("phi 32: q_peak", tv.run(loose, tv.triaxial(100.0)).summary["q_peak"])

    # A small study on a local Dask cluster; rows go to the CSV as they come.
    st = tv.study(sand, [tv.triaxial(100.0, steps=100, name="txc100")],
                  vary={"phi": {"mean": 38.0, "sd": 1.5}, "Ei_ref": {"min": 9e4, "max": 1.4e5}},
                  n=40, seed=1, out=os.path.join(OUT, "python_study.csv"))
    print(st.summary()["txc100:q_peak"])
    st.tornado("txc100:q_peak", os.path.join(OUT, "python_tornado.png"))


if __name__ == "__main__":
    main()
