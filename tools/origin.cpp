// SPDX-License-Identifier: MIT
#include "tools/origin.hpp"

#include <map>

#include "tools/host_log.hpp"

namespace tool {
namespace {

using Backing = std::multimap<std::string, std::string>;  // backing path -> mount points

// Of several mounts of one directory, the one whose mount point the list gives, else any one of
// those that were moved there, the first in byte order.
std::string mountPointOf(const Entry &entry, const Backing &mounts) {
    std::string found;
    const auto [begin, end] = mounts.equal_range(entry.prefix);
    for (auto mount = begin; mount != end; ++mount) {
        if (mount->second == entry.replacement) return mount->second;
        if (found.empty() || mount->second < found) found = mount->second;
    }
    return found.empty() ? entry.replacement : found;  // unmounted since the list was read
}

}  // namespace

std::vector<Entry> overlayEntries(const orvel::ConfigTree &tree) {
    const MessageKeeper saidAlready;
    std::string mode;
    std::map<std::string, Entry> entries;
    for (const auto &[layer, merged] : getOverlayMountMappings(tree, mode))
        entries[layer] = {layer, merged, {}, {}};
    // Each section as if it were alone, in byte order, in which the library applies them.
    for (const auto &section : std::map(tree.begin(), tree.end()))
        for (const auto &[layer, merged] :
             getOverlayMountMappings({*tree.find("General"), section}, mode))
            entries[layer].sections.push_back(section.first);
    std::vector<Entry> list;
    list.reserve(entries.size());
    for (auto &[layer, entry] : entries) list.push_back(std::move(entry));
    return list;
}

std::vector<Entry> readTable() {
    const orvel::MappingList mappings = sortedMappings();
    const MessageKeeper saidAlready;
    Backing mounts;
    for (const auto &[mountPoint, backingPath] : processMountInfo())
        mounts.emplace(backingPath, mountPoint);
    std::map<std::string, Entry> overlays;
    if (orvel::ConfigTree tree; parseConfig(orvel::kConfigPath, StageSystem, tree))
        for (const Entry &entry : overlayEntries(tree)) overlays[entry.prefix] = entry;

    std::vector<Entry> table;
    table.reserve(mappings.size());
    for (const auto &[prefix, replacement] : mappings) {
        Entry entry = {prefix, replacement, {}, {}};
        if (const auto overlay = overlays.find(prefix); overlay != overlays.end())
            entry.sections = overlay->second.sections;
        else
            entry.mountPoint = mountPointOf(entry, mounts);
        table.push_back(std::move(entry));
    }
    return table;
}

Rows toRows(const std::vector<Entry> &table) {
    Rows rows = {{"prefix", "replacement", "origin", "name"}, {}};
    for (const auto &[prefix, replacement, sections, mountPoint] : table) {
        const bool isMount = sections.empty();
        rows.cells.push_back({prefix, replacement, isMount ? "mount" : "overlay",
                              isMount ? mountPoint : sections.back()});
    }
    return rows;
}

}  // namespace tool
