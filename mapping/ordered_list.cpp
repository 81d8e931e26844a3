// SPDX-License-Identifier: MIT
// The mapping table in the order in which it is applied: the first match is the longest prefix.
#include <algorithm>

#include "include/orvel_core.hpp"

orvel::MappingList sortedMappings() {
    orvel::PathMap table = mergeMountMappings();
    orvel::MappingList list;
    list.reserve(table.size());
    while (!table.empty()) {
        auto entry = table.extract(table.begin());
        list.emplace_back(std::move(entry.key()), std::move(entry.mapped()));
    }
    // Two prefixes of one length never match the same path; byte order only makes the list itself
    // the same each time.
    std::sort(list.begin(), list.end(), [](const auto &a, const auto &b) {
        if (a.first.size() != b.first.size()) return a.first.size() > b.first.size();
        return a.first < b.first;
    });
    return list;
}
