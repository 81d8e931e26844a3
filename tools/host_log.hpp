// SPDX-License-Identifier: MIT
// This program as the library's host: where the library's messages go.
#pragma once

#include <cstdint>
#include <string>

namespace tool {

// The lowest level that is written to standard error.
void setLogLevel(std::int32_t level);

// Why an entry point last refused, and forgets it; empty where none did since.
std::string takeRefusal();

}  // namespace tool
