// SPDX-License-Identifier: MIT
// Hosts to measure on: a root of its own in a private mount namespace, with a loop device mounted
// whole at /sysroot and as many mounts as are asked for.
#pragma once

#include <string>
#include <vector>

namespace bench {

struct HostPlan {
    const char *name;
    int binds = 0;       // directories of the device, bound
    int others = 0;      // tmpfs and overlay mounts, in turn
    bool slave = false;  // whether the mounts are slaves of another namespace's, as a service
                         // manager makes them
    bool apart = false;  // whether each mount point has a directory of its own
    bool link =
        false;  // whether the device is mounted by a link to it, as with LVM, and others after it
};

// Makes the host below directory and enters it for good, which ends with the process. The result
// are the storage paths of the directories that are bound.
std::vector<std::string> enterHost(const HostPlan &plan, const std::string &directory);

}  // namespace bench
