// SPDX-License-Identifier: MIT
// The names of a level are a run of bytes in one block, the lowest level's at its end, so that
// going up is a truncation and no level needs memory of its own.
#include "fileutil/tree_walk.hpp"

#include <fcntl.h>

namespace orvel {
namespace {

// The next entry other than "." and "..", or null at the end, which a failure to read also is; it
// sets errno.
const dirent *next_entry(DIR *stream) {
    errno = 0;
    while (const dirent *entry = readdir(stream))
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            return entry;
    return nullptr;
}

}  // namespace

// Appends the names in a directory to names_. The stream works on a copy of the descriptor: closing
// it closes its own, and the directory's must stay open for the calls that name its entries.
bool TreeWalk::read_names(int directory) {
    Fd copy = with_descriptors([&] { return Fd(fcntl(directory, F_DUPFD_CLOEXEC, 0)); });
    const Dir stream(copy ? fdopendir(copy.get()) : nullptr);
    if (!stream) return false;
    (void)copy.release();  // it is the stream's now
    while (const dirent *entry = next_entry(stream.get())) {
        const char type = static_cast<char>(entry->d_type);
        if (!names_.append(type) || !names_.append(entry->d_name, std::strlen(entry->d_name) + 1))
            return false;
    }
    return errno != ENOMEM;
}

bool TreeWalk::begin(Fd directory, const struct stat &status) {
    const std::size_t names = names_.size();
    const std::size_t levels = levels_.size();
    if (read_names(directory.get()) && levels_.append({names, names, names}) &&
        chain_.enter(std::move(directory), status))
        return true;
    // The walk stays in its directory; the new one is closed.
    names_.truncate(names);
    levels_.truncate(levels);
    return false;
}

bool TreeWalk::enter(struct stat examined) {
    Fd child = with_descriptors(
        [&] { return open_automounted(directory(), entry()->name, O_RDONLY, examined); });
    return child && begin(std::move(child), examined);
}

const Entry *TreeWalk::next() {
    Level &level = levels_.last();
    // Nothing can be done with the entries of a directory that is out of reach.
    if (directory() < 0 || level.following == names_.size()) return nullptr;
    level.current = level.following;
    level.following += 1 + std::strlen(&names_[level.current + 1]) + 1;
    return entry();
}

// Looked up afresh each time: going down and up again may have moved the block of names.
const Entry *TreeWalk::entry() {
    const std::size_t at = levels_.last().current;
    entry_ = {&names_[at + 1], static_cast<unsigned char>(names_[at])};
    return &entry_;
}

bool TreeWalk::leave() {
    if (depth() == 1) return false;
    chain_.leave();
    if (directory() < 0 && (errno == ENOMEM || is_out_of_descriptors())) ran_out_ = true;
    names_.truncate(levels_.last().names);
    levels_.truncate(levels_.size() - 1);
    return true;
}

}  // namespace orvel
