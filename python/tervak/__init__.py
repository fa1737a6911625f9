"""Tervak from Python: soils, laboratory tests, task 7 calibration, fitting
to measured data and parameter studies on dask.distributed.

Every run goes through the laboratory's C API (libtervak-lab.so), which
calls the model library through user_mod_ exactly as a host does, in a
child process of its own. Results are compression positive, one row per
converged increment, with the columns of the laboratory's CSV files.
"""
from ._lib import Parameter, TervakError, parameters
from .calibrate import Calibration, calibrate
from .fit import FitResult, fit
from .lab import (ModelStop, Result, RunFailed, Test, check, general, isotropic, oedometer, run,
                  simple_shear, triaxial)
from .measured import Measured
from .soil import Soil
from .study import StudyResult, study

__all__ = ["Calibration", "FitResult", "Measured", "ModelStop", "Parameter", "Result", "RunFailed",
           "Soil", "StudyResult", "Test", "TervakError", "calibrate", "check", "fit", "general",
           "isotropic", "oedometer", "parameters", "run", "simple_shear", "study", "triaxial"]
