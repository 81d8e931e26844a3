// SPDX-License-Identifier: MIT
// Strings and the time of day. Nothing here throws.
#include <clocale>
#include <cstring>
#include <ctime>

#include "base/handles.hpp"
#include "fileutil/call.hpp"
#include "include/orvel_core.h"

namespace {

constexpr std::size_t kMaxTextBytes = 2048;  // of an argument that are read
constexpr std::size_t kTimeBytes = 125;

}  // namespace

// All of str is rewritten, however long; only the result is bounded.
extern "C" size_t ltrim_anyway(char *str) {
    if (str == nullptr) return orvel::refuse(0UL, EINVAL);
    const std::size_t length = strnlen(str, kMaxTextBytes);
    if (length == 0) return 0;  // without a write: str may be read-only
    char *kept = str;
    for (const char *from = str; *from != '\0'; ++from)
        if (*from != ' ' && *from != '\t') *kept++ = *from;
    *kept = '\0';
    return length;
}

// A match is whole within the bytes of str that are read. Replacements are not searched again.
extern "C" char *strrpc(const char *str, const char *pattern, const char *replacement) {
    const orvel::Call call;
    if (str == nullptr || *str == '\0' || pattern == nullptr || *pattern == '\0')
        return orvel::refuse<char *>(nullptr, EINVAL);
    const std::size_t length = strnlen(str, kMaxTextBytes);
    const std::size_t matched = strnlen(pattern, kMaxTextBytes);
    const std::size_t inserted = replacement ? strnlen(replacement, kMaxTextBytes) : 0;
    const auto is_match = [&](std::size_t at) {
        return matched <= length - at && std::memcmp(str + at, pattern, matched) == 0;
    };

    // Two equal passes: one measures, one writes.
    std::size_t size = 1;
    for (std::size_t at = 0; at < length;) {
        const bool match = is_match(at);
        size += match ? inserted : 1;
        at += match ? matched : 1;
    }
    orvel::MallocString result(static_cast<char *>(std::malloc(size)));
    if (!result) return nullptr;
    char *end = result.get();
    for (std::size_t at = 0; at < length;) {
        if (!is_match(at)) {
            *end++ = str[at++];
            continue;
        }
        if (inserted > 0) std::memcpy(end, replacement, inserted);
        end += inserted;
        at += matched;
    }
    *end = '\0';
    return call.done(result.release());
}

extern "C" void get_current_time(struct tm *out) {
    const std::time_t now = std::time(nullptr);
    if (out == nullptr)
        errno = EINVAL;
    else if (now >= 0)
        (void)localtime_r(&now, out);
}

extern "C" char *get_time_str(void) {
    const orvel::Call call;
    (void)std::setlocale(LC_ALL, "");  // if it fails, the old locale stays
    const std::time_t now = std::time(nullptr);
    struct tm local = {};
    if (now < 0 || localtime_r(&now, &local) == nullptr) return nullptr;
    char text[kTimeBytes] = "";
    (void)std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    char *copy = strdup(text);
    return copy ? call.done(copy) : nullptr;
}
