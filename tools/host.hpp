// SPDX-License-Identifier: MIT
// What a mode reads of the system, each part once: the mounts, the configuration and the table of
// mappings that the library makes of them.
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

    // A mounted device that cannot be looked at is none to the library.
    bool lacksNode() const { return hasPath && !isDevice && source.starts_with("/dev/"); }
    bool isWhole() const { return isDevice && root == "/"; }
};

// A mapping with its origin.
struct Entry {
    std::string prefix, replacement;
    // The overlay sections that name the prefix, of which the last one wins; none: a mount's entry.
    std::vector<std::string> sections;
    // The mount's place in the mount table, which may be seen through another mount.
    std::string mountPoint;
};

struct Host {
    std::vector<Mount> mounts;    // in the order of the mount table
    orvel::PathMap storagePaths;  // mount point -> storage path, as the library derives it
    orvel::ConfigTree config;     // empty if there is a complaint
    std::string complaint;        // why the library does not accept the configuration
    orvel::MappingList mappings;  // in the order in which they are applied
    std::vector<Entry> table;     // the same with their origins

    // The mount, the last one of equals, whose mount point is the deepest above path; or null.
    const Mount *mountAbove(const std::string &path) const;
    // The names below storage and layers that the table gives as the path.
    std::vector<std::string> storageNames(const std::string &path) const;
};

// Throws std::runtime_error if they cannot be read.
std::vector<Mount> readMounts();

// Throws std::runtime_error if the mounts cannot be read or the configuration is a FIFO.
Host readHost();

// What an accepted configuration maps, in byte order; without the library's messages.
std::vector<Entry> overlayEntries(const orvel::ConfigTree &tree);

// host.mappings with their origins, from what else is in host.
std::vector<Entry> withOrigins(const Host &host);

// Rows of replacement, origin ("mount" or "overlay"), name (mount point or section) and prefix.
Json toRows(const std::vector<Entry> &table);

}  // namespace tool
