// SPDX-License-Identifier: MIT
// The rules for mounts as one would first write them down: each path made canonical by itself, each mount compared
// with each other one. What the library is measured against.
#pragma once

#include "include/orvel_core.hpp"

namespace bench {

// Backing path -> mount point, for the process's mounts.
orvel::PathMap plainMountTable();

}  // namespace bench
