// SPDX-License-Identifier: MIT
// Follows sources through a table of mounts. Where a chain of sources ends is the base of them all.
#pragma once

#include <string>
#include <unordered_map>

#include "include/orvel_core.hpp"

namespace orvel {

// resolveBasePath() for many paths against one table: each mount point is followed once, so a chain
// of mounts costs its length, not its square. The table must outlive the resolver.
class BaseResolver {
public:
    explicit BaseResolver(const PathMap &sources) : sources_(sources) {}

    std::string resolve(const std::string &path);

private:
    const PathMap &sources_;
    std::unordered_map<std::string, std::string> bases_;  // canonical path -> where it ends
};

}  // namespace orvel
