// SPDX-License-Identifier: MIT
// The lines of the overlay configuration, before anything is expanded.
#pragma once

#include <cstdio>
#include <map>
#include <string>

namespace orvel {

// Section -> key -> text of the value, in byte order: a walk has the same order each time.
using RawSection = std::map<std::string, std::string>;
using RawTable = std::map<std::string, RawSection>;

// The exported function that the log lines of the reader name.
inline constexpr const char *kConfigCaller = "parseConfig";

// Reads file to its end into table. Returns 0, or after a log line the number of the first faulty
// line. A read error ends the reading as the end of the file does; a line that it cuts is dropped.
// Throws std::bad_alloc.
std::size_t readConfig(std::FILE *file, RawTable &table);

}  // namespace orvel
