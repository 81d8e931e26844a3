// SPDX-License-Identifier: MIT
// Bounded copies for machines without libboundscheck. Each checks first and then writes all or
// nothing. No byte beyond count is read or cleared, because callers declare a larger destination
// than they have.
#include "base/bounded.hpp"

#ifndef ORVEL_HAVE_BOUNDSCHECK
#include <cerrno>
#include <cstring>

int memcpy_s(void *destination, std::size_t size, const void *source, std::size_t count) {
    if (destination == nullptr || source == nullptr) return EINVAL;
    if (count > size) return ERANGE;
    std::memcpy(destination, source, count);
    return 0;
}

int memset_s(void *destination, std::size_t size, int byte, std::size_t count) {
    if (destination == nullptr) return EINVAL;
    if (count > size) return ERANGE;
    std::memset(destination, byte, count);
    return 0;
}

// A destination without a NUL in its size is full.
int strcat_s(char *destination, std::size_t size, const char *source) {
    if (destination == nullptr || source == nullptr) return EINVAL;
    const std::size_t used = strnlen(destination, size);
    const std::size_t added = std::strlen(source);
    if (used == size || added >= size - used) return ERANGE;
    std::memcpy(destination + used, source, added + 1);
    return 0;
}
#endif
