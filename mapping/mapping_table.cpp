// SPDX-License-Identifier: MIT
// The table of prefixes that normalising replaces: the mounts, inverted to lead from backing path
// to mount point, and the overlay layers, which override them.
#include <algorithm>
#include <string_view>

#include "base/prefix.hpp"
#include "include/orvel_core.hpp"

namespace {

// If several mount points show one backing path, the shortest wins, then the bytewise smallest.
bool isPreferredMountPoint(std::string_view mountPoint, std::string_view other) {
    if (mountPoint.size() != other.size()) return mountPoint.size() < other.size();
    return mountPoint < other;
}

// If two mounts get one mount point, the shorter backing path wins, then the bytewise larger.
bool isPreferredBackingPath(std::string_view backingPath, std::string_view other) {
    if (backingPath.size() != other.size()) return backingPath.size() < other.size();
    return backingPath > other;
}

// The entry of another mount whose backing path encloses mountPoint, or null: the longest one that
// ends on a component boundary, else the longest plain prefix.
const orvel::PrefixIndex::Entry *enclosingEntry(const orvel::PrefixIndex &mountPoints,
                                                std::string_view mountPoint,
                                                std::string_view backingPath) {
    const orvel::PrefixIndex::Entry *plain = nullptr;
    const auto encloses = [&](const orvel::PrefixIndex::Entry &entry) {
        if (entry.prefix == backingPath) return false;
        if (plain == nullptr) plain = &entry;
        return orvel::covers(entry.prefix, mountPoint);
    };
    const auto *enclosing = mountPoints.longest(mountPoint, encloses);
    return enclosing != nullptr ? enclosing : plain;
}

// Whether a backing path may enclose a mount point. For example, if all backing paths begin with
// /sysroot, none encloses /var. This saves the index for most hosts.
bool mayMove(const orvel::PathMap &mounts) {
    if (mounts.empty()) return false;
    std::string_view common = mounts.begin()->second;
    for (const auto &[mountPoint, backingPath] : mounts) {
        const auto differ =
            std::mismatch(common.begin(), common.end(), backingPath.begin(), backingPath.end());
        common.remove_suffix(static_cast<std::size_t>(common.end() - differ.first));
    }
    return std::any_of(mounts.begin(), mounts.end(),
                       [&](const auto &mount) { return mount.first.starts_with(common); });
}

// backing path -> the preferred of its mount points
using Preferred = std::unordered_map<std::string_view, std::string_view>;

Preferred preferredMountPoints(const orvel::PathMap &mounts) {
    Preferred preferred;
    for (const auto &[mountPoint, backingPath] : mounts) {
        const auto [entry, isNew] = preferred.try_emplace(backingPath, mountPoint);
        if (!isNew && isPreferredMountPoint(mountPoint, entry->second)) entry->second = mountPoint;
    }
    return preferred;
}

orvel::PathMap retarget(orvel::PathMap mounts) {
    if (!mayMove(mounts)) return mounts;
    const orvel::PrefixIndex mountPoints(preferredMountPoints(mounts));
    orvel::PathMap retargeted;
    retargeted.reserve(mounts.size());
    for (const auto &[mountPoint, backingPath] : mounts) {
        const auto *enclosing = enclosingEntry(mountPoints, mountPoint, backingPath);
        const auto [entry, isNew] = retargeted.try_emplace(
            enclosing == nullptr ? mountPoint
                                 : orvel::replacePrefix(mountPoint, enclosing->prefix.size(),
                                                        enclosing->replacement),
            backingPath);
        if (!isNew && isPreferredBackingPath(backingPath, entry->second))
            entry->second = backingPath;
    }
    return retargeted;
}

// Mount point -> backing path becomes backing path -> mount point.
orvel::PathMap invert(orvel::PathMap mounts) {
    orvel::PathMap table;
    table.reserve(mounts.size());
    while (!mounts.empty()) {
        auto mount = mounts.extract(mounts.begin());
        std::swap(mount.key(), mount.mapped());
        auto inserted = table.insert(std::move(mount));
        if (!inserted.inserted &&
            isPreferredMountPoint(inserted.node.mapped(), inserted.position->second))
            inserted.position->second = std::move(inserted.node.mapped());
    }
    return table;
}

}  // namespace

orvel::PathMap replaceTarget(const orvel::PathMap &mounts) {
    return retarget(mounts);
}

orvel::PathMap mergeMountMappings() {
    orvel::PathMap mounts = processMountInfo();

    orvel::PathMap overlays;
    orvel::ConfigTree tree;
    std::string ignoredMode;
    if (parseConfig(orvel::kConfigPath, StageSystem, tree))
        overlays = getOverlayMountMappings(tree, ignoredMode);

    orvel::PathMap table = invert(retarget(std::move(mounts)));
    for (const auto &[layer, merged] : overlays) table.insert_or_assign(layer, merged);
    return table;
}

// The longest prefix is the first match.
orvel::MappingList sortedMappings() {
    orvel::PathMap table = mergeMountMappings();
    orvel::MappingList list;
    list.reserve(table.size());
    while (!table.empty()) {
        auto entry = table.extract(table.begin());
        list.emplace_back(std::move(entry.key()), std::move(entry.mapped()));
    }
    // Two prefixes of one length never match the same path. Byte order makes the list the same each
    // time.
    std::sort(list.begin(), list.end(), [](const auto &a, const auto &b) {
        if (a.first.size() != b.first.size()) return a.first.size() > b.first.size();
        return a.first < b.first;
    });
    return list;
}

std::string checkBindMountPoint1(const std::string &path) {
    const orvel::PathMap table = mergeMountMappings();
    const orvel::PrefixIndex index(table);
    const auto *entry = index.longest(path);
    if (entry == nullptr) return path;
    return std::string(entry->replacement).append(path, entry->prefix.size());
}
