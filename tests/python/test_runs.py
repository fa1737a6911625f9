"""Runs through the package against independent facts: the CLI's CSV, the
host's own task 7 call, a model that ends its process, and bad input."""
import ctypes
import os
import subprocess
import sys
import textwrap

import numpy as np
import pytest

import tervak as tv
from tervak import _lib

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SOILS = os.path.join(ROOT, "examples", "soils")


@pytest.fixture(scope="module")
def sand():
    return tv.Soil.from_toml(os.path.join(SOILS, "dense_sand.toml"))


@pytest.mark.parametrize("soil_file, drained", [("dense_sand.toml", True), ("soft_clay.toml", False)])
def test_triaxial_equals_cli_csv_row_for_row(tmp_path, soil_file, drained):
    path = tmp_path / "t.toml"
    path.write_text(f'soil = "{os.path.join(SOILS, soil_file)}"\n[[test]]\nname = "tx"\ntype = "triaxial"\n'
                    f'p0 = 100.0\naxial_strain = 0.08\nsteps = 160\ndrained = {str(drained).lower()}\n')
    subprocess.run([_lib.cli_path(), "--out", str(tmp_path), str(path)], check=True, capture_output=True)
    csv = tmp_path / "t_tx.csv"
    header = csv.read_text().splitlines()[0].split(",")
    cli = np.genfromtxt(csv, delimiter=",", skip_header=1, filling_values=np.nan)
    r = tv.run(tv.Soil.from_toml(os.path.join(SOILS, soil_file)),
               tv.triaxial(100.0, 0.08, 160, drained=drained, name="tx"))
    assert r.columns == header
    assert r.data.shape == cli.shape and np.array_equal(r.data, cli, equal_nan=True)
    # compression positive: axial strain and deviator grow
    assert r["eps_yy"][-1] > 0 and r["q"][-1] > 0


def test_output_is_captured_or_discarded(sand, capfd):
    t = tv.triaxial(100.0, 0.01, 10)
    kept = tv.run(sand, t, output="capture")
    dropped = tv.run(sand, t)
    assert "nStat" in kept.output and dropped.output == ""
    assert "nStat" not in capfd.readouterr().out


FAKE = r"""
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
static void put(char* b, size_t n, const char* s) { size_t k = strlen(s); memset(b, ' ', n); b[0] = (char)k; memcpy(b + 1, s, k); }
void getmodelcount_(int32_t* n) { *n = 1; }
void getparamcount_(int32_t* m, int32_t* n) { *n = *m == 1 ? 2 : 0; }
void getparamname_(int32_t* m, int32_t* i, char* b, size_t n) { (void)m; put(b, n, *i == 1 ? "E" : "limit"); }
void getparamunit_(int32_t* m, int32_t* i, char* b, size_t n) { (void)m; (void)i; put(b, n, "kPa"); }
void getstatevarcount_(int32_t* m, int32_t* n) { (void)m; *n = 0; }
void user_mod_(int32_t* task, int32_t* mod, int32_t* u, int32_t* st, int32_t* it, int32_t* el, int32_t* ip,
               void* a8, void* a9, void* a10, double* t0, void* a12, double* P, double* S0, double* pw0,
               double* v0, double* de, double* D, double* bw, double* S, double* pw, double* v, int32_t* ipl,
               int32_t* ns, int32_t* nonsym, int32_t* sd, int32_t* td, int32_t* tg, void* a, void* b, void* c) {
    int k;
    if (*task == 4) { *ns = 0; return; }
    if (*task == 5) { *nonsym = 0; *sd = 0; *td = 0; *tg = 0; return; }
    if (*task == 1) return;
    if (*task == 3 || *task == 6) { for (k = 0; k < 36; ++k) D[k] = (k % 7 == 0) ? P[0] : 0.0; *bw = 0; return; }
    for (k = 0; k < 6; ++k) S[k] = S0[k] + P[0] * de[k];
    *pw = *pw0; *ipl = 0;
    if (-S[1] > P[1]) { printf(" stress beyond the limit\n"); fflush(stdout); fputs("STOP limit\n", stderr); exit(1); }
}
"""


def test_fatal_stop_raises_and_keeps_rows(tmp_path):
    src = tmp_path / "stop.c"
    src.write_text(FAKE)
    lib = tmp_path / "libstop.so"
    subprocess.run(["cc", "-shared", "-fPIC", "-o", str(lib), str(src)], check=True)
    code = textwrap.dedent("""
        import tervak as tv
        s = tv.Soil(1, [1000.0, 150.0])
        try:
            tv.run(s, tv.triaxial(100.0, 0.1, 100))
        except tv.ModelStop as e:
            rows = len(e.result)
            print("stopped", rows, e.result["sig_yy"].max() <= 150.0, "STOP limit" in str(e))
        print("alive")
    """)
    env = dict(os.environ, TERVAK_LIB=str(lib), PYTHONPATH=os.path.join(ROOT, "python"))
    out = subprocess.run([sys.executable, "-c", code], env=env, capture_output=True, text=True, check=True)
    words = out.stdout.split()
    assert words[0] == "stopped" and int(words[1]) > 1 and words[2:] == ["True", "True", "alive"]


def _measured_file(tmp_path, text):
    p = tmp_path / "m.csv"
    p.write_text(text)
    return str(p)


@pytest.mark.parametrize("make, fragment", [
    (lambda s, d: tv.Soil.named(1, **{**s.values(), "phi_deg": 30.0}), "'phi_deg' is not a parameter"),
    (lambda s, d: s.with_values(phi=95.0), "'phi' = 95 is outside its valid range 0 < value < 90"),
    (lambda s, d: s.with_values(R_f=0.0), "'R_f' = 0 is outside"),
    (lambda s, d: tv.Measured(file=_measured_file(d, "a,b\n1,2\n"), columns={"eps_yy": "a", "q": "deviator"}),
     "column 'deviator' (for 'q') is missing"),
    (lambda s, d: tv.Measured(file=_measured_file(d, "# note\na,b\n1,2\n3,x\n")), "line 4: 'x' in column 'b'"),
    (lambda s, d: tv.study(s, [tv.triaxial()], {"phi": {"min": 30, "max": 40}}, n=0), "'n' = 0"),
    (lambda s, d: tv.study(s, [tv.triaxial()], {"phi": {"min": 30, "max": 40}}, n=-5), "'n' = -5"),
    (lambda s, d: tv.study(s, [tv.triaxial()], {"phi": {"min": 30, "max": 95}}, n=50), "'phi' ="),
    (lambda s, d: tv.study(s, [tv.triaxial()], {"phii": {"min": 30, "max": 40}}, n=5), "'phii' is not"),
    (lambda s, d: tv.study(s, [tv.triaxial()], {"phi": {"min": 30, "max": 40}}, n=5,
                           scheduler="tcp://127.0.0.1:9"), "tcp://127.0.0.1:9: cannot reach"),
    (lambda s, d: tv.run(s, tv.triaxial(steps=0)), "'steps'"),
    (lambda s, d: tv.fit(s, [tv.triaxial()], ["phi"]), "has no measured data"),
])
def test_bad_input_is_rejected_before_any_run(sand, tmp_path, make, fragment):
    with pytest.raises(tv.TervakError) as e:
        make(sand, tmp_path)
    assert fragment in str(e.value)


def _task7_by_host(props):
    """Task 7 called on user_mod_ directly, as a host does, in a child."""
    r, w = os.pipe()
    pid = os.fork()
    if pid == 0:
        try:
            lib = ctypes.CDLL(_lib.library_path())
            i32 = ctypes.c_int32
            ints = [i32(v) for v in (7, 1, 0, 0, 0, 1, 1)]
            P = (ctypes.c_double * 50)(*props)
            dbl = [(ctypes.c_double * 36)() for _ in range(9)]
            flags = [i32(0) for _ in range(6)]
            os.dup2(os.open(os.devnull, os.O_WRONLY), 1)
            lib.user_mod_(*[ctypes.byref(x) for x in ints], dbl[0], dbl[0], dbl[0], dbl[1], dbl[0], P,
                          dbl[2], dbl[3], dbl[4], dbl[5], dbl[6], dbl[7], dbl[8], dbl[7], dbl[8],
                          *[ctypes.byref(x) for x in flags], dbl[0], dbl[0], dbl[0])
            os.write(w, f"{P[9]!r} {P[12]!r}".encode())
        finally:
            os._exit(0)
    os.close(w)
    text = os.read(r, 200).decode()
    os.waitpid(pid, 0)
    return [float(x) for x in text.split()]


def test_calibrate_cli_gives_what_user_mod_gives(sand, tmp_path):
    start = sand.with_values(Ei_ref=sand["Ei_ref"] * 1.01)
    soil_file = tmp_path / "s.toml"
    start.to_toml(str(soil_file))
    out = tmp_path / "cal.toml"
    cli = subprocess.Popen([_lib.cli_path(), "calibrate", "--no-check", "--out", str(out), str(soil_file)],
                           stdout=subprocess.PIPE, text=True)
    py = tv.calibrate(start, show=False, check=False)
    k0, ei = _task7_by_host(start.props)
    assert "Iterative_hss started" in cli.communicate()[0] and cli.returncode == 0
    cal = tv.Soil.from_toml(str(out))
    assert (cal["K0_nc"], cal["Ei_ref"]) == (k0, ei)
    assert (py.soil["K0_nc"], py.soil["Ei_ref"]) == (k0, ei)
    assert ei != start["Ei_ref"] and "Ei_ref_inter" in py.output
