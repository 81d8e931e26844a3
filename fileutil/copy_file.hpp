// SPDX-License-Identifier: MIT
// Copies one regular file, for copy_file and for the files of a tree.
#pragma once

namespace orvel {

// What happens to a target that exists.
enum class Existing { Emptied, Refused };

// Copies the regular file source in directory from to target in directory to; both directories are
// descriptors or AT_FDCWD. 0, or -1 with errno set if either cannot be opened. Links are not
// followed.
int copy_regular_file(int from, const char *source, int to, const char *target, Existing existing);

}  // namespace orvel
