// SPDX-License-Identifier: MIT
// The directories from the top of a tree down to the one in which a walk is, reached by descriptors
// only.
//
// Only the lowest few stay open, so the depth of the tree does not matter. When the walk returns to
// a directory further up, it opens it again by ".." of its child, and compares device and inode
// number: a child that another process has moved does not lead the walk out of the tree.
#pragma once

#include <array>

#include "fileutil/examined.hpp"
#include "fileutil/growable.hpp"

namespace orvel {

inline bool is_out_of_descriptors() {
    return errno == EMFILE || errno == ENFILE;
}

class DirectoryChain {
public:
    // Goes down to an open directory that has this status. False with errno set: no memory.
    bool enter(Fd directory, const struct stat &status);
    // Goes up again.
    void leave();

    // The directory in which the walk is; -1 if it cannot be reached any more.
    int fd() const { return slot(depth()).get(); }
    // How many directories the chain has; the top alone makes 1.
    std::size_t depth() const { return levels_.size(); }

    // Closes the highest directory that is kept open; false if that is the one in which the walk
    // is.
    bool close_highest();

    // Calls open(), and again without the highest directory kept open as long as descriptors run
    // out. open() gives what is false, with errno set, if it fails.
    template <class Open>
    auto with_descriptors(const Open &open) {
        auto result = open();
        while (!result && is_out_of_descriptors() && close_highest()) result = open();
        return result;
    }

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
