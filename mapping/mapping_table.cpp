// SPDX-License-Identifier: MIT
// The table of prefixes that normalising replaces: the mounts, turned round to read from backing
// path to mount point, and the overlay layers on top of them.
#include <algorithm>
#include <string_view>

#include "base/prefix.hpp"
#include "include/orvel_core.hpp"

namespace {

// Of several mount points that show one backing path, the table takes the shortest, then the
// bytewise smallest.
bool isPreferred(std::string_view mountPoint, std::string_view other) {
    if (mountPoint.size() != other.size()) return mountPoint.size() < other.size();
    return mountPoint < other;
}

// Of two mounts that come out at one mount point, the shorter backing path stays, then the bytewise
// larger.
bool staysAtMountPoint(std::string_view backingPath, std::string_view other) {
    if (backingPath.size() != other.size()) return backingPath.size() < other.size();
    return backingPath > other;
}

// The entry through which a mount point is seen that lies in another mount's backing path, or null;
// a match on a component boundary goes before a longer one that ends inside a name.
const orvel::PrefixIndex::Entry *entryAbove(const orvel::PrefixIndex &mountPoints,
                                            std::string_view mountPoint,
                                            std::string_view backingPath) {
    const orvel::PrefixIndex::Entry *plain = nullptr;
    const auto isAbove = [&](const orvel::PrefixIndex::Entry &entry) {
        if (entry.prefix == backingPath) return false;
        if (plain == nullptr) plain = &entry;
        return orvel::covers(entry.prefix, mountPoint);
    };
    const auto *through = mountPoints.longest(mountPoint, isAbove);
    return through != nullptr ? through : plain;
}

struct Move {
    orvel::PathMap::const_iterator mount;
    std::string mountPoint;  // where the mount is to be found
};

// Whether a mount point may lie in a backing path, to go by what all backing paths begin with:
// where one device holds everything, that is the place at which it is mounted whole, and mostly
// none does.
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

std::vector<Move> findMoves(const orvel::PathMap &mounts) {
    if (!mayMove(mounts)) return {};
    std::unordered_map<std::string_view, std::string_view> preferred;
    for (const auto &[mountPoint, backingPath] : mounts) {
        const auto [entry, isNew] = preferred.try_emplace(backingPath, mountPoint);
        if (!isNew && isPreferred(mountPoint, entry->second)) entry->second = mountPoint;
    }
    const orvel::PrefixIndex mountPoints(preferred);
    std::vector<Move> moves;
    for (auto mount = mounts.begin(); mount != mounts.end(); ++mount) {
        const auto &[mountPoint, backingPath] = *mount;
        if (const auto *through = entryAbove(mountPoints, mountPoint, backingPath))
            moves.push_back({mount, orvel::replacePrefix(mountPoint, through->prefix.size(),
                                                         through->replacement)});
    }
    return moves;
}

// replaceTarget() in place: most mounts stay where they are. All that move are taken out before one
// of them is put back, so that none meets another one's old place.
void replaceTargets(orvel::PathMap &mounts) {
    std::vector<orvel::PathMap::node_type> moved;
    for (Move &move : findMoves(mounts)) {
        moved.push_back(mounts.extract(move.mount));
        moved.back().key() = std::move(move.mountPoint);
    }
    for (auto &mount : moved) {
        auto inserted = mounts.insert(std::move(mount));
        if (!inserted.inserted &&
            staysAtMountPoint(inserted.node.mapped(), inserted.position->second))
            inserted.position->second = std::move(inserted.node.mapped());
    }
}

// The mounts with backing path and mount point exchanged. Several mount points may meet at one
// backing path.
orvel::PathMap turnRound(orvel::PathMap mounts) {
    orvel::PathMap table;
    table.reserve(mounts.size());
    while (!mounts.empty()) {
        auto mount = mounts.extract(mounts.begin());
        std::swap(mount.key(), mount.mapped());
        auto inserted = table.insert(std::move(mount));
        if (!inserted.inserted && isPreferred(inserted.node.mapped(), inserted.position->second))
            inserted.position->second = std::move(inserted.node.mapped());
    }
    return table;
}

}  // namespace

orvel::PathMap replaceTarget(const orvel::PathMap &mounts) {
    orvel::PathMap retargeted = mounts;
    replaceTargets(retargeted);
    return retargeted;
}

orvel::PathMap mergeMountMappings() {
    orvel::PathMap mounts = processMountInfo();

    orvel::PathMap overlays;
    orvel::ConfigTree tree;
    std::string ignoredMode;
    if (parseConfig(orvel::kConfigPath, StageSystem, tree))
        overlays = getOverlayMountMappings(tree, ignoredMode);

    replaceTargets(mounts);
    orvel::PathMap table = turnRound(std::move(mounts));
    // A layer of an overlay goes before all mounts of it.
    for (const auto &[layer, merged] : overlays) table.insert_or_assign(layer, merged);
    return table;
}

std::string checkBindMountPoint1(const std::string &path) {
    const orvel::PathMap table = mergeMountMappings();
    const orvel::PrefixIndex index(table);
    const auto *entry = index.longest(path);
    if (entry == nullptr) return path;
    return std::string(entry->replacement).append(path, entry->prefix.size());
}
