// SPDX-License-Identifier: MIT
// A batch is asked at once. If it is refused, its paths are asked singly, since a batch does not
// tell which of them it was; the limiter's refusals are waited out in both ways of asking.
#include "tools/inquiry.hpp"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <thread>

#include "base/handles.hpp"
#include "include/orvel_core.h"
#include "tools/host_log.hpp"

namespace tool {
namespace {

constexpr std::size_t kMaxBatchPaths = 1000;

// Calls until the limiter lets the call through. reason is why the library refused, if it did.
template <class Call>
auto withPatience(const Call &call, std::string &reason) {
    while (true) {
        (void)takeRefusal();  // what an earlier call left
        auto result = call();
        reason = takeRefusal();
        if (result || reason != "pathNormalize call rate limit exceeded, rejecting request")
            return result;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));  // one token's time
    }
}

}  // namespace

void Inquiry::ask(std::string path) {
    waiting_.push_back(std::move(path));
    if (waiting_.size() == kMaxBatchPaths) finish();
}

void Inquiry::finish() {
    if (waiting_.empty()) return;
    std::vector<const char *> paths;
    bool haveNul = false;
    for (const std::string &path : waiting_) {
        paths.push_back(path.c_str());
        haveNul = haveNul || path.size() != std::strlen(path.c_str());
    }
    using Record =
        std::unique_ptr<path_normalize_result_t, orvel::Releaser<freeBatchPathNormalize>>;
    std::string ignoredReason;  // asking singly tells which path it was
    Record record;
    if (!haveNul)
        record = withPatience(
            [&] { return Record(batchPathNormalize(paths.data(), paths.size())); }, ignoredReason);
    for (std::size_t i = 0; i < waiting_.size(); ++i) {
        if (record)
            write(record->paths[i], std::strlen(record->paths[i]));
        else
            askSingly(waiting_[i]);
    }
    waiting_.clear();
}

// A path with a NUL inside cannot be handed over as a C string: the library would see another one.
void Inquiry::askSingly(const std::string &path) {
    std::string reason = "contains a NUL byte";
    orvel::MallocString normalized;
    if (path.size() == std::strlen(path.c_str()))
        normalized =
            withPatience([&] { return orvel::MallocString(pathNormalize(path.c_str())); }, reason);
    if (normalized) {
        write(normalized.get(), std::strlen(normalized.get()));
        return;
    }
    hadRefusals_ = true;
    write(path.data(), path.size());
    (void)std::fprintf(stderr, "orvel-path: '%s': %s\n", path.c_str(), reason.c_str());
}

void Inquiry::write(const char *bytes, std::size_t length) const {
    // Failures are seen once, by the stream's error flag, when the program ends.
    (void)std::fwrite(bytes, 1, length, stdout);
    (void)std::fputc(separator_, stdout);
}

}  // namespace tool
