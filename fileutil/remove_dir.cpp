// SPDX-License-Identifier: MIT
// remove_dir: a file, or a tree from its leaves upwards. Every name is removed relative to the open
// directory that holds it, so that no path is ever cut and nobody can slip a link into its way.
#include <dirent.h>
#include <fcntl.h>

#include "base/cancellation.hpp"
#include "fileutil/report.hpp"
#include "fileutil/tree_walk.hpp"
#include "include/orvel_core.h"

namespace {

// The last name of a path (with the slashes behind it) in the open directory that it stands in.
class NameInParent {
public:
    explicit NameInParent(const char *path) : name_(last_name(path)) {
        if (name_ == path) return;  // in the working directory, or the root itself
        const orvel::MallocString parent(strndup(path, static_cast<std::size_t>(name_ - path)));
        parent_ = orvel::Fd(parent ? open(parent.get(), O_PATH | O_DIRECTORY | O_CLOEXEC) : -1);
        directory_ = parent_.get();
    }

    int directory() const { return directory_; }  // -1 if it could not be opened
    const char *name() const { return name_; }

    bool is_still(const struct stat &examined) const {
        struct stat status = {};
        return fstatat(directory_, name_, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
               orvel::is_same_file(status, examined);
    }

private:
    static const char *last_name(const char *path) {
        const char *name = path + std::strlen(path);
        while (name > path && name[-1] == '/') --name;
        while (name > path && name[-1] != '/') --name;
        return name;
    }

    const char *name_;
    orvel::Fd parent_;
    int directory_ = AT_FDCWD;
};

// Removes what the walk has come to, unless it is a directory: that one the walk goes into.
void remove_entry(orvel::TreeWalk &walk, const orvel::Entry &entry) {
    if (std::strstr(entry.name, "..") != nullptr || entry.type == DT_LNK) return;
    struct stat status = {};
    if (entry.type == DT_REG)
        status.st_mode = S_IFREG;
    else if (fstatat(walk.directory(), entry.name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno != ENOENT) orvel::report("get directory stat error");
        return;
    }
    // What cannot be removed stays, and with it the directories above it; nobody is told.
    if (S_ISREG(status.st_mode))
        (void)unlinkat(walk.directory(), entry.name, 0);
    else if (S_ISDIR(status.st_mode)) {
        if (!walk.enter(status)) orvel::report("opendir error");
    } else if (!S_ISLNK(status.st_mode))
        orvel::report("unknow file type!");
}

// From the leaves upwards: a directory is removed when the walk has left it, by its name in the one
// above.
void remove_contents(orvel::TreeWalk &walk) {
    while (true) {
        if (const orvel::Entry *entry = walk.next())
            remove_entry(walk, *entry);
        else if (walk.leave())
            (void)unlinkat(walk.directory(), walk.entry()->name, AT_REMOVEDIR);  // as above
        else
            return;
    }
}

}  // namespace

extern "C" int remove_dir(const char *path) {
    const orvel::CancellationHold hold;
    if (path == nullptr || std::strstr(path, "..") != nullptr) return -1;
    struct stat status = {};
    if (lstat(path, &status) != 0) {
        if (errno == ENOENT) return 0;
        orvel::report("get directory stat error");
        return -2;
    }
    if (S_ISLNK(status.st_mode)) return -1;
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
        orvel::report("unknow file type!");
        return 0;
    }
    // From here on by the directory that holds it: the path may lead elsewhere by now.
    const NameInParent target(path);
    if (target.directory() == -1) {
        orvel::report("opendir error");
        return -2;
    }
    if (S_ISREG(status.st_mode)) {
        if (target.is_still(status)) (void)unlinkat(target.directory(), target.name(), 0);
        return 0;
    }
    orvel::TreeWalk walk;
    orvel::Fd top = orvel::open_examined(target.directory(), target.name(), O_RDONLY, status);
    if (!top || !walk.begin(std::move(top), status)) {
        orvel::report("opendir error");
        return -2;
    }
    remove_contents(walk);
    (void)unlinkat(target.directory(), target.name(),
                   AT_REMOVEDIR);  // fails if not all is gone
    return 0;
}
