// SPDX-License-Identifier: MIT
// What each option computes. orvel_path.cpp reads the host, asks for the paths, and prints.
#pragma once

#include <string>

#include "include/orvel_core.hpp"
#include "tools/host.hpp"
#include "tools/normalize.hpp"
#include "tools/output.hpp"

namespace tool {

// A path and its normalised form, or why it is refused.
Answer answerOf(const Normalized &normalized);

// --why: each step that changed the path, or why none did, and whether the kernel finds one file at
// both ends.
Answer why(const Host &host, const Normalized &normalized);

// --names: each name under which the file can be reached, with the kernel's verdict.
Answer names(const Host &host, const Normalized &normalized);

// --table: the mappings in the order in which they are applied.
Answer table(const Host &host);

// --check-config: a configuration file as the library reads it, with remarks. JSON's member
// "accepted" says whether the library takes it.
Answer checkConfig(const std::string &file, SystemStage stage);

// --check-host: what on this host keeps storage paths from being normalised, a row a finding, whose
// severity is "error", "warning" or "ok".
Answer checkHost(const Host &host);

}  // namespace tool
