"""python -m tervak fit|study FILE.toml (also tervak-lab fit|study)."""
import argparse
import os
import sys

from ._lib import TervakError
from .lab import Test
from .measured import Measured, resolve
from .soil import Soil, read_toml

FIT_KEYS = {"free", "start", "out", "plot", "workers", "max_nfev"}
STUDY_KEYS = {"vary", "n", "method", "seed", "out", "plot", "output", "scheduler", "workers"}
MEASURED_KEYS = {"file", "columns", "scale", "curves", "weight"}


def load(path, section, known):
    doc = read_toml(path)
    if "soil" in doc:
        if not isinstance(doc["soil"], str):
            raise TervakError(f"{path}: 'soil' must be the path of a soil file")
        soil = Soil.from_toml(resolve(doc["soil"], path))
    else:
        soil = Soil.from_toml(path)
    conf = doc.get(section)
    if not isinstance(conf, dict):
        raise TervakError(f"{path}: the [{section}] table is missing")
    for k in conf:
        if k not in known:
            raise TervakError(f"{path}: [{section}]: '{k}' is not a known key (known: {', '.join(sorted(known))})")
    tests = []
    raw = doc.get("test", [])
    if not isinstance(raw, list) or not raw:
        raise TervakError(f"{path}: no [[test]] tables")
    for i, t in enumerate(raw, 1):
        where = f"{path}: test {i}"
        t = dict(t)
        if "type" not in t:
            raise TervakError(f"{where}: 'type' is missing")
        name = t.pop("name", f"test{i}")
        kind = t.pop("type")
        stages = t.pop("stage", None)
        m = t.pop("measured", None)
        measured = None
        if m is not None:
            for k in m:
                if k not in MEASURED_KEYS:
                    raise TervakError(f"{where} ('{name}'): [test.measured]: '{k}' is not a known key "
                                      f"(known: {', '.join(sorted(MEASURED_KEYS))})")
            if "file" not in m:
                raise TervakError(f"{where} ('{name}'): [test.measured]: 'file' is missing")
            measured = Measured(file=resolve(m["file"], path), columns=m.get("columns"), scale=m.get("scale"),
                                curves=m.get("curves"), weight=m.get("weight", 1.0))
        tests.append(Test(kind, name, stages, measured, **t))
    return soil, conf, tests


def stem_path(path, suffix):
    """Output files go to the current directory by default."""
    return os.path.splitext(os.path.basename(path))[0] + suffix


def cmd_fit(args):
    from .fit import fit
    soil, conf, tests = load(args.file, "fit", FIT_KEYS)
    free = conf.get("free")
    if not isinstance(free, list) or not free:
        raise TervakError(f"{args.file}: [fit]: 'free' must list the parameters to fit")
    missing = [t.name for t in tests if t.measured is None]
    if missing:
        raise TervakError(f"{args.file}: test '{missing[0]}' has no [test.measured] data")
    workers = args.workers or conf.get("workers", 2)
    r = fit(soil, tests, free, start=conf.get("start"), workers=workers,
            max_nfev=conf.get("max_nfev", 100))
    print(r.report())
    out = args.out or (resolve(conf["out"], args.file) if "out" in conf else stem_path(args.file, "_fitted.toml"))
    r.to_toml(out)
    print(f"fitted soil written to {out}")
    plot = resolve(conf["plot"], args.file) if "plot" in conf else stem_path(args.file, "_fit.png")
    if not args.no_plot:
        r.plot(plot)
        print(f"overlay plot written to {plot}")
    return 0 if r.success else 1


def cmd_study(args):
    from .study import study
    soil, conf, tests = load(args.file, "study", STUDY_KEYS)
    if "vary" not in conf or not isinstance(conf["vary"], dict):
        raise TervakError(f"{args.file}: [study]: 'vary' must be a table of parameters")
    n = args.n if args.n is not None else conf.get("n", 100)
    out = args.out or (resolve(conf["out"], args.file) if "out" in conf else stem_path(args.file, ".csv"))
    sched = "serial" if args.serial else (args.scheduler or conf.get("scheduler"))
    try:
        r = study(soil, tests, conf["vary"], n=n, method=conf.get("method", "monte_carlo"),
                  seed=args.seed if args.seed is not None else conf.get("seed", 0), scheduler=sched,
                  workers=args.workers or conf.get("workers", 2), out=out, progress=sys.stderr.isatty())
    except TervakError as e:
        raise TervakError(f"{args.file}: {e}") from None
    failed = sum(1 for row in r.rows if row["status"] != "ok")
    print(f"{len(r)} runs in {r.seconds:.1f} s ({failed} failed); rows in {out}")
    print(f"{'value':28s} {'p5':>12s} {'p50':>12s} {'p95':>12s} {'mean':>12s}")
    for k, s in r.summary().items():
        print(f"{k:28s} {s['p5']:12.5g} {s['p50']:12.5g} {s['p95']:12.5g} {s['mean']:12.5g}")
    if r.outputs and not args.no_plot:
        plot = resolve(conf["plot"], args.file) if "plot" in conf else stem_path(args.file, "_tornado.png")
        r.tornado(conf.get("output", r.outputs[0]), plot)
        print(f"sensitivity plot written to {plot}")
    return 0


def main(argv=None):
    p = argparse.ArgumentParser(prog="tervak-lab", description="Fitting and parameter studies with Tervak.")
    sub = p.add_subparsers(dest="cmd", required=True)
    f = sub.add_parser("fit", help="fit parameters to measured data ([fit] and [[test]] with [test.measured])")
    f.add_argument("file")
    f.add_argument("--out", help="fitted soil file (default FILE_fitted.toml)")
    f.add_argument("--workers", type=int, help="runs at a time (default 2)")
    f.add_argument("--no-plot", action="store_true")
    f.add_argument("--lib", help="model library (default: libtervak.so of the build)")
    s = sub.add_parser("study", help="parameter study on dask.distributed ([study] and [[test]])")
    s.add_argument("file")
    s.add_argument("--n", type=int, help="number of Monte Carlo runs")
    s.add_argument("--seed", type=int)
    s.add_argument("--scheduler", help="address of an existing cluster (tcp://host:port)")
    s.add_argument("--workers", type=int, help="workers of the local cluster (default 2)")
    s.add_argument("--serial", action="store_true", help="run in this process, without Dask")
    s.add_argument("--out", help="results table (default FILE_study.csv)")
    s.add_argument("--no-plot", action="store_true")
    s.add_argument("--lib", help="model library (default: libtervak.so of the build)")
    args = p.parse_args(argv)
    if args.lib:
        os.environ["TERVAK_LIB"] = args.lib
    try:
        return cmd_fit(args) if args.cmd == "fit" else cmd_study(args)
    except TervakError as e:
        print(f"tervak-lab {args.cmd}: {e}", file=sys.stderr)
        return 2


if __name__ == "__main__":
    sys.exit(main())
