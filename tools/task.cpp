// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "base/handles.hpp"
#include "tools/root.hpp"

namespace tool {
namespace {

[[noreturn]] void fail(int process, const std::string &what) {
    const int error = errno;
    if (error == ENOENT || error == ESRCH)
        throw std::runtime_error("process " + std::to_string(process) + ": no such process");
    throw std::runtime_error("process " + std::to_string(process) + ": " + what + ": " +
                             std::strerror(error));
}

orvel::Fd openOf(int process, const char *name) {
    const std::string path = "/proc/" + std::to_string(process) + "/" + name;
    orvel::Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) fail(process, "cannot be examined");
    return fd;
}

// Whether both are one file of one mount.
bool isSame(const orvel::Fd &fd, const char *path) {
    struct statx a = {}, b = {};
    constexpr unsigned kWanted = STATX_INO | STATX_MNT_ID;
    return statx(fd.get(), "", AT_EMPTY_PATH, kWanted, &a) == 0 &&
           statx(AT_FDCWD, path, 0, kWanted, &b) == 0 && a.stx_ino == b.stx_ino &&
           a.stx_mnt_id == b.stx_mnt_id;
}

// setns moves only the children of a process into a PID namespace.
void continueInChild(int process) {
    const pid_t child = fork();
    if (child < 0) fail(process, "no process can be started in its PID namespace");
    if (child == 0) return;
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

}  // namespace

// What this process shares with the other one is not entered, which would need privileges.
void enterTask(int process) {
    const orvel::Fd mounts = openOf(process, "ns/mnt");
    const orvel::Fd numbers = openOf(process, "ns/pid");
    const orvel::Fd root = openOf(process, "root");
    const bool hasOwnNumbers = !isSame(numbers, "/proc/self/ns/pid");
    if (hasOwnNumbers && setns(numbers.get(), CLONE_NEWPID) != 0)
        fail(process, "its PID namespace cannot be entered");
    // The kernel refuses this for threads that share their root, as those of a sanitizer do.
    if (!isSame(mounts, "/proc/self/ns/mnt") &&
        (unshare(CLONE_FS) != 0 || setns(mounts.get(), CLONE_NEWNS) != 0))
        fail(process, "its mount namespace cannot be entered");
    if (!isSame(root, "/") && (fchdir(root.get()) != 0 || chroot(".") != 0))
        fail(process, "its root directory cannot be entered");
    if (chdir("/") != 0) fail(process, "its root directory cannot be entered");
    if (hasOwnNumbers) continueInChild(process);
    requireProc("process " + std::to_string(process));
}

}  // namespace tool
