// SPDX-License-Identifier: MIT
// The directories from the top of a tree down to where a walk stands, reached by descriptors only.
//
// However deep the tree, only the lowest few stay open. A directory further up is opened again
// through ".." of its child when the walk comes back to it, and must then have the device and inode
// number that it had before: a child that somebody moved elsewhere in the meantime does not lead
// the walk there.
#pragma once

#include <sys/stat.h>

#include <array>

#include "fileutil/growable.hpp"

namespace orvel {

// Whether two looks met the same file.
inline bool is_same_file(const struct stat &a, const struct stat &b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Opens directory name in directory at without following a link; flags are added to O_DIRECTORY and
// its like. Null with errno set if it cannot be opened or is not the one that was examined.
Fd open_examined(int at, const char *name, int flags, const struct stat &examined);

class DirectoryChain {
public:
    // Goes down to an open directory, of which status tells. False with errno set: no memory.
    bool enter(Fd directory, const struct stat &status);
    // Goes up again.
    void leave();

    // The directory where the walk stands; -1 where it cannot be reached any more.
    int fd() const { return slot(depth()).get(); }
    // How many directories the chain has; the top alone makes 1.
    std::size_t depth() const { return levels_.size(); }

private:
    static constexpr std::size_t kOpenLevels = 8;
    struct Level {
        dev_t device;
        ino_t inode;
    };

    // A level's place among the open ones, shared with those kOpenLevels above and below. Empty if
    // the level is not open: whatever came in its place from below has been left.
    Fd &slot(std::size_t depth) { return open_[depth % kOpenLevels]; }
    const Fd &slot(std::size_t depth) const { return open_[depth % kOpenLevels]; }

    Growable<Level> levels_;
    std::array<Fd, kOpenLevels> open_;
};

}  // namespace orvel
