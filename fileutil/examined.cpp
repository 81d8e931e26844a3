// SPDX-License-Identifier: MIT
#include "fileutil/examined.hpp"

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

}  // namespace orvel
