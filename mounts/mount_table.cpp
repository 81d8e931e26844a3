// SPDX-License-Identifier: MIT
// The process's mount table, read through libmount: first the sources of all mounts and the devices
// that are mounted whole, then for each mount the path of its content below such a device.
#include "mounts/mount_table.hpp"

#include <new>

#include "base/log.hpp"
#include "base/prefix.hpp"
#include "mounts/libmount_handles.hpp"
#include "mounts/mount_source.hpp"

namespace {

// Whether the source is a path, judged by its text alone: a file system's name (overlay, proc) must
// not be looked up in the working directory, and neither end of such a mount may be touched, since
// a dead network mount would hang and an automount point would wake. A blank source is no path
// either: joined with its root it would read "/", and every path of the system would be mapped.
bool hasPathAsSource(libmnt_fs *fs) {
    const char *source = mnt_fs_get_source(fs);
    return source != nullptr && mnt_fs_get_root(fs) != nullptr && trim(source).starts_with('/');
}

// Enters one mount into the scan. Later mounts replace earlier ones: what was mounted last at a
// place is what can be seen there.
void scanEntry(libmnt_fs *fs, orvel::MountScan &scan) {
    const char *target = mnt_fs_get_target(fs);
    if (target == nullptr || !hasPathAsSource(fs)) return;
    const std::string mountPoint = canonicalizePath(trim(target));
    if (mountPoint.empty()) return;
    // A device mounted whole reads /dev/x/ here: not a path that resolves, so only its slash goes.
    const std::string source = trimTrailingSlash(canonicalizePath(getFullSource(fs)));
    std::string ignoredReason;
    if (isBlockDevice(source, ignoredReason))
        scan.deviceTargets.insert_or_assign(source, mountPoint);
    scan.sources.insert_or_assign(mountPoint, source);
}

orvel::MountScan scanTable(libmnt_table *table) {
    orvel::MountScan scan;
    const orvel::MountIterator iterator(mnt_new_iter(MNT_ITER_FORWARD));
    if (!iterator) throw std::bad_alloc();  // not an empty table
    libmnt_fs *fs = nullptr;
    // An error ends the walk as the end does; what was read until then is used.
    while (mnt_table_next_fs(table, iterator.get(), &fs) == 0) scanEntry(fs, scan);
    return scan;
}

}  // namespace

orvel::PathMap orvel::deriveMountMappings(const MountScan &scan) {
    PathMap mappings;
    BaseResolver bases(scan.sources);
    const PrefixIndex devices(scan.deviceTargets);
    for (const auto &[mountPoint, source] : scan.sources) {
        std::string backingPath = bases.resolve(source);
        // The device's name is plain text here: what follows it need not be a "/".
        if (const auto *device = devices.longest(backingPath))
            backingPath.replace(0, device->first.size(), device->second);
        if (backingPath != mountPoint) mappings.emplace(mountPoint, std::move(backingPath));
    }
    return mappings;
}

orvel::PathMap processMountInfo() {
    const orvel::MountTable table(mnt_new_table());
    if (!table) {
        LOG(Error, "The libmount table cannot be initialized");
        return {};
    }
    if (mnt_table_parse_file(table.get(), "/proc/self/mountinfo") != 0) {
        LOG(Error, "Unable to parse /proc/self/mountinfo");
        return {};
    }
    return orvel::deriveMountMappings(scanTable(table.get()));
}
