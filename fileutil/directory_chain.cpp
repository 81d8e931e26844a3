// SPDX-License-Identifier: MIT
// To go down, the chain opens a directory by its name in the one above and compares it. To go up,
// it finds the directory still open, or opens it by ".." and compares it. It opens nothing by a
// path.
#include "fileutil/directory_chain.hpp"

#include <fcntl.h>

namespace orvel {

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
