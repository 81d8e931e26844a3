// SPDX-License-Identifier: MIT
// Entering another host's root.
#pragma once

#include <string>

namespace tool {

// Makes directory the root of this process, and checks that the library will see there what it
// needs: a mounted /proc and the nodes of the devices that are mounted. Throws std::runtime_error.
void enterRoot(const std::string &directory);

}  // namespace tool
