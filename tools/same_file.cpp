// SPDX-License-Identifier: MIT
// Equal device and inode numbers are one file; other numbers are two files, unless one path is on
// an overlay. An overlay has its own device number, and its inode numbers may be those of another
// layer. It passes on type, size and change time, which no process can set: if these differ, the
// overlay shows another file; if they agree, it is likely the same one. A directory of an overlay
// is merged from several, so nothing is known.
#include "tools/same_file.hpp"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "base/handles.hpp"

namespace tool {
namespace {

struct Sight {
    std::string failure;  // empty: the rest is known
    bool isMissing = false;
    struct stat status = {};
    bool isOverlay = false;
};

Sight lookAt(const std::string &path) {
    Sight sight;
    struct statfs fileSystem = {};
    // One descriptor for both calls. O_PATH opens no device, O_NOFOLLOW follows no link.
    const orvel::Fd fd(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!fd || fstat(fd.get(), &sight.status) != 0 || fstatfs(fd.get(), &fileSystem) != 0) {
        const int error = errno;
        sight.failure = path + ": " + std::strerror(error);
        sight.isMissing = error == ENOENT || error == ENOTDIR;
    }
    sight.isOverlay = fileSystem.f_type == OVERLAYFS_SUPER_MAGIC;
    return sight;
}

std::string numbers(const struct stat &status) {
    return "device " + std::to_string(major(status.st_dev)) + ":" +
           std::to_string(minor(status.st_dev)) + " inode " + std::to_string(status.st_ino);
}

bool agree(const struct stat &a, const struct stat &b) {
    return a.st_mode == b.st_mode && a.st_size == b.st_size &&
           a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

}  // namespace

Comparison compareFiles(const std::string &first, const std::string &second) {
    const Sight a = lookAt(first);
    const Sight b = lookAt(second);
    for (const Sight &sight : {a, b})
        if (!sight.failure.empty()) return {sight.isMissing ? "missing" : "unknown", sight.failure};
    if (a.status.st_dev == b.status.st_dev && a.status.st_ino == b.status.st_ino)
        return {"yes", numbers(a.status)};
    const std::string both = numbers(a.status) + ", " + numbers(b.status);
    if (a.status.st_dev == b.status.st_dev || !(a.isOverlay || b.isOverlay)) return {"no", both};
    if (S_ISDIR(a.status.st_mode) && S_ISDIR(b.status.st_mode))
        return {"unknown", "an overlay merges directories; " + both};
    if (agree(a.status, b.status))
        return {"likely", "type, size and change time agree through the overlay; " + both};
    return {"no", "type, size or change time differ through the overlay; " + both};
}

std::string linkAbove(const std::string &path) {
    for (std::size_t end = path.find('/', 1); end != std::string::npos;
         end = path.find('/', end + 1)) {
        const std::string directory = path.substr(0, end);
        std::array<char, 4096> target = {};
        const ssize_t length = readlink(directory.c_str(), target.data(), target.size());
        if (length >= 0)
            return directory + " -> " + std::string(target.data(), static_cast<size_t>(length));
    }
    return {};
}

}  // namespace tool
