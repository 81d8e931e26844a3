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
    enum class Kind { ExistsWithoutLink, Missing, BlockDevice, Unclear };

    struct Hash : std::hash<std::string_view> {
        using is_transparent = void;  // a part of a path is looked up without a copy
    };

    static Kind examine(const char *path);
    Kind kindOf(const std::string &path);
    Kind kindOfDirectory(std::string_view path);

    // Directories on the way to other paths, and the block devices that were found.
    std::unordered_map<std::string, Kind, Hash, std::equal_to<>> seen_;

    // Paths that follow each other are often below one directory or device.
    struct {
        std::string path;  // with a slash at its end
        Kind kind;
    } last_ = {"/", Kind::ExistsWithoutLink};
};

}  // namespace orvel
