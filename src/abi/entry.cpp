// Exported host entry and model routines.
#include "abi/export.hpp"
#include "entry/user_mod.hpp"
#include "models/models.hpp"

using tervak::ModelArgs;

namespace {
ModelArgs pack(int32_t* IDTask, int32_t* iModel, int32_t* IsUndr, int32_t* iStep, int32_t* iTer,
               int32_t* iEl, int32_t* Int, void* Arg8, void* Arg9, void* Arg10, double* Time0,
               void* Arg12, double* Props, double* Sig0, double* Pw0, double* StVar0,
               double* dEps, double* D, double* BulkW, double* Sig, double* Pw, double* StVar,
               int32_t* iPlast, int32_t* nStat, int32_t* NonSym, int32_t* StrsDep,
               int32_t* TimeDep, int32_t* Tangent, void* Arg31) {
    return ModelArgs{IDTask, iModel, IsUndr, iStep, iTer,  iEl,     Int,     Arg8,
                     Arg9,   Arg10,  Time0,  Arg12, Props, Sig0,    Pw0,     StVar0,
                     dEps,   D,      BulkW,  Sig,   Pw,    StVar,   iPlast,  nStat,
                     NonSym, StrsDep, TimeDep, Tangent, Arg31};
}
}  // namespace

#define TERVAK_MODEL_PARAMS                                                                   \
    int32_t *IDTask, int32_t *iModel, int32_t *IsUndr, int32_t *iStep, int32_t *iTer,         \
        int32_t *iEl, int32_t *Int, void *Arg8, void *Arg9, void *Arg10, double *Time0,       \
        void *Arg12, double *Props, double *Sig0, double *Pw0, double *StVar0, double *dEps,  \
        double *D, double *BulkW, double *Sig, double *Pw, double *StVar, int32_t *iPlast,    \
        int32_t *nStat, int32_t *NonSym, int32_t *StrsDep, int32_t *TimeDep, int32_t *Tangent
#define TERVAK_MODEL_ARGS                                                                      \
    IDTask, iModel, IsUndr, iStep, iTer, iEl, Int, Arg8, Arg9, Arg10, Time0, Arg12, Props,     \
        Sig0, Pw0, StVar0, dEps, D, BulkW, Sig, Pw, StVar, iPlast, nStat, NonSym, StrsDep,     \
        TimeDep, Tangent

TERVAK_API void user_mod_(TERVAK_MODEL_PARAMS, void* /*Arg29*/, void* /*Arg30*/,
                          void* Arg31) noexcept {
    tervak::User_Mod(pack(TERVAK_MODEL_ARGS, Arg31));
}

TERVAK_API void mymodel1_(TERVAK_MODEL_PARAMS, void* Arg31) noexcept {
    tervak::mymodel1(pack(TERVAK_MODEL_ARGS, Arg31));
}
TERVAK_API void mymodel2_(TERVAK_MODEL_PARAMS, void* Arg31) noexcept {
    tervak::mymodel2(pack(TERVAK_MODEL_ARGS, Arg31));
}
TERVAK_API void mymodel3_(TERVAK_MODEL_PARAMS, void* Arg31) noexcept {
    tervak::mymodel3(pack(TERVAK_MODEL_ARGS, Arg31));
}
TERVAK_API void mymodel4_(TERVAK_MODEL_PARAMS, void* Arg31) noexcept {
    tervak::mymodel4(pack(TERVAK_MODEL_ARGS, Arg31));
}
