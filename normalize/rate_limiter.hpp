// SPDX-License-Identifier: MIT
// The bound on how often the two entry points may work: a bucket of 100 tokens, full when the
// library is loaded, refilled by one token each 10 milliseconds, one token a call.
#pragma once

#include <cstdint>

namespace orvel {

// Time is an argument: nanoseconds of a clock that never goes back. Not for several threads at
// once.
class TokenBucket {
public:
    explicit constexpr TokenBucket(std::int64_t nowNs) : lastRefillNs_(nowNs) {}

    // Refills from now on; the tokens stay.
    void start(std::int64_t nowNs) { lastRefillNs_ = nowNs; }

    // Takes a token; false, with nothing changed, when there is none.
    bool take(std::int64_t nowNs);

private:
    static constexpr std::uint64_t kCapacity = 100;
    static constexpr std::int64_t kRefillStepNs = 10'000'000;

    std::uint64_t tokens_ = kCapacity;
    std::int64_t lastRefillNs_;
};

// Takes a token of the process's one bucket. Any thread; throws std::system_error where the lock
// cannot be had.
bool checkRateLimit();

}  // namespace orvel
