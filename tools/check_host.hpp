// SPDX-License-Identifier: MIT
// --check-host is a list of checks, each a small function with a stable name.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "tools/host.hpp"

namespace tool {

// Error: storage paths stay unmapped or are given as another file. Warning: in some cases.
enum class Severity { Error, Warning, Ok };

struct Finding {
    Severity severity;
    std::string path;  // the answers for this path and all below it are affected
    std::string found;
};

using Findings = std::vector<Finding>;

struct Check {
    const char *name;
    void (*look)(const Host &host, Findings &findings);
    const char *fine;    // what is found if there are no findings
    const char *advice;  // what to do about a finding
};

// The checks for mounts and devices.
std::span<const Check> mountChecks();

}  // namespace tool
