// SPDX-License-Identifier: MIT
// Every exported utility begins with this object: a cancellation of the thread waits until the call
// returns, and a success restores errno.
#pragma once

#include <cerrno>
#include <cstdio>

#include "base/cancellation.hpp"
#include "base/handles.hpp"

namespace orvel {

class Call {
public:
    // The result of a success: errno is as it was before the call.
    template <class T>
    T done(T result) const {
        errno = before_;
        return result;
    }

private:
    const int before_ = errno;
    const CancellationHold hold_;
};

// The result of a refusal, with errno set.
template <class T>
T refuse(T result, int error) {
    errno = error;
    return result;
}

// Writes text, a colon and the text of errno to standard error; errno stays as it is.
inline void print_error(const char *text) {
    const ErrnoKeeper keeper;
    std::perror(text);
}

}  // namespace orvel
