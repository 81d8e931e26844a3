// SPDX-License-Identifier: MIT
// Messages go to the host's own log function. The reference is weak: a process that has no
// orvel_log_v2 loads the library all the same, and the library is silent there.
#pragma once

#include <cstdint>

#include "include/orvel_core.h"

#pragma weak orvel_log_v2

namespace orvel::log {
enum Level : std::int32_t { Detail = 0, Trace = 1, Warning = 2, Error = 3 };
inline constexpr std::int32_t kModule = 3;
}  // namespace orvel::log

// A line carries the name of an exported function: that of the function it is written in, or, in a
// helper, the one that is given. The host's function may throw.
#define LOG(level, ...) LOG_AS(__func__, level, __VA_ARGS__)
#define LOG_AS(function, level, ...)                                                         \
    do {                                                                                     \
        if (orvel_log_v2)                                                                    \
            orvel_log_v2(orvel::log::level, orvel::log::kModule, nullptr, nullptr, function, \
                         __LINE__, __VA_ARGS__);                                             \
    } while (0)
