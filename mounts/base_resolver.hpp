// SPDX-License-Identifier: MIT
// Follows sources through a table of mounts. For example, if /b is mounted at /a, and /c at /b, the
// base of /a and /b is /c.
#pragma once

#include <string>
#include <unordered_map>

#include "include/orvel_core.hpp"

namespace orvel {

// resolveBasePath() for many canonical paths. Each mount point is followed once, so a chain of
// mounts costs its length, not its square. The table must outlive the resolver; the caller may
// replace a source by its base meanwhile.
class BaseResolver {
public:
    explicit BaseResolver(const PathMap &sources) : sources_(sources) {}

    std::string resolve(std::string base);

private:
    const PathMap &sources_;
    std::unordered_map<std::string, std::string> bases_;  // path -> its base
};

}  // namespace orvel
