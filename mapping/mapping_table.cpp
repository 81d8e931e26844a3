// SPDX-License-Identifier: MIT
// The table of prefixes that normalising replaces: the mounts, turned round to read from backing
// path to mount point, and the overlay layers on top of them.
#include <algorithm>
#include <string_view>

#include "base/prefix.hpp"
#include "include/orvel_core.hpp"

namespace {

// Fixed: neither the environment nor the caller can point the library at another file.
constexpr const char *kConfigPath = "/ostree/pkgs/system-ovl.conf";

struct Mount {
    std::string_view backingPath;
    std::string_view mountPoint;
};

// Of several mount points that show one backing path, the table takes the shortest, then the
// bytewise smallest.
bool isPreferred(std::string_view mountPoint, std::string_view other) {
    if (mountPoint.size() != other.size()) return mountPoint.size() < other.size();
    return mountPoint < other;
}

// Longest backing path first. Of one backing path the preferred mount point comes last, since the
// last one counts.
bool isSortedBefore(const Mount &a, const Mount &b) {
    if (a.backingPath.size() != b.backingPath.size())
        return a.backingPath.size() > b.backingPath.size();
    if (a.backingPath != b.backingPath) return a.backingPath < b.backingPath;
    return isPreferred(b.mountPoint, a.mountPoint);
}

// The mount point as seen through the mount whose backing path it lies in; a match on a component
// boundary goes before a longer one that ends inside a name.
std::string retarget(const Mount &mount, const orvel::PrefixIndex &mountPoints) {
    const orvel::PrefixIndex::Entry *plain = nullptr;
    const auto isAbove = [&](const orvel::PrefixIndex::Entry &entry) {
        if (entry.first == mount.backingPath) return false;
        if (plain == nullptr) plain = &entry;
        return orvel::covers(entry.first, mount.mountPoint);
    };
    const auto *through = mountPoints.longest(mount.mountPoint, isAbove);
    if (through == nullptr) through = plain;
    if (through == nullptr) return std::string(mount.mountPoint);
    return orvel::replacePrefix(mount.mountPoint, through->first.size(), through->second);
}

}  // namespace

orvel::PathMap replaceTarget(const orvel::PathMap &mounts) {
    std::vector<Mount> sorted;
    sorted.reserve(mounts.size());
    for (const auto &[mountPoint, backingPath] : mounts)
        sorted.push_back({backingPath, mountPoint});
    std::sort(sorted.begin(), sorted.end(), isSortedBefore);

    orvel::PrefixIndex mountPoints;
    for (const Mount &mount : sorted) mountPoints.set(mount.backingPath, mount.mountPoint);

    orvel::PathMap retargeted;
    retargeted.reserve(mounts.size());
    for (const Mount &mount : sorted)
        retargeted.insert_or_assign(retarget(mount, mountPoints), mount.backingPath);
    return retargeted;
}

orvel::PathMap mergeMountMappings() {
    const orvel::PathMap mounts = processMountInfo();

    orvel::PathMap overlays;
    orvel::ConfigTree tree;
    std::string ignoredMode;
    if (parseConfig(kConfigPath, StageSystem, tree))
        overlays = getOverlayMountMappings(tree, ignoredMode);

    // Turned round, several mount points may meet at one backing path; a layer of an overlay goes
    // before all of them.
    orvel::PathMap table;
    for (const auto &[mountPoint, backingPath] : replaceTarget(mounts)) {
        const auto [entry, isNew] = table.try_emplace(backingPath, mountPoint);
        if (!isNew && isPreferred(mountPoint, entry->second)) entry->second = mountPoint;
    }
    for (const auto &[layer, merged] : overlays) table.insert_or_assign(layer, merged);
    return table;
}

std::string checkBindMountPoint1(const std::string &path) {
    const orvel::PathMap table = mergeMountMappings();
    const orvel::PrefixIndex index(table);
    const auto *entry = index.longest(path);
    if (entry == nullptr) return path;
    return std::string(entry->second).append(path, entry->first.size());
}
