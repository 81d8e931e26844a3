// SPDX-License-Identifier: MIT
// What one call has seen of the file system. Many mounts have few directories on their paths, so
// each directory is examined once, and nothing is examined below a block device. For unusual paths,
// such as one with a link, realpath() decides.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace orvel {

// For one call only, because it does not notice changes.
class PathMemo {
public:
    // The same as canonicalizePath(path).
    std::string canonicalize(std::string path);

    // The same as isBlockDevice(path); path has no slash at its end.
    bool isBlockDevice(const std::string &path);

private:
    // Plain: the path exists and contains no link. Absent: neither it nor anything below it exists;
    // a block device is absent, too, if it is a part of a longer path. Unclear: the path contains
    // links, dots or doubled slashes, may not be examined, or is not absolute.
    enum class Kind { Plain, Absent, Unclear };

    struct Hash : std::hash<std::string_view> {
        using is_transparent = void;  // a part of a path is looked up without a copy
    };

    // Whether path is the block device found last, or below it.
    bool isOfLastDevice(const std::string &path) const;
    static Kind lookAt(const char *path);
    Kind kindOf(const std::string &path);
    Kind kindOfPart(std::string_view path);

    std::unordered_map<std::string, Kind, Hash, std::equal_to<>> parts_;
    std::string lastDirectory_ = "/";  // with a slash at its end
    std::string lastDevice_;           // the block device found last, or empty
    std::string lastDeviceResolved_;   // its canonical path
};

}  // namespace orvel
