// SPDX-License-Identifier: MIT
// The interface that programs have been compiled against; this is right if it compiles. What stops
// it from compiling breaks those programs and needs a new SONAME, not a change of this file. Which
// symbols there are is pinned by debian/liborvel-core0.symbols; they say nothing of results, and
// those of C nothing of arguments.
#include <cstddef>
#include <type_traits>

#include "include/orvel_core.h"
#include "include/orvel_core.hpp"

template <class Type, auto... functions>
constexpr bool all = (std::is_same_v<decltype(functions), Type *> && ...);

using Result = path_normalize_result_t;
static_assert(all<char *(const char *), pathNormalize, get_absolute_path>);
static_assert(all<Result *(const char *const *, std::size_t), batchPathNormalize>);
static_assert(all<void(Result *), freeBatchPathNormalize> &&
              all<std::size_t(char *), ltrim_anyway>);
static_assert(all<char *(const char *, const char *, const char *), strrpc>);
static_assert(all<void(tm *), get_current_time> && all<char *(), get_time_str>);
static_assert(all<int(const char *), path_is_exist, path_is_dir, path_is_link, remove_dir>);
static_assert(
    all<int(const char *, const char *), path_is_same, path_is_mount_bind, copy_file, copy_dir>);
static_assert(all<char **(const char *, int *), get_file_list_from_dir, get_path_list_from_dir,
                  get_dir_list>);
static_assert(std::is_standard_layout_v<Result> && sizeof(Result) == 16 && alignof(Result) == 8);
static_assert(offsetof(Result, paths) == 0 && std::is_same_v<decltype(Result::paths), char **>);
static_assert(offsetof(Result, count) == 8 && std::is_same_v<decltype(Result::count), std::size_t>);

using Text = std::string;
using Texts = std::vector<Text>;
using List = std::vector<std::pair<Text, Text>>;
using Map = std::unordered_map<Text, Text>;
using Tree = std::unordered_map<Text, std::unordered_map<Text, Texts>>;
static_assert(all<Text(const Text &), _pathNormalize, checkBindMountPoint1, trim, trimTrailingSlash,
                  canonicalizePath>);
static_assert(all<Texts(const Texts &), _batchPathNormalize> &&
              all<Texts(const Text &), splitValues>);
static_assert(all<bool(const Text &), containsDotComponents> &&
              all<bool(const Text &, Text &), isBlockDevice>);
static_assert(all<Text(const List &, const Text &), checkBindMountPoint> &&
              all<List(), sortedMappings>);
static_assert(all<Text(const Text &, const Text &, const Text &), replaceBeginString>);
static_assert(all<Map(), mergeMountMappings, processMountInfo> &&
              all<Map(const Map &), replaceTarget>);
static_assert(all<bool(const Text &, SystemStage, Tree &), parseConfig>);
static_assert(all<Map(const Tree &, Text &), getOverlayMountMappings> &&
              all<Text(libmnt_fs *), getFullSource>);
static_assert(all<Text(const Text &, const Map &), replaceVariables, resolveBasePath>);
static_assert(sizeof(SystemStage) == 4 && StageInitrd == 0 && StageSystem == 1);
