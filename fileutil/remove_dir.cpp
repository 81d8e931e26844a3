// SPDX-License-Identifier: MIT
// remove_dir: a file, or a tree from its leaves upwards. It removes each name relative to its open
// directory, so a link that another process puts into a path has no effect.
#include <dirent.h>
#include <fcntl.h>

#include "fileutil/call.hpp"
#include "fileutil/tree_walk.hpp"
#include "include/orvel_core.h"

namespace {

// The last name of a path (with the slashes behind it) in the open directory that holds it; false
// if that cannot be opened.
class NameInParent {
public:
    explicit NameInParent(const char *path) : name_(last_name(path)) {
        if (name_ == path) return;  // in the working directory, or the root itself
        const orvel::MallocString parent(strndup(path, static_cast<std::size_t>(name_ - path)));
        parent_ = orvel::Fd(parent ? open(parent.get(), O_PATH | O_DIRECTORY | O_CLOEXEC) : -1);
        directory_ = parent_.get();
    }

    explicit operator bool() const { return directory_ != -1; }
    int directory() const { return directory_; }
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

// Examines the walk's current entry; false, after a message, if that fails.
bool examine(const orvel::TreeWalk &walk, const orvel::Entry &entry, struct stat &status) {
    if (fstatat(walk.directory(), entry.name, &status, AT_SYMLINK_NOFOLLOW) == 0) return true;
    if (errno != ENOENT) orvel::print_error("get directory stat error");
    return false;
}

// Removes the walk's current entry, or enters it if it is a directory. An entry that cannot be
// removed stays, and so do the directories above it, without a message.
void remove_entry(orvel::TreeWalk &walk, const orvel::Entry &entry) {
    if (std::strstr(entry.name, "..") != nullptr) return;
    const auto is_unlinked = [&] { return unlinkat(walk.directory(), entry.name, 0) == 0; };
    if (entry.type == DT_REG && is_unlinked()) return;
    struct stat status = {};
    if (!examine(walk, entry, status)) return;
    if (S_ISREG(status.st_mode)) {
        if (entry.type != DT_REG) (void)is_unlinked();
    } else if (S_ISDIR(status.st_mode)) {
        if (!walk.enter(status)) orvel::print_error("opendir error");
    } else if (!S_ISLNK(status.st_mode)) {
        orvel::print_error("unknow file type!");
    }
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
    const orvel::Call call;
    if (path == nullptr || std::strstr(path, "..") != nullptr) return orvel::refuse(-1, EINVAL);
    struct stat status = {};
    if (lstat(path, &status) != 0) {
        if (errno == ENOENT) return call.done(0);
        orvel::print_error("get directory stat error");
        return -2;
    }
    if (S_ISLNK(status.st_mode)) return orvel::refuse(-1, ELOOP);
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
        orvel::print_error("unknow file type!");
        return call.done(0);
    }
    // From here on by the open directory above it: the path may lead elsewhere by now.
    const NameInParent target(path);
    if (S_ISREG(status.st_mode)) {
        if (!target)
            (void)unlink(path);  // no memory or no descriptor: by the path, as the contract has it
        else if (target.is_still(status))
            (void)unlinkat(target.directory(), target.name(), 0);
        return call.done(0);
    }
    orvel::TreeWalk walk;
    orvel::Fd top;
    if (target) top = orvel::open_automounted(target.directory(), target.name(), O_RDONLY, status);
    if (!top || !walk.begin(std::move(top), status)) {
        orvel::print_error("opendir error");
        return -2;
    }
    remove_contents(walk);
    (void)unlinkat(target.directory(), target.name(),
                   AT_REMOVEDIR);  // fails if not all is gone
    return call.done(0);
}
