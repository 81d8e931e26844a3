// SPDX-License-Identifier: MIT
// Paths are asked in batches. One path can make the library refuse the whole batch, so paths that
// it is sure to refuse are asked singly, and so are all paths of a refused batch, to find the one
// at fault. Calls over the rate limit are retried.
#include "tools/normalize.hpp"

#include <cerrno>
#include <chrono>
#include <memory>
#include <thread>

#include "base/handles.hpp"
#include "include/orvel_core.h"
#include "include/orvel_core.hpp"
#include "tools/output.hpp"

namespace tool {
namespace {

// Retries while the limiter refuses the call; errno is that of the last call.
template <class Call>
auto retryWhileRateLimited(const Call &call) {
    while (true) {
        auto result = call();
        if (result || errno != EAGAIN) return result;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));  // one token's time
    }
}

// Why the library refused path with that errno.
std::string refusalOf(const std::string &path, int error) {
    switch (error) {
        case EINVAL:
            return path.empty() ? "it is empty" : "it has a component . or ..";
        case ENAMETOOLONG:
            return path.size() > ORVEL_MAX_PATH_BYTES
                       ? "it has more than 4095 bytes"
                       : "its normalised form has more than 4096 bytes";
        case EILSEQ:
            return "its normalised form contains a NUL byte";
        case ENOMEM:
            return "out of memory";
        default:
            return "the library failed";
    }
}

bool isFitForBatch(const std::string &path) {
    return !path.empty() && path.size() <= ORVEL_MAX_PATH_BYTES &&
           path.find('\0') == std::string::npos && !containsDotComponents(path);
}

// As a C string, a path with a NUL byte would be another path.
Normalized askSingly(const std::string &path) {
    if (path.find('\0') != std::string::npos) return {path, std::nullopt, "it contains a NUL byte"};
    const auto form =
        retryWhileRateLimited([&] { return orvel::MallocString(pathNormalize(path.c_str())); });
    const int error = errno;
    if (form) return {path, form.get(), {}};
    return {path, std::nullopt, refusalOf(path, error)};
}

}  // namespace

void Normalizer::ask(std::string path) {
    waiting_.push_back(std::move(path));
    if (waiting_.size() == ORVEL_MAX_BATCH_PATHS) finish();
}

void Normalizer::finish() {
    std::vector<const char *> paths;
    for (const std::string &path : waiting_)
        if (isFitForBatch(path)) paths.push_back(path.c_str());
    using Record =
        std::unique_ptr<path_normalize_result_t, orvel::Releaser<freeBatchPathNormalize>>;
    Record record;
    if (!paths.empty())
        record = retryWhileRateLimited(
            [&] { return Record(batchPathNormalize(paths.data(), paths.size())); });
    std::size_t next = 0;
    for (const std::string &path : waiting_)
        report_(record && isFitForBatch(path) ? Normalized{path, record->paths[next++], {}}
                                              : askSingly(path));
    waiting_.clear();
    finishOutput();  // if the reader is gone, the rest need not be asked
}

}  // namespace tool
