// SPDX-License-Identifier: MIT
// Prefixes of paths: the test on a component boundary, the replacement, and the search for the
// longest of many.
#pragma once

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

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

// Prefixes with their replacements, searched by one hash lookup for each distinct prefix length, so
// that the cost of a search does not grow with the number of prefixes. Refers to the strings it is
// given: they must outlive it.
class PrefixIndex {
public:
    using Entry = std::pair<const std::string_view, std::string_view>;

    PrefixIndex() = default;
    template <class Mapping>  // of pairs of std::string
    explicit PrefixIndex(const Mapping &mapping) {
        entries_.reserve(mapping.size());
        for (const auto &[prefix, replacement] : mapping) (*this)[prefix] = replacement;
    }

    // The replacement of a prefix; for a new one it has no data().
    std::string_view &operator[](std::string_view prefix) {
        lengths_.insert(prefix.size());
        return entries_[prefix];
    }

    // The entry with the longest prefix that path begins with, as plain text, and that
    // accept(entry) takes; null where there is none. Valid until the next prefix is added.
    template <class Accept>
    const Entry *longest(std::string_view path, const Accept &accept) const {
        for (auto length = lengths_.lower_bound(path.size()); length != lengths_.end(); ++length) {
            const auto entry = entries_.find(path.substr(0, *length));
            if (entry != entries_.end() && accept(*entry)) return &*entry;
        }
        return nullptr;
    }

    const Entry *longest(std::string_view path) const {
        return longest(path, [](const Entry &) { return true; });
    }

private:
    std::unordered_map<std::string_view, std::string_view> entries_;
    std::set<std::size_t, std::greater<>> lengths_;
};

}  // namespace orvel
