// SPDX-License-Identifier: MIT
// A mount table of arbitrary bytes, then a path through the core, against a slow and literal
// reading of the rules. The input's lines: the path, then "target|source|root|type" of each mount.
// A source such as /b0 is a block device.
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <set>
#include <sstream>

#include "include/orvel_core.hpp"
#include "mounts/libmount_handles.hpp"

namespace {

struct Mount {
    std::string target, source, root, type;
};
std::vector<Mount> mounts;

bool isDevice(const std::string &path) {
    return path.size() == 3 && path.starts_with("/b");
}

std::string sourceOf(const Mount &mount) {
    const std::string source = trim(mount.source), root = trim(mount.root);
    const int slashes = source.ends_with('/') + root.starts_with('/');
    const std::string rest = slashes == 0 && !root.empty() ? "/" + root : root.substr(slashes / 2);
    return trimTrailingSlash(canonicalizePath(source + rest));
}

bool isUnder(const std::string &path, const std::string &prefix) {
    return path == prefix || path.starts_with(prefix + "/") ||
           (prefix.ends_with('/') && path.starts_with(prefix));
}

bool isBetter(const std::string &mountPoint, const std::string &other) {
    return other.empty() ||
           std::pair(mountPoint.size(), mountPoint) < std::pair(other.size(), other);
}

std::string joinRest(const std::string &replacement, const std::string &rest) {
    return replacement == "/" && rest.starts_with('/') ? rest : replacement + rest;
}

std::string longestKey(const orvel::PathMap &map,
                       const std::function<bool(const std::string &)> &matches) {
    std::string longest;
    for (const auto &entry : map)
        if (matches(entry.first) && entry.first.size() > longest.size()) longest = entry.first;
    return longest;
}

orvel::PathMap backingPaths() {
    orvel::PathMap sources, devices, backing;
    for (const Mount &mount : mounts) {
        const std::string mountPoint = canonicalizePath(trim(mount.target));
        if (!trim(mount.source).starts_with('/') || mountPoint.empty()) continue;
        if (mount.type == "fuse" || mount.type.starts_with("fuse.")) continue;
        sources[mountPoint] = sourceOf(mount);
        if (isDevice(sourceOf(mount))) devices[sourceOf(mount)] = mountPoint;
    }
    for (const auto &[mountPoint, source] : sources) {
        std::string base = canonicalizePath(source);
        for (std::set<std::string> seen; sources.count(base) && seen.insert(base).second;)
            base = canonicalizePath(sources[base]);
        const std::string device =
            longestKey(devices, [&](const auto &name) { return base.starts_with(name); });
        if (!device.empty()) base = devices[device] + base.substr(device.size());
        if (base != mountPoint) backing[mountPoint] = base;
    }
    return backing;
}

// Backing path -> mount point, each mount point seen through the best other backing path above it.
orvel::PathMap table() {
    const orvel::PathMap backing = backingPaths();
    orvel::PathMap preferred, placed, table;
    for (const auto &[mountPoint, path] : backing)
        if (isBetter(mountPoint, preferred[path])) preferred[path] = mountPoint;
    for (const auto &mount : backing) {
        const std::string &mountPoint = mount.first, &path = mount.second;
        const auto isOther = [&](const auto &prefix) {
            return prefix != path && mountPoint.starts_with(prefix);
        };
        std::string through = longestKey(preferred, [&](const auto &prefix) {
            return isOther(prefix) && isUnder(mountPoint, prefix);
        });
        if (through.empty()) through = longestKey(preferred, isOther);
        const std::string place =
            through.empty() ? mountPoint
                            : joinRest(preferred[through], mountPoint.substr(through.size()));
        const auto [entry, isNew] = placed.try_emplace(place, path);
        // At one place the later mount stays: that of the shorter backing path, then of the
        // bytewise larger.
        const auto order = [](const std::string &p) {
            return std::pair(-static_cast<long>(p.size()), p);
        };
        if (!isNew && order(entry->second) < order(path)) entry->second = path;
    }
    for (const auto &[place, path] : placed)
        if (isBetter(place, table[path])) table[path] = place;
    return table;
}

std::string normalized(std::string path, const orvel::PathMap &table) {
    if (!path.starts_with('/') || path == "/" || path.size() > 4096) return path;
    if (path.starts_with("/tmproot")) path.replace(0, 8, "/sysroot");
    const std::string prefix =
        longestKey(table, [&](const auto &key) { return isUnder(path, key); });
    if (!prefix.empty()) path = joinRest(table.at(prefix), path.substr(prefix.size()));
    for (const char *top : {"/var/tmp/", "/var/opt/", "/var/srv/", "/var/mnt/"})
        if (path.starts_with(top)) return path.substr(4);
    return path;
}

void require(bool condition, const std::string &what) {
    if (condition) return;
    std::fprintf(stderr, "MISMATCH: %s\n", what.c_str());
    std::abort();
}

}  // namespace

extern "C" int __wrap_mnt_table_parse_file(libmnt_table *table, const char *) {
    for (const auto &[target, source, root, type] : mounts) {
        libmnt_fs *fs = mnt_new_fs();
        (void)(mnt_fs_set_target(fs, target.c_str()), mnt_fs_set_source(fs, source.c_str()));
        (void)(mnt_fs_set_root(fs, root.c_str()), mnt_fs_set_fstype(fs, type.c_str()));
        (void)mnt_table_add_fs(table, fs);
        mnt_unref_fs(fs);
    }
    return 0;
}

extern "C" int __real_stat(const char *, struct stat *);
extern "C" int __wrap_stat(const char *path, struct stat *status) {
    if (!isDevice(path)) return __real_stat(path, status);
    status->st_mode = S_IFBLK;
    return 0;
}

extern "C" ssize_t __real_readlink(const char *, char *, std::size_t);
extern "C" ssize_t __wrap_readlink(const char *path, char *link, std::size_t size) {
    if (!isDevice(path)) return __real_readlink(path, link, size);
    errno = EINVAL;
    return -1;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size) {
    std::string text(data, data + size), path;
    std::replace(text.begin(), text.end(), '\0', '0');
    std::istringstream lines(text);
    std::getline(lines, path);
    mounts.clear();
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        Mount &mount = mounts.emplace_back();
        std::getline(fields, mount.target, '|');
        std::getline(fields, mount.source, '|');
        std::getline(fields, mount.root, '|');
        std::getline(fields, mount.type);
    }

    const orvel::PathMap expected = table();
    const orvel::MappingList list = sortedMappings();
    require(orvel::PathMap(list.begin(), list.end()) == expected && list.size() == expected.size(),
            "table");
    const auto isLonger = [](const auto &a, const auto &b) {
        return a.first.size() > b.first.size();
    };
    require(std::is_sorted(list.begin(), list.end(), isLonger), "order");
    const std::string answer = normalized(path, expected);
    require(_pathNormalize(path) == answer, "one path");
    require(_batchPathNormalize({"/", path}) == std::vector<std::string>{"/", answer}, "batch");
    const std::string prefix =
        longestKey(expected, [&](const auto &key) { return path.starts_with(key); });
    const std::string plain =
        prefix.empty() ? path : expected.at(prefix) + path.substr(prefix.size());
    require(checkBindMountPoint1(path) == plain, "plain prefix");
    return 0;
}
