#include "model_library.hpp"

#include <dlfcn.h>

#include <cmath>
#include <cstdio>
#include <cstring>

#include "lab_error.hpp"

namespace tervak::lab {

namespace {
constexpr size_t kNameCap = 256;
}

std::string decode_counted(const char* buf, size_t cap) {
    if (cap == 0) return {};
    size_t n = static_cast<unsigned char>(buf[0]);
    if (n > cap - 1) n = cap - 1;
    std::string s(buf + 1, n);
    // Trim trailing blanks (Fortran-style padding).
    while (!s.empty() && (s.back() == ' ' || s.back() == '\0')) s.pop_back();
    return s;
}

ModelLibrary::ModelLibrary(const std::string& path) : path_(path) {
    dlerror();
    handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle_) {
        const char* why = dlerror();
        throw LabError("cannot load model library '" + path + "': " + (why ? why : "unknown reason"));
    }
    user_mod_ = reinterpret_cast<tervak_user_mod_fn>(sym("user_mod_"));
    if (!user_mod_) {
        dlclose(handle_);
        handle_ = nullptr;
        throw LabError("model library '" + path + "' has no entry user_mod_");
    }
    model_count_fn_ = reinterpret_cast<CountFn>(sym("getmodelcount"));
    model_name_fn_ = reinterpret_cast<NameFn>(sym("getmodelname"));
    param_count_fn_ = reinterpret_cast<CountOfFn>(sym("getparamcount"));
    param_name_fn_ = reinterpret_cast<ItemFn>(sym("getparamname"));
    param_unit_fn_ = reinterpret_cast<ItemFn>(sym("getparamunit"));
    sv_count_fn_ = reinterpret_cast<CountOfFn>(sym("getstatevarcount"));
    sv_name_fn_ = reinterpret_cast<ItemFn>(sym("getstatevarname"));
    sv_unit_fn_ = reinterpret_cast<ItemFn>(sym("getstatevarunit"));
    param_range_fn_ = reinterpret_cast<RangeFn>(sym("getparamrange"));
    // Without a model count the other descriptions are not used.
    if (!model_count_fn_) {
        model_name_fn_ = nullptr;
        param_count_fn_ = nullptr;
        sv_count_fn_ = nullptr;
        param_range_fn_ = nullptr;
    }
    tervak_marker_ = dlsym(handle_, "mymodel1_") != nullptr;
}

ModelLibrary::~ModelLibrary() {
    if (handle_) dlclose(handle_);
}

// Fortran-callable exports carry a trailing underscore; the plain name is
// accepted as well.
void* ModelLibrary::sym(const char* name) const {
    std::string under = std::string(name);
    if (under.back() != '_') under += '_';
    if (void* p = dlsym(handle_, under.c_str())) return p;
    std::string plain = under.substr(0, under.size() - 1);
    return dlsym(handle_, plain.c_str());
}

int ModelLibrary::model_count() const {
    if (!model_count_fn_) return -1;
    int32_t n = 0;
    model_count_fn_(&n);
    return n;
}

std::string ModelLibrary::model_name(int model) const {
    if (!model_name_fn_) return {};
    char buf[kNameCap];
    std::memset(buf, 0, sizeof buf);
    int32_t m = model;
    model_name_fn_(&m, buf, sizeof buf);
    return decode_counted(buf, sizeof buf);
}

std::vector<FieldInfo> ModelLibrary::fields(int model, CountOfFn count, ItemFn name,
                                            ItemFn unit) const {
    std::vector<FieldInfo> out;
    if (!count || !name) return out;
    int32_t m = model;
    int32_t n = 0;
    count(&m, &n);
    if (n < 0 || n > 10000) return out;
    for (int32_t i = 1; i <= n; ++i) {
        FieldInfo f;
        char buf[kNameCap];
        std::memset(buf, 0, sizeof buf);
        int32_t k = i;
        name(&m, &k, buf, sizeof buf);
        f.name = decode_counted(buf, sizeof buf);
        if (unit) {
            std::memset(buf, 0, sizeof buf);
            unit(&m, &k, buf, sizeof buf);
            f.unit = decode_counted(buf, sizeof buf);
        }
        out.push_back(std::move(f));
    }
    return out;
}

std::vector<FieldInfo> ModelLibrary::parameters(int model) const {
    std::vector<FieldInfo> out = fields(model, param_count_fn_, param_name_fn_, param_unit_fn_);
    if (!param_range_fn_) return out;
    for (size_t i = 0; i < out.size(); ++i) {
        int32_t m = model, k = static_cast<int32_t>(i) + 1, kind = 0;
        double lo = 0.0, hi = 0.0;
        param_range_fn_(&m, &k, &lo, &hi, &kind);
        if (kind >= 1 && kind <= 7 && !std::isnan(lo) && !std::isnan(hi)) out[i].range = {lo, hi, kind};
    }
    return out;
}

bool ValidRange::contains(double x) const {
    if (!known()) return true;
    if (std::isnan(x)) return false;
    bool lo_ok = (kind & 2) ? x > lo : x >= lo;
    bool hi_ok = (kind & 4) ? x < hi : x <= hi;
    return lo_ok && hi_ok;
}

std::string ValidRange::text() const {
    if (!known()) return {};
    char buf[96];
    std::string s;
    if (std::isfinite(lo)) {
        std::snprintf(buf, sizeof buf, "%.10g %s ", lo, (kind & 2) ? "<" : "<=");
        s += buf;
    }
    s += "value";
    if (std::isfinite(hi)) {
        std::snprintf(buf, sizeof buf, " %s %.10g", (kind & 4) ? "<" : "<=", hi);
        s += buf;
    }
    return s;
}

std::vector<FieldInfo> ModelLibrary::state_variables(int model) const {
    return fields(model, sv_count_fn_, sv_name_fn_, sv_unit_fn_);
}

}  // namespace tervak::lab
