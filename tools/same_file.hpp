// SPDX-License-Identifier: MIT
// The kernel's verdict on names.
#pragma once

#include <string>

namespace tool {

struct Comparison {
    std::string verdict;  // "yes", "no", "likely", "missing" or "unknown"
    std::string detail;   // by what
};

// Whether both paths name the same file, a link at the end not followed.
Comparison compareFiles(const std::string &first, const std::string &second);

// The first directory of path that is a link, and what it names, as "/ostree -> sysroot/ostree"; or
// nothing.
std::string linkAbove(const std::string &path);

}  // namespace tool
