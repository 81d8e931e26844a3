// SPDX-License-Identifier: MIT
// What is fit for a batch is asked at once. One path refuses all of it, so those that the library
// is sure to refuse are asked singly, for the reason; so are all where a batch was refused after
// all, since it does not tell which path it was. The limiter's refusals are waited out.
#include "tools/inquiry.hpp"

#include <cerrno>
#include <chrono>
#include <memory>
#include <thread>

#include "base/handles.hpp"
#include "include/orvel_core.h"
#include "include/orvel_core.hpp"
#include "tools/host_log.hpp"
#include "tools/output.hpp"

namespace tool {
namespace {

constexpr std::size_t kMaxBatchPaths = 1000;

// Calls until the limiter lets the call through. reason is why the library refused, if it did.
template <class Call>
auto withPatience(const Call &call, std::string &reason) {
    while (true) {
        (void)takeRefusal();  // what an earlier call left
        auto result = call();
        const int error = errno;
        reason = takeRefusal();
        if (result || error != EAGAIN) return result;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));  // one token's time
    }
}

constexpr std::size_t kMaxPathBytes = 4095;

bool isFitForBatch(const std::string &path) {
    return !path.empty() && path.size() <= kMaxPathBytes && path.find('\0') == std::string::npos &&
           !containsDotComponents(path);
}

// A path with a NUL inside cannot be handed over as a C string: the library would see another one.
Answer askSingly(const std::string &path) {
    if (path.find('\0') != std::string::npos) return {path, std::nullopt, "contains a NUL byte"};
    Answer answer = {path, std::nullopt, {}};
    const auto normalized = withPatience(
        [&] { return orvel::MallocString(pathNormalize(path.c_str())); }, answer.reason);
    if (normalized) answer.normalized = normalized.get();
    return answer;
}

}  // namespace

void Inquiry::ask(std::string path) {
    waiting_.push_back(std::move(path));
    if (waiting_.size() == kMaxBatchPaths) finish();
}

void Inquiry::finish() {
    std::vector<const char *> paths;
    for (const std::string &path : waiting_)
        if (isFitForBatch(path)) paths.push_back(path.c_str());
    using Record =
        std::unique_ptr<path_normalize_result_t, orvel::Releaser<freeBatchPathNormalize>>;
    std::string ignoredReason;  // asking singly tells it
    Record record;
    if (!paths.empty())
        record = withPatience(
            [&] { return Record(batchPathNormalize(paths.data(), paths.size())); }, ignoredReason);
    std::size_t next = 0;
    for (const std::string &path : waiting_)
        report_(record && isFitForBatch(path) ? Answer{path, record->paths[next++], {}}
                                              : askSingly(path));
    waiting_.clear();
    finishOutput();  // where nobody reads it any more, the rest need not be asked
}

}  // namespace tool
