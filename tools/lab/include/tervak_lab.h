/* The Tervak laboratory: a single stress point driven through stages the
 * way a finite-element host drives it (tasks 4, 5, 1, then per iteration
 * task 3 or 6 and task 2), through user_mod_ of any model library.
 *
 * Stresses, strains and pore pressure in this interface use the host's
 * sign (tension positive); components xx, yy, zz, xy, yz, zx, engineering
 * shear strains. Functions that can fail return 0 on success and write a
 * message into err (capacity errlen) otherwise.
 */
#ifndef TERVAK_LAB_H
#define TERVAK_LAB_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tervak_lab_point tervak_lab_point;

enum { TERVAK_LAB_STRAIN = 0, TERVAK_LAB_STRESS = 1 };

/* Loads the library and prepares a point of the given model with nprops
 * parameters (padded with zeros to 50). NULL on failure. */
tervak_lab_point* tervak_lab_open(const char* library, int model, const double* props, int nprops,
                                  char* err, size_t errlen);
void tervak_lab_close(tervak_lab_point* pt);

/* Tasks 4, 5 and 1 with the initial effective stresses and pore pressure. */
int tervak_lab_initialize(tervak_lab_point* pt, const double sig0[6], double pw0, char* err,
                          size_t errlen);

/* Solver settings: relative stress tolerance, iteration limit, halvings. */
void tervak_lab_set_solver(tervak_lab_point* pt, double tolerance, int max_iterations, int max_cuts);

/* One stage of `steps` increments. control[i] is TERVAK_LAB_STRAIN or
 * TERVAK_LAB_STRESS (total stress); relative[i] != 0 makes value[i] a
 * change over the stage, otherwise the value at its end. Components whose
 * bit is set in tie_mask share one strain unknown. */
int tervak_lab_stage(tervak_lab_point* pt, const int control[6], const int relative[6],
                     const double value[6], int steps, int undrained, unsigned tie_mask, char* err,
                     size_t errlen);

/* The committed state; returns the number of state variables (copies at
 * most nsv of them into sv). */
int tervak_lab_state(const tervak_lab_point* pt, double sig[6], double eps[6], double* pw, double* sv,
                     int nsv);

/* Runs every test of a test file, writing CSV and JSON into out_dir.
 * Returns 0 when all tests ran, 1 when a test failed, 2 when the file or
 * the library was rejected. */
int tervak_lab_run_file(const char* test_file, const char* library, const char* out_dir, char* err,
                        size_t errlen);

/* Reads and checks a test file against the library without running it:
 * 0 when it is accepted, otherwise 2 with a message naming the file and
 * the field. */
int tervak_lab_check_file(const char* test_file, const char* library, char* err, size_t errlen);

/* Task 7 of user_mod_ (model 1: calibration of Props(13) and Props(10))
 * on props, nprops values (padded with zeros to 50), updated in place.
 * The library's progress lines go to standard output. */
int tervak_lab_calibrate(const char* library, int model, double* props, int nprops, char* err,
                         size_t errlen);

#ifdef __cplusplus
}
#endif

#endif /* TERVAK_LAB_H */
