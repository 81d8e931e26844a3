// SPDX-License-Identifier: MIT
// The source of a mount: joined with the mount's root, made canonical, tested for a block device,
// and followed through other mounts.
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <set>

#include "base/text.hpp"
#include "include/orvel_core.hpp"
#include "mounts/libmount_handles.hpp"

// A path that does not resolve is used as it is. That is the usual case: the source of a bind mount
// is a path below a device, such as /dev/sda1/usr.
std::string canonicalizePath(const std::string &path) {
    const orvel::MallocString resolved(realpath(path.c_str(), nullptr));
    return resolved ? std::string(resolved.get()) : path;
}

// /dev/x and / give /dev/x/: the slash marks a device that is mounted whole.
std::string getFullSource(struct libmnt_fs *fs) {
    const char *sourceText = mnt_fs_get_source(fs);
    const char *rootText = mnt_fs_get_root(fs);
    if (sourceText == nullptr || rootText == nullptr) return {};
    std::string_view source = orvel::trimmed(sourceText);
    const std::string_view root = orvel::trimmed(rootText);
    const bool isJoined = !source.empty() && !root.empty();
    if (isJoined && source.ends_with('/') && root.starts_with('/')) source.remove_suffix(1);
    const bool needsSlash = isJoined && !source.ends_with('/') && !root.starts_with('/');
    std::string full;
    full.reserve(source.size() + 1 + root.size());
    full.append(source).append(needsSlash ? "/" : "").append(root);
    return full;
}

namespace {

// Programs compare these texts, so their spelling and the full-width colon stay.
std::string describeStatError(int error) {
    switch (error) {
        case ENOENT:
            return "The path does not exist.";
        case EACCES:
            return "Insufficient permissions (root privileges may be required).";
        case ENOTDIR:
            return "Some component in the path is not a directory";
        case ENAMETOOLONG:
            return "The path is too long (exceeding the system limit)";
        case ELOOP:
            return "The path contains too many symbolic links or circular links";
        default:
            return std::string("unknow error：") + std::strerror(error);
    }
}

}  // namespace

bool isBlockDevice(const std::string &path, std::string &error) {
    error.clear();
    struct stat status = {};
    const std::string trimmed = trimTrailingSlash(path);
    // stat follows links: device-mapper names are links to the nodes.
    if (stat(trimmed.c_str(), &status) != 0)
        error = describeStatError(errno);
    else if (!S_ISBLK(status.st_mode))
        error = "Not a block device";
    return error.empty();
}

std::string resolveBasePath(const std::string &path, const orvel::PathMap &mounts) {
    std::set<std::string> seen;
    std::string base = canonicalizePath(path);
    while (!base.empty() && seen.insert(base).second) {
        const auto mounted = mounts.find(base);
        if (mounted == mounts.end()) break;
        base = canonicalizePath(mounted->second);
    }
    return base;
}
