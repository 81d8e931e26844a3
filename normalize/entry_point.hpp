// SPDX-License-Identifier: MIT
// What the two C entry points share: their limits, and the way of a result into memory that a C
// caller can free.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "base/bounded.hpp"
#include "base/handles.hpp"

namespace orvel {

inline constexpr std::size_t kMaxInputBytes = 4095;
inline constexpr std::size_t kMaxResultBytes = 4096;
inline constexpr std::size_t kMaxBatchPaths = 1000;

// A copy of path (at most kMaxResultBytes) for the caller to free; null where malloc fails. A NUL
// inside, which only a configuration file can bring in, throws: the caller would read another path.
inline MallocString copyResult(const std::string &path) {
    if (path.find('\0') != std::string::npos)
        throw std::domain_error("the normalized path contains a NUL byte");
    MallocString copy(static_cast<char *>(std::malloc(path.size() + 1)));
    if (!copy) return copy;
    (void)memcpy_s(copy.get(), kMaxResultBytes, path.data(), path.size());  // cannot fail: it fits
    copy.get()[path.size()] = '\0';
    return copy;
}

}  // namespace orvel
