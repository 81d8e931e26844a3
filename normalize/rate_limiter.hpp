// SPDX-License-Identifier: MIT
// The limit of calls of the two entry points: a bucket of 100 tokens, full when the library is
// loaded. A call takes one token; the bucket gets one every 10 milliseconds.
#pragma once

#include <cstdint>

namespace orvel {

// Time is an argument, in nanoseconds of a monotonic clock. Not thread-safe.
class TokenBucket {
public:
    explicit constexpr TokenBucket(std::int64_t nowNs) : lastRefillNs_(nowNs) {}

    // Refills from now on, and keeps the tokens.
    void start(std::int64_t nowNs) { lastRefillNs_ = nowNs; }

    // Takes a token; false if there is none.
    bool take(std::int64_t nowNs);

private:
    static constexpr std::uint64_t kCapacity = 100;
    static constexpr std::int64_t kRefillStepNs = 10'000'000;

    std::uint64_t tokens_ = kCapacity;
    std::int64_t lastRefillNs_;
};

// Takes a token of the process's bucket. Thread-safe; throws std::system_error if locking fails.
bool checkRateLimit();

}  // namespace orvel
