// SPDX-License-Identifier: MIT
// The table of mappings that is made of mounts.

#include "tests/support/support.hpp"

namespace {

using support::map;

TEST(ReplaceTarget, MovesMountPointsOutOfBackingPaths) {
    const struct {
        const char *idea, *mounts, *expected;
    } rows[] = {
        {"inside", "/v -> /s/v  /s/v/c -> /d", "/v -> /s/v  /v/c -> /d"},
        {"at", "/v -> /s/v  /s/v -> /d", "/v -> /d"},
        {"its own", "/s/v/x -> /s/v", "/s/v/x -> /s/v"},
        {"under the root", "/ -> /s  /s/boot -> /b", "/ -> /s  /boot -> /b"},
        {"longest on a boundary", "/1 -> /s  /2 -> /s/v  /3 -> /s/v/li  /s/v/lib -> /d",
         "/1 -> /s  /2 -> /s/v  /3 -> /s/v/li  /2/lib -> /d"},
        {"no boundary", "/1 -> /s/v  /2 -> /s/va  /s/var -> /d", "/1 -> /s/v  /2 -> /s/va  /2r -> /d"},
        {"preferred mount point", "/long -> /s  /m -> /s  /k -> /s  /s/x -> /d",
         "/long -> /s  /m -> /s  /k -> /s  /k/x -> /d"},
        {"one result: shorter", "/v -> /s  /v/x -> /dd  /s/x -> /d", "/v -> /s  /v/x -> /d"},
        {"one result: larger", "/v -> /s  /v/x -> /b  /s/x -> /a", "/v -> /s  /v/x -> /b"},
    };
    for (const auto &[idea, mounts, expected] : rows) EXPECT_EQ(replaceTarget(map(mounts)), map(expected)) << idea;
}

}  // namespace
