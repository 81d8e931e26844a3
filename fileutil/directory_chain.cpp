// SPDX-License-Identifier: MIT
// To go down, the chain opens a directory by its name in the one above and compares it. To go up,
// it finds the directory still open, or opens it by ".." and compares it. It opens nothing by a
// path.
#include "fileutil/directory_chain.hpp"

#include <fcntl.h>

namespace orvel {

Fd open_examined(int at, const char *name, int flags, const struct stat &examined) {
    Fd directory(openat(at, name, O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | flags));
    struct stat opened = {};
    if (!directory || fstat(directory.get(), &opened) != 0) return Fd();
    if (is_same_file(opened, examined)) return directory;
    errno = ESTALE;
    return Fd();
}

Fd open_automounted(int at, const char *name, int flags, struct stat &examined) {
    Fd directory = open_examined(at, name, flags, examined);
    if (directory || errno != ESTALE) return directory;
    if (fstatat(at, name, &examined, AT_SYMLINK_NOFOLLOW) != 0) return Fd();
    return open_examined(at, name, flags, examined);
}

bool DirectoryChain::enter(Fd directory, const struct stat &status) {
    if (!levels_.append({status.st_dev, status.st_ino})) return false;
    slot(depth()) = std::move(directory);
    return true;
}

void DirectoryChain::leave() {
    const Fd left = std::move(slot(depth()));
    levels_.truncate(depth() - 1);
    if (depth() == 0 || slot(depth())) return;
    struct stat expected = {};
    expected.st_dev = levels_.last().device;
    expected.st_ino = levels_.last().inode;
    // If this fails, the slot stays empty: this level and those above it are lost.
    slot(depth()) = open_examined(left.get(), "..", O_PATH, expected);
}

bool DirectoryChain::close_highest() {
    const std::size_t highest = depth() > kOpenLevels ? depth() - kOpenLevels + 1 : 1;
    for (std::size_t level = highest; level < depth(); ++level) {
        if (!slot(level)) continue;
        slot(level).reset(-1);
        return true;
    }
    return false;
}

}  // namespace orvel
