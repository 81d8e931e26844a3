// SPDX-License-Identifier: MIT
// The two C entry points share this: their limits, errno of a refusal, and the copy of a result for
// the caller.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <new>
#include <string>

#include "base/bounded.hpp"
#include "base/handles.hpp"
#include "include/orvel_core.h"

namespace orvel {

inline constexpr std::size_t kMaxInputBytes = ORVEL_MAX_PATH_BYTES;
inline constexpr std::size_t kMaxResultBytes = 4096;
inline constexpr std::size_t kMaxBatchPaths = ORVEL_MAX_BATCH_PATHS;

// The null result of a refusal. To be called after its log line, which may change errno.
inline std::nullptr_t refuse(int error) {
    errno = error;
    return nullptr;
}

inline int errorOf(const std::exception &exception) {
    return dynamic_cast<const std::bad_alloc *>(&exception) != nullptr ? ENOMEM : EIO;
}

// As a C string, such a result would be another path. Only a configuration file can cause it.
inline bool hasNul(const std::string &path) {
    return path.find('\0') != std::string::npos;
}

// A copy of path (at most kMaxResultBytes) for the caller to free; null if malloc fails.
inline MallocString copyResult(const std::string &path) {
    MallocString copy(static_cast<char *>(std::malloc(path.size() + 1)));
    if (!copy) return copy;
    (void)memcpy_s(copy.get(), kMaxResultBytes, path.data(), path.size());  // cannot fail: it fits
    copy.get()[path.size()] = '\0';
    return copy;
}

}  // namespace orvel
