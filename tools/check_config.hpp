// SPDX-License-Identifier: MIT
// A configuration file as the library reads it.
#pragma once

#include <string>

#include "include/orvel_core.hpp"

namespace tool {

// Writes the tree of file and what its overlays map to standard output, and the library's
// complaint or a human's remarks to standard error; in JSON all of it to standard output. True
// where the library accepts the file.
bool checkConfig(const std::string &file, SystemStage stage, bool inJson);

}  // namespace tool
