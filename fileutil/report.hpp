// SPDX-License-Identifier: MIT
// The few messages that removing and copying write to standard error.
#pragma once

#include <cstdio>

#include "base/handles.hpp"

namespace orvel {

// The text, a colon and the text of errno; errno itself stays as it is.
inline void report(const char *text) {
    const ErrnoKeeper keeper;
    std::perror(text);
}

}  // namespace orvel
