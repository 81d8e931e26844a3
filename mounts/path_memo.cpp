// SPDX-License-Identifier: MIT
#include "mounts/path_memo.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "include/orvel_core.hpp"

namespace orvel {
namespace {

// realpath() examines paths with longer directories. Otherwise, a user who may mount at deep paths
// could make a call remember the square of their length.
constexpr std::size_t kMaxDirectoryBytes = 256;

}  // namespace

// As realpath() examines each part of a path. Below a file nothing exists: ENOTDIR.
PathMemo::Kind PathMemo::examine(const char *path) {
    char ignoredLink = 0;
    if (readlink(path, &ignoredLink, sizeof ignoredLink) >= 0) return Kind::Unclear;
    if (errno == EINVAL) return Kind::ExistsWithoutLink;
    return errno == ENOENT || errno == ENOTDIR ? Kind::Missing : Kind::Unclear;
}

PathMemo::Kind PathMemo::kindOfDirectory(std::string_view path) {
    if (path.size() > kMaxDirectoryBytes) return Kind::Unclear;
    const auto known = seen_.find(path);
    if (known != seen_.end()) return known->second;
    std::string directory(path);
    const Kind kind = examine(directory.c_str());
    seen_.emplace(std::move(directory), kind);
    return kind;
}

// Dots, doubled slashes and links make a path unclear. Nothing is below a block device.
PathMemo::Kind PathMemo::kindOf(const std::string &path) {
    if (!path.starts_with('/')) return Kind::Unclear;
    Kind above = last_.kind;
    std::size_t begin = last_.path.size();
    if (!path.starts_with(last_.path)) {
        // The directories above the last one exist without a link. Both begin with a slash.
        const auto differ =
            std::mismatch(path.begin(), path.end(), last_.path.begin(), last_.path.end());
        above = Kind::ExistsWithoutLink;
        begin = path.rfind('/', static_cast<std::size_t>(differ.first - path.begin()) - 1) + 1;
    }
    while (above == Kind::ExistsWithoutLink) {
        const std::size_t end = path.find('/', begin);
        const std::string_view name(path.data() + begin, std::min(end, path.size()) - begin);
        if (name.empty() || name == "." || name == "..") return Kind::Unclear;
        if (end == std::string::npos) break;
        above = kindOfDirectory(std::string_view(path).substr(0, end));
        begin = end + 1;
    }
    if (above == Kind::BlockDevice) above = Kind::Missing;
    last_.path.assign(path, 0, begin);
    last_.kind = above;
    return above == Kind::ExistsWithoutLink ? examine(path.c_str()) : above;
}

// A path that exists and contains no link is canonical. A path that does not exist stays as it is.
std::string PathMemo::canonicalize(std::string path) {
    if (kindOf(path) == Kind::Unclear) return canonicalizePath(path);
    return path;
}

bool PathMemo::isBlockDevice(const std::string &path) {
    const Kind kind = kindOf(path);
    if (kind == Kind::Missing) return false;
    const auto known = seen_.find(path);
    if (known != seen_.end() && known->second == Kind::BlockDevice) return true;
    std::string ignoredReason;
    if (!::isBlockDevice(path, ignoredReason)) return false;
    // Not by a link of /proc, whose text may lead to another file than the link does.
    if (kind == Kind::ExistsWithoutLink || ::isBlockDevice(canonicalizePath(path), ignoredReason))
        seen_.insert_or_assign(path, Kind::BlockDevice);
    return true;
}

}  // namespace orvel
