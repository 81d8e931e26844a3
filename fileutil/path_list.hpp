// SPDX-License-Identifier: MIT
// The result of the listings: a malloc'ed array of malloc'ed strings, for the caller to free.
#pragma once

#include <cerrno>
#include <climits>
#include <cstring>

#include "fileutil/growable.hpp"

namespace orvel {

class PathList {
public:
    PathList() = default;
    ~PathList() {
        for (std::size_t i = 0; i < paths_.size(); ++i) MallocString owned(paths_[i]);
    }
    PathList(const PathList &) = delete;
    PathList &operator=(const PathList &) = delete;

    // Adds a copy; false with errno set if memory runs out.
    bool add(const char *path) {
        if (paths_.size() == INT_MAX) {  // what the caller's count can hold
            errno = EOVERFLOW;
            return false;
        }
        MallocString copy(strdup(path));
        if (!copy || !paths_.append(copy.get())) return false;
        (void)copy.release();  // it is the list's now
        return true;
    }

    int count() const { return static_cast<int>(paths_.size()); }

    // Hands over the array, which is null if the list is empty, and its count.
    char **release(int *count) {
        *count = this->count();
        return paths_.release();
    }

private:
    Growable<char *> paths_;
};

}  // namespace orvel
