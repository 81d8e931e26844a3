// SPDX-License-Identifier: MIT
#include "bench/plain_form.hpp"

#include "mounts/libmount_handles.hpp"

namespace bench {
namespace {

orvel::PathMap backingPaths() {
    const orvel::MountTable table(mnt_new_table());
    const orvel::MountIterator iterator(mnt_new_iter(MNT_ITER_FORWARD));
    mnt_table_parse_file(table.get(), "/proc/self/mountinfo");
    orvel::PathMap sources, devices, backingPaths;
    for (libmnt_fs *fs = nullptr; mnt_table_next_fs(table.get(), iterator.get(), &fs) == 0;) {
        const char *text = mnt_fs_get_source(fs);
        if (text == nullptr || !trim(text).starts_with('/')) continue;
        const std::string mountPoint = canonicalizePath(trim(mnt_fs_get_target(fs)));
        const std::string source = trimTrailingSlash(canonicalizePath(getFullSource(fs)));
        std::string error;
        if (isBlockDevice(source, error)) devices[source] = mountPoint;
        sources[mountPoint] = source;
    }
    for (const auto &[mountPoint, source] : sources) {
        std::string base = resolveBasePath(source, sources);
        for (const auto &[device, target] : devices)
            if (base.starts_with(device)) base = target + base.substr(device.size());
        if (base != mountPoint) backingPaths[mountPoint] = base;
    }
    return backingPaths;
}

}  // namespace

orvel::PathMap plainMountTable() {
    const orvel::PathMap mounts = backingPaths();
    orvel::PathMap table;
    for (const auto &[mountPoint, backingPath] : mounts) {
        std::string place = mountPoint;
        for (const auto &[otherMountPoint, otherPath] : mounts)
            if (otherPath != backingPath && mountPoint.starts_with(otherPath + "/"))
                place = otherMountPoint + mountPoint.substr(otherPath.size());
        table[backingPath] = place;
    }
    return table;
}

}  // namespace bench
