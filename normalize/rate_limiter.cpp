// SPDX-License-Identifier: MIT
#include "normalize/rate_limiter.hpp"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <mutex>

namespace orvel {

bool TokenBucket::take(std::int64_t nowNs) {
    const std::int64_t elapsedNs = nowNs - lastRefillNs_;
    if (elapsedNs >= kRefillStepNs) {
        // What is left of a step is dropped: the next one counts from now.
        lastRefillNs_ = nowNs;
        tokens_ =
            std::min(kCapacity, tokens_ + static_cast<std::uint64_t>(elapsedNs / kRefillStepNs));
    }
    if (tokens_ == 0) return false;
    --tokens_;
    return true;
}

namespace {

std::int64_t steadyNowNs() {
    using namespace std::chrono;
    return duration_cast<nanoseconds>(steady_clock::now().time_since_epoch()).count();
}

// The library's only state. It is full before any code runs: a call that comes before loading is
// over takes its token for good.
constinit std::mutex mutex;
constinit TokenBucket bucket(0);

bool startBucket() {
    const std::lock_guard lock(mutex);
    bucket.start(steadyNowNs());
    return true;
}
[[maybe_unused]] const bool isStarted = startBucket();

// A child that is forked while another thread holds the lock would wait for it for ever, so it
// begins with the lock free. Not taken before the fork: a signal handler that forks on top of its
// own thread's call would wait for itself. What an update cut short leaves in the child is a token
// count that is off by one refill at most.
[[maybe_unused]] const int forkHandler = pthread_atfork(
    nullptr, nullptr, [] { (void)pthread_mutex_init(mutex.native_handle(), nullptr); });

}  // namespace

bool checkRateLimit() {
    const std::lock_guard lock(mutex);
    return bucket.take(steadyNowNs());
}

}  // namespace orvel
