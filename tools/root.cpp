// SPDX-License-Identifier: MIT
// Without /proc or device nodes the library returns all paths unchanged, as on a host without
// mounts. So this program reports what is missing.
#include "tools/root.hpp"

#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "tools/host.hpp"

namespace tool {
namespace {

[[noreturn]] void fail(const std::string &name, const std::string &what) {
    throw std::runtime_error("'" + name + "': " + what);
}

}  // namespace

void requireProc(const std::string &name) {
    struct statfs status = {};
    if (statfs("/proc", &status) != 0 || status.f_type != PROC_SUPER_MAGIC)
        fail(name, "has no mounted /proc");
    if (access("/proc/self/mountinfo", R_OK) != 0)
        fail(name, std::string("has no /proc/self/mountinfo: ") + std::strerror(errno));
}

void requireDeviceNodes(const std::string &name) {
    for (const Mount &mount : readMounts())
        if (mount.lacksNode())
            fail(name, "has no " + mount.source + ", which is mounted at " + mount.mountPoint +
                           " there; mount the device nodes at its /dev first");
}

void enterRoot(const std::string &directory) {
    if (chroot(directory.c_str()) != 0 || chdir("/") != 0)
        fail(directory, std::string("cannot be entered: ") + std::strerror(errno));
    requireProc(directory);
}

}  // namespace tool
