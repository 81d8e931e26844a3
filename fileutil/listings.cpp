// SPDX-License-Identifier: MIT
// The three listings: one directory, or a tree with or without its directories. An entry whose path
// does not fit is skipped. If memory or descriptors run out, there is no list.
#include <dirent.h>
#include <fcntl.h>
#include <limits.h>

#include <cstdio>
#include <cstring>

#include "fileutil/call.hpp"
#include "fileutil/path_buffer.hpp"
#include "fileutil/path_list.hpp"
#include "fileutil/tree_walk.hpp"
#include "include/orvel_core.h"

namespace {

constexpr std::size_t kMaxListedBytes = 4096;
using Path = orvel::PathBuffer<kMaxListedBytes>;

// The path that the kernel has for the directory.
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

enum class Step { Entered, Skipped, RanOut };

// Enters the directory path, the current entry of the walk. If it cannot be opened, or another one
// has replaced it, it is skipped.
Step enter(orvel::TreeWalk &walk, const Path &path) {
    struct stat examined = {};
    if (path.length() >= PATH_MAX) return Step::Skipped;
    if (fstatat(walk.directory(), walk.entry()->name, &examined, AT_SYMLINK_NOFOLLOW) == 0 &&
        walk.enter(examined))
        return Step::Entered;
    return errno == ENOMEM || orvel::is_out_of_descriptors() ? Step::RanOut : Step::Skipped;
}

// Begins a walk at a path that may be a link. absolute is that path, and base the same without a
// slash at its end: the root's base is empty, so that its entries are /name.
bool begin_followed(const char *dir, orvel::TreeWalk &walk, orvel::MallocString &absolute,
                    Path &base) {
    absolute.reset(get_absolute_path(dir));
    if (!absolute || !base.append(absolute.get())) return false;
    base.drop_trailing_slash();
    orvel::Fd top(open(absolute.get(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
    struct stat status = {};
    return top && fstat(top.get(), &status) == 0 && walk.begin(std::move(top), status);
}

// All entries below path that are no directories; false if memory or descriptors ran out. As the
// top may not, no directory with ".." in its path is entered.
bool list_files(orvel::TreeWalk &walk, Path &path, orvel::PathList &list) {
    while (true) {
        const orvel::Entry *entry = walk.next();
        if (entry == nullptr) {
            if (!walk.leave()) return !walk.ran_out();
            path.pop();
        } else if (path.push(entry->name)) {
            Step step = Step::Skipped;
            if (entry->type != DT_DIR) {
                if (!list.add(path.text())) return false;
            } else if (std::strstr(path.text(), "..") == nullptr) {
                step = enter(walk, path);
            }
            if (step == Step::RanOut) return false;
            if (step == Step::Skipped) path.pop();
        }
    }
}

// The path of the walk's current entry below base. False if it does not fit.
bool path_of_entry(orvel::TreeWalk &walk, const Path &base, Path &path) {
    path = base;
    return path.push(walk.entry()->name);
}

// All entries below top, each directory after its entries. A directory that could be read is listed
// by itself and by the directory above it, so twice in a row; the top is listed once. If the top is
// a link, entries of the directories in it are listed below real, the canonical path.
bool list_paths(orvel::TreeWalk &walk, const Path &top, const Path &real, orvel::PathList &list) {
    Path path = top;  // of the directory in which the walk is, or of an entry in it
    Path inside;      // what the entry lists its own content below
    while (true) {
        const orvel::Entry *entry = walk.next();
        if (entry == nullptr) {
            if (!list.add(path.length() > 0 ? path.text() : "/")) return false;
            if (!walk.leave()) return !walk.ran_out();
            if (walk.depth() == 1) (void)path_of_entry(walk, top, path);  // it fitted before
        } else {
            if (!path.push(entry->name)) continue;
            Step step = Step::Skipped;
            if (entry->type == DT_DIR) {
                inside = path;
                if (walk.depth() > 1 || path_of_entry(walk, real, inside))
                    step = enter(walk, inside);
            }
            if (step == Step::RanOut) return false;
            if (step == Step::Entered) {
                path = inside;
                continue;
            }
        }
        if (!list.add(path.text())) return false;
        path.pop();
    }
}

// Whether the arguments are valid; sets errno if not.
bool is_valid(const char *dir, const int *count) {
    return (dir != nullptr && count != nullptr && *count == 0) || orvel::refuse(false, EINVAL);
}

}  // namespace

// The top must be the directory that was examined, and no link; it is named as the kernel names it.
extern "C" char **get_file_list_from_dir(const char *dir, int *count) {
    const orvel::Call call;
    struct stat examined = {};
    if (!is_valid(dir, count)) return nullptr;
    if (std::strstr(dir, "..") != nullptr) return orvel::refuse<char **>(nullptr, EINVAL);
    if (lstat(dir, &examined) != 0) return nullptr;
    if (S_ISLNK(examined.st_mode)) return orvel::refuse<char **>(nullptr, ELOOP);
    Path path;
    orvel::TreeWalk walk;
    orvel::PathList list;
    orvel::Fd top = orvel::open_examined(AT_FDCWD, dir, O_RDONLY, examined);
    if (!top || !read_kernel_path(top.get(), path) || !walk.begin(std::move(top), examined) ||
        !list_files(walk, path, list))
        return nullptr;
    return call.done(list.release(count));
}

extern "C" char **get_path_list_from_dir(const char *dir, int *count) {
    const orvel::Call call;
    Path top;
    Path real;
    orvel::MallocString absolute;
    orvel::TreeWalk walk;
    orvel::PathList list;
    if (!is_valid(dir, count) || !begin_followed(dir, walk, absolute, top)) return nullptr;
    const orvel::MallocString canonical(realpath(absolute.get(), nullptr));
    if (!canonical || !real.append(canonical.get())) return nullptr;
    real.drop_trailing_slash();
    if (list_paths(walk, top, real, list)) return call.done(list.release(count));
    *count = list.count();
    return nullptr;
}

extern "C" char **get_dir_list(const char *dir, int *count) {
    const orvel::Call call;
    Path path;
    orvel::MallocString absolute;
    orvel::TreeWalk walk;
    orvel::PathList list;
    if (!is_valid(dir, count) || !begin_followed(dir, walk, absolute, path)) return nullptr;
    while (const orvel::Entry *entry = walk.next()) {
        if (!path.push(entry->name)) continue;
        if (!list.add(path.text())) {
            *count = list.count();
            return nullptr;
        }
        path.pop();
    }
    return call.done(list.release(count));
}
