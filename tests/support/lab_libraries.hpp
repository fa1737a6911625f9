// The libraries the lab's tests load: the real one (null when it cannot be
// loaded, so a test can say so and skip) and the fake model.
#pragma once

#include <memory>

#include "lab_error.hpp"
#include "model_library.hpp"

namespace tervak::lab {

inline ModelLibrary* tervak_lib() {
    static std::unique_ptr<ModelLibrary> lib = [] {
        try {
            return std::make_unique<ModelLibrary>(TERVAK_LIB_PATH);
        } catch (const LabError&) {
            return std::unique_ptr<ModelLibrary>();
        }
    }();
    return lib.get();
}

}  // namespace tervak::lab
