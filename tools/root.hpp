// SPDX-License-Identifier: MIT
// The root in which the library is to look: this host's, or another one's.
#pragma once

#include <string>

namespace tool {

// Checks for a mounted /proc, without which the library sees no mounts. Throws std::runtime_error
// that names the root by root.
void requireProc(const std::string &root);

// Makes directory the root of this process, and checks that the library will see there what it
// needs: a mounted /proc and the nodes of the devices that are mounted. Throws std::runtime_error.
void enterRoot(const std::string &directory);

}  // namespace tool
