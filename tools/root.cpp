// SPDX-License-Identifier: MIT
// The library cannot tell a host without /proc or device nodes from one without mounts: it would
// answer with unchanged paths. Better to say what is missing.
#include "tools/root.hpp"

#include <linux/magic.h>
#include <mntent.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "base/handles.hpp"

namespace tool {
namespace {

using MountList = std::unique_ptr<std::FILE, orvel::Releaser<endmntent>>;

[[noreturn]] void fail(const std::string &directory, const std::string &what) {
    throw std::runtime_error("'" + directory + "': " + what);
}

// A device that is mounted but cannot be looked at is no block device to the library, and paths on
// it would come back unchanged.
void requireDeviceNodes(const std::string &directory) {
    const MountList mounts(setmntent("/proc/self/mounts", "re"));
    if (!mounts) fail(directory, "cannot read /proc/self/mounts there");
    while (const mntent *mount = getmntent(mounts.get())) {
        const std::string source = mount->mnt_fsname, type = mount->mnt_type;
        // Whose source its users choose, but not that of one on a block device, "fuseblk".
        if (type == "fuse" || type.starts_with("fuse.")) continue;
        struct stat status = {};
        if (source.starts_with("/dev/") && stat(source.c_str(), &status) != 0)
            fail(directory, "has no " + source + ", which is mounted at " + mount->mnt_dir +
                                " there; mount the device nodes at its /dev first");
    }
}

}  // namespace

void requireProc(const std::string &root) {
    struct statfs status = {};
    if (statfs("/proc", &status) != 0 || status.f_type != PROC_SUPER_MAGIC)
        fail(root, "has no mounted /proc");
}

void enterRoot(const std::string &directory) {
    if (chroot(directory.c_str()) != 0 || chdir("/") != 0)
        fail(directory, std::string("cannot be entered: ") + std::strerror(errno));
    requireProc(directory);
    requireDeviceNodes(directory);
}

}  // namespace tool
