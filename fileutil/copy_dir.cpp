// SPDX-License-Identifier: MIT
// copy_dir: a tree into a new directory. A TreeWalk goes through the source and a DirectoryChain
// through the copy, so both are reached by descriptors only.
#include <dirent.h>
#include <fcntl.h>

#include <algorithm>

#include "fileutil/call.hpp"
#include "fileutil/copy_file.hpp"
#include "fileutil/path_buffer.hpp"
#include "fileutil/tree_walk.hpp"
#include "include/orvel_core.h"

namespace {

constexpr std::size_t kMaxPathBytes = 4095;
using Path = orvel::PathBuffer<kMaxPathBytes>;

// The state of one copy. The lengths of both paths only decide which entries are too long to copy.
class TreeCopy {
public:
    // The top of the copy exists. The lengths are those of the paths of both tops.
    TreeCopy(std::size_t source_length, std::size_t target_length)
        : source_length_(source_length), target_length_(target_length) {}

    bool begin(orvel::Fd source, const struct stat &source_status, orvel::Fd target) {
        return fstat(target.get(), &made_) == 0 && target_.enter(std::move(target), made_) &&
               source_.begin(std::move(source), source_status);
    }

    // Skips what fails inside the tree.
    void run() {
        while (true) {
            if (const orvel::Entry *entry = source_.next())
                copy_entry(*entry);
            else if (!leave())
                return;
        }
    }

private:
    // If descriptors run out, both chains release some.
    template <class Open>
    auto with_descriptors(const Open &open) {
        return target_.with_descriptors([&] { return source_.with_descriptors(open); });
    }

    void copy_entry(const orvel::Entry &entry) {
        const std::size_t added = 1 + std::strlen(entry.name);
        if (std::max(source_length_, target_length_) + added > kMaxPathBytes) return;
        struct stat own = {};
        const mode_t mode = mode_of(entry, own);
        const bool is_refused = std::strstr(entry.name, "..") != nullptr;
        if (mode == 0 || (is_refused && (S_ISREG(mode) || S_ISDIR(mode)))) return;
        // A file that exists in a new directory was planted by another process.
        if (S_ISREG(mode))
            (void)with_descriptors([&] {
                return orvel::copy_regular_file(source_.directory(), entry.name, target_.fd(),
                                                entry.name, orvel::Existing::Refused) == 0;
            });
        else if (S_ISDIR(mode))
            copy_directory(entry, mode, own);
        else
            orvel::print_error("unknow file type!");
    }

    // The type of the entry, links followed; own is the entry itself. 0 if it cannot be examined,
    // or if it is the copy, made below its source.
    mode_t mode_of(const orvel::Entry &entry, struct stat &own) const {
        if (entry.type == DT_REG) return S_IFREG;
        if (fstatat(source_.directory(), entry.name, &own, AT_SYMLINK_NOFOLLOW) != 0 ||
            orvel::is_same_file(own, made_))
            return 0;
        if (!S_ISLNK(own.st_mode)) return own.st_mode;
        struct stat named = {};
        return fstatat(source_.directory(), entry.name, &named, 0) == 0 ? named.st_mode : 0;
    }

    // Makes the directory in the copy and enters both. For a link to a directory the new one stays
    // empty.
    void copy_directory(const orvel::Entry &entry, mode_t mode, const struct stat &own) {
        if (mkdirat(target_.fd(), entry.name, mode) != 0 || S_ISLNK(own.st_mode)) return;
        constexpr int kFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
        orvel::Fd made =
            with_descriptors([&] { return orvel::Fd(openat(target_.fd(), entry.name, kFlags)); });
        struct stat status = {};
        const std::size_t added = 1 + std::strlen(entry.name);
        if (!made || fstat(made.get(), &status) != 0 ||
            !with_descriptors([&] { return source_.enter(own); })) {
            orvel::print_error("opendir error");
        } else if (!target_.enter(std::move(made), status)) {
            orvel::print_error("opendir error");
            (void)source_.leave();
        } else {
            source_length_ += added;
            target_length_ += added;
        }
    }

    bool leave() {
        if (!source_.leave()) return false;
        target_.leave();
        const std::size_t added = 1 + std::strlen(source_.entry()->name);
        source_length_ -= added;
        target_length_ -= added;
        return true;
    }

    orvel::TreeWalk source_;
    orvel::DirectoryChain target_;
    struct stat made_ = {};  // the directory that this copy made first
    std::size_t source_length_;
    std::size_t target_length_;
};

// Makes the directory name in dst and copies the tree into it. source and target are both paths.
int copy_into(const Path &source, const Path &target, const char *dst, const char *name,
              mode_t mode) {
    if (std::strstr(target.text(), "..") != nullptr) return orvel::refuse(-1, EINVAL);
    const orvel::Fd parent(open(dst, O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!parent) return -4;
    struct stat status = {};
    if (fstatat(parent.get(), name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode))
        return orvel::refuse(-1, ELOOP);
    if (mkdirat(parent.get(), name, mode) != 0) return -4;
    // By contract the source is refused only after the new directory has been made.
    if (std::strstr(source.text(), "..") != nullptr) return orvel::refuse(-1, EINVAL);
    if (path_is_link(source.text()) == 1) return orvel::refuse(-1, ELOOP);

    constexpr int kFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    orvel::Fd made(openat(parent.get(), name, kFlags));
    orvel::Fd opened;
    if (made && lstat(source.text(), &status) == 0)
        opened = orvel::open_automounted(AT_FDCWD, source.text(), O_RDONLY, status);
    TreeCopy copy(source.length(), target.length());
    if (!opened || !copy.begin(std::move(opened), status, std::move(made))) {
        orvel::print_error("opendir error");
        return -2;
    }
    copy.run();
    return 0;
}

}  // namespace

extern "C" int copy_dir(const char *src, const char *dst) {
    const orvel::Call call;
    if (src == nullptr || dst == nullptr) return orvel::refuse(-1, EINVAL);
    if (access(src, F_OK) != 0 || access(dst, F_OK) != 0) return -2;
    struct stat status = {};
    if (stat(src, &status) != 0) return -3;
    Path source;
    Path target;
    if (!source.append(src) || !target.append(dst)) return orvel::refuse(-1, ENAMETOOLONG);
    source.drop_trailing_slash();
    target.drop_trailing_slash();
    const char *slash = std::strrchr(source.text(), '/');
    if (slash == nullptr) return orvel::refuse(-1, EINVAL);
    // dst and "/" may already fill the buffer.
    if (!target.push(slash + 1)) return orvel::refuse(-1, ENAMETOOLONG);
    const int result = copy_into(source, target, dst, slash + 1, status.st_mode);
    return result == 0 ? call.done(0) : result;
}
