// SPDX-License-Identifier: MIT
// The process's mount table, read through libmount: first the sources of all mounts and the devices
// that are mounted whole, then for each mount the path of its content below such a device.
#include <cerrno>
#include <cstring>
#include <new>
#include <string_view>

#include "base/log.hpp"
#include "base/prefix.hpp"
#include "mounts/base_resolver.hpp"
#include "mounts/libmount_handles.hpp"
#include "mounts/path_memo.hpp"

namespace {

// Of several mounts at one point, or of one device, the last counts.
struct MountScan {
    orvel::PathMap sources;        // mount point -> canonical source
    orvel::PathMap deviceTargets;  // block device -> mount point at which it is mounted whole
};

// What libmount does about a line that it cannot read: leave it out, but not where it is memory
// that has run out, since a table without one of its mounts names other files.
int judgeLine(libmnt_table *, const char *, int) {
    return errno == ENOMEM ? -ENOMEM : 1;
}

bool parseTable(libmnt_table *table) {
    mnt_table_set_parser_errcb(table, judgeLine);
    errno = 0;  // the table may also be cut short for want of memory, and nothing else tells
    return mnt_table_parse_file(table, "/proc/self/mountinfo") == 0 && errno != ENOMEM;
}

// Whether the source is a path, judged without a look at the file system: neither end of another
// mount may be touched, since a dead network mount would hang and an automount point would wake.
// - A file system's name (overlay, proc) is not looked up in the working directory.
// - Any user may mount a FUSE file system with a source of his choice, so that is a name, too.
// - A blank source joined with its root would read "/", and every path would be mapped.
bool hasPathAsSource(libmnt_fs *fs) {
    const char *type = mnt_fs_get_fstype(fs);
    const std::string_view name = type != nullptr ? type : "";
    if (name == "fuse" || name.starts_with("fuse.")) return false;  // "fuseblk" is root's
    const char *source = mnt_fs_get_source(fs);
    return source != nullptr && mnt_fs_get_root(fs) != nullptr &&
           source[std::strspn(source, " \t")] == '/';
}

// Enters one mount into the scan. Later mounts replace earlier ones: what was mounted last at a
// place is what can be seen there.
void scanEntry(libmnt_fs *fs, orvel::PathMemo &paths, MountScan &scan) {
    const char *target = mnt_fs_get_target(fs);
    if (target == nullptr || !hasPathAsSource(fs)) return;
    std::string mountPoint = paths.canonicalize(trim(target));
    if (mountPoint.empty()) return;
    // A device mounted whole reads /dev/x/ here: not a path that resolves, so only its slash goes,
    // and the device is known by that name, although it may resolve to another.
    std::string source = paths.canonicalize(getFullSource(fs));
    const bool hasSlash = source.size() > 1 && source.ends_with('/');
    if (hasSlash) source = trimTrailingSlash(source);
    if (paths.isBlockDevice(source)) scan.deviceTargets.insert_or_assign(source, mountPoint);
    if (hasSlash) source = paths.canonicalize(std::move(source));
    scan.sources.insert_or_assign(std::move(mountPoint), std::move(source));
}

MountScan scanTable(libmnt_table *table) {
    MountScan scan;
    orvel::PathMemo paths;
    const orvel::MountIterator iterator(mnt_new_iter(MNT_ITER_FORWARD));
    if (!iterator) throw std::bad_alloc();  // not an empty table
    // Twice the room: a lookup then seldom passes another mount on its way.
    scan.sources.reserve(2 * static_cast<std::size_t>(mnt_table_get_nents(table)));
    libmnt_fs *fs = nullptr;
    // An error ends the walk as the end does; what was read until then is used.
    while (mnt_table_next_fs(table, iterator.get(), &fs) == 0) scanEntry(fs, paths, scan);
    return scan;
}

// Sources that are mount points themselves become what they lead to.
void followSources(orvel::PathMap &sources) {
    orvel::BaseResolver bases(sources);
    for (auto &[mountPoint, source] : sources)
        if (sources.contains(source)) source = bases.resolve(source);
}

// Each source becomes the path of the mount's content below the device that holds it. Mount points
// for which that is the mount point itself are left out.
orvel::PathMap deriveMappings(MountScan scan) {
    followSources(scan.sources);
    const orvel::PrefixIndex devices(scan.deviceTargets);
    for (auto &[mountPoint, source] : scan.sources)
        // The device's name is plain text here: what follows it need not be a "/".
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
    table.reset();  // what follows takes its place in memory
    return deriveMappings(std::move(scan));
}
