// The malloc family of the linked objects, through a counter that can make them
// fail.
#include <cerrno>
#include <cstdlib>
#include <utility>

#include "tests/support/support.hpp"

static int remaining = 0;
static bool failsOnce = false, hasFailed = false;

bool support::failAllocations(int n, bool onlyOne) {
    remaining = n;
    failsOnce = onlyOne;
    return !std::exchange(hasFailed, false);
}

static bool fails() {
    if (remaining == 0 || --remaining > 0) return false;
    remaining = failsOnce ? 0 : 1;
    hasFailed = true;
    errno = ENOMEM;
    return true;
}

#define WRAP(result, name, parameters, arguments)           \
    extern "C" result __real_##name parameters;             \
    extern "C" result __wrap_##name parameters {            \
        return fails() ? nullptr : __real_##name arguments; \
    }
WRAP(void *, malloc, (size_t size), (size))
WRAP(void *, realloc, (void *block, size_t size), (block, size))
WRAP(char *, strdup, (const char *text), (text))
WRAP(char *, strndup, (const char *text, size_t size), (text, size))
