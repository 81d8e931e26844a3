// SPDX-License-Identifier: MIT
// The mapping list with the origin of its entries, found by asking the library's own steps.
#pragma once

#include <string>
#include <vector>

#include "include/orvel_core.hpp"
#include "tools/output.hpp"

namespace tool {

struct Entry {
    std::string prefix, replacement;
    // The overlay sections that name the prefix, the last one counting; none: a mount's entry.
    std::vector<std::string> sections;
    // The mount's place in the mount table, which may be seen through another mount.
    std::string mountPoint;
};

// sortedMappings(), each entry with its origin.
std::vector<Entry> readTable();

// What an accepted configuration maps, in byte order; without the library's messages.
std::vector<Entry> overlayEntries(const orvel::ConfigTree &tree);

// prefix, replacement, "mount" or "overlay", and the mount point or section.
Rows toRows(const std::vector<Entry> &table);

}  // namespace tool
