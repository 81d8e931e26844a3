// SPDX-License-Identifier: MIT
// The C++ interface of liborvel_core, for C++17 or later: the steps behind pathNormalize(), each
// usable on its own.
//
// Containers and strings cross the boundary by value, so a caller needs the standard library ABI of
// the library: libstdc++ with its C++11 strings. All functions are in the global namespace and
// thread-safe, and none limits the call rate. A failure is a false or empty result, after the log
// line that the function names; std::bad_alloc and std::length_error pass through. A thread inside
// one of them should not be cancelled.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#if __cplusplus < 201703L
#error "liborvel_core needs C++17"
#endif
#if !defined(__GLIBCXX__) || !_GLIBCXX_USE_CXX11_ABI
#error "liborvel_core needs libstdc++ with the C++11 ABI (_GLIBCXX_USE_CXX11_ABI=1)"
#endif

struct libmnt_fs;

namespace orvel {
// One path to another. Each function says what they are.
using PathMap = std::unordered_map<std::string, std::string>;
// (prefix, replacement) pairs, longest prefix first.
using MappingList = std::vector<std::pair<std::string, std::string>>;
// Section name -> key -> list of values.
using ConfigSection = std::unordered_map<std::string, std::vector<std::string>>;
using ConfigTree = std::unordered_map<std::string, ConfigSection>;

// The configuration file. Neither the environment nor the caller can name another one.
inline constexpr const char *kConfigPath = "/ostree/pkgs/system-ovl.conf";
}  // namespace orvel

// --- Normalising: normalize/ ---------------------------------------------------------------------

// The normalised form of path. A relative path, "/", an empty path and one of more than 4096 bytes
// come back unchanged, without reading the mount table. Dot components are accepted.
std::string _pathNormalize(const std::string &path);

// The same for every path, reading the mount table once, also for an empty vector.
std::vector<std::string> _batchPathNormalize(const std::vector<std::string> &paths);

// Whether path has a component "." or "..". The path "." has none.
bool containsDotComponents(const std::string &path);

// path with the first entry applied whose prefix is path itself or a directory above it. For
// example, (/a, /b) gives /a/x as /b/x, (/a, /) gives it as /x, and (/a/, /b) as /bx. Entries with
// an empty prefix are skipped.
std::string checkBindMountPoint(const orvel::MappingList &mappings, const std::string &path);

// text with newPrefix in place of oldPrefix, if text begins with it: /a and /b give /ax as /bx. An
// empty text or oldPrefix changes nothing.
std::string replaceBeginString(const std::string &text, const std::string &oldPrefix,
                               const std::string &newPrefix);

// --- The mapping table: mapping/ -----------------------------------------------------------------

// The table that normalising applies: backing path or overlay layer -> the path under which the
// running system shows it, of the mount table and the overlay configuration. If one of these cannot
// be read, it is skipped. If several mount points show one backing path, the shortest wins, then
// the bytewise smallest; an overlay's layer overrides them.
orvel::PathMap mergeMountMappings();

// mounts (mount point -> backing path) with every mount point inside another mount's backing path
// moved to that mount's mount point: with /var -> /s/var and /s/var/m -> /d, the second one becomes
// /var/m -> /d. The longest backing path that ends on a component boundary wins, else the longest
// plain prefix. If two mount points become equal, the shorter backing path wins.
orvel::PathMap replaceTarget(const orvel::PathMap &mounts);

// path with the longest key of mergeMountMappings() that it begins with replaced, as plain text: /a
// matches /ab, too, and the result may have a doubled slash. For paths, use _pathNormalize().
std::string checkBindMountPoint1(const std::string &path);

// mergeMountMappings() as a list, longest prefix first, equal lengths in byte order.
orvel::MappingList sortedMappings();

// --- The overlay configuration: overlay/ ---------------------------------------------------------

enum SystemStage : std::int32_t { StageInitrd = 0, StageSystem = 1 };

// Reads the configuration file path into tree, with variables expanded for stage (StageSystem for
// an unknown one) and values split into lists. False after exactly one log line; tree may then have
// some of the sections.
bool parseConfig(const std::string &path, SystemStage stage, orvel::ConfigTree &tree);

// text without blanks and tabs at both ends.
std::string trim(const std::string &text);

// path without slashes at its end: "/a//" gives "/a", "//" gives "/".
std::string trimTrailingSlash(const std::string &path);

// text with every <name> replaced by the value of that name, one name after another in byte order.
std::string replaceVariables(const std::string &text,
                             const std::unordered_map<std::string, std::string> &variables);

// The pieces of text between "," and ":", trimmed, without the empty ones.
std::vector<std::string> splitValues(const std::string &text);

// Lower or upper directory -> merged directory, of the overlays in the mode that the tree selects.
// mode receives that mode; if the tree has none, mode keeps its value, after a log line. If two
// sections have one directory, the one later in byte order wins.
orvel::PathMap getOverlayMountMappings(const orvel::ConfigTree &tree, std::string &mode);

// --- The mount table: mounts/ --------------------------------------------------------------------

// Mount point -> backing path: the path of the same directory below the mount point of its block
// device. Empty, after a log line, if /proc/self/mountinfo cannot be read.
orvel::PathMap processMountInfo();

// The source of a mount joined with its root by one "/"; empty if either is missing. fs belongs to
// the caller.
std::string getFullSource(struct libmnt_fs *fs);

// Whether path, links followed, is a block device; if not, error says why.
bool isBlockDevice(const std::string &path, std::string &error);

// The canonical form of path, replaced by its source as long as it is a mount point in mounts
// (mount point -> source). A chain that returns to a path ends there.
std::string resolveBasePath(const std::string &path, const orvel::PathMap &mounts);

// The result of realpath(), or path itself if that fails.
std::string canonicalizePath(const std::string &path);
