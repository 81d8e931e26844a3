// SPDX-License-Identifier: MIT
// The mount table reader: the functions for one mount, what follows from a scan, and real mounts.

#include <fstream>

#include "mounts/libmount_handles.hpp"
#include "mounts/mount_table.hpp"
#include "tests/support/support.hpp"

namespace {

using orvel::PathMap;
using support::map;
using support::pairs;

TEST(MountSource, JoinsSourceAndRootByOneSlash) {
    const auto joined = [](const char *source, const char *root) {
        const std::unique_ptr<libmnt_fs, orvel::Releaser<mnt_unref_fs>> fs(mnt_new_fs());
        mnt_fs_set_source(fs.get(), source);
        mnt_fs_set_root(fs.get(), root);
        return getFullSource(fs.get());
    };
    EXPECT_EQ(joined("/dev/sdb1", "/"), "/dev/sdb1/");
    EXPECT_EQ(joined("/dev/sdb1/", "/data"), "/dev/sdb1/data");
    EXPECT_EQ(joined("/d/", "r") + joined(" \ta ", "\tb "), "/d/ra/b");
    EXPECT_EQ(joined(" ", "/r") + joined("/d", " "), "/r/d");
    EXPECT_EQ(joined(nullptr, "/") + joined("/d", nullptr), "");
}

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
    EXPECT_EQ(reason(mounts / "loop"), "The path contains too many symbolic links or circular links");
    EXPECT_EQ(reason(mounts.path() + "/block/x"), "Some component in the path is not a directory");
    EXPECT_EQ(reason(std::string(300, 'x')), "The path is too long (exceeding the system limit)");
}

TEST(MountSource, BaseIsFollowedToItsEnd) {
    PathMap mounts = map("/a -> /b  /b -> /proc/../sys//  /m -> /m  /x -> /y  /y -> /z  /z -> /y  /e -> ''");
    for (int i = 0; i < 100'000; ++i) mounts["/n/" + std::to_string(i)] = "/n/" + std::to_string(i + 1);
    // A circle, as that of y and z, ends where it closes.
    for (const auto &[path, expected] : pairs("/a -> /sys  /a/x -> /a/x  /m -> /m  '' -> ''  /e -> ''"
                                              "  /z -> /z  /x -> /y  /n/0 -> /n/100000"))
        EXPECT_EQ(resolveBasePath(path, mounts), expected) << path;
}

TEST(MountMappings, FollowFromAScan) {
    // The longest device that matches, as plain text; what is no device's stays as it is.
    const orvel::MountScan scan = {.sources = map("/m -> /no/a10/x  /n -> /no/a1/x  /o -> /no/a100/x  /ten -> /no/a10"
                                                  "  /over -> /m  /share -> //server/share  /c -> /d  /d -> /c"),
                                   .deviceTargets = map("/no/a1 -> /one  /no/a10 -> /ten")};
    EXPECT_EQ(orvel::deriveMountMappings(scan), map("/m -> /ten/x  /n -> /one/x  /o -> /ten0/x"
                                                    "  /over -> /ten/x  /share -> //server/share  /c -> /d  /d -> /c"));
}

TEST(MountMappings, OfRealMounts) {
    SKIP_WITHOUT_ROOT();
    const support::PrivateMounts mounts;
    mounts.run(R"(
        mkdir whole second usr anchor stacked 'odd a	b\c#' 'blank ' pseudo again nameless x
        for name in one two; do
            truncate -s 2M $name; mkfs.ext2 -q $name; losetup --find --show $name > $name.device
        done
        ln -s $(cat two.device) link
        mount $(cat one.device) anchor
        mount $(cat one.device) whole
        mount --no-canonicalize $PWD/link second
        losetup --detach $(cat one.device) $(cat two.device)  # when they are no longer mounted
        mkdir -p whole/os/usr whole/other second/x
        bind() { mount --bind "$1" "$2"; }
        bind whole/os/usr usr; bind whole/other stacked; bind whole/os stacked
        bind whole/os 'odd a	b\c#'; bind whole/os 'blank '; bind second/x x
        mount --internal-only -t proc /proc pseudo; mount --internal-only -t proc proc again
        mount --internal-only -t tmpfs '' nameless)");
    const std::string &base = mounts.path();
    std::string device;
    std::ifstream(base + "/two.device") >> device;
    const PathMap expected = {
        {base + "/usr", base + "/whole/os/usr"},
        {base + "/anchor", base + "/whole"},      // mounted whole twice: the later place counts
        {base + "/stacked", base + "/whole/os"},  // as does the later mount
        {base + "/odd a\tb\\c#", base + "/whole/os"},
        {base + "/blank", base + "/whole/os"},  // trimmed, as every mount point
        {base + "/pseudo", "/proc"},            // a path is a path, if not a device's
        {base + "/second", device},             // known by a link, which is not its device's name
        {base + "/x", base + "/second/x"},
    };
    EXPECT_EQ(chdir("/"), 0);  // where the file system's name proc is a directory
    PathMap actual;
    for (const auto &[mountPoint, backingPath] : processMountInfo())
        if (mountPoint.starts_with(base)) actual.emplace(mountPoint, backingPath);
    EXPECT_EQ(support::takeLog(), "");
    EXPECT_EQ(actual, expected);
}

}  // namespace
