// SPDX-License-Identifier: MIT
// Owners of C resources, named on the line that acquires them:
//     const MallocString resolved(realpath(path, nullptr));
// A release keeps errno, which may still belong to a call that failed.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

namespace orvel {

class ErrnoKeeper {
public:
    ErrnoKeeper() = default;
    ~ErrnoKeeper() { errno = saved_; }
    ErrnoKeeper(const ErrnoKeeper &) = delete;
    ErrnoKeeper &operator=(const ErrnoKeeper &) = delete;

private:
    const int saved_ = errno;
};

template <auto Release>
struct Releaser {
    template <class T>
    void operator()(T *owned) const noexcept {
        const ErrnoKeeper keeper;
        (void)Release(owned);
    }
};

using Dir = std::unique_ptr<DIR, Releaser<closedir>>;
using File = std::unique_ptr<std::FILE, Releaser<std::fclose>>;
using MallocString = std::unique_ptr<char, Releaser<std::free>>;

// A file descriptor, or none (-1).
class Fd {
public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    Fd(Fd &&other) noexcept : fd_(other.release()) {}
    Fd &operator=(Fd &&other) noexcept {
        reset(other.release());
        return *this;
    }
    ~Fd() { reset(-1); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd) {
        const ErrnoKeeper keeper;
        // close is not repeated after a failure: the descriptor may be another thread's by now.
        if (fd_ >= 0) (void)close(fd_);
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

}  // namespace orvel
