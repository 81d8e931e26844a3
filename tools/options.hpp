// SPDX-License-Identifier: MIT
// The command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tool {

struct Options {
    std::vector<std::string> paths;
    // Optional: an empty one, from an unset variable, must not pass for none.
    std::optional<std::string> root;
    bool table = false;
    bool why = false;
    bool checkConfig = false;
    std::string stage = "system";
    bool json = false;
    char separator = '\n';
    bool quiet = false;
    int verbosity = 0;
};

// False where help or the version was asked for, and printed. Throws std::exception on a mistake.
bool parseOptions(int argc, char **argv, Options &options);

}  // namespace tool
