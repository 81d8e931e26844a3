// SPDX-License-Identifier: MIT
// Up to 1000 paths through the C interface, all or none, reading the mount table once.
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/cancellation.hpp"
#include "base/log.hpp"
#include "include/orvel_core.h"
#include "include/orvel_core.hpp"
#include "normalize/entry_point.hpp"
#include "normalize/rate_limiter.hpp"

namespace {

using Record = std::unique_ptr<path_normalize_result_t, orvel::Releaser<freeBatchPathNormalize>>;
using Paths = std::vector<std::string>;

constexpr const char *kCaller = "batchPathNormalize";

// Checks the caller's paths and copies them to inputs. 0, or an errno after a log line.
int collectInputs(const char *const *paths, std::size_t count, Paths &inputs) {
    inputs.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const char *path = paths[i];
        if (path == nullptr) {
            LOG_AS(kCaller, Error, "the %zu-th input path is nullptr", i);
            return EINVAL;
        }
        if (*path == '\0') {
            LOG_AS(kCaller, Error, "the %zu-th input path is empty", i);
            return EINVAL;
        }
        // Dots before length: a path that fails both checks is reported for its dots.
        std::string input(path);
        if (containsDotComponents(input)) {
            LOG_AS(kCaller, Warning, "the %zu-th input path contains dot components (. or ..): %s",
                   i, path);
            return EINVAL;
        }
        if (input.size() > orvel::kMaxInputBytes) {
            LOG_AS(kCaller, Error, "the %zu-th input path exceeds maximum length: %s", i, path);
            return ENAMETOOLONG;
        }
        inputs.push_back(std::move(input));
        LOG_AS(kCaller, Trace, "the %zu-th input path: %s", i, path);
    }
    return 0;
}

// Copies the results into a record for the caller. Null with errno set after a log line.
Record makeRecord(const Paths &inputs, const Paths &results) {
    const std::size_t count = results.size();
    Record record(static_cast<path_normalize_result_t *>(std::malloc(sizeof(*record))));
    if (!record) {
        LOG_AS(kCaller, Error, "malloc failed for path_normalize_result_t");
        return orvel::refuse(ENOMEM);
    }
    *record = {nullptr, 0};  // complete enough to be released from here on
    record->paths = static_cast<char **>(std::malloc(count * sizeof(char *)));
    if (record->paths == nullptr) {
        LOG_AS(kCaller, Error, "malloc failed for paths array, count: %zu", count);
        return orvel::refuse(ENOMEM);
    }
    (void)memset_s(record->paths, orvel::kMaxBatchPaths * sizeof(char *), 0,
                   count * sizeof(char *));  // cannot fail: it fits
    record->count = count;
    for (std::size_t i = 0; i < count; ++i) {
        if (results[i].empty()) {
            LOG_AS(kCaller, Error, "the %zu-th normalized path is empty", i);
            return orvel::refuse(EIO);
        }
        if (results[i].size() > orvel::kMaxResultBytes) {
            LOG_AS(kCaller, Error, "the %zu-th normalized path is too long: %s", i,
                   inputs[i].c_str());
            return orvel::refuse(ENAMETOOLONG);
        }
        if (orvel::hasNul(results[i])) {
            LOG_AS(kCaller, Error, "the %zu-th normalized path contains a NUL byte: %s", i,
                   inputs[i].c_str());
            return orvel::refuse(EILSEQ);
        }
        record->paths[i] = orvel::copyResult(results[i]).release();
        if (record->paths[i] == nullptr) {
            LOG_AS(kCaller, Error, "malloc failed for the %zu-th normalized path, length: %zu", i,
                   results[i].size() + 1);
            return orvel::refuse(ENOMEM);
        }
        LOG_AS(kCaller, Detail, "the %zu-th normalized path: %s", i, record->paths[i]);
    }
    return record;
}

}  // namespace

extern "C" path_normalize_result_t *batchPathNormalize(const char *const *paths,
                                                       std::size_t count) try {
    const orvel::CancellationHold hold;
    try {
        if (!orvel::checkRateLimit()) {
            LOG(Warning, "pathNormalize call rate limit exceeded, rejecting request");
            return orvel::refuse(EAGAIN);
        }
        if (paths == nullptr) {
            LOG(Error, "input paths pointer is nullptr");
            return orvel::refuse(EINVAL);
        }
        if (count == 0) {
            LOG(Error, "input paths count is 0");
            return orvel::refuse(EINVAL);
        }
        if (count > orvel::kMaxBatchPaths) {
            LOG(Error, "input paths count %zu exceeds maximum allowed %zu", count,
                orvel::kMaxBatchPaths);
            return orvel::refuse(E2BIG);
        }
        LOG(Trace, "start batch path normalize, total count: %zu", count);
        Paths inputs;
        if (const int error = collectInputs(paths, count, inputs)) return orvel::refuse(error);
        // Reads the mount table once for all paths.
        const Paths results = _batchPathNormalize(inputs);
        if (results.size() != count) {
            LOG(Error, "batch normalize result count mismatch, input: %zu, result: %zu", count,
                results.size());
            return orvel::refuse(EIO);
        }
        Record record = makeRecord(inputs, results);
        if (!record) return nullptr;
        LOG(Trace, "batch path normalize success, total count: %zu", count);
        return record.release();
    } catch (const std::exception &error) {
        LOG(Error, "catch std exception, error: %s, input count: %zu", error.what(), count);
        return orvel::refuse(orvel::errorOf(error));
    } catch (...) {
        LOG(Error, "catch unknown exception, input count: %zu", count);
    }
    return orvel::refuse(EIO);
} catch (...) {
    return orvel::refuse(EIO);
}

// No exception can arise here, and no log line is written.
extern "C" void freeBatchPathNormalize(path_normalize_result_t *result) {
    if (result == nullptr) return;
    if (result->paths != nullptr)
        for (std::size_t i = 0; i < result->count; ++i) std::free(result->paths[i]);
    std::free(static_cast<void *>(result->paths));
    std::free(result);
}
