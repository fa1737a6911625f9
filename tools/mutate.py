#!/usr/bin/python3
"""Seeded faults against the test suite (not run by CI).

Applies each fault below to a scratch copy of the source tree, one at a
time, rebuilds that copy in its own build directory and runs the fast
tests (every test, the slow calibration included, for the calibration's
faults); a fault is killed when a test fails (or times out). The file is put
back before the next fault. Never point --tree at a working tree you edit.

  nice tools/mutate.py --tree /work/coord/mut-x [--ctest '-E name'] [--only kernels]
"""
import argparse
import os
import subprocess
import sys
import time

# (subsystem, file, text, replacement, what the fault does)
FAULTS = [
    # toolkit
    ("toolkit", "src/toolkit/usrlib.cpp", "r = r + a[i] * b[i]", "r = r - a[i] * b[i]", "dinprod subtracts"),
    ("toolkit", "src/toolkit/usrlib.cpp", "if (std::fabs(W[i + k * n]) > std::fabs(W[p + k * n])) p = i;",
     "if (std::fabs(W[i + k * n]) < std::fabs(W[p + k * n])) p = i;", "inversion takes the smallest pivot"),
    ("toolkit", "src/toolkit/usrlib.cpp", "(tol * 0.5)", "(tol * 2.0)", "lequal tolerance constant"),
    ("toolkit", "src/toolkit/principal.cpp", "    if (s[0] > s[1]) swap(0, 1);\n    if (s[1] > s[2])",
     "    if (s[0] < s[1]) swap(0, 1);\n    if (s[1] > s[2])", "principal sort comparison flipped"),
    ("toolkit", "src/toolkit/principal.cpp", "iOpt == 1 ? 1e-50 : 1e-20", "iOpt == 1 ? 1e-5 : 1e-5",
     "eigenvalue threshold constant"),
    ("toolkit", "src/toolkit/elastic.cpp", "G = E / (2.0 * (1.0 + nu));", "G = E / (2.0 * (1.0 - nu));",
     "shear modulus sign of nu"),
    ("toolkit", "src/toolkit/elastic.cpp", "std::max(c * co, 1.0)", "std::max(c * co, 0.1)",
     "stress-level floor constant"),
    ("toolkit", "src/toolkit/elastic.cpp", "const double off = K - 0.6666666666666666 * G;",
     "const double off = K + 0.6666666666666666 * G;", "off-diagonal of K,G matrix sign"),
    ("toolkit", "src/toolkit/elastic.cpp", "if (r > 1e-10)", "if (r > 1e-3)", "norm threshold constant"),
    # writers and records
    ("writers", "src/toolkit/writers.cpp", "kE12{0, 1, 0, 5, 1}", "kE12{0, 1, 0, 4, 1}", "wrivec5 four per record"),
    ("writers", "src/toolkit/writers.cpp", "if (len_trim(label) > 6) {", "if (len_trim(label) > 7) {",
     "wrivec label width"),
    ("writers", "src/toolkit/writers.cpp", "rec.put_i(4, i);", "rec.put_i(5, i);", "wrimat row number width"),
    ("writers", "src/toolkit/records.cpp", "g.exp10 >= -1 && g.exp10 <= 16", "g.exp10 >= 0 && g.exp10 <= 16",
     "list-directed fixed range"),
    ("writers", "src/toolkit/records.cpp", "    if (ae < 100) {", "    if (ae < 10) {", "E-format exponent digits"),
    # kernels
    ("kernels", "src/kernels/return_scheme.hpp", "kMaxPasses = 101", "kMaxPasses = 100", "pass limit"),
    ("kernels", "src/kernels/return_scheme.hpp", "- (P(i) + P(j)) / 2.0 * sin_phi - c_cos_phi",
     "- (P(i) + P(j)) / 2.0 * sin_phi + c_cos_phi", "Mohr-Coulomb face cohesion sign"),
    ("kernels", "src/kernels/return_scheme.hpp", "iArea == 2 ? kFace12 : kFace23", "iArea == 2 ? kFace23 : kFace12",
     "MC edge areas swapped"),
    ("kernels", "src/kernels/cap_plast.cpp", "iArea == 2 ? capret::kOrder32 : capret::kOrder21",
     "iArea == 2 ? capret::kOrder21 : capret::kOrder32", "cap edge areas swapped"),
    ("kernels", "src/kernels/cap_plast.cpp", "cap_p(Prs) < T", "cap_p(Prs) > T", "cap low-mean exit flipped"),
    ("kernels", "src/kernels/cap_surface.cpp", "if (qt < kCapQtFloor) qt = 0.0;", "if (false) qt = 0.0;",
     "cap deviator floor dropped"),
    ("kernels", "src/kernels/cap_surface.cpp", "2.0 * std::max(1.0, p) * pref / props(15)",
     "2.0 * std::max(1.0, p) * pref / props(16)", "cap hardening reads the wrong parameter"),
    ("kernels", "src/kernels/hs_surfaces.cpp", "- 2.0 * q / hp.Eur - gamma_p", "+ 2.0 * q / hp.Eur - gamma_p",
     "shear-hardening function sign"),
    ("kernels", "src/kernels/hs_surfaces.cpp", "if (spm < 0.75 * hp.sinphi) return 0.0;",
     "if (spm < 0.5 * hp.sinphi) return 0.0;", "dilatancy onset constant"),
    ("kernels", "src/kernels/hs_surfaces.hpp", "iArea == 3 ? kFace23 : kFace12", "iArea == 2 ? kFace23 : kFace12",
     "HS edge areas swapped"),
    ("kernels", "src/kernels/hs_kernels.cpp", "iPlast = 5;\n    if (iArea < 1 || iArea > 3)",
     "iPlast = 5;\n    if (iArea < 1 || iArea > 4)", "HS_plast accepts area 4"),
    # models 1 and 3
    ("model13", "src/models/hardening_soil.cpp", "std::abs(f) * 1e-10 + 1e-10", "std::abs(f) * 1e-10 + 1e-3",
     "yield tolerance constant"),
    ("model13", "src/models/hardening_soil.cpp", "if (mean3(Prs) < Props(m1::sigma_t)) {",
     "if (mean3(Prs) > Props(m1::sigma_t)) {", "low-mean-stress rule flipped"),
    ("model13", "src/models/hardening_soil.cpp", "*a_.iPlast = 2;", "*a_.iPlast = 3;", "low-mean iPlast code"),
    ("model13", "src/models/hardening_soil.cpp", "    if (Prs(3) > Prs(2)) {\n        iArea = 2;",
     "    if (Prs(3) > Prs(2)) {\n        iArea = 3;", "edge re-call uses the wrong area"),
    ("model13", "src/models/hardening_soil.cpp", "*a_.Pw = *a_.Pw0 + *a_.BulkW *", "*a_.Pw = *a_.Pw0 - *a_.BulkW *",
     "undrained pore pressure sign"),
    ("model13", "src/models/hardening_soil.cpp", "if (violated(f13_mc(Prs), tol_mc_)) step(Kernel::MC, ",
     "if (false) step(Kernel::MC, ", "MC after HS dropped"),
    ("model13", "src/models/hardening_soil.cpp", "if (violated(f13_hs(Prs), tol_hs_)) step(Kernel::HS_CAP",
     "if (false) step(Kernel::HS_CAP", "HS_CAP after a cap-only entry dropped"),
    ("model13", "src/models/hardening_soil.cpp", "} else if (trac_) {", "} else if (trac_ && cap_) {",
     "tension-only entry dropped"),
    ("model13", "src/models/hardening_soil.cpp", "(149.4999999999999 -", "(150.4999999999999 -", "BulkW constant"),
    ("model13", "src/models/hardening_soil.cpp", "std::max(gamma_new, std::max(StVar0(m1::sv::gamma_p), 1e-10))",
     "std::min(gamma_new, std::max(StVar0(m1::sv::gamma_p), 1e-10))", "initial gamma_p max->min"),
    ("model13", "src/models/mymodel3.cpp", "/*debugAlways=*/true,", "/*debugAlways=*/false,",
     "model 3 stops tracing every point"),
    # models 2 and 4
    ("model24", "src/models/small_strain_stiffness.cpp", "return 1.0 + 0.385 * gamma / (2.0 * gamma07);",
     "return 1.0 + 0.385 * gamma / gamma07;", "hyperbola constant"),
    ("model24", "src/models/small_strain_stiffness.cpp", "if (gamma <= gamma_alfa_ur) return",
     "if (gamma >= gamma_alfa_ur) return", "cut-off comparison flipped"),
    ("model24", "src/models/small_strain.cpp", "if (S(m2::sv::G0) < 1.0 || reset)", "if (S(m2::sv::G0) < 1.0)",
     "reset switch ignored for G0"),
    ("model24", "src/models/small_strain.cpp", "if (Kmin > K) K = Kmin;", "if (false && Kmin > K) K = Kmin;",
     "bulk modulus floor dropped"),
    ("model24", "src/models/small_strain.cpp", "S(m2::sv::Gs_obs) = tm / gm;", "S(m2::sv::Gs_obs) = gm / tm;",
     "observed secant modulus inverted"),
    ("model24", "src/models/small_strain_return.cpp", "    if (Prs(3) > Prs(2)) {", "    if (Prs(3) < Prs(2)) {",
     "edge detection flipped"),
    ("model24", "src/models/small_strain_return.cpp", "const bool trac0 = trac_E >= tol_trac;",
     "const bool trac0 = false && trac_E >= tol_trac;", "tension entry dropped"),
    # calibration
    ("calibration", "src/models/iterative_hss.cpp", "if (eps1 > 1.001 * eps_t)", "if (eps1 > 1.05 * eps_t)",
     "Ei acceptance band constant"),
    ("calibration", "src/models/iterative_hss.cpp", "const double q50 = qf_ref / 2.0;",
     "const double q50 = qf_ref / 3.0;", "target deviator"),
    ("calibration", "src/models/iterative_hss.cpp", "if (counter == 101) {", "if (counter == 11) {",
     "fine-step counter"),
    ("calibration", "src/models/iterative_hss.cpp", "const double delta = (3.0 + s) / (3.0 - s);",
     "const double delta = (3.0 - s) / (3.0 + s);", "cap shape delta inverted"),
    # laboratory
    ("lab", "tools/lab/src/point_driver.cpp", "(is_normal(i) ? t.pw : 0.0)", "(is_normal(i) ? -t.pw : 0.0)",
     "pore pressure sign in the balance"),
    ("lab", "tools/lab/src/point_driver.cpp", "if (it > 1) stiffness(undrained, D, bulkw);",
     "if (it > 1000) stiffness(undrained, D, bulkw);", "no stiffness call between iterations"),
    ("lab", "tools/lab/src/lab_run.cpp", "return std::sqrt(2.0 / 3.0 * ee);", "return std::sqrt(4.0 / 3.0 * ee);",
     "shear strain measure constant"),
    ("lab", "tools/lab/src/lab_run.cpp", "double m = eps_v() / 3.0;", "double m = eps_v() / 2.0;",
     "deviatoric strain mean"),
    ("lab", "tools/lab/src/lab_run.cpp", "c.damping = ta > 0 ? std::fabs(w) / (2.0 * kPi * ta * a)",
     "c.damping = ta > 0 ? std::fabs(w) / (4.0 * kPi * ta * a)", "damping constant"),
    ("lab", "tools/lab/src/point_driver.cpp", "(model < 1 || model > count)", "(model < 1 || model > count + 1)",
     "model number range check"),
]


def sh(cmd, cwd, timeout=None):
    try:
        p = subprocess.run(cmd, cwd=cwd, shell=True, capture_output=True, text=True, timeout=timeout)
        return p.returncode, p.stdout + p.stderr
    except subprocess.TimeoutExpired:
        return 124, "timeout"


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--tree", required=True, help="scratch copy of the source tree")
    ap.add_argument("--build", help="build directory (default TREE/build-mut)")
    ap.add_argument("--ctest", default="-E calibration_test",
                    help="ctest selection of the fast tests (the calibration's faults run every test)")
    ap.add_argument("--targets", default="", help="build targets (default all)")
    ap.add_argument("--only", help="one subsystem")
    ap.add_argument("--ids", help="fault numbers, comma-separated (as listed)")
    ap.add_argument("--out", default="mutation.tsv")
    ap.add_argument("--list", action="store_true")
    a = ap.parse_args()
    tree = os.path.abspath(a.tree)
    here = os.path.abspath(os.path.join(os.path.dirname(__file__), ".."))
    if tree == here:
        sys.exit("refusing to mutate the tree this script lives in")
    ids = {int(i) for i in a.ids.split(",")} if a.ids else None
    faults = [(n, f) for n, f in enumerate(FAULTS, 1)
              if (not a.only or f[0] == a.only) and (ids is None or n in ids)]
    if a.list:
        for n, f in faults:
            print(f"{n:3d} {f[0]:12s} {f[1]}: {f[4]}")
        return
    build = os.path.abspath(a.build or os.path.join(tree, "build-mut"))
    rc, out = sh(f"cmake -S . -B {build} -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTERVAK_BENCH=OFF", tree)
    if rc != 0:
        sys.exit(out)
    build_cmd = f"cmake --build {build} -j 2 {('--target ' + a.targets) if a.targets else ''}"
    rc, out = sh(build_cmd, tree)
    if rc != 0:
        sys.exit("clean tree does not build:\n" + out[-3000:])
    rc, out = sh(f"ctest --test-dir {build} {a.ctest} -j 2 --timeout 240", tree)
    if rc != 0:
        sys.exit("clean tree fails its tests:\n" + out[-3000:])
    results = []
    with open(a.out, "w") as log:
        for n, (sub, path, old, new, what) in faults:
            full = os.path.join(tree, path)
            text = open(full).read()
            if text.count(old) != 1:
                verdict, detail = "INVALID", f"text found {text.count(old)} times"
            else:
                t0 = time.time()
                open(full, "w").write(text.replace(old, new))
                try:
                    rc, out = sh(build_cmd, tree)
                    if rc != 0:
                        verdict, detail = "NOBUILD", out[-400:].replace("\n", " ")
                    else:
                        sel = "" if sub == "calibration" else a.ctest
                        rc, out = sh(f"ctest --test-dir {build} {sel} -j 2 --timeout 300", tree, 1800)
                        failed = [l.split(" - ")[1].split()[0] for l in out.splitlines()
                                  if " - " in l and ("(Failed)" in l or "(Timeout)" in l or "(SEGFAULT)" in l
                                                     or "(Subprocess aborted)" in l)]
                        verdict = "KILLED" if rc != 0 else "SURVIVED"
                        detail = " ".join(failed) if failed else ("timeout" if rc == 124 else "")
                finally:
                    open(full, "w").write(text)
                detail = f"{time.time() - t0:.0f}s {detail}"
            results.append((sub, verdict))
            line = f"{n}\t{sub}\t{verdict}\t{path}\t{what}\t{detail}"
            print(line, flush=True)
            log.write(line + "\n")
            log.flush()
    sh(build_cmd, tree)  # leave the build matching the clean tree
    print("\nsubsystem     killed/total")
    for sub in dict.fromkeys(s for s, _ in results):
        got = [v for s, v in results if s == sub and v in ("KILLED", "SURVIVED")]
        print(f"{sub:12s}  {got.count('KILLED')}/{len(got)}")
    got = [v for _, v in results if v in ("KILLED", "SURVIVED")]
    print(f"{'all':12s}  {got.count('KILLED')}/{len(got)}")


if __name__ == "__main__":
    main()
