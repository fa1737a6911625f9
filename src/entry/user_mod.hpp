#pragma once

#include "models/models.hpp"

namespace tervak {

// Arguments 29 and 30 stop at the entry and are not part of ModelArgs.
void User_Mod(const ModelArgs& a);

}  // namespace tervak
