// SPDX-License-Identifier: MIT
// A list is released to the caller, or freed with all its strings.
#include "fileutil/path_list.hpp"

#include <cerrno>
#include <climits>
#include <cstring>

namespace orvel {

PathList::~PathList() {
    for (std::size_t i = 0; i < paths_.size(); ++i) MallocString owned(paths_[i]);
}

bool PathList::add(const char *path) {
    if (paths_.size() == INT_MAX) {  // what the caller's count can hold
        errno = EOVERFLOW;
        return false;
    }
    MallocString copy(strdup(path));
    if (!copy || !paths_.append(copy.get())) return false;
    (void)copy.release();  // it is the list's now
    return true;
}

char **PathList::release(int *count) {
    *count = this->count();
    return paths_.release();
}

}  // namespace orvel
