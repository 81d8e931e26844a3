// SPDX-License-Identifier: MIT
// Opens a directory only if it is the one that was examined before: another process may have put a
// link or another directory in its place.
#pragma once

#include <sys/stat.h>

#include "base/handles.hpp"

namespace orvel {

// Whether both are one file.
inline bool is_same_file(const struct stat &a, const struct stat &b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Opens directory name in directory at without following a link; flags are added to O_DIRECTORY and
// similar ones. Null with errno set if it cannot be opened or is not the one that was examined.
Fd open_examined(int at, const char *name, int flags, const struct stat &examined);

// The same, but if the two differ, examines the directory again and stores that in examined: only
// opening an automount point mounts its file system.
Fd open_automounted(int at, const char *name, int flags, struct stat &examined);

}  // namespace orvel
