// SPDX-License-Identifier: MIT
// A cancellation of a thread (pthread_cancel) put off for a scope.
#pragma once

#include <pthread.h>

namespace orvel {

// A cancellation unwinds the stack like an exception: a guard that swallows it, or a destructor
// that closes a file on the way, would end the process. So a call is finished first.
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
