// SPDX-License-Identifier: MIT
#include "mounts/path_memo.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/prefix.hpp"
#include "include/orvel_core.hpp"

namespace orvel {
namespace {

// realpath() examines paths with longer directories. Otherwise, a user who may mount at deep paths
// could make a call remember the square of their length.
constexpr std::size_t kMaxPartBytes = 256;

}  // namespace

// A path that exists and contains no link is canonical. A path that does not exist stays as it is.
std::string PathMemo::canonicalize(std::string path) {
    if (isOfLastDevice(path))
        return path.size() == lastDevice_.size() ? lastDeviceResolved_ : std::move(path);
    if (kindOf(path) == Kind::Unclear) return canonicalizePath(path);
    return path;
}

bool PathMemo::isBlockDevice(const std::string &path) {
    if (isOfLastDevice(path)) return path.size() == lastDevice_.size();
    std::string ignoredReason;
    if (kindOf(path) == Kind::Absent || !::isBlockDevice(path, ignoredReason)) return false;
    std::string resolved = canonicalize(path);
    // Not by a link of /proc, whose text may lead to another file than the link does.
    if (resolved == path || ::isBlockDevice(resolved, ignoredReason)) {
        parts_.insert_or_assign(path, Kind::Absent);  // nothing is below it
        lastDevice_ = path;
        lastDeviceResolved_ = std::move(resolved);
    }
    return true;
}

bool PathMemo::isOfLastDevice(const std::string &path) const {
    return !lastDevice_.empty() && covers(lastDevice_, path);
}

PathMemo::Kind PathMemo::kindOf(const std::string &path) {
    if (!path.starts_with('/')) return Kind::Unclear;
    Kind above = Kind::Plain;
    // Paths that follow each other are often of one directory.
    std::size_t begin = path.starts_with(lastDirectory_) ? lastDirectory_.size() : 1;
    while (above == Kind::Plain) {
        const std::size_t end = path.find('/', begin);
        const std::string_view name(path.data() + begin, std::min(end, path.size()) - begin);
        if (name.empty() || name == "." || name == "..") return Kind::Unclear;
        if (end == std::string::npos) {
            lastDirectory_.assign(path, 0, begin);
            return lookAt(path.c_str());
        }
        above = kindOfPart(std::string_view(path).substr(0, end));
        begin = end + 1;
    }
    return above;
}

PathMemo::Kind PathMemo::kindOfPart(std::string_view path) {
    if (path.size() > kMaxPartBytes) return Kind::Unclear;
    const auto known = parts_.find(path);
    if (known != parts_.end()) return known->second;
    std::string part(path);
    const Kind kind = lookAt(part.c_str());
    parts_.emplace(std::move(part), kind);
    return kind;
}

// As realpath() looks at each part of a path. Below what is no directory nothing exists: ENOTDIR.
PathMemo::Kind PathMemo::lookAt(const char *path) {
    char ignoredLink = 0;
    if (readlink(path, &ignoredLink, sizeof ignoredLink) >= 0) return Kind::Unclear;
    if (errno == EINVAL) return Kind::Plain;
    return errno == ENOENT || errno == ENOTDIR ? Kind::Absent : Kind::Unclear;
}

}  // namespace orvel
