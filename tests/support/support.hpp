// What the tests share: their log function, tables of paths, and a corner of the real system.
#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <sstream>

#include "include/orvel_core.hpp"

#define SKIP_WITHOUT_ROOT() \
    if (geteuid() != 0) GTEST_SKIP() << "mounting and chroot need root"

namespace support {

// What was logged since the last call, each line as "LEVEL FUNCTION: TEXT\n".
std::string takeLog();
// Run after each line is recorded, while it is set; may throw.
extern std::function<void()> onLogLine;

// "from -> to  from -> to" as pairs; '' is the empty string.
inline orvel::MappingList pairs(const std::string &text) {
    orvel::MappingList list;
    std::istringstream words(text);
    for (std::string from, arrow, to; words >> from >> arrow >> to;)
        list.emplace_back(from == "''" ? "" : from, to == "''" ? "" : to);
    return list;
}
inline orvel::PathMap map(const std::string &text) {
    const orvel::MappingList list = pairs(text);
    return {list.begin(), list.end()};
}

// A private mount namespace, and in it a directory with an empty tmpfs.
class PrivateMounts {
public:
    PrivateMounts() {
        const char *path = mkdtemp(path_.data());
        if (unshare(CLONE_NEWNS) != 0 || !path ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", path, "tmpfs", 0, nullptr) != 0)
            ADD_FAILURE() << "no private mounts: " << std::strerror(errno);
    }
    ~PrivateMounts() {
        (void)umount2(path_.c_str(), MNT_DETACH);
        (void)rmdir(path_.c_str());
    }
    PrivateMounts(const PrivateMounts &) = delete;
    PrivateMounts &operator=(const PrivateMounts &) = delete;

    const std::string &path() const { return path_; }
    void run(const std::string &script) const {  // in the directory; must succeed
        const std::string all = "set -e; cd " + path_ + "; PATH=$PATH:/usr/sbin:/sbin; " + script;
        EXPECT_EQ(std::system(all.c_str()), 0) << all;
    }

private:
    std::string path_ = "/tmp/orvel-test-XXXXXX";
};

}  // namespace support
