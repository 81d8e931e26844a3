// SPDX-License-Identifier: MIT
// What one call has seen of the file system. The mounts are many and the directories on their paths
// few, so each of these is looked at once; and a block device that was found has nothing below it.
// Where a path is out of the ordinary, realpath() decides.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace orvel {

// Not for longer than a call: nothing here notices a change.
class PathMemo {
public:
    // What canonicalizePath() makes of path.
    std::string canonicalize(std::string path);

    // What isBlockDevice() says of path, which has no slash at its end.
    bool isBlockDevice(const std::string &path);

private:
    // Plain: it exists, and no link is on the way. Absent: neither it nor anything below it exists;
    // as a part of a path also a block device, by a link or not. Unclear: links, dots or doubled
    // slashes on the way, no permission, and all else that is not a plain absolute path.
    enum class Kind { Plain, Absent, Unclear };

    struct Hash : std::hash<std::string_view> {
        using is_transparent = void;  // a part of a path is looked up without a copy
    };

    // Whether path is the block device found last, or below it, where nothing exists.
    bool isOfLastDevice(const std::string &path) const;
    static Kind lookAt(const char *path);
    Kind kindOf(const std::string &path);
    Kind kindOfPart(std::string_view path);

    std::unordered_map<std::string, Kind, Hash, std::equal_to<>> parts_;
    std::string lastDirectory_ = "/";  // with a slash at its end
    std::string lastDevice_;           // the block device found last, or empty
    std::string lastDeviceResolved_;   // what canonicalize() makes of it
};

}  // namespace orvel
