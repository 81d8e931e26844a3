// SPDX-License-Identifier: MIT
// The rules that turn one path into its normalised form, in their order: /tmproot is /sysroot, then
// the first matching entry of the mapping list, then /var/tmp and its like drop their /var.
#include <algorithm>
#include <cstddef>
#include <string_view>

#include "base/prefix.hpp"
#include "include/orvel_core.hpp"

namespace {

constexpr std::size_t kMaxPathBytes = 4096;
constexpr std::string_view kVar = "/var";
constexpr std::string_view kTopLevelDirectories[] = {"/var/tmp/", "/var/opt/", "/var/srv/",
                                                     "/var/mnt/"};

bool isReturnedUnchanged(const std::string &path) {
    return !path.starts_with('/') || path == "/" || path.size() > kMaxPathBytes;
}

// /var/tmp/x becomes /tmp/x; /var/tmp itself stays.
std::string dropVar(std::string path) {
    for (const std::string_view directory : kTopLevelDirectories)
        if (path.starts_with(directory)) return path.substr(kVar.size());
    return path;
}

// map gives the path of the running system for a storage path.
template <class Map>
std::string normalizeBy(const Map &map, const std::string &path) {
    if (isReturnedUnchanged(path)) return path;
    // As plain text: /tmprootfoo becomes /sysrootfoo.
    if (path.starts_with("/tmproot"))
        return dropVar(map(replaceBeginString(path, "/tmproot", "/sysroot")));
    return dropVar(map(path));
}

bool matches(std::string_view prefix, std::string_view path) {
    return !prefix.empty() && orvel::covers(prefix, path);
}

std::string applyLongest(const orvel::PrefixIndex &index, const std::string &path) {
    const auto *entry = index.longest(path, [&](const auto &e) { return matches(e.prefix, path); });
    return entry == nullptr ? path
                            : orvel::replacePrefix(path, entry->prefix.size(), entry->replacement);
}

}  // namespace

std::string _pathNormalize(const std::string &path) {
    const auto apply = [](const std::string &storagePath) {
        return checkBindMountPoint(sortedMappings(), storagePath);
    };
    return normalizeBy(apply, path);
}

// Searches an index for the longest prefix, which is the first match of the list. Otherwise a batch
// would search the list a thousand times.
std::vector<std::string> _batchPathNormalize(const std::vector<std::string> &paths) {
    const orvel::MappingList mappings = sortedMappings();
    const orvel::PrefixIndex index(mappings);
    std::vector<std::string> results;
    results.reserve(paths.size());
    for (const std::string &path : paths)
        results.push_back(normalizeBy(
            [&](const std::string &storagePath) { return applyLongest(index, storagePath); },
            path));
    return results;
}

bool containsDotComponents(const std::string &path) {
    if (path == ".") return false;
    for (std::size_t begin = 0, end = 0; end < path.size(); begin = end + 1) {
        end = std::min(path.find('/', begin), path.size());
        const std::string_view name(path.data() + begin, end - begin);
        if (name == "." || name == "..") return true;
    }
    return false;
}

// One entry at most: the result is not matched again.
std::string checkBindMountPoint(const orvel::MappingList &mappings, const std::string &path) {
    if (path.empty()) return path;
    for (const auto &[prefix, replacement] : mappings)
        if (matches(prefix, path)) return orvel::replacePrefix(path, prefix.size(), replacement);
    return path;
}

std::string replaceBeginString(const std::string &text, const std::string &oldPrefix,
                               const std::string &newPrefix) {
    if (oldPrefix.empty() || !text.starts_with(oldPrefix)) return text;
    return newPrefix + text.substr(oldPrefix.size());
}
