// SPDX-License-Identifier: MIT
// The overlays of the configuration's mode: sections whose names end in -N (mode "normal") or -M
// (any other mode) map their layers to the merged directory.
#include <map>
#include <string_view>

#include "base/log.hpp"
#include "include/orvel_core.hpp"

namespace {

// The values of a key; null if the section has no such key or its list is empty.
const std::vector<std::string> *valuesOf(const orvel::ConfigSection &section, const char *key) {
    const auto entry = section.find(key);
    return entry == section.end() || entry->second.empty() ? nullptr : &entry->second;
}

void mapLayers(const orvel::ConfigSection &section, const std::string &merged,
               orvel::PathMap &mappings) {
    for (const char *key : {"LowerDir", "UpperDir"}) {
        const auto *layers = valuesOf(section, key);
        if (layers == nullptr) continue;
        for (const std::string &layer : *layers) mappings.insert_or_assign(layer, merged);
    }
}

}  // namespace

orvel::PathMap getOverlayMountMappings(const orvel::ConfigTree &tree, std::string &mode) {
    orvel::PathMap mappings;
    const auto general = tree.find("General");
    if (general == tree.end()) {
        LOG(Error, "The General section was not found");
        return mappings;
    }
    const auto *modes = valuesOf(general->second, "Mode");
    if (modes == nullptr) {
        LOG(Error, "The Mode configuration was not found or the Mode value is empty");
        return mappings;
    }
    mode = modes->front();
    const std::string_view suffix = mode == "normal" ? "-N" : "-M";

    // If two sections name one directory, the later one in byte order wins.
    std::map<std::string, const orvel::ConfigSection *> selected;
    for (const auto &[name, section] : tree)
        if (name.ends_with(suffix)) selected.emplace(name, &section);

    for (const auto &[name, section] : selected) {
        const auto *merged = valuesOf(*section, "MergeDir");
        if (merged == nullptr) {
            LOG(Warning, "in section %s MergeDir was not found or its value is empty",
                name.c_str());
            continue;
        }
        mapLayers(*section, merged->front(), mappings);
    }
    return mappings;
}
