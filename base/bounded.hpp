// SPDX-License-Identifier: MIT
// memcpy_s, memset_s and strcat_s: libboundscheck's if the build found it, else our own.
//
// 0 on success, with nothing touched beyond the count: a caller may declare a larger destination
// than it has. Otherwise EINVAL (a null pointer) or ERANGE (does not fit), and our own have then
// written nothing.
#pragma once

#ifdef ORVEL_HAVE_BOUNDSCHECK
#include <securec.h>
#else
#include <cstddef>

extern "C" {
int memcpy_s(void *destination, std::size_t size, const void *source, std::size_t count);
int memset_s(void *destination, std::size_t size, int byte, std::size_t count);
int strcat_s(char *destination, std::size_t size, const char *source);
}
#endif
