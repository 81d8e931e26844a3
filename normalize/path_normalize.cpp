// SPDX-License-Identifier: MIT
// One path through the C interface: rate, checks, the core, a copy for the caller. Two guards keep
// every exception inside, because the program's log function may throw, even in a handler.
#include "base/cancellation.hpp"
#include "base/log.hpp"
#include "include/orvel_core.h"
#include "include/orvel_core.hpp"
#include "normalize/entry_point.hpp"
#include "normalize/rate_limiter.hpp"

namespace {

// The handler may run before the path has been looked at.
const char *printable(const char *path) {
    return path ? path : "(null)";
}

}  // namespace

extern "C" char *pathNormalize(const char *path) try {
    const orvel::CancellationHold hold;
    try {
        // First: a call with a bad argument takes a token, too.
        if (!orvel::checkRateLimit()) {
            LOG(Warning, "pathNormalize call rate limit exceeded, rejecting request");
            return orvel::refuse(EAGAIN);
        }
        if (path == nullptr || *path == '\0') {
            LOG(Error, "input path is invalid (null or empty)");
            return orvel::refuse(EINVAL);
        }
        // The copy may throw, which the guard handles.
        const std::string input(path);
        if (containsDotComponents(input)) {
            LOG(Warning,
                "input path contains dot components (. or ..), returning original path: %s", path);
            return orvel::refuse(EINVAL);
        }
        LOG(Trace, "input path : %s", path);
        if (input.size() > orvel::kMaxInputBytes) {
            LOG(Error, "input path is too long: %s", path);
            return orvel::refuse(ENAMETOOLONG);
        }
        const std::string normalized = _pathNormalize(input);
        if (normalized.empty()) {
            LOG(Error, "result length is 0,  %s", path);
            return orvel::refuse(EIO);
        }
        if (normalized.size() > orvel::kMaxResultBytes) {
            LOG(Error, "result path is too long: %s", path);
            return orvel::refuse(ENAMETOOLONG);
        }
        if (orvel::hasNul(normalized)) {
            LOG(Error, "result path contains a NUL byte: %s", path);
            return orvel::refuse(EILSEQ);
        }
        orvel::MallocString result = orvel::copyResult(normalized);
        if (!result) {
            LOG(Error, "malloc failed.");
            return orvel::refuse(ENOMEM);
        }
        // The log function may throw, so it runs before the copy is released to the caller.
        LOG(Trace, "return path : %s", result.get());
        return result.release();
    } catch (const std::exception &error) {
        LOG(Error, "pathNormalize: catch std exception, error: %s, input path: %s", error.what(),
            printable(path));
        return orvel::refuse(orvel::errorOf(error));
    } catch (...) {
        LOG(Error, "pathNormalize: catch unknown exception, input path: %s", printable(path));
    }
    return orvel::refuse(EIO);
} catch (...) {
    return orvel::refuse(EIO);
}
