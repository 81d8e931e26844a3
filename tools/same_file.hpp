// SPDX-License-Identifier: MIT
// What the kernel says of two names.
#pragma once

#include <string>

namespace tool {

struct Comparison {
    std::string verdict;  // "yes", "no", "likely" or "unknown"
    std::string detail;   // by what
};

// Whether both paths name the same file, a link at the end not followed.
Comparison compareFiles(const std::string &first, const std::string &second);

}  // namespace tool
