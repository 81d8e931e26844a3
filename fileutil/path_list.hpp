// SPDX-License-Identifier: MIT
// The result of the listings: a malloc'ed array of malloc'ed strings, for the caller to free.
#pragma once

#include "fileutil/growable.hpp"

namespace orvel {

class PathList {
public:
    PathList() = default;
    ~PathList();
    PathList(const PathList &) = delete;
    PathList &operator=(const PathList &) = delete;

    // Adds a copy; false with errno set when memory runs out.
    bool add(const char *path);
    int count() const { return static_cast<int>(paths_.size()); }
    // Hands over the array, which is null if the list is empty, and its count.
    char **release(int *count);

private:
    Growable<char *> paths_;
};

}  // namespace orvel
