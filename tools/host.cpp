// SPDX-License-Identifier: MIT
#include "tools/host.hpp"

#include <libmount.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "base/handles.hpp"
#include "base/prefix.hpp"
#include "tools/log.hpp"

namespace tool {
namespace {

using MountTable = std::unique_ptr<libmnt_table, orvel::Releaser<mnt_free_table>>;
using MountIterator = std::unique_ptr<libmnt_iter, orvel::Releaser<mnt_free_iter>>;

std::string textOf(const char *value) {
    return value != nullptr ? value : "";
}

std::vector<std::string> layersOf(libmnt_fs *fs) {
    std::vector<std::string> layers;
    for (const char *name : {"lowerdir", "upperdir"}) {
        char *value = nullptr;
        std::size_t length = 0;
        if (mnt_fs_get_option(fs, name, &value, &length) != 0 || value == nullptr) continue;
        for (const std::string &layer : splitValues(std::string(value, length)))
            if (layer.starts_with('/')) layers.push_back(layer);
    }
    return layers;
}

Mount toMount(libmnt_fs *fs) {
    Mount mount;
    mount.mountPoint = textOf(mnt_fs_get_target(fs));
    mount.source = textOf(mnt_fs_get_source(fs));
    mount.root = textOf(mnt_fs_get_root(fs));
    mount.type = textOf(mnt_fs_get_fstype(fs));
    mount.id = static_cast<std::uint64_t>(mnt_fs_get_id(fs));
    if (mount.type == "overlay") mount.layers = layersOf(fs);
    mount.isFuse = mount.type == "fuse" || mount.type.starts_with("fuse.");
    mount.hasPath = !mount.isFuse && trim(mount.source).starts_with('/');
    std::string ignoredReason;
    mount.isDevice = mount.hasPath && isBlockDevice(trim(mount.source), ignoredReason);
    return mount;
}

}  // namespace

std::vector<Mount> readMounts() {
    const MountTable table(mnt_new_table_from_file("/proc/self/mountinfo"));
    const MountIterator iterator(mnt_new_iter(MNT_ITER_FORWARD));
    if (!table || !iterator) throw std::runtime_error("/proc/self/mountinfo cannot be read");
    std::vector<Mount> mounts;
    libmnt_fs *fs = nullptr;
    while (mnt_table_next_fs(table.get(), iterator.get(), &fs) == 0) mounts.push_back(toMount(fs));
    return mounts;
}

Host readHost() {
    struct stat status = {};
    if (stat(orvel::kConfigPath, &status) == 0 && S_ISFIFO(status.st_mode))
        throw std::runtime_error(std::string(orvel::kConfigPath) +
                                 " is a FIFO, on which every call of the library waits");
    Host host;
    host.mappings = sortedMappings();
    MessageKeeper said;  // the library has just said all of it
    host.mounts = readMounts();
    host.storagePaths = processMountInfo();
    if (!parseConfig(orvel::kConfigPath, StageSystem, host.config)) {
        host.complaint = said.messages.back();
        host.config.clear();
    }
    host.table = withOrigins(host);
    return host;
}

const Mount *Host::mountAbove(const std::string &path) const {
    const Mount *deepest = nullptr;
    for (const Mount &mount : mounts)
        if (orvel::covers(mount.mountPoint, path) &&
            (deepest == nullptr || mount.mountPoint.size() >= deepest->mountPoint.size()))
            deepest = &mount;
    return deepest;
}

std::vector<std::string> Host::storageNames(const std::string &path) const {
    std::vector<std::string> names;
    for (const auto &[prefix, replacement] : mappings) {
        if (!orvel::covers(replacement, path)) continue;
        const std::size_t length = replacement == "/" && path != "/" ? 0 : replacement.size();
        const std::string name = orvel::replacePrefix(path, length, prefix);
        if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    }
    return names;
}

}  // namespace tool
