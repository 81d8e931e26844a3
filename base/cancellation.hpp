// SPDX-License-Identifier: MIT
// Delays a cancellation of the thread (pthread_cancel) for a scope.
#pragma once

#include <pthread.h>

namespace orvel {

// A cancellation unwinds the stack like an exception. A guard that catches it, or a destructor that
// closes a file meanwhile, would end the process, so the call finishes first.
class CancellationHold {
public:
    CancellationHold() { (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous_); }
    ~CancellationHold() { (void)pthread_setcancelstate(previous_, nullptr); }
    CancellationHold(const CancellationHold &) = delete;
    CancellationHold &operator=(const CancellationHold &) = delete;

private:
    int previous_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace orvel
