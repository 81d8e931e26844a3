// SPDX-License-Identifier: MIT
// Prefixes of paths: the test on a component boundary, the replacement, and the search for the
// longest of many.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel {

// True when path is prefix itself or lies under it: /usr covers /usr/bin, not /usrx.
// Not for places whose contract is a plain prefix: those say starts_with.
inline bool covers(std::string_view prefix, std::string_view path) {
    return path.starts_with(prefix) &&
           (path.size() == prefix.size() || prefix.ends_with('/') || path[prefix.size()] == '/');
}

// path with its first length bytes replaced. A replacement of "/" before a rest that begins with
// "/" counts once, so that what lies under the root comes out as /etc, not //etc.
inline std::string replacePrefix(std::string_view path, std::size_t length,
                                 std::string_view replacement) {
    std::string_view rest = path.substr(length);
    if (replacement == "/" && rest.starts_with('/')) rest.remove_prefix(1);
    std::string replaced;
    replaced.reserve(replacement.size() + rest.size());
    return replaced.append(replacement).append(rest);
}

// Prefixes, each with its replacement, to be searched for the longest that a path begins with. They
// stand in byte order, and each is linked to the longest other one that it begins with itself: all
// prefixes of a path are then on one chain, from the last prefix that is not behind the path.
// Refers to the strings it is given: they must outlive it.
class PrefixIndex {
public:
    struct Entry {
        std::string_view prefix, replacement;
        const Entry *shorter = nullptr;
    };

    template <class Mapping>  // of pairs of strings, the first ones all different
    explicit PrefixIndex(const Mapping &mapping) {
        entries_.reserve(mapping.size());
        for (const auto &[prefix, replacement] : mapping) entries_.push_back({prefix, replacement});
        std::sort(entries_.begin(), entries_.end(),
                  [](const Entry &a, const Entry &b) { return a.prefix < b.prefix; });
        const Entry *previous = nullptr;
        for (Entry &entry : entries_) {
            while (previous != nullptr && !entry.prefix.starts_with(previous->prefix))
                previous = previous->shorter;
            entry.shorter = std::exchange(previous, &entry);
        }
    }
    ~PrefixIndex() = default;
    PrefixIndex(const PrefixIndex &) = delete;
    PrefixIndex &operator=(const PrefixIndex &) = delete;

    // The entry with the longest prefix that path begins with, as plain text, and that
    // accept(entry) takes; null if there is none. accept is asked only of entries whose prefix path
    // begins with, the longest one first.
    template <class Accept>
    const Entry *longest(std::string_view path, const Accept &accept) const {
        const auto behind =
            std::upper_bound(entries_.begin(), entries_.end(), path,
                             [](auto text, const Entry &entry) { return text < entry.prefix; });
        if (behind == entries_.begin()) return nullptr;
        const Entry *entry = &*std::prev(behind);
        const std::string_view last = entry->prefix;
        const auto differ = std::mismatch(last.begin(), last.end(), path.begin(), path.end());
        const auto common = static_cast<std::size_t>(differ.first - last.begin());
        while (entry != nullptr && (entry->prefix.size() > common || !accept(*entry)))
            entry = entry->shorter;
        return entry;
    }

    const Entry *longest(std::string_view path) const {
        return longest(path, [](const Entry &) { return true; });
    }

private:
    std::vector<Entry> entries_;
};

}  // namespace orvel
