// SPDX-License-Identifier: MIT
// What the mount table says, and what follows from it: two steps, so that the second can be tested
// without a mount.
#pragma once

#include "include/orvel_core.hpp"

namespace orvel {

struct MountScan {
    PathMap sources;        // mount point -> source, the last mount at a point counting
    PathMap deviceTargets;  // block device -> mount point at which it is mounted whole, the last
};

// Mount point -> path of the same content under the mount point of its device; mounts for which
// that is the mount point itself are left out.
PathMap deriveMountMappings(const MountScan &scan);

}  // namespace orvel
