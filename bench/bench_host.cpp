// SPDX-License-Identifier: MIT
#include "bench/bench_host.hpp"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace bench {
namespace {

using std::filesystem::create_directories;

void check(bool success, const std::string &what) {
    if (!success) throw std::runtime_error(what + ": " + std::strerror(errno));
}

void shell(const std::string &script) {
    check(std::system(("set -e; PATH=$PATH:/usr/sbin:/sbin; " + script).c_str()) == 0, script);
}

void mountAt(const std::string &source, const std::string &target, const char *type,
             unsigned long flags, const std::string &options = "") {
    create_directories(target);
    check(mount(source.c_str(), target.c_str(), type, flags, options.c_str()) == 0, target);
}

// Mount points and sources have six to ten components, a hundred in a directory.
std::string place(int i) {
    return "/group" + std::to_string(i / 100) + "/item" + std::to_string(i);
}

void mountOther(int i) {
    const std::string target = "/run/user/containers/storage" + place(i);
    if (i % 2 == 0) return mountAt("tmpfs", target, "tmpfs", 0);
    const std::string layers = "/run/layers" + place(i);
    for (const char *layer : {"/lower", "/upper", "/work"}) create_directories(layers + layer);
    mountAt(
        "overlay", target, "overlay", 0,
        "lowerdir=" + layers + "/lower,upperdir=" + layers + "/upper,workdir=" + layers + "/work");
}

}  // namespace

std::vector<std::string> enterHost(const HostPlan &plan, const std::string &directory) {
    check(unshare(CLONE_NEWNS) == 0, "unshare");
    check(mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
    mountAt("tmpfs", directory, "tmpfs", 0);
    shell("cd " + directory +
          "; mkdir sysroot; truncate -s 256M disk; mkfs.ext4 -q -N 60000 disk; mount -o loop disk "
          "sysroot");
    if (plan.link)
        shell(
            "cd " + directory +
            "; mkdir -p volumes/mapper boot; ln -s $(findmnt --noheadings --output SOURCE sysroot)"
            " volumes/mapper/root; truncate -s 1M small; mkfs.ext2 -q small; mount -o loop small "
            "boot");
    mountAt("/dev", directory + "/dev", nullptr, MS_BIND);
    mountAt("proc", directory + "/proc", "proc", 0);
    check(chroot(directory.c_str()) == 0 && chdir("/") == 0, "chroot");
    if (plan.link) {
        // At /sysroot the kernel refuses the same device again.
        mountAt("/volumes/mapper/root", "/elsewhere", "ext4", 0);
        mountAt("/elsewhere", "/sysroot", nullptr, MS_MOVE);
        mountAt("/boot", "/efi", nullptr, MS_BIND);  // so that /sysroot's is not the last device
    }
    if (plan.slave) mountAt("", "/sysroot", nullptr, MS_SHARED);

    std::vector<std::string> paths;
    const std::string state = "/sysroot/ostree/deploy/example/var/lib";
    for (int i = 0; i < plan.binds; ++i) {
        create_directories(state + place(i));
        mountAt(state + place(i),
                "/var/lib/machines/example" + place(i) + (plan.apart ? "/data" : ""), nullptr,
                MS_BIND);
        paths.push_back(state + place(i));
    }
    for (int i = 0; i < plan.others; ++i) mountOther(i);
    if (plan.slave) {
        (void)open("/proc/self/ns/mnt",
                   O_RDONLY | O_CLOEXEC);  // kept open: the masters live as long
        check(unshare(CLONE_NEWNS) == 0, "unshare");
        mountAt("", "/", nullptr, MS_REC | MS_SLAVE);
    }
    return paths;
}

}  // namespace bench
