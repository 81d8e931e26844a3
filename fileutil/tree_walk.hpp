// SPDX-License-Identifier: MIT
// The walk of a tree that listing, copying and removing share: depth first, by descriptors, without
// recursion. Links are entries and never followed.
//
//     for (walk.begin(...);;) {
//         if (const Entry *entry = walk.next()) { ...; walk.enter(...) to go into it; }
//         else if (walk.leave()) { ... walk.entry() is the directory that has been left; }
//         else break;
//     }
#pragma once

#include "fileutil/directory_chain.hpp"

namespace orvel {

struct Entry {
    const char *name;    // valid until the next step
    unsigned char type;  // DT_ value of readdir, which may be DT_UNKNOWN
};

class TreeWalk {
public:
    // Begins in an open directory that has this status, and reads its names. False with errno set.
    bool begin(Fd directory, const struct stat &status);

    // The next entry of the directory in which the walk is; null when there are no more.
    const Entry *next();
    // The entry that next() gave last in this directory.
    const Entry *entry();

    // Goes into the directory that entry() names, if it is still the one that was examined, and
    // reads its names. False with errno set: the walk stays where it is.
    bool enter(struct stat examined);
    // Goes back to the directory above; false at the top.
    bool leave();
    // Whether the walk lost directories above because memory or descriptors ran out on the way
    // back.
    bool ran_out() const { return ran_out_; }

    // Descriptor of the directory in which the walk is, for fstatat and its like.
    int directory() const { return chain_.fd(); }
    std::size_t depth() const { return chain_.depth(); }
    // DirectoryChain's.
    template <class Open>
    auto with_descriptors(const Open &open) {
        return chain_.with_descriptors(open);
    }

private:
    struct Level {            // offsets into names_
        std::size_t names;    // where its names begin
        std::size_t current;  // where the name of entry() begins
        std::size_t following;
    };

    bool read_names(int directory);

    DirectoryChain chain_;
    Growable<Level> levels_;
    // The names of every open level, the lowest last: a byte of type, then the name with its NUL.
    // A level is read whole when the walk enters it, so that no stream must stay open.
    Growable<char> names_;
    Entry entry_ = {};
    bool ran_out_ = false;
};

}  // namespace orvel
