// SPDX-License-Identifier: MIT
// What a path is. All functions use lstat: they examine a link itself.
#include <mntent.h>
#include <sys/stat.h>

#include <cstring>

#include "base/handles.hpp"
#include "fileutil/call.hpp"
#include "fileutil/examined.hpp"
#include "fileutil/path_buffer.hpp"
#include "include/orvel_core.h"

namespace {

using MountList = std::unique_ptr<std::FILE, orvel::Releaser<endmntent>>;
constexpr std::size_t kMaxPathBytes = 4095;
using AbsolutePath = orvel::PathBuffer<kMaxPathBytes>;

constexpr std::size_t kMountLineBytes = 64UL * 1024;

// lstat for paths that may be null.
bool examine(const char *path, struct stat &status) {
    return path != nullptr ? lstat(path, &status) == 0 : orvel::refuse(false, EINVAL);
}

int is_of_type(const char *path, mode_t type) {
    struct stat status = {};
    return examine(path, status) && (status.st_mode & S_IFMT) == type ? 1 : 0;
}

// The path of a link itself: its directory is resolved, its name is kept.
char *absolute_link_path(const AbsolutePath &link) {
    // "link" is in the working directory, "/link" in the root.
    AbsolutePath directory = link;
    directory.pop();
    const char *slash = std::strrchr(link.text(), '/');
    const char *name = slash ? slash + 1 : link.text();
    const char *parent = directory.length() > 0 ? directory.text() : "/";
    const orvel::MallocString resolved(slash ? realpath(parent, nullptr) : getcwd(nullptr, 0));
    if (!resolved) return nullptr;
    AbsolutePath path;
    // The root is a directory whose name is empty here: /name, not //name.
    const bool is_in_root = std::strcmp(resolved.get(), "/") == 0;
    if (path.append(is_in_root ? "" : resolved.get()) && path.push(name))
        return strdup(path.text());
    return orvel::refuse<char *>(nullptr, ENAMETOOLONG);
}

// Source and type of the last mount seen at one mount point.
struct Mount {
    orvel::MallocString source;
    orvel::MallocString type;

    bool set(const mntent &entry) {
        source.reset(strdup(entry.mnt_fsname));
        type.reset(strdup(entry.mnt_type));
        return source && type;
    }
};

}  // namespace

extern "C" char *get_absolute_path(const char *file) {
    const orvel::Call call;
    struct stat status = {};
    AbsolutePath path;
    if (!examine(file, status)) return nullptr;
    if (!path.append(file))  // lstat has taken it, so it cannot be longer
        return orvel::refuse<char *>(nullptr, ENAMETOOLONG);
    // "/" becomes empty here and resolves to nothing. Whether it is a link was asked with the
    // slash, which follows it: "link/" gives the path of what the link names.
    path.drop_trailing_slash();
    char *absolute =
        S_ISLNK(status.st_mode) ? absolute_link_path(path) : realpath(path.text(), nullptr);
    return absolute ? call.done(absolute) : nullptr;
}

extern "C" int path_is_exist(const char *path) {
    struct stat status = {};
    return examine(path, status) ? 1 : -1;
}

extern "C" int path_is_dir(const char *path) {
    return is_of_type(path, S_IFDIR);
}

extern "C" int path_is_link(const char *path) {
    return is_of_type(path, S_IFLNK);
}

extern "C" int path_is_same(const char *path1, const char *path2) {
    struct stat first = {};
    struct stat second = {};
    if (!examine(path1, first) || !examine(path2, second)) return -1;
    return orvel::is_same_file(first, second) ? 1 : 0;
}

extern "C" int path_is_mount_bind(const char *path1, const char *path2) {
    const orvel::Call call;
    if (path1 == nullptr || path2 == nullptr) return orvel::refuse(-1, EINVAL);
    if (*path1 == '\0' || *path2 == '\0') return orvel::refuse(-1, ENOENT);
    const MountList list(setmntent("/proc/mounts", "re"));
    // getmntent_r drops what a line has beyond the buffer without a sign, hence its size.
    const orvel::MallocString line(static_cast<char *>(std::malloc(kMountLineBytes)));
    if (!list || !line) return -1;
    Mount first;
    Mount second;
    mntent entry = {};
    // Reads to the end, because the last mount at a mount point is the visible one.
    while (getmntent_r(list.get(), &entry, line.get(), kMountLineBytes) != nullptr) {
        if (std::strcmp(entry.mnt_dir, path1) == 0 && !first.set(entry)) return -1;
        if (std::strcmp(entry.mnt_dir, path2) == 0 && !second.set(entry)) return -1;
    }
    if (!first.source || !second.source) return call.done(0);
    const bool is_same_type = std::strcmp(first.type.get(), second.type.get()) == 0;
    const bool is_same_source = std::strcmp(first.source.get(), second.source.get()) == 0;
    return call.done(is_same_type && is_same_source ? 1 : 0);
}
