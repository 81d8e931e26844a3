// SPDX-License-Identifier: MIT
// The table of mappings with the origin of its entries, found by the library's own steps.
#include <algorithm>
#include <map>

#include "tools/log.hpp"
#include "tools/modes.hpp"

namespace tool {
namespace {

// If several mounts show one directory: the mount whose mount point the list has, else the first in
// byte order of the mounts that were moved there.
std::string mountPointOf(const Entry &entry, const orvel::PathMap &storagePaths) {
    std::string found;
    for (const auto &[mountPoint, storagePath] : storagePaths) {
        if (storagePath != entry.prefix) continue;
        if (mountPoint == entry.replacement) return mountPoint;
        if (found.empty() || mountPoint < found) found = mountPoint;
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
    // Each section alone, in byte order, as the library applies them.
    for (const auto &section : std::map(tree.begin(), tree.end()))
        for (const auto &[layer, merged] :
             getOverlayMountMappings({*tree.find("General"), section}, mode))
            entries[layer].sections.push_back(section.first);
    std::vector<Entry> list;
    list.reserve(entries.size());
    for (auto &[layer, entry] : entries) list.push_back(std::move(entry));
    return list;
}

std::vector<Entry> withOrigins(const Host &host) {
    std::map<std::string, Entry> overlays;
    for (const Entry &entry : overlayEntries(host.config)) overlays[entry.prefix] = entry;
    std::vector<Entry> table;
    table.reserve(host.mappings.size());
    for (const auto &[prefix, replacement] : host.mappings) {
        Entry entry = {prefix, replacement, {}, {}};
        if (const auto overlay = overlays.find(prefix); overlay != overlays.end())
            entry.sections = overlay->second.sections;
        else
            entry.mountPoint = mountPointOf(entry, host.storagePaths);
        table.push_back(std::move(entry));
    }
    return table;
}

Json toRows(const std::vector<Entry> &table) {
    Json rows = Json::array();
    for (const auto &[prefix, replacement, sections, mountPoint] : table) {
        const bool isMount = sections.empty();
        rows.push_back({{"replacement", replacement},
                        {"origin", isMount ? "mount" : "overlay"},
                        {"name", isMount ? mountPoint : sections.back()},
                        {"prefix", prefix}});
    }
    return rows;
}

Answer table(const Host &host) {
    Answer answer = {.json = toRows(host.table)};
    answer.tables = {answer.json};
    const bool hasWhole = std::any_of(host.mounts.begin(), host.mounts.end(),
                                      [](const Mount &mount) { return mount.isWhole(); });
    if (!hasWhole)
        answer.remarks.emplace_back(
            "no block device is mounted whole, so mounts map no path; see --check-host");
    if (!host.complaint.empty())
        answer.remarks.push_back("no overlays from the configuration: " + host.complaint);
    return answer;
}

}  // namespace tool
