// SPDX-License-Identifier: MIT
// The mapping rules: how mount points move, and which source of a mapping wins.
#include <algorithm>

#include "tests/support/support.hpp"

namespace {

using support::map;

TEST(ReplaceTarget, MovesMountPointsThatLieInBackingPaths) {
    const std::pair<const char *, const char *> rows[] = {
        {"", ""},
        {"/var -> /s/var  /usr -> /s/usr", "/var -> /s/var  /usr -> /s/usr"},
        {"/var -> /s/var  /s/var/m -> /d", "/var -> /s/var  /var/m -> /d"},
        // The whole mount point; through its own backing path it never moves; only once.
        {"/var -> /s/vars  /s/vars -> /d", "/var -> /d"},
        {"/s/a/b -> /s/a", "/s/a/b -> /s/a"},
        {"/b -> /a  /c -> /b/x  /a/x/m -> /d", "/b -> /a  /c -> /b/x  /b/x/m -> /d"},
        // The longest on a component boundary, else the longest plain prefix.
        {"/m -> /a  /n -> /a/b  /a/b/x -> /d", "/m -> /a  /n -> /a/b  /n/x -> /d"},
        {"/m -> /a  /n -> /a/bc  /a/bcd/x -> /d", "/m -> /a  /n -> /a/bc  /m/bcd/x -> /d"},
        {"/m -> /a  /n -> /ab  /abc -> /d", "/m -> /a  /n -> /ab  /nc -> /d"},
        // Of several mount points of one backing path the shortest, then the smallest.
        {"/long -> /s/v  /b -> /s/v  /a -> /s/v  /s/v/x -> /d",
         "/long -> /s/v  /b -> /s/v  /a -> /s/v  /a/x -> /d"},
        // Two at one mount point: the shorter backing path stays, then the larger.
        {"/m -> /a  /a/x -> /long  /m/x -> /d", "/m -> /a  /m/x -> /d"},
        {"/m -> /a  /a/x -> /d  /m/x -> /long", "/m -> /a  /m/x -> /d"},
        {"/m -> /a  /a/x -> /d1  /m/x -> /d2", "/m -> /a  /m/x -> /d2"},
        {"/m -> /a  /a/x -> /d2  /m/x -> /d1", "/m -> /a  /m/x -> /d2"},
        // The root's slash is not doubled.
        {"/ -> /s/c  /s/c/boot -> /d", "/ -> /s/c  /boot -> /d"},
    };
    for (const auto &[mounts, moved] : rows)
        EXPECT_EQ(replaceTarget(map(mounts)), map(moved)) << mounts;
}

// On the made-up host: three mounts of one directory each, an overlay whose layer is a mount, too.
TEST(Mapping, TakesTheBestMountPointAndOverlaysFirst) {
    SKIP_WITHOUT_ROOT();
    const support::PrivateMounts mounts;
    mounts.run("mkdir work; " MAKE_HOST " work");
    const support::Chroot root(mounts / "work/host");
    const orvel::PathMap table = mergeMountMappings();
    const std::string var = "/sysroot/ostree/deploy/example/var";
    EXPECT_EQ(table.at("/sysroot/boot"), "/boot");                  // not /also1
    EXPECT_EQ(table.at(var), "/var");                               // a bind mount
    EXPECT_EQ(table.at(var + "/overlay/usr-local"), "/usr/local");  // not the bind mount /also2
    EXPECT_EQ(checkBindMountPoint1(var + "iable"), "/variable");
    EXPECT_EQ(checkBindMountPoint1(var + "/overlay/usr-local/x"), "/usr/local/x");  // the longest
    EXPECT_EQ(checkBindMountPoint1("/nowhere"), "/nowhere");

    const orvel::MappingList list = sortedMappings();
    EXPECT_EQ(orvel::PathMap(list.begin(), list.end()), table);
    EXPECT_TRUE(std::is_sorted(list.begin(), list.end(), [](const auto &a, const auto &b) {
        return a.first.size() != b.first.size() ? a.first.size() > b.first.size()
                                                : a.first < b.first;
    }));
}

}  // namespace
