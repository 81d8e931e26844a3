// SPDX-License-Identifier: MIT
// What a mode reads of the system, once: the mounts, the configuration, and the table of mappings
// that the library makes of them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "include/orvel_core.hpp"
#include "tools/output.hpp"

namespace tool {

struct Mount {
    std::string mountPoint, source, root, type;  // as the mount table has them
    std::uint64_t id = 0;
    std::vector<std::string> layers;  // an overlay's, as far as they are absolute paths
    bool isFuse = false;              // a user may have chosen the source
    bool hasPath = false;             // the library takes the source for a path
    bool isDevice = false;            // and finds a block device there

    // The library takes a device without a node for no device.
    bool lacksNode() const { return hasPath && !isDevice && source.starts_with("/dev/"); }
    bool isWhole() const { return isDevice && root == "/"; }
};

// A mapping with its origin.
struct Entry {
    std::string prefix, replacement;
    // The overlay sections that name the prefix; the last one wins. Empty for a mount's entry.
    std::vector<std::string> sections;
    // The mount point in the mount table. Through another mount, it may be shown elsewhere.
    std::string mountPoint;
};

struct Host {
    std::vector<Mount> mounts;    // in the order of the mount table
    orvel::PathMap storagePaths;  // mount point -> storage path, as the library derives it
    orvel::ConfigTree config;     // empty if there is a complaint
    std::string complaint;        // why the library does not accept the configuration
    orvel::MappingList mappings;  // in the order in which they are applied
    std::vector<Entry> table;     // the same with their origins

    // The mount with the deepest mount point above path, the last one if there are several; or
    // null.
    const Mount *mountAbove(const std::string &path) const;
    // The storage and layer paths that the table gives as path.
    std::vector<std::string> storageNames(const std::string &path) const;
};

// Throws std::runtime_error if they cannot be read.
std::vector<Mount> readMounts();

// Throws std::runtime_error if the mounts cannot be read or the configuration is a FIFO.
Host readHost();

// The mappings of an accepted configuration, in byte order, without the library's messages.
std::vector<Entry> overlayEntries(const orvel::ConfigTree &tree);

// host.mappings with their origins, found in the other members of host.
std::vector<Entry> withOrigins(const Host &host);

// Rows of replacement, origin ("mount" or "overlay"), name (mount point or section) and prefix.
Json toRows(const std::vector<Entry> &table);

}  // namespace tool
