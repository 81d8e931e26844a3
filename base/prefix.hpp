// SPDX-License-Identifier: MIT
// Prefixes of paths: the test on a component boundary, the replacement, and the search for the
// longest one.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel {

// Whether path is prefix or below it: /usr covers /usr and /usr/bin, not /usrx.
inline bool covers(std::string_view prefix, std::string_view path) {
    return path.starts_with(prefix) &&
           (path.size() == prefix.size() || prefix.ends_with('/') || path[prefix.size()] == '/');
}

// path with its first length bytes replaced, without a doubled slash after "/": /a/etc with / in
// place of /a is /etc.
inline std::string replacePrefix(std::string_view path, std::size_t length,
                                 std::string_view replacement) {
    std::string_view rest = path.substr(length);
    if (replacement == "/" && rest.starts_with('/')) rest.remove_prefix(1);
    std::string replaced;
    replaced.reserve(replacement.size() + rest.size());
    replaced.append(replacement).append(rest);
    return replaced;
}

// Prefixes with their replacements, to find the longest one that a path begins with. They are in
// byte order, and each is linked to the longest other one that it begins with itself: /usr/lib to
// /usr. So all prefixes of a path are on one chain, which begins at the last prefix that is not
// greater than the path. The strings must outlive the index.
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
