// SPDX-License-Identifier: MIT
// The mount table reader: the functions for one mount, and real mounts.
#include <fcntl.h>
#include <sys/socket.h>

#include <ctime>

#include "base/handles.hpp"
#include "mounts/libmount_handles.hpp"
#include "mounts/path_memo.hpp"
#include "tests/support/support.hpp"

namespace {

using orvel::PathMap;

TEST(MountSource, BlockDeviceTestSaysWhyNot) {
    SKIP_WITHOUT_ROOT();
    const support::PrivateMounts mounts;
    mounts.run("mknod block b 7 255; ln -s block link; ln -s loop loop");
    const auto reason = [&](const std::string &path) {
        std::string error = "left over";
        const bool isBlock = isBlockDevice(path, error);
        EXPECT_EQ(isBlock, error.empty()) << path;
        return error;
    };
    EXPECT_EQ(reason(mounts.path() + "/block//") + reason(mounts.path() + "/link"), "");
    EXPECT_EQ(reason("/dev/null"), "Not a block device");
    EXPECT_EQ(reason(""), "The path does not exist.");
    EXPECT_EQ(reason(mounts / "loop"),
              "The path contains too many symbolic links or circular links");
    EXPECT_EQ(reason(mounts.path() + "/block/x"), "Some component in the path is not a directory");
    EXPECT_EQ(reason(std::string(300, 'x')), "The path is too long (exceeding the system limit)");
}

TEST(PathMemo, AgreesWithRealpath) {
    SKIP_WITHOUT_ROOT();
    const support::PrivateMounts at;
    std::string deep;
    for (int i = 0; i < 60; ++i) deep += "/0123456789";
    at.run("mkdir -p d/e/f x..y ." + deep +
           " blocks; touch d/file; mknod block b 7 255; ln -s block device; ln -s d link; ln -s "
           "../d/e d/self; ln -s ../block d/dev;"
           " ln -s no gone; ln -s loop loop; cp -a block old; mkdir 'old (deleted)'; ln -s . 'old "
           "(deleted)/self'");
    const orvel::Fd device(open((at / "old").c_str(), O_PATH | O_CLOEXEC));
    at.run("rm old");  // the device's name is that of a directory now
    const std::string byDescriptor = "/proc/self/fd/" + std::to_string(device.get());
    orvel::PathMemo memo;
    const auto compare = [&](const std::string &path) {
        EXPECT_EQ(memo.canonicalize(path), canonicalizePath(path));
        const std::string name = trimTrailingSlash(path);
        std::string error;
        EXPECT_EQ(memo.isBlockDevice(name), isBlockDevice(name, error)) << name;
        EXPECT_EQ(memo.canonicalize(name), canonicalizePath(name));
    };
    for (const char *path : {"", "/", "//", ".", "d", "/proc/self/exe", "/proc/self/root/proc"})
        compare(path);
    for (const char *rest : {"", "/", "/self"}) compare(byDescriptor + rest);
    for (const char *first : {"", "/d", "/link", "/block", "/blocks", "/device", "/gone", "/loop",
                              "/x..y", "//d", "/d/", "/no", "/.", "/d/..", deep.c_str()})
        for (const char *second : {"", "/dev", "/e", "/self/f", "/file", "/file/..", "/e/.",
                                   "/e/..", "/self/../e", "/", "/no"})
            for (const char *third : {"", "/f", "/", "/..", "/x/y"})
                compare(at.path() + first + second + third);
}

TEST(MountSource, IsJoinedWithItsRootByOneSlash) {
    const struct {
        const char *source, *root, *joined;
    } rows[] = {
        {nullptr, "/", ""},        {"/dev/x", nullptr, ""}, {"/dev/x", "/", "/dev/x/"},
        {"/d/", "/e", "/d/e"},     {"/d", "e", "/d/e"},     {"/d/", "e", "/d/e"},
        {" /d\t", " /e ", "/d/e"}, {"", "/e", "/e"},        {"/d", "", "/d"},
    };
    for (const auto &[source, root, joined] : rows) {
        const std::unique_ptr<libmnt_fs, orvel::Releaser<mnt_unref_fs>> fs(mnt_new_fs());
        EXPECT_EQ(mnt_fs_set_source(fs.get(), source), 0);
        EXPECT_EQ(mnt_fs_set_root(fs.get(), root), 0);
        EXPECT_EQ(getFullSource(fs.get()), joined);
    }
}

TEST(MountSource, BaseIsTheEndOfAChain) {
    const PathMap mounts = support::map("/n/0 -> /n/1  /n/1 -> /n/2  /sys -> /n//0/../0/");
    EXPECT_EQ(resolveBasePath("/n/0", mounts), "/n/2");
    EXPECT_EQ(resolveBasePath("/proc/../sys/", mounts), "/n//0/../0/");  // does not exist
    EXPECT_EQ(resolveBasePath("/a", support::map("/a -> /b  /b -> /c  /c -> /b")), "/b");
}

TEST(MountMappings, OfRealMounts) {
    SKIP_WITHOUT_ROOT();
    const support::PrivateMounts mounts;
    mounts.run(R"(
        mkdir whole second usr anchor stacked 'odd a	b\c#' 'blank ' pseudo again nameless chained x
        trap 'losetup --detach $(cat *.device)' EXIT  # when they are no longer mounted
        for name in one two; do
            truncate -s 2M $name; mkfs.ext2 -q $name; losetup --find --show $name > $name.device
        done
        cp -a $(cat two.device) node; ln -s $PWD/node link
        mount $(cat one.device) anchor
        mount $(cat one.device) whole
        mount --no-canonicalize $PWD/link second
        mkdir -p whole/os/usr whole/other second/x
        bind() { mount --bind "$1" "$2"; }
        bind whole/os/usr usr; bind whole/other stacked; bind whole/os stacked
        bind whole/os 'odd a	b\c#'; bind whole/os 'blank '; bind second/x x
        mount --internal-only -t proc /proc pseudo; mount --internal-only -t proc proc again
        mount --internal-only -t tmpfs '' nameless; mount --internal-only -t tmpfs $PWD/x chained)");
    const std::string &base = mounts.path();
    const PathMap expected = {
        {base + "/usr", base + "/whole/os/usr"},
        {base + "/anchor", base + "/whole"},      // mounted whole twice: the later place wins
        {base + "/stacked", base + "/whole/os"},  // as does the later mount
        {base + "/odd a\tb\\c#", base + "/whole/os"},
        {base + "/blank", base + "/whole/os"},  // trimmed, as every mount point
        {base + "/pseudo", "/proc"},            // a path is a path, if not a device's
        {base + "/second", base + "/node"},     // known by a link, which is not its device's name
        {base + "/x", base + "/second/x"},
        {base + "/chained", base + "/second/x"},  // its source is a mount point
    };
    EXPECT_EQ(chdir("/"), 0);  // where the file system's name proc is a directory
    PathMap actual;
    for (const auto &[mountPoint, backingPath] : processMountInfo())
        if (mountPoint.starts_with(base)) actual.emplace(mountPoint, backingPath);
    EXPECT_EQ(support::takeLog(), "");
    EXPECT_EQ(actual, expected);
}

// What any user may mount in the name of others: "fusermount3 -o fsname=SOURCE". No server runs,
// and the file systems last as long as the socket to which fusermount3 sends their descriptors.
TEST(MountMappings, LeaveOutWhatUsersMount) {
    SKIP_WITHOUT_ROOT();
    if (std::system("test -c /dev/fuse && command -v fusermount3 > /dev/null") != 0)
        GTEST_SKIP() << "no /dev/fuse or no fusermount3";
    const support::PrivateMounts at;
    int sockets[2], requests[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) + pipe2(requests, O_NONBLOCK), 0);
    // An automount point whose automounter, the process group of the parent, does not answer.
    ASSERT_EQ(setpgid(0, 0), 0);
    at.run("mkdir automatic");
    const std::string options = "direct,minproto=5,maxproto=5,fd=" + std::to_string(requests[1]) +
                                ",pgrp=" + std::to_string(getppid());
    ASSERT_EQ(mount("x", (at / "automatic").c_str(), "autofs", 0, options.c_str()), 0);
    at.run("export _FUSE_COMMFD=" + std::to_string(sockets[1]) + R"(
        mount_as_user() {
            install -d -o 65534 "$2"
            setpriv --reuid 65534 --regid 65534 --clear-groups fusermount3 -o fsname="$1" "$2"
        }
        mknod -m 666 fuse c 10 229; mount --bind fuse /dev/fuse  # as hosts have it
        mkdir whole usr; truncate -s 2M disk; mkfs.ext2 -q disk; mount -o loop disk whole
        mkdir whole/usr; mount --bind whole/usr usr
        mount_as_user $(findmnt -no SOURCE whole) a
        mount_as_user $PWD/usr b
        mount_as_user $PWD/automatic/x c
        deep=$PWD$(printf '/d%.0s' $(seq 2000)); mkdir -p $deep; cd $deep
        for i in $(seq 100); do mount_as_user /x $i; done)");
    alarm(20);  // for a call that waits for the automounter
    const std::clock_t begin = std::clock();
    PathMap actual;
    for (const auto &[mountPoint, backingPath] : processMountInfo())
        if (mountPoint.starts_with(at.path())) actual.emplace(mountPoint, backingPath);
    ASSERT_EQ(actual.size(), 1U);
    EXPECT_EQ(actual[at / "usr"], at / "whole/usr");
    EXPECT_LT(std::clock() - begin, CLOCKS_PER_SEC / 2);
    char ignored = 0;
    EXPECT_EQ(read(requests[0], &ignored, 1), -1);
}

}  // namespace
