"""Measured laboratory data: a CSV file whose columns map onto the
laboratory's column names."""
import os

import numpy as np

from ._lib import TervakError


class Measured:
    """Measured points of one test.

    data: dict of laboratory column name -> array. From a CSV file with a
    header line (lines starting with '#' are comments): `columns` maps a
    laboratory column (e.g. "eps_yy", "q", "eps_v", "sig_yy", "gamma",
    "G_ratio", "damping") to a file column, `scale` multiplies a column
    (e.g. 0.01 for per cent). `curves` are the (x, y) pairs to fit (default:
    the test's usual curves present in the data); `weight` weighs the test.
    """

    def __init__(self, data=None, file=None, columns=None, scale=None, curves=None, weight=1.0):
        if file is not None:
            data = read_columns(file, columns or {})
        elif data is None:
            raise TervakError("measured data: give 'file' or 'data'")
        self.file = file
        self.data = {k: np.asarray(v, dtype=float) for k, v in data.items()}
        for k, f in (scale or {}).items():
            if k not in self.data:
                raise TervakError(f"{file or 'measured data'}: scale: '{k}' is not a measured column "
                                  f"({', '.join(self.data)})")
            self.data[k] = self.data[k] * float(f)
        self.curves = [tuple(c) for c in curves] if curves else None
        for c in self.curves or []:
            for col in c:
                if col not in self.data:
                    raise TervakError(f"{file or 'measured data'}: curve {c}: '{col}' is not a measured "
                                      f"column ({', '.join(self.data)})")
        if not weight > 0:
            raise TervakError(f"{file or 'measured data'}: 'weight' = {weight} must be positive")
        self.weight = float(weight)


def read_columns(path, columns):
    """Reads a CSV file; returns lab column -> values. Errors name the file,
    the line and the column."""
    try:
        with open(path) as f:
            lines = f.read().splitlines()
    except OSError as e:
        raise TervakError(f"{path}: {e.strerror}") from None
    header, rows = None, []
    for no, line in enumerate(lines, 1):
        s = line.strip()
        if not s or s.startswith("#"):
            continue
        cells = [c.strip() for c in s.split(",")]
        if header is None:
            header = cells
            continue
        if len(cells) != len(header):
            raise TervakError(f"{path}, line {no}: {len(cells)} values, the header has {len(header)}")
        vals = []
        for name, c in zip(header, cells):
            try:
                vals.append(float(c))
            except ValueError:
                raise TervakError(f"{path}, line {no}: '{c}' in column '{name}' is not a number") from None
        rows.append(vals)
    if header is None:
        raise TervakError(f"{path}: no header line")
    if not rows:
        raise TervakError(f"{path}: no data rows")
    mapping = dict(columns) if columns else {h: h for h in header}
    out = {}
    for lab_col, file_col in mapping.items():
        if file_col not in header:
            raise TervakError(f"{path}: column '{file_col}' (for '{lab_col}') is missing "
                              f"(columns: {', '.join(header)})")
        j = header.index(file_col)
        out[lab_col] = np.array([r[j] for r in rows])
    return out


def resolve(path, base):
    return path if os.path.isabs(path) else os.path.join(os.path.dirname(os.path.abspath(base)), path)
