// SPDX-License-Identifier: MIT
// Copies one regular file, for copy_file and for the files of a tree.
#pragma once

namespace orvel {

// What becomes of a file that is there already.
enum class Existing { Emptied, Refused };

// Copies the file source in directory from to target in directory to. 0, or -1 with errno set where
// either cannot be opened: links are not followed, and a source that is no regular file is none.
// Names are relative to the directories' descriptors, AT_FDCWD among them.
int copy_regular_file(int from, const char *source, int to, const char *target, Existing existing);

}  // namespace orvel
