// SPDX-License-Identifier: MIT
// The process's mount table, read through libmount. A first pass collects the sources of all mounts
// and the devices that are mounted whole; a second one derives each mount's backing path from them.
#include <cerrno>
#include <new>
#include <string_view>
#include <vector>

#include "base/log.hpp"
#include "base/prefix.hpp"
#include "base/text.hpp"
#include "include/orvel_core.hpp"
#include "mounts/libmount_handles.hpp"
#include "mounts/path_memo.hpp"

namespace {

// If several mounts have one mount point or one device, the last one wins.
struct MountScan {
    orvel::PathMap sources;        // mount point -> canonical source
    orvel::PathMap deviceTargets;  // block device -> mount point that shows all of it
};

// One for each series of paths, of which neighbours are similar.
struct Memos {
    orvel::PathMemo mountPoints, sources;
};

// libmount skips a line that it cannot read, but fails if memory ran out: in a table without one of
// its mounts, paths name other files.
int onParseError(libmnt_table *, const char *, int) {
    return errno == ENOMEM ? -ENOMEM : 1;
}

bool parseTable(libmnt_table *table) {
    mnt_table_set_parser_errcb(table, onParseError);
    errno = 0;  // only errno says that memory ran out and the table is incomplete
    return mnt_table_parse_file(table, "/proc/self/mountinfo") == 0 && errno != ENOMEM;
}

// Whether the source is a path. The function must not touch the file system: a dead network mount
// would hang, an automount point would wake.
// - The name of a file system (overlay, proc) is no path in the working directory.
// - Any user may mount a FUSE file system with a source of their choice, so that is a name, too.
// - A blank source joined with its root would be "/", which would map every path.
bool hasPathAsSource(libmnt_fs *fs) {
    const char *type = mnt_fs_get_fstype(fs);
    const std::string_view name = type != nullptr ? type : "";
    if (name == "fuse" || name.starts_with("fuse.")) return false;  // "fuseblk" is root's
    const char *source = mnt_fs_get_source(fs);
    return source != nullptr && mnt_fs_get_root(fs) != nullptr &&
           orvel::trimmed(source).starts_with('/');
}

// Adds one mount to the scan. It overrides an earlier mount at its mount point, which it hides.
void scanEntry(libmnt_fs *fs, Memos &seen, MountScan &scan) {
    const char *target = mnt_fs_get_target(fs);
    if (target == nullptr || !hasPathAsSource(fs)) return;
    std::string mountPoint = seen.mountPoints.canonicalize(std::string(orvel::trimmed(target)));
    if (mountPoint.empty()) return;
    // The source of a device that is mounted whole is /dev/x/, which does not resolve. Without the
    // slash it is the name by which the device is known, even if that is a link.
    std::string source = seen.sources.canonicalize(getFullSource(fs));
    const bool hasSlash = source.size() > 1 && source.ends_with('/');
    if (hasSlash) source = trimTrailingSlash(source);
    if (seen.sources.isBlockDevice(source)) scan.deviceTargets.insert_or_assign(source, mountPoint);
    if (hasSlash) source = seen.sources.canonicalize(std::move(source));
    scan.sources.insert_or_assign(std::move(mountPoint), std::move(source));
}

MountScan scanTable(libmnt_table *table) {
    MountScan scan;
    Memos seen;
    const orvel::MountIterator iterator(mnt_new_iter(MNT_ITER_FORWARD));
    if (!iterator) throw std::bad_alloc();  // or the table would look empty
    // With twice the room, a lookup seldom meets another mount.
    scan.sources.reserve(2 * static_cast<std::size_t>(mnt_table_get_nents(table)));
    libmnt_fs *fs = nullptr;
    // An error is the end of the table, too: the mounts before it are used.
    while (mnt_table_next_fs(table, iterator.get(), &fs) == 0) scanEntry(fs, seen, scan);
    return scan;
}

// resolveBasePath() for canonical paths. bases keeps what has been found, path -> base, so a chain
// of mounts costs its length, not its square.
std::string baseOf(std::string path, const orvel::PathMap &sources, orvel::PathMap &bases) {
    std::vector<orvel::PathMap::value_type *> chain;
    while (true) {
        // A path is its own base at first, so a chain that returns to it ends there.
        const auto [step, isNew] = bases.try_emplace(path, path);
        if (!isNew) {
            path = step->second;
            break;
        }
        chain.push_back(&*step);
        const auto mounted = sources.find(path);
        if (mounted == sources.end()) break;
        path = mounted->second;
    }
    // All steps before the base get it as their base. Steps after it are the rest of a circle.
    for (auto *step : chain) {
        if (step->first == path) break;
        step->second = path;
    }
    return path;
}

// Replaces each source that is a mount point by its base. For example, if /b is mounted at /a, and
// /c at /b, the base of /a and /b is /c.
void followSources(orvel::PathMap &sources) {
    orvel::PathMap bases;
    for (auto &[mountPoint, source] : sources)
        if (sources.contains(source)) source = baseOf(source, sources, bases);
}

// Replaces each source by the mount's backing path. A mount whose backing path is its mount point
// is removed.
orvel::PathMap deriveMappings(MountScan scan) {
    followSources(scan.sources);
    const orvel::PrefixIndex devices(scan.deviceTargets);
    for (auto &[mountPoint, source] : scan.sources)
        // The name of the device is plain text: another character than "/" may follow it.
        if (const auto *device = devices.longest(source))
            source.replace(0, device->prefix.size(), device->replacement);
    std::erase_if(scan.sources, [](const auto &mount) { return mount.first == mount.second; });
    return std::move(scan.sources);
}

}  // namespace

orvel::PathMap processMountInfo() {
    orvel::MountTable table(mnt_new_table());
    if (!table) {
        LOG(Error, "The libmount table cannot be initialized");
        return {};
    }
    if (!parseTable(table.get())) {
        LOG(Error, "Unable to parse /proc/self/mountinfo");
        return {};
    }
    MountScan scan = scanTable(table.get());
    table.reset();  // the next steps need its memory
    return deriveMappings(std::move(scan));
}
