// A model library opened the way a finite-element host opens it: dlopen,
// then user_mod_ resolved by name. The optional parameter metadata
// exports are resolved too when the library has them.
#pragma once

#include <string>
#include <vector>

#include "tervak.h"

namespace tervak::lab {

// A valid range as the library states it: kind 0 when none is given,
// otherwise 1 + 2 (lower end excluded) + 4 (upper end excluded).
struct ValidRange {
    double lo = 0.0, hi = 0.0;
    int kind = 0;
    bool known() const { return kind != 0; }
    bool contains(double x) const;
    std::string text() const;  // "0 < value <= 1"
};

struct FieldInfo {
    std::string name;
    std::string unit;
    ValidRange range;  // parameters only, when the library states ranges
};

class ModelLibrary {
public:
    // Opens the library at path; throws LabError with the loader's reason.
    explicit ModelLibrary(const std::string& path);
    ~ModelLibrary();
    ModelLibrary(const ModelLibrary&) = delete;
    ModelLibrary& operator=(const ModelLibrary&) = delete;

    const std::string& path() const { return path_; }
    tervak_user_mod_fn user_mod() const { return user_mod_; }

    // True when the library describes its models (model count, parameter
    // and state-variable names and units).
    bool has_metadata() const { return model_count_fn_ != nullptr; }
    // Number of models the library declares, or -1 without metadata.
    int model_count() const;
    std::string model_name(int model) const;
    // Parameter and state-variable descriptions; empty without metadata.
    std::vector<FieldInfo> parameters(int model) const;
    std::vector<FieldInfo> state_variables(int model) const;
    // True for the Tervak library itself (it exports its model routines),
    // whose parameter layouts the lab knows.
    bool is_tervak() const { return tervak_marker_; }
    // True when the library states the valid ranges of its parameters.
    bool has_ranges() const { return param_range_fn_ != nullptr; }

private:
    using CountFn = void (*)(int32_t*);
    using NameFn = void (*)(int32_t*, char*, size_t);
    using CountOfFn = void (*)(int32_t*, int32_t*);
    using ItemFn = void (*)(int32_t*, int32_t*, char*, size_t);
    using RangeFn = void (*)(int32_t*, int32_t*, double*, double*, int32_t*);

    void* sym(const char* name) const;
    std::vector<FieldInfo> fields(int model, CountOfFn count, ItemFn name, ItemFn unit) const;

    std::string path_;
    void* handle_ = nullptr;
    tervak_user_mod_fn user_mod_ = nullptr;
    CountFn model_count_fn_ = nullptr;
    NameFn model_name_fn_ = nullptr;
    CountOfFn param_count_fn_ = nullptr;
    ItemFn param_name_fn_ = nullptr;
    ItemFn param_unit_fn_ = nullptr;
    CountOfFn sv_count_fn_ = nullptr;
    ItemFn sv_name_fn_ = nullptr;
    ItemFn sv_unit_fn_ = nullptr;
    RangeFn param_range_fn_ = nullptr;
    bool tervak_marker_ = false;
};

// Decodes a length-prefixed character buffer (first character holds the
// length) of capacity cap.
std::string decode_counted(const char* buf, size_t cap);

}  // namespace tervak::lab
