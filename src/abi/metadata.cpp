// Exported companion routines that describe the models to the host: model
// count and names, parameter and state-variable counts, names and units.
// Fortran calling convention: every argument by reference, and each
// character argument followed by its hidden length at the end of the list.
// Texts are written as length-prefixed buffers (the first character holds
// the length). Each routine is exported twice: with the trailing
// underscore of a Fortran compiler and under the plain lower-case name.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "abi/export.hpp"
#include "entry/metadata.hpp"

namespace {

int value(const int32_t* p) { return p ? *p : 0; }

void set(int32_t* p, int v) {
    if (p) *p = v;
}

void model_count(int32_t* nMod) { set(nMod, tervak::meta::model_count()); }

void model_name(const int32_t* iMod, char* Name, std::size_t len) {
    tervak::meta::put_counted(Name, len, tervak::meta::model_name(value(iMod)));
}

void param_count(const int32_t* iMod, int32_t* nParam) {
    set(nParam, tervak::meta::param_count(value(iMod)));
}

void param_name(const int32_t* iMod, const int32_t* iParam, char* Name, std::size_t len) {
    tervak::meta::put_counted(Name, len, tervak::meta::param_name(value(iMod), value(iParam)));
}

void param_unit(const int32_t* iMod, const int32_t* iParam, char* Unit, std::size_t len) {
    tervak::meta::put_counted(Unit, len, tervak::meta::param_unit(value(iMod), value(iParam)));
}

void state_count(const int32_t* iMod, int32_t* nVar) {
    set(nVar, tervak::meta::state_count(value(iMod)));
}

void state_name(const int32_t* iMod, const int32_t* iVar, char* Name, std::size_t len) {
    tervak::meta::put_counted(Name, len, tervak::meta::state_name(value(iMod), value(iVar)));
}

void state_unit(const int32_t* iMod, const int32_t* iVar, char* Unit, std::size_t len) {
    tervak::meta::put_counted(Unit, len, tervak::meta::state_unit(value(iMod), value(iVar)));
}

void param_range(const int32_t* iMod, const int32_t* iParam, double* Lo, double* Hi, int32_t* Kind) {
    const tervak::meta::ParamRange r = tervak::meta::param_range(value(iMod), value(iParam));
    if (Lo) *Lo = r.lo;
    if (Hi) *Hi = r.hi;
    set(Kind, r.kind);
}

}  // namespace

// Both spellings of each routine share one body.
#define TERVAK_BOTH(name, body, params, args)                   \
    TERVAK_API void name##_ params noexcept { body args; }      \
    TERVAK_API void name params noexcept { body args; }

TERVAK_BOTH(getmodelcount, model_count, (int32_t * nMod), (nMod))
TERVAK_BOTH(getmodelname, model_name, (int32_t * iMod, char* Name, std::size_t Name_len),
            (iMod, Name, Name_len))
TERVAK_BOTH(getparamcount, param_count, (int32_t * iMod, int32_t* nParam), (iMod, nParam))
TERVAK_BOTH(getparamname, param_name,
            (int32_t * iMod, int32_t* iParam, char* Name, std::size_t Name_len),
            (iMod, iParam, Name, Name_len))
TERVAK_BOTH(getparamunit, param_unit,
            (int32_t * iMod, int32_t* iParam, char* Unit, std::size_t Unit_len),
            (iMod, iParam, Unit, Unit_len))
TERVAK_BOTH(getstatevarcount, state_count, (int32_t * iMod, int32_t* nVar), (iMod, nVar))
TERVAK_BOTH(getstatevarname, state_name,
            (int32_t * iMod, int32_t* iVar, char* Name, std::size_t Name_len),
            (iMod, iVar, Name, Name_len))
TERVAK_BOTH(getstatevarunit, state_unit,
            (int32_t * iMod, int32_t* iVar, char* Unit, std::size_t Unit_len),
            (iMod, iVar, Unit, Unit_len))

TERVAK_BOTH(getparamrange, param_range,
            (int32_t * iMod, int32_t* iParam, double* Lo, double* Hi, int32_t* Kind),
            (iMod, iParam, Lo, Hi, Kind))

#undef TERVAK_BOTH
