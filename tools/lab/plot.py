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
(<file stem>_<type>.png), and the results page index.html (report.py)
lists the summary, parameters, warnings and every figure. A measured laboratory CSV named in the test file
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
    import matplotlib.ticker as ticker
except ImportError:  # pragma: no cover - depends on the system
    sys.stderr.write("plot.py: matplotlib is missing (Debian package python3-matplotlib)\n")
    sys.exit(2)


sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import report  # noqa: E402  (beside this script)


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


def log_axis(ax):
    """A logarithmic x axis labelled at 1, 2 and 5 of every decade."""
    ax.set_xscale("log")
    ax.xaxis.set_major_locator(ticker.LogLocator(base=10.0, subs=(1.0, 2.0, 5.0)))
    ax.xaxis.set_major_formatter(ticker.FuncFormatter(lambda v, _: "%g" % v))
    ax.xaxis.set_minor_locator(ticker.LogLocator(base=10.0, subs=tuple(range(1, 10))))
    ax.xaxis.set_minor_formatter(ticker.NullFormatter())
    ax.grid(True, which="minor", lw=0.2, alpha=0.3)


def positive_only(xs, ys):
    pairs = [(a, b) for a, b in zip(xs, ys) if a > 0 and not math.isnan(b)]
    return [a for a, _ in pairs], [b for _, b in pairs]


def panel(ax, data, x, y, label=None, xlabel="", ylabel="", meas=None, logx=False, invert_y=False, style="-",
          color=None):
    if x in data and y in data and any(not math.isnan(v) for v in data[y]):
        xs, ys = data[x], data[y]
        if logx:
            xs, ys = positive_only(xs, ys)
        ax.plot(xs, ys, style, lw=1.2, label=label, color=color)
    if meas is not None and x in meas and y in meas:
        ax.plot(meas[x], meas[y], "o", ms=3, mfc="none", color="k", label="measured")
    ax.set_xlabel(xlabel)
    ax.set_ylabel(ylabel)
    if logx:
        log_axis(ax)
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


def stage_roles(meta, data):
    """The role of the stage of every row ("" for the initial row)."""
    stages = meta.get("stages") or []
    out = []
    for sn in data.get("stage", []):
        k = int(sn) if not math.isnan(sn) else 0
        out.append(stages[k - 1].get("role", "") if 1 <= k <= len(stages) else "")
    return out


def shearing(meta, data):
    """Rows from the end of consolidation on, strains counted from there."""
    roles = stage_roles(meta, data)
    first = 0
    for i, r in enumerate(roles):
        if r in ("", "consolidation"):
            first = i
    d = {k: v[first:] for k, v in data.items() if isinstance(v, list) and len(v) == len(roles)}
    for k in ("eps_yy", "eps_v"):
        if k in d and d[k]:
            d[k + "_pct"] = [100.0 * (x - d[k][0]) for x in d[k]]
    if "u" in d and d["u"]:
        d["du"] = [x - d["u"][0] for x in d["u"]]
    return d


def cycle_numbers(meta, data):
    """Cycle count N of every row of a cyclic test (NaN outside cycles)."""
    stages = meta.get("stages") or []
    base, bases = 0.0, []
    for s in stages:
        bases.append(base)
        if s.get("role") == "cycle" and s.get("cycle", 0) >= 1:
            base += 0.5
    out = []
    for sn, inc in zip(data.get("stage", []), data.get("increment", [])):
        k = int(sn) if not math.isnan(sn) else 0
        if 1 <= k <= len(stages) and stages[k - 1].get("role") == "cycle" and stages[k - 1].get("cycle", 0) >= 1:
            out.append(bases[k - 1] + 0.5 * inc / max(1, stages[k - 1].get("steps", 1)))
        else:
            out.append(float("nan"))
    return out


def has_values(data, key):
    return key in data and any(not math.isnan(v) for v in data[key])


def cyclic_panel(ax, meta, data, u):
    """Pore pressure and p' against the number of cycles."""
    n = cycle_numbers(meta, data)
    for key, lab in (("u", "pore pressure u"), ("p", "mean effective stress p'")):
        pts = [(a, b) for a, b in zip(n, data[key]) if not math.isnan(a)]
        ax.plot([a for a, _ in pts], [b for _, b in pts], lw=1.0, label=lab)
    ax.set_xlabel("number of cycles N")
    ax.set_ylabel("stress [%s]" % u)
    ax.legend(fontsize=7)
    ax.grid(True, lw=0.3, alpha=0.5)


def is_cyclic(meta):
    return any(s.get("role") == "cycle" and s.get("cycle", 0) >= 1 for s in meta.get("stages") or [])


def triaxial_figure(meta, data, meas, u):
    sh = shearing(meta, data)
    extra = [k for k, on in (("e", has_values(data, "e")), ("cyc", is_cyclic(meta) and meta.get("undrained"))) if on]
    fig, ax = plt.subplots(2, 2 + (1 if extra else 0), figsize=(15 if extra else 10, 8))
    ax = [a for row in ax for a in row]
    panel(ax[0], sh, "eps_yy_pct", "q_ax", xlabel="axial strain since the start of shearing [%]", ylabel="deviator q [%s]" % u, meas=meas)
    if meta.get("undrained"):
        panel(ax[1], sh, "eps_yy_pct", "du", xlabel="axial strain since the start of shearing [%]", ylabel="excess pore pressure [%s]" % u, meas=meas)
    else:
        panel(ax[1], sh, "eps_yy_pct", "eps_v_pct", xlabel="axial strain since the start of shearing [%]",
              ylabel="volumetric strain [%] (compression +)", meas=meas)
    panel(ax[2 + (1 if extra else 0)], data, "p", "q_ax", xlabel="mean effective stress p' [%s]" % u, ylabel="deviator q [%s]" % u, meas=meas)
    panel(ax[3 + (1 if extra else 0)], sh, "eps_yy_pct", "eta", xlabel="axial strain since the start of shearing [%]", ylabel="stress ratio q/p'", meas=meas)
    slots = [ax[2], ax[5]] if extra else []
    for k, a in zip(extra, slots):
        if k == "e":
            panel(a, data, "p", "e", xlabel="mean effective stress p' [%s] (log)" % u, ylabel="void ratio e", logx=True)
        else:
            cyclic_panel(a, meta, data, u)
    for a in slots[len(extra):]:
        a.axis("off")
    return fig


def oedometer_figure(meta, data, meas, u):
    with_e = has_values(data, "e")
    fig, ax = plt.subplots(1, 4 if with_e else 3, figsize=(18 if with_e else 14, 4.5))
    panel(ax[0], data, "sig_yy", "eps_yy_pct", xlabel="vertical effective stress [%s] (log)" % u,
          ylabel="axial strain [%]", meas=meas, logx=True, invert_y=True)
    panel(ax[1], data, "sig_yy", "sig_xx", xlabel="vertical effective stress [%s]" % u,
          ylabel="horizontal effective stress [%s]" % u, meas=meas)
    panel(ax[2], data, "sig_yy", "k_lat", xlabel="vertical effective stress [%s]" % u,
          ylabel="K = horizontal / vertical", meas=meas)
    if with_e:
        panel(ax[3], data, "sig_yy", "e", xlabel="vertical effective stress σ'v [%s] (log)" % u,
              ylabel="void ratio e", meas=meas, logx=True)
    return fig


def isotropic_figure(meta, data, meas, u):
    with_e = has_values(data, "e")
    fig, ax = plt.subplots(1, 3 if with_e else 2, figsize=(15 if with_e else 10, 4.5))
    panel(ax[0], data, "p", "eps_v_pct", xlabel="mean effective stress p' [%s] (log)" % u,
          ylabel="volumetric strain [%]", meas=meas, logx=True, invert_y=True)
    panel(ax[1], data, "p", "u", xlabel="mean effective stress p' [%s]" % u, ylabel="pore pressure [%s]" % u, meas=meas)
    if with_e:
        panel(ax[2], data, "p", "e", xlabel="mean effective stress p' [%s] (log)" % u, ylabel="void ratio e",
              meas=meas, logx=True)
    return fig


def amplitudes(stages):
    amps = []
    for s in stages:
        a = s.get("amplitude")
        if a and a not in amps:
            amps.append(a)
    return amps


def loops_panel(ax, meta, data):
    stages = meta.get("stages") or []
    amps = amplitudes(stages)
    cmap = plt.get_cmap("viridis")
    st = data.get("stage", [])
    for i, a in enumerate(amps):
        last = max([s.get("cycle", 0) for s in stages if s.get("amplitude") == a] or [0])
        idx = [k for k, sn in enumerate(st)
               if 1 <= int(sn) <= len(stages) and stages[int(sn) - 1].get("amplitude") == a
               and stages[int(sn) - 1].get("cycle", 0) == last]
        if not idx:
            continue
        g = [data["gam_xy"][k] / a for k in idx]
        t = [data["tau"][k] for k in idx]
        tmax = max(abs(x) for x in t) or 1.0
        ax.plot(g, [x / tmax for x in t], lw=1.0, color=cmap(i / max(1, len(amps) - 1)), label="%.3g" % a)
    ax.set_xlabel("shear strain / amplitude")
    ax.set_ylabel("shear stress / its peak")
    ax.legend(title="amplitude", fontsize=7)
    ax.grid(True, lw=0.3, alpha=0.5)


def simple_shear_figure(meta, data, meas, u):
    undrained = bool(meta.get("undrained"))
    fig, ax = plt.subplots(1, 4 if undrained else 3, figsize=(20 if undrained else 15, 4.5))
    loops_panel(ax[0], meta, data)
    cyc = meta.get("cyclic") or []
    for a, key, scale, ylab, mk in ((ax[1], "G_ratio", 1.0, "G / G0", "o-"), (ax[2], "damping", 100.0, "damping ratio [%]", "s-")):
        pts = [(c["gamma"], scale * c[key]) for c in cyc if c.get(key) is not None]
        a.plot([g for g, _ in pts], [v for _, v in pts], mk)
        log_axis(a)
        a.set_xlabel("shear strain amplitude")
        a.set_ylabel(ylab)
        a.grid(True, lw=0.3, alpha=0.5)
        if meas is not None and "gamma" in meas and key in meas:
            a.plot(meas["gamma"], [scale * x for x in meas[key]], "o", mfc="none", color="k", label="measured")
    ax[1].set_ylim(0, 1.1)
    if undrained:
        cyclic_panel(ax[3], meta, data, u)
    return fig


def general_figure(meta, data, meas, u):
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
    return fig


FIGURES = {"triaxial": triaxial_figure, "oedometer": oedometer_figure, "isotropic": isotropic_figure,
           "simple_shear": simple_shear_figure}


def figure_for(meta, data, meas):
    fig = FIGURES.get(meta.get("type"), general_figure)(meta, data, meas, units_of(meta))
    fig.suptitle(title_of(meta), fontsize=10)
    fig.tight_layout()
    return fig


def overlay(group, out):
    """Tests of one file and type drawn together (first panels only)."""
    kind = group[0][0].get("type")
    if kind not in ("triaxial", "oedometer", "isotropic"):
        return False
    u = units_of(group[0][0])
    if kind == "triaxial":
        # Volumetric strain and pore pressure have different units: own axes.
        fig, ax = plt.subplots(1, 4, figsize=(19, 4.5))
        for i, (meta, data) in enumerate(group):
            lab, c = meta.get("test"), "C%d" % (i % 10)
            sh = shearing(meta, data)
            xl = "axial strain since the start of shearing [%]"
            panel(ax[0], sh, "eps_yy_pct", "q_ax", label=lab, xlabel=xl, ylabel="deviator q [%s]" % u, color=c)
            if meta.get("undrained"):
                panel(ax[2], sh, "eps_yy_pct", "du", label=lab, xlabel=xl,
                      ylabel="excess pore pressure [%s] (undrained tests)" % u, color=c)
            else:
                panel(ax[1], sh, "eps_yy_pct", "eps_v_pct", label=lab, xlabel=xl,
                      ylabel="volumetric strain [%] (drained tests)", color=c)
            panel(ax[3], data, "p", "q_ax", label=lab, xlabel="p' [%s]" % u, ylabel="q [%s]" % u, color=c)
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
        if a.get_legend_handles_labels()[0]:
            a.legend(fontsize=7)
        else:
            a.axis("off")
    fig.suptitle("%s: %s tests" % (group[0][0].get("soil") or group[0][0].get("title", ""), kind), fontsize=10)
    fig.tight_layout()
    fig.savefig(out, dpi=110)
    plt.close(fig)
    return True


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
    metas = {}
    for path in argv[1:]:
        try:
            meta, data = load(path)
            metas.setdefault(os.path.dirname(os.path.abspath(path)), []).append(meta)
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
                if overlay(group, out):
                    written.append(out)
            except (ValueError, KeyError) as e:
                sys.stderr.write("plot.py: %s: %s\n" % (out, e))
                status = 1
    sys.stdout.write("plot.py: %d figure(s) written\n" % len(written))
    for folder, ms in sorted(metas.items()):
        overlays = [w for w in written if os.path.dirname(os.path.abspath(w)) == folder
                    and os.path.splitext(os.path.basename(w))[0] not in {m["id"] for m in ms}]
        sys.stdout.write("plot.py: report %s\n" % report.write_report(folder, ms, overlays))
    return status


if __name__ == "__main__":
    sys.exit(main(sys.argv))
