#!/usr/bin/python3
"""Figures of tervak-lab results.

usage: plot.py RESULT.json ...

Each RESULT.json is the summary that tervak-lab writes beside the CSV of a
test. For every test one PNG is written beside it (<id>.png) with the
panels that suit the test type:

  triaxial      deviator vs axial strain, volumetric strain (drained) or
                pore pressure (undrained) vs axial strain, p'-q stress
                path, stress ratio vs axial strain
  oedometer     vertical stress (log) vs axial strain, stress path,
                lateral stress ratio
  isotropic     volumetric strain vs mean stress (log)
  simple_shear  stress-strain loops, G/G0 and damping vs amplitude
  general       q vs deviatoric strain, p'-q path, volumetric strain,
                stress components

Tests of the same file and type are also drawn together
(<file stem>_<type>.png). A measured laboratory CSV named in the test file
is drawn as markers on every panel whose columns it provides.

Results in the CSV are in the soil-mechanics sign: compression positive.
"""

import csv
import json
import math
import os
import sys

try:
    import matplotlib

    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
except ImportError:  # pragma: no cover - depends on the system
    sys.stderr.write("plot.py: matplotlib is missing (Debian package python3-matplotlib)\n")
    sys.exit(2)


class PlotError(Exception):
    pass


def read_csv(path, what):
    """Columns of a CSV file as lists of floats (non-numbers become NaN)."""
    try:
        with open(path, newline="") as f:
            rows = [r for r in csv.reader(f) if r and not r[0].lstrip().startswith("#")]
    except OSError as e:
        raise PlotError("%s: cannot read %s: %s" % (path, what, e.strerror))
    if not rows or not rows[0]:
        raise PlotError("%s: %s is empty" % (path, what))
    head = [h.strip() for h in rows[0]]
    dup = sorted(set(h for h in head if head.count(h) > 1))
    if dup:
        raise PlotError("%s: column(s) %s appear more than once in %s" % (path, ", ".join(dup), what))
    cols = {h: [] for h in head}
    for n, row in enumerate(rows[1:], start=2):
        if not row:
            continue
        if len(row) != len(head):
            raise PlotError("%s: line %d has %d fields, the header has %d" % (path, n, len(row), len(head)))
        for h, v in zip(head, row):
            try:
                cols[h].append(float(v))
            except ValueError:
                cols[h].append(float("nan"))
    return cols


def need(cols, names, where):
    for n in names:
        if n not in cols:
            raise PlotError("%s: column '%s' is missing" % (where, n))


def derived(cols):
    """Adds the quantities the panels use, where the data allow it."""
    d = dict(cols)
    if all(k in d for k in ("sig_xx", "sig_yy", "sig_zz")):
        d["q_ax"] = [a - 0.5 * (b + c) for a, b, c in zip(d["sig_yy"], d["sig_xx"], d["sig_zz"])]
        d["k_lat"] = [b / a if a else float("nan") for a, b in zip(d["sig_yy"], d["sig_xx"])]
    elif "q" in d:
        d["q_ax"] = list(d["q"])
    if "q_ax" in d and "p" in d:
        d["eta"] = [q / p if p else float("nan") for q, p in zip(d["q_ax"], d["p"])]
    for k in ("eps_yy", "eps_v", "eps_q", "gam_xy"):
        if k in d:
            d[k + "_pct"] = [100.0 * x for x in d[k]]
    if "sig_xy" in d:
        d["tau"] = list(d["sig_xy"])
    return d


def measured_data(meta, where):
    m = meta.get("measured")
    if not m:
        return None
    path = m.get("file", "")
    cols = read_csv(path, "the measured data")
    out = {}
    mapping = m.get("columns") or {}
    for lab, col in mapping.items():
        if col not in cols:
            raise PlotError("%s: measured file %s has no column '%s' (for %s)" % (where, path, col, lab))
        out[lab] = cols[col]
    # Columns already named as the lab names them.
    for k, v in cols.items():
        if k not in out and k not in mapping.values():
            out[k] = v
    for lab, f in (m.get("scale") or {}).items():
        if lab in out:
            out[lab] = [f * x for x in out[lab]]
    return derived(out)


def panel(ax, data, x, y, label=None, xlabel="", ylabel="", meas=None, logx=False, invert_y=False, style="-"):
    if x in data and y in data:
        ax.plot(data[x], data[y], style, lw=1.2, label=label)
    if meas is not None and x in meas and y in meas:
        ax.plot(meas[x], meas[y], "o", ms=3, mfc="none", color="k", label="measured")
    ax.set_xlabel(xlabel)
    ax.set_ylabel(ylabel)
    if logx:
        ax.set_xscale("log")
    if invert_y and not ax.yaxis_inverted():
        ax.invert_yaxis()
    ax.grid(True, lw=0.3, alpha=0.5)


def units_of(meta):
    return meta.get("units") or "stress"


def title_of(meta):
    t = meta.get("soil") or meta.get("title") or ""
    s = "%s - %s (model %s)" % (meta.get("test", ""), t, meta.get("model", "?"))
    if meta.get("status") != "ok":
        s += " - FAILED: " + (meta.get("error") or "")[:80]
    return s


def figure_for(meta, data, meas):
    kind = meta.get("type")
    u = units_of(meta)
    undrained = bool(meta.get("undrained"))
    if kind == "triaxial":
        fig, ax = plt.subplots(2, 2, figsize=(10, 8))
        panel(ax[0][0], data, "eps_yy_pct", "q_ax", xlabel="axial strain [%]", ylabel="deviator q [%s]" % u, meas=meas)
        if undrained:
            panel(ax[0][1], data, "eps_yy_pct", "u", xlabel="axial strain [%]", ylabel="excess pore pressure [%s]" % u, meas=meas)
        else:
            panel(ax[0][1], data, "eps_yy_pct", "eps_v_pct", xlabel="axial strain [%]",
                  ylabel="volumetric strain [%] (compression +)", meas=meas)
        panel(ax[1][0], data, "p", "q_ax", xlabel="mean effective stress p' [%s]" % u, ylabel="deviator q [%s]" % u, meas=meas)
        panel(ax[1][1], data, "eps_yy_pct", "eta", xlabel="axial strain [%]", ylabel="stress ratio q/p'", meas=meas)
    elif kind == "oedometer":
        fig, ax = plt.subplots(1, 3, figsize=(14, 4.5))
        panel(ax[0], data, "sig_yy", "eps_yy_pct", xlabel="vertical effective stress [%s]" % u,
              ylabel="axial strain [%]", meas=meas, logx=True, invert_y=True)
        panel(ax[1], data, "sig_yy", "sig_xx", xlabel="vertical effective stress [%s]" % u,
              ylabel="horizontal effective stress [%s]" % u, meas=meas)
        panel(ax[2], data, "sig_yy", "k_lat", xlabel="vertical effective stress [%s]" % u,
              ylabel="K = horizontal / vertical", meas=meas)
    elif kind == "isotropic":
        fig, ax = plt.subplots(1, 2, figsize=(10, 4.5))
        panel(ax[0], data, "p", "eps_v_pct", xlabel="mean effective stress p' [%s]" % u,
              ylabel="volumetric strain [%]", meas=meas, logx=True, invert_y=True)
        panel(ax[1], data, "p", "u", xlabel="mean effective stress p' [%s]" % u, ylabel="pore pressure [%s]" % u, meas=meas)
    elif kind == "simple_shear":
        fig, ax = plt.subplots(1, 3, figsize=(15, 4.5))
        stages = meta.get("stages") or []
        amps = []
        for s in stages:
            a = s.get("amplitude")
            if a and a not in amps:
                amps.append(a)
        cmap = plt.get_cmap("viridis")
        st = data.get("stage", [])
        for i, a in enumerate(amps):
            # The last cycle of each amplitude that ran (cycling stops at the
            # first closed loop).
            ran = set(int(sn) for sn in st)
            last = max([s.get("cycle", 0) for k, s in enumerate(stages)
                        if s.get("amplitude") == a and k + 1 in ran] or [0])
            idx = [k for k, sn in enumerate(st)
                   if 1 <= int(sn) <= len(stages) and stages[int(sn) - 1].get("amplitude") == a
                   and stages[int(sn) - 1].get("cycle", 0) == last]
            if not idx:
                continue
            # Loops normalised by the amplitude so that all sizes show.
            g = [data["gam_xy"][k] / a for k in idx]
            t = [data["tau"][k] for k in idx]
            tmax = max(abs(x) for x in t) or 1.0
            ax[0].plot(g, [x / tmax for x in t], lw=1.0, color=cmap(i / max(1, len(amps) - 1)), label="%.3g" % a)
        ax[0].set_xlabel("shear strain / amplitude")
        ax[0].set_ylabel("shear stress / its peak")
        ax[0].legend(title="amplitude", fontsize=7)
        ax[0].grid(True, lw=0.3, alpha=0.5)
        cyc = meta.get("cyclic") or []
        gam = [c["gamma"] for c in cyc if c.get("G_ratio") is not None]
        ax[1].plot(gam, [c["G_ratio"] for c in cyc if c.get("G_ratio") is not None], "o-")
        ax[1].set_xscale("log")
        ax[1].set_xlabel("shear strain amplitude")
        ax[1].set_ylabel("G / G0")
        ax[1].set_ylim(0, 1.1)
        ax[1].grid(True, which="both", lw=0.3, alpha=0.5)
        gd = [c["gamma"] for c in cyc if c.get("damping") is not None]
        ax[2].plot(gd, [100.0 * c["damping"] for c in cyc if c.get("damping") is not None], "s-")
        ax[2].set_xscale("log")
        ax[2].set_xlabel("shear strain amplitude")
        ax[2].set_ylabel("damping ratio [%]")
        ax[2].grid(True, which="both", lw=0.3, alpha=0.5)
        if meas is not None:
            if "gamma" in meas and "G_ratio" in meas:
                ax[1].plot(meas["gamma"], meas["G_ratio"], "o", mfc="none", color="k", label="measured")
            if "gamma" in meas and "damping" in meas:
                ax[2].plot(meas["gamma"], [100 * x for x in meas["damping"]], "o", mfc="none", color="k")
    else:
        fig, ax = plt.subplots(2, 2, figsize=(10, 8))
        panel(ax[0][0], data, "eps_q_pct", "q", xlabel="deviatoric strain [%]", ylabel="q [%s]" % u, meas=meas)
        panel(ax[0][1], data, "p", "q", xlabel="mean effective stress p' [%s]" % u, ylabel="q [%s]" % u, meas=meas)
        panel(ax[1][0], data, "eps_q_pct", "eps_v_pct", xlabel="deviatoric strain [%]", ylabel="volumetric strain [%]", meas=meas)
        a = ax[1][1]
        for c in ("sig_xx", "sig_yy", "sig_zz", "sig_xy", "u"):
            if c in data:
                a.plot(data["step"], data[c], lw=1.0, label=c)
        a.set_xlabel("increment")
        a.set_ylabel("stress [%s]" % u)
        a.legend(fontsize=7)
        a.grid(True, lw=0.3, alpha=0.5)
    fig.suptitle(title_of(meta), fontsize=10)
    fig.tight_layout()
    return fig


def overlay(group, out):
    """Tests of one file and type drawn together (first panels only)."""
    kind = group[0][0].get("type")
    if kind not in ("triaxial", "oedometer", "isotropic"):
        return
    u = units_of(group[0][0])
    if kind == "triaxial":
        fig, ax = plt.subplots(1, 3, figsize=(15, 4.5))
        for meta, data in group:
            lab = meta.get("test")
            panel(ax[0], data, "eps_yy_pct", "q_ax", label=lab, xlabel="axial strain [%]", ylabel="deviator q [%s]" % u)
            key = "u" if meta.get("undrained") else "eps_v_pct"
            panel(ax[1], data, "eps_yy_pct", key, label=lab, xlabel="axial strain [%]",
                  ylabel="volumetric strain [%%] / pore pressure [%s]" % u)
            panel(ax[2], data, "p", "q_ax", label=lab, xlabel="p' [%s]" % u, ylabel="q [%s]" % u)
    elif kind == "oedometer":
        fig, ax = plt.subplots(1, 1, figsize=(6, 4.5))
        ax = [ax]
        for meta, data in group:
            panel(ax[0], data, "sig_yy", "eps_yy_pct", label=meta.get("test"), xlabel="vertical stress [%s]" % u,
                  ylabel="axial strain [%]", logx=True, invert_y=True)
    else:
        fig, ax = plt.subplots(1, 1, figsize=(6, 4.5))
        ax = [ax]
        for meta, data in group:
            panel(ax[0], data, "p", "eps_v_pct", label=meta.get("test"), xlabel="p' [%s]" % u,
                  ylabel="volumetric strain [%]", logx=True, invert_y=True)
    for a in ax:
        a.legend(fontsize=7)
    fig.suptitle("%s: %s tests" % (group[0][0].get("soil") or group[0][0].get("title", ""), kind), fontsize=10)
    fig.tight_layout()
    fig.savefig(out, dpi=110)
    plt.close(fig)


def load(path):
    try:
        with open(path) as f:
            meta = json.load(f)
    except OSError as e:
        raise PlotError("%s: cannot read: %s" % (path, e.strerror))
    except ValueError as e:
        raise PlotError("%s: not a tervak-lab summary (%s)" % (path, e))
    if not isinstance(meta, dict):
        raise PlotError("%s: not a tervak-lab summary" % path)
    for k in ("id", "type", "csv"):
        if k not in meta:
            raise PlotError("%s: field '%s' is missing" % (path, k))
    csv_path = os.path.join(os.path.dirname(os.path.abspath(path)), meta["csv"])
    data = read_csv(csv_path, "the results")
    need(data, ["step", "stage", "eps_yy", "sig_yy", "p", "q", "u"], csv_path)
    return meta, derived(data)


def main(argv):
    if len(argv) < 2 or argv[1] in ("-h", "--help"):
        sys.stdout.write(__doc__)
        return 0 if len(argv) >= 2 else 2
    status = 0
    groups = {}
    written = []
    for path in argv[1:]:
        try:
            meta, data = load(path)
            meas = measured_data(meta, path)
            fig = figure_for(meta, data, meas)
            out = os.path.splitext(path)[0] + ".png"
            fig.savefig(out, dpi=110)
            plt.close(fig)
            written.append(out)
            stem = os.path.basename(meta.get("file", "")).rsplit(".", 1)[0]
            key = (os.path.dirname(os.path.abspath(path)), stem, meta["type"])
            groups.setdefault(key, []).append((meta, data))
        except PlotError as e:
            sys.stderr.write("plot.py: %s\n" % e)
            status = 1
    for (folder, stem, kind), group in sorted(groups.items()):
        if len(group) >= 2:
            out = os.path.join(folder, "%s_%s.png" % (stem, kind))
            try:
                overlay(group, out)
                written.append(out)
            except (ValueError, KeyError) as e:
                sys.stderr.write("plot.py: %s: %s\n" % (out, e))
                status = 1
    sys.stdout.write("plot.py: %d figure(s) written\n" % len(written))
    return status


if __name__ == "__main__":
    sys.exit(main(sys.argv))
