// SPDX-License-Identifier: MIT
// The rules that turn one path into its normalised form, in their order: /tmproot is /sysroot, then
// the first matching entry of the mapping list, then /var/tmp and its like drop their /var.
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

// As plain text: /tmprootfoo becomes /sysrootfoo.
std::string renameTemporaryRoot(const std::string &path) {
    return replaceBeginString(path, "/tmproot", "/sysroot");
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
    if (isReturnedUnchanged(path)) return path;
    return dropVar(checkBindMountPoint(sortedMappings(), renameTemporaryRoot(path)));
}

// Searches an index for the longest prefix, which is the first match of the list. Otherwise a batch
// would search the list a thousand times.
std::vector<std::string> _batchPathNormalize(const std::vector<std::string> &paths) {
    const orvel::MappingList mappings = sortedMappings();
    const orvel::PrefixIndex index(mappings);
    std::vector<std::string> results;
    results.reserve(paths.size());
    for (const std::string &path : paths)
        results.push_back(isReturnedUnchanged(path)
                              ? path
                              : dropVar(applyLongest(index, renameTemporaryRoot(path))));
    return results;
}

bool containsDotComponents(const std::string &path) {
    return path == ".." || path.find("/./") != std::string::npos || path.ends_with("/.") ||
           path.find("/../") != std::string::npos || path.ends_with("/..") ||
           path.starts_with("./") || path.starts_with("../");
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
