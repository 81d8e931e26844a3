// SPDX-License-Identifier: MIT
// The C++ interface of liborvel_core, for C++17 or later: the steps behind pathNormalize(), each
// usable on its own.
//
// Containers and strings cross the boundary by value, so a caller needs the same standard library
// ABI as the library: libstdc++ with its C++11 strings. All functions are in the global namespace,
// keep no state and may be called from any number of threads. None limits the call rate. Failure is
// a false or empty result, after the log line that the function names; std::bad_alloc and
// std::length_error pass through. A thread inside one of them should not be cancelled.
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
// One path to another; what each side means stands at the function.
using PathMap = std::unordered_map<std::string, std::string>;
// (prefix, replacement) pairs, longest prefix first.
using MappingList = std::vector<std::pair<std::string, std::string>>;
// Section name -> key -> list of values.
using ConfigSection = std::unordered_map<std::string, std::vector<std::string>>;
using ConfigTree = std::unordered_map<std::string, ConfigSection>;

// The one configuration file. Fixed: neither the environment nor the caller can point the library
// at another one.
inline constexpr const char *kConfigPath = "/ostree/pkgs/system-ovl.conf";
}  // namespace orvel

// --- Normalising ---------------------------------------------------------------------------------

// The normalised form of path. A relative path, "/", an empty path and one of more than 4096 bytes
// come back unchanged and without a look at the system. Dot components are not refused here.
std::string _pathNormalize(const std::string &path);

// The same for every path, with one look at the system, which is taken even for an empty vector.
std::vector<std::string> _batchPathNormalize(const std::vector<std::string> &paths);

// Whether path has a "." or ".." component. A lone "." does not count.
bool containsDotComponents(const std::string &path);

// path with the first entry applied whose prefix is path itself or a directory above it. A prefix
// that ends in "/" is replaced with its slash. Where the replacement is "/", no doubled slash
// arises. Entries with an empty prefix are skipped.
std::string checkBindMountPoint(const orvel::MappingList &mappings, const std::string &path);

// text with newPrefix in place of oldPrefix where it begins with that; oldPrefix is plain text, not
// a path. An empty text or oldPrefix changes nothing.
std::string replaceBeginString(const std::string &text, const std::string &oldPrefix,
                               const std::string &newPrefix);

// --- The mapping table ---------------------------------------------------------------------------

// The table that normalising applies: backing path or overlay layer directory -> the path under
// which the running system shows it. Made from the mount table and the overlay configuration; what
// cannot be read is left out. Of several mount points of one backing path the shortest is taken,
// then the bytewise smallest; an overlay's layer goes before any of them.
orvel::PathMap mergeMountMappings();

// mounts (mount point -> backing path) with every mount point that lies inside another mount's
// backing path moved to that mount's mount point: through the longest such path that ends on a
// component boundary, else the longest that is a plain prefix. Where two come out alike, the
// shorter backing path stays.
orvel::PathMap replaceTarget(const orvel::PathMap &mounts);

// path with the longest key of mergeMountMappings() replaced that it begins with as plain text:
// /a matches /ab too, and a doubled slash may arise. For paths, use _pathNormalize().
std::string checkBindMountPoint1(const std::string &path);

// mergeMountMappings() as a list, longest prefix first, equal lengths in byte order.
orvel::MappingList sortedMappings();

// --- The overlay configuration -------------------------------------------------------------------

enum SystemStage : std::int32_t { StageInitrd = 0, StageSystem = 1 };

// Reads the configuration file path into tree, variables expanded for stage (whatever is not
// StageInitrd counts as StageSystem) and values split into lists. False after exactly one log line;
// tree may then hold some of the sections.
bool parseConfig(const std::string &path, SystemStage stage, orvel::ConfigTree &tree);

// text without blanks and tabs at both ends.
std::string trim(const std::string &text);

// path without "/" at its end; the first byte always stays.
std::string trimTrailingSlash(const std::string &path);

// text with every <name> replaced by the value of that name, the names taken in byte order.
std::string replaceVariables(const std::string &text,
                             const std::unordered_map<std::string, std::string> &variables);

// The pieces of text between "," and ":", trimmed, without the empty ones.
std::vector<std::string> splitValues(const std::string &text);

// Lower or upper directory -> merged directory, for the overlays of the mode that the tree selects.
// mode receives that mode; it stays as it is where the tree has none, after a log line. Of two
// sections with one directory, the one later in byte order counts.
orvel::PathMap getOverlayMountMappings(const orvel::ConfigTree &tree, std::string &mode);

// --- The mount table -----------------------------------------------------------------------------

// Mount point -> the path of the same content under the mount point of its block device. Empty,
// after a log line, where /proc/self/mountinfo cannot be read.
orvel::PathMap processMountInfo();

// The source of a mount joined with its root by exactly one "/"; empty where either is missing. fs
// is libmount's and stays the caller's.
std::string getFullSource(struct libmnt_fs *fs);

// Whether path, links followed, is a block device; if not, error says why.
bool isBlockDevice(const std::string &path, std::string &error);

// The canonical form of path, followed through mounts (mount point -> source) as long as it is a
// mount point itself. A chain that comes back to a path ends at that path.
std::string resolveBasePath(const std::string &path, const orvel::PathMap &mounts);

// What realpath() makes of path, or path itself where it fails.
std::string canonicalizePath(const std::string &path);
