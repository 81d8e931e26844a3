// SPDX-License-Identifier: MIT
// Messages go to the log function of the program. The reference is weak: a program without
// orvel_log_v2 can load the library and gets no messages.
#pragma once

#include <cstdint>

#include "include/orvel_core.h"

#pragma weak orvel_log_v2

namespace orvel::log {
enum Level : std::int32_t { Detail = 0, Trace = 1, Warning = 2, Error = 3 };
inline constexpr std::int32_t kModule = 3;
}  // namespace orvel::log

// A line names an exported function: LOG the function that contains it, LOG_AS the one that is
// given. The program's log function may throw.
#define LOG(level, ...) LOG_AS(__func__, level, __VA_ARGS__)
#define LOG_AS(function, level, ...)                                                         \
    do {                                                                                     \
        if (orvel_log_v2)                                                                    \
            orvel_log_v2(orvel::log::level, orvel::log::kModule, nullptr, nullptr, function, \
                         __LINE__, __VA_ARGS__);                                             \
    } while (0)
