/* libtervak: soil constitutive models for finite-element hosts.
 *
 * The host resolves user_mod_ and calls it once per task and, for the
 * per-point tasks, once per stress point. Every argument is passed by
 * reference (Fortran convention); integers are 32-bit, reals 64-bit;
 * arrays are column-major. Stresses and strains: xx, yy, zz, xy, yz, zx,
 * tension positive, engineering shear strains.
 */
#ifndef TERVAK_H
#define TERVAK_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Task codes (IDTask). */
enum {
    TERVAK_TASK_INIT_STATE = 1,  /* initial state variables from Sig0 */
    TERVAK_TASK_STRESS = 2,      /* stresses of the step */
    TERVAK_TASK_STIFFNESS = 3,   /* material stiffness matrix D, BulkW */
    TERVAK_TASK_NSTAT = 4,       /* number of state variables */
    TERVAK_TASK_ATTRIBUTES = 5,  /* NonSym, StrsDep, TimeDep, Tangent */
    TERVAK_TASK_ELASTIC = 6,     /* elastic stiffness matrix D, BulkW */
    TERVAK_TASK_CALIBRATE = 7    /* model 1: calibrate Props(10), Props(13) */
};

/* The host entry, 31 arguments by reference. Arg8, Arg9, Arg10, Arg12,
 * Arg29, Arg30 and Arg31 belong to the host and are never dereferenced. */
void user_mod_(int32_t* IDTask, int32_t* iModel, int32_t* IsUndr, int32_t* iStep,
               int32_t* iTer, int32_t* iEl, int32_t* Int, void* Arg8, void* Arg9,
               void* Arg10, double* Time0, void* Arg12, double* Props, double* Sig0,
               double* Pw0, double* StVar0, double* dEps, double* D, double* BulkW,
               double* Sig, double* Pw, double* StVar, int32_t* iPlast, int32_t* nStat,
               int32_t* NonSym, int32_t* StrsDep, int32_t* TimeDep, int32_t* Tangent,
               void* Arg29, void* Arg30, void* Arg31);

typedef void (*tervak_user_mod_fn)(int32_t*, int32_t*, int32_t*, int32_t*, int32_t*,
                                   int32_t*, int32_t*, void*, void*, void*, double*, void*,
                                   double*, double*, double*, double*, double*, double*,
                                   double*, double*, double*, double*, int32_t*, int32_t*,
                                   int32_t*, int32_t*, int32_t*, int32_t*, void*, void*,
                                   void*);

#ifdef __cplusplus
}
#endif

#endif /* TERVAK_H */
