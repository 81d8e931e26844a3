// SPDX-License-Identifier: MIT
// The lines of the overlay configuration, before anything is expanded.
#pragma once

#include <cstdio>
#include <map>
#include <string>

namespace orvel {

// Section -> key -> text of the value, in byte order, so that whoever walks it has a fixed order.
using RawSection = std::map<std::string, std::string>;
using RawTable = std::map<std::string, RawSection>;

enum class ConfigFault {
    None,
    CannotOpen,
    EmptySectionName,
    KeyOutsideSection,
    NoEqualsSign,
    EmptyKey,
    MissingSection,
    EmptyPathPre,
    EmptyValue,
    EmptyList,
};

// Reads file to its end, or to the first faulty line, into table. A read error counts as the end;
// memory exhaustion is std::bad_alloc, never an end.
ConfigFault readConfig(std::FILE *file, RawTable &table);

}  // namespace orvel
