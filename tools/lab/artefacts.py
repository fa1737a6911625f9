#!/usr/bin/python3
"""Figure for docs/lab.md: where the saw-tooth and the zigzags come from.

usage: artefacts.py BUILD_DIR   (runs build/tervak-lab on
examples/lab/artefacts/ and writes docs/figures/lab_artefacts.png)
"""
import os
import subprocess
import sys
import tempfile

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from plot import read_csv  # noqa: E402

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def deviator(c):
    return [a - 0.5 * (b + d) for a, b, d in zip(c["sig_yy"], c["sig_xx"], c["sig_zz"])]


def main(build):
    out = tempfile.mkdtemp(prefix="lab_artefacts_")
    subprocess.run([os.path.join(build, "tervak-lab"), "--no-progress", "--out", out,
                    os.path.join(ROOT, "examples", "lab", "artefacts")], check=False, stdout=subprocess.DEVNULL)
    data = {n: read_csv(os.path.join(out, n + ".csv"), n) for n in (
        "dense_sand_extension_lab", "dense_sand_extension_lab_fine", "dense_sand_extension_prescribed",
        "small_strain_triaxial_undrained_lab", "small_strain_triaxial_undrained_prescribed",
        "small_strain_triaxial_drained_lab")}
    fig, ax = plt.subplots(1, 3, figsize=(16, 4.6))
    for name, lab in (("dense_sand_extension_lab", "lab, 200 increments"), ("dense_sand_extension_lab_fine", "lab, 800 increments"),
                      ("dense_sand_extension_prescribed", "all strains prescribed")):
        c = data[name]
        q = deviator(c)
        ax[0].plot([-100 * e for e in c["eps_yy"][1:]], [b - a for a, b in zip(q, q[1:])], lw=0.8, label=lab)
    ax[0].set_xlabel("axial extension [%]")
    ax[0].set_ylabel("Δq per increment [kPa]")
    ax[0].set_title("dense sand, drained extension (model 1)", fontsize=9)
    for name, lab in (("small_strain_triaxial_undrained_lab", "lab"), ("small_strain_triaxial_undrained_prescribed", "isochoric strains prescribed")):
        c = data[name]
        q = deviator(c)
        ax[1].plot([100 * e for e in c["eps_yy"][1:]], [b - a for a, b in zip(q, q[1:])], lw=0.8, label=lab)
    ax[1].set_xlabel("axial strain [%]")
    ax[1].set_ylabel("Δq per increment [kPa]")
    ax[1].set_title("small-strain sand, undrained compression (model 2)", fontsize=9)
    c = data["small_strain_triaxial_drained_lab"]
    q = deviator(c)
    ea = [100 * e for e in c["eps_yy"]]
    ax[2].plot(ea, q, lw=0.8, label="q")
    cut = [i for i in range(1, len(ea)) if c["increment"][i] == c["increment"][i - 1] or
           (i + 1 < len(ea) and c["increment"][i + 1] == c["increment"][i])]
    ax[2].plot([ea[i] for i in cut], [q[i] for i in cut], ".", ms=3, color="r", label="cut increments")
    ax[2].set_xlim(3.0, 6.0)
    lo = min(q[i] for i in range(len(ea)) if 3.0 <= ea[i] <= 6.0)
    hi = max(q[i] for i in range(len(ea)) if 3.0 <= ea[i] <= 6.0)
    ax[2].set_ylim(lo - 2, hi + 2)
    ax[2].set_xlabel("axial strain [%]")
    ax[2].set_ylabel("q [kPa]")
    ax[2].set_title("small-strain sand, drained compression (model 2)", fontsize=9)
    for a in ax:
        a.grid(True, lw=0.3, alpha=0.5)
        a.legend(fontsize=7)
    fig.tight_layout()
    dest = os.path.join(ROOT, "docs", "figures", "lab_artefacts.png")
    fig.savefig(dest, dpi=100)
    print(dest)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1] if len(sys.argv) > 1 else os.path.join(ROOT, "build")))
