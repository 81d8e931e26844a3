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
        // The rest of a step is dropped: the next step begins now.
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

// The library's only state. The compiler fills the bucket, so that a call which another library's
// initialiser makes during loading takes its token from the same bucket.
constinit std::mutex mutex;
constinit TokenBucket bucket(0);

bool startBucket() {
    const std::lock_guard lock(mutex);
    bucket.start(steadyNowNs());
    return true;
}
[[maybe_unused]] const bool isStarted = startBucket();

// If a process forks while another thread holds the lock, the child would wait for it for ever. So
// the child begins with a free lock. The parent does not take the lock before the fork: a signal
// handler that interrupts a call and forks would wait for itself. If the fork interrupts an update,
// the child's number of tokens is wrong by one refill at most.
[[maybe_unused]] const int forkHandler = pthread_atfork(
    nullptr, nullptr, [] { (void)pthread_mutex_init(mutex.native_handle(), nullptr); });

}  // namespace

bool checkRateLimit() {
    const std::lock_guard lock(mutex);
    return bucket.take(steadyNowNs());
}

}  // namespace orvel
