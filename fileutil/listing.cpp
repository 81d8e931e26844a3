// SPDX-License-Identifier: MIT
// The three listings: one directory, or a tree with or without its directories. An entry whose path
// does not fit is left out; a failed allocation, anywhere in the tree, ends the call without a
// list.
#include <dirent.h>
#include <fcntl.h>
#include <limits.h>

#include <cstdio>
#include <cstring>

#include "base/cancellation.hpp"
#include "fileutil/path_buffer.hpp"
#include "fileutil/path_list.hpp"
#include "fileutil/tree_walk.hpp"
#include "include/orvel_core.h"

namespace {

constexpr std::size_t kMaxListedBytes = 4096;
using Path = orvel::PathBuffer<kMaxListedBytes>;

// The directory's path as the kernel knows it, whatever name it was opened by.
bool read_kernel_path(int directory, Path &path) {
    char link[sizeof "/proc/self/fd/" + 10];
    char target[PATH_MAX];
    (void)std::snprintf(link, sizeof link, "/proc/self/fd/%d", directory);  // fits any int
    const ssize_t length = readlink(link, target, sizeof target - 1);
    if (length < 0) return false;
    target[length] = '\0';
    if (!path.append(target)) return false;
    path.drop_trailing_slash();
    return true;
}

// Goes into the directory path, to which the walk has come. One that cannot be opened, or has been
// exchanged since it was read, is passed over; false only when memory ran out.
bool enter_if_possible(orvel::TreeWalk &walk, const Path &path, bool &entered) {
    struct stat examined = {};
    const char *name = walk.entry()->name;
    entered = path.length() < PATH_MAX &&
              fstatat(walk.directory(), name, &examined, AT_SYMLINK_NOFOLLOW) == 0 &&
              walk.enter(examined);
    return entered || errno != ENOMEM;
}

// Begins a walk at a path that may be a link, and notes the absolute path that is its base.
bool begin_followed(const char *dir, orvel::TreeWalk &walk, Path &base) {
    const orvel::MallocString absolute(get_absolute_path(dir));
    if (!absolute || !base.append(absolute.get())) return false;
    base.drop_trailing_slash();
    orvel::Fd top(open(absolute.get(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
    struct stat status = {};
    return top && fstat(top.get(), &status) == 0 && walk.begin(std::move(top), status);
}

// All entries below path that are no directories; false when memory ran out. As the top may not, no
// directory with ".." in its path is gone into.
bool list_files(orvel::TreeWalk &walk, Path &path, orvel::PathList &list) {
    while (true) {
        const orvel::Entry *entry = walk.next();
        if (entry == nullptr) {
            if (!walk.leave()) return !walk.ran_out_of_memory();
            path.pop();
        } else if (path.push(entry->name)) {
            bool entered = false;
            if (entry->type != DT_DIR) {
                if (!list.add(path.text())) return false;
            } else if (std::strstr(path.text(), "..") == nullptr) {
                if (!enter_if_possible(walk, path, entered)) return false;
            }
            if (!entered) path.pop();
        }
    }
}

// All entries below top, each directory after what it holds. A directory that could be read is
// listed by itself and by the one above it, hence twice in a row; the top only by itself. Where the
// top is a link, what lies deeper than directly in it has its canonical path, which begins with
// real.
bool list_paths(orvel::TreeWalk &walk, Path &top, Path &real, orvel::PathList &list) {
    while (true) {
        const orvel::Entry *entry = walk.next();
        Path &path = walk.depth() == 1 ? top : real;
        if (entry == nullptr) {
            if (!list.add(path.text())) return false;
            if (!walk.leave()) return !walk.ran_out_of_memory();
            const bool is_in_top = walk.depth() == 1;
            if (!list.add(is_in_top ? top.text() : real.text())) return false;
            real.pop();
            if (is_in_top) top.pop();
        } else if (path.push(entry->name)) {
            bool entered = false;
            const bool fits = &path == &real || real.push(entry->name);
            if (entry->type == DT_DIR && fits && !enter_if_possible(walk, path, entered))
                return false;
            if (entered) continue;
            if (!list.add(path.text())) return false;
            path.pop();
            if (&path == &top && fits) real.pop();
        }
    }
}

}  // namespace

// The top must be the directory that was examined, and no link; its own name for itself counts, not
// dir.
extern "C" char **get_file_list_from_dir(const char *dir, int *count) {
    const orvel::CancellationHold hold;
    struct stat examined = {};
    if (dir == nullptr || count == nullptr || *count != 0 || std::strstr(dir, "..") != nullptr ||
        lstat(dir, &examined) != 0)
        return nullptr;
    Path path;
    orvel::TreeWalk walk;
    orvel::PathList list;
    // A link, as anything else that is no directory, does not open.
    orvel::Fd top = orvel::open_examined(AT_FDCWD, dir, O_RDONLY, examined);
    if (!top || !read_kernel_path(top.get(), path) || !walk.begin(std::move(top), examined))
        return nullptr;
    return list_files(walk, path, list) ? list.release(count) : nullptr;
}

extern "C" char **get_path_list_from_dir(const char *dir, int *count) {
    const orvel::CancellationHold hold;
    Path top;
    Path real;
    orvel::TreeWalk walk;
    orvel::PathList list;
    if (dir == nullptr || count == nullptr || *count != 0 || !begin_followed(dir, walk, top))
        return nullptr;
    const orvel::MallocString canonical(realpath(top.text(), nullptr));
    if (!canonical || !real.append(canonical.get())) return nullptr;
    if (list_paths(walk, top, real, list)) return list.release(count);
    *count = list.count();
    return nullptr;
}

extern "C" char **get_dir_list(const char *dir, int *count) {
    const orvel::CancellationHold hold;
    Path path;
    orvel::TreeWalk walk;
    orvel::PathList list;
    if (dir == nullptr || count == nullptr || *count != 0 || !begin_followed(dir, walk, path))
        return nullptr;
    while (const orvel::Entry *entry = walk.next()) {
        if (!path.push(entry->name)) continue;
        if (!list.add(path.text())) {
            *count = list.count();
            return nullptr;
        }
        path.pop();
    }
    return list.release(count);
}
