// SPDX-License-Identifier: MIT
// Follows sources through a table of mounts. Where a chain of sources ends is the base of them all.
#pragma once

#include <string>
#include <unordered_map>

#include "include/orvel_core.hpp"

namespace orvel {

// resolveBasePath() for many paths against one table, all of them canonical: each mount point is
// followed once, so a chain of mounts costs its length, not its square. The table must outlive the
// resolver; a source may be replaced by its own base meanwhile.
class BaseResolver {
public:
    explicit BaseResolver(const PathMap &sources) : sources_(sources) {}

    std::string resolve(std::string base);

private:
    const PathMap &sources_;
    std::unordered_map<std::string, std::string> bases_;  // path -> where it ends
};

}  // namespace orvel
