// Copies one regular file, for copy_file and for the files of a tree.
#pragma once

namespace orvel {

// Copies the file source in directory from to target in directory to, which is created or emptied
// first. 0, or -1 where either cannot be opened: links are not followed, and a source that is no
// regular file is none. Names are relative to the directories' descriptors, AT_FDCWD among them.
int copy_regular_file(int from, const char *source, int to, const char *target);

}  // namespace orvel
