// SPDX-License-Identifier: MIT
// The command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "include/orvel_core.hpp"
#include "tools/output.hpp"

namespace tool {

enum class Mode { Paths, Why, Names, Table, CheckConfig, CheckHost };

struct Options {
    Mode mode = Mode::Paths;
    std::vector<std::string> paths;
    // Optional, because an empty one, such as from an unset variable, is an error.
    std::optional<std::string> root;
    std::optional<int> task;
    std::optional<SystemStage> stage;
    Format format;
    bool strict = false;
    bool quiet = false;
    int verbosity = 0;
};

// The exit status if nothing is left to do: help or the version has been printed, or a mistake.
std::optional<int> parseOptions(int argc, char **argv, Options &options);

}  // namespace tool
