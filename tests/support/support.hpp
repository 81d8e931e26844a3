// SPDX-License-Identifier: MIT
// What the tests share: their log function, tables of paths, and a corner of the real system.
#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <sstream>

#include "include/orvel_core.hpp"

#define SKIP_WITHOUT_ROOT()                                    \
    if (std::system("unshare --mount true 2> /dev/null") != 0) \
    GTEST_SKIP() << "mounting and chroot need root"

namespace support {

// What was logged since the last call, each line as "LEVEL FUNCTION: TEXT\n".
std::string takeLog();

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

// A directory for one test, with all that is in it.
class Scratch {
public:
    Scratch() {
        umask(022);
        EXPECT_NE(mkdtemp(path_.data()), nullptr);
    }
    ~Scratch() {
        EXPECT_EQ(chdir("/"), 0);
        EXPECT_EQ(std::system(("rm -rf " + path_).c_str()), 0);
    }
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;

    const std::string &path() const { return path_; }
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }
    void run(const std::string &script) const {  // in the directory; must succeed
        const std::string all = "set -e; cd " + path_ + "; PATH=$PATH:/usr/sbin:/sbin; " + script;
        EXPECT_EQ(std::system(all.c_str()), 0) << all;
    }

private:
    std::string path_ = "/tmp/orvel-test-XXXXXX";
};

// The same as an empty tmpfs in a private mount namespace.
class PrivateMounts : public Scratch {
public:
    PrivateMounts() {
        char outer[64] = "";  // for make-host
        (void)!readlink("/proc/self/ns/mnt", outer, sizeof outer - 1);
        setenv("ORVEL_OUTER_NAMESPACE", outer, 1);
        if (unshare(CLONE_NEWNS) != 0 || mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", path().c_str(), "tmpfs", 0, nullptr) != 0)
            ADD_FAILURE() << "no private mounts: " << std::strerror(errno);
    }
    ~PrivateMounts() { (void)umount2(path().c_str(), MNT_DETACH); }
};

// A directory as the root, for a scope.
class Chroot {
public:
    explicit Chroot(const std::string &root) {
        EXPECT_TRUE(chdir("/") == 0 && chroot(root.c_str()) == 0);
    }
    ~Chroot() { EXPECT_EQ(chroot("."), 0); }  // the working directory has stayed outside
};

// Makes the call with each allocation of the library failing in turn, once and from then on, until
// none is left to fail. Each answer must be that of the untouched call, or a refusal.
void failInTurn(const std::function<std::string()> &call,
                const std::function<bool(const std::string &)> &isRefusal);
// Suspends the failures for a scope.
class Unfailing {
public:
    Unfailing();
    ~Unfailing();

private:
    int remaining_;
};
// The function whose calls fail, if any; and how far the steady clock is put forward.
extern std::string failingCall;
extern std::chrono::nanoseconds ahead;

}  // namespace support
