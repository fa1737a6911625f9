// Lookups behind the companion routines.
#include "entry/metadata.hpp"

#include "models/parameters.hpp"

namespace tervak::meta {

namespace {
const params::Entry* param(int iMod, int iParam) {
    const params::ModelInfo* m = params::model(iMod);
    return m ? params::at(m->props, iParam) : nullptr;
}
const params::Entry* state(int iMod, int iVar) {
    const params::ModelInfo* m = params::model(iMod);
    return m ? params::at(m->state, iVar) : nullptr;
}
}  // namespace

int model_count() { return params::kModelCount; }

std::string_view model_name(int iMod) {
    const params::ModelInfo* m = params::model(iMod);
    return m ? m->name : std::string_view{};
}

int param_count(int iMod) {
    const params::ModelInfo* m = params::model(iMod);
    return m ? static_cast<int>(m->props.size()) : 0;
}

std::string_view param_name(int iMod, int iParam) {
    const params::Entry* e = param(iMod, iParam);
    return e ? e->name : std::string_view{};
}

std::string_view param_unit(int iMod, int iParam) {
    const params::Entry* e = param(iMod, iParam);
    return e ? e->unit : std::string_view{};
}

int state_count(int iMod) {
    const params::ModelInfo* m = params::model(iMod);
    return m ? static_cast<int>(m->state.size()) : 0;
}

std::string_view state_name(int iMod, int iVar) {
    const params::Entry* e = state(iMod, iVar);
    return e ? e->name : std::string_view{};
}

std::string_view state_unit(int iMod, int iVar) {
    const params::Entry* e = state(iMod, iVar);
    return e ? e->unit : std::string_view{};
}

ParamRange param_range(int iMod, int iParam) {
    const params::Entry* e = param(iMod, iParam);
    if (!e || !e->range.known) return {0.0, 0.0, 0};
    const params::Range& r = e->range;
    return {r.lo, r.hi, 1 + (r.lo_open ? 2 : 0) + (r.hi_open ? 4 : 0)};
}

void put_counted(char* buf, std::size_t len, std::string_view text) {
    if (buf == nullptr || len == 0) return;
    std::size_t n = text.size();
    if (n > len - 1) n = len - 1;
    if (n > 255) n = 255;
    buf[0] = static_cast<char>(static_cast<unsigned char>(n));
    for (std::size_t i = 0; i < n; ++i) buf[i + 1] = text[i];
}

}  // namespace tervak::meta
