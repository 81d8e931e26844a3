// SPDX-License-Identifier: MIT
// String helpers of the configuration reader and the mount table reader.
#include <algorithm>
#include <map>
#include <string_view>

#include "base/text.hpp"
#include "include/orvel_core.hpp"

std::string trim(const std::string &text) {
    return std::string(orvel::trimmed(text));
}

// The first byte stays, so that the root remains the root.
std::string trimTrailingSlash(const std::string &path) {
    std::size_t length = path.size();
    while (length > 1 && path[length - 1] == '/') --length;
    return path.substr(0, length);
}

namespace {

// One pass from left to right into a new string, which does not search the replacements again.
std::string replaceAll(const std::string &text, const std::string &pattern,
                       const std::string &value) {
    std::string result;
    std::size_t copied = 0;
    for (std::size_t found = text.find(pattern); found != std::string::npos;
         found = text.find(pattern, copied)) {
        result.append(text, copied, found - copied).append(value);
        copied = found + pattern.size();
    }
    return result.append(text, copied);
}

}  // namespace

std::string replaceVariables(const std::string &text,
                             const std::unordered_map<std::string, std::string> &variables) {
    // The order matters, because a value may refer to another variable.
    const std::map<std::string_view, std::string_view> ordered(variables.begin(), variables.end());
    std::string result = text;
    for (const auto &[name, value] : ordered)
        result = replaceAll(result, "<" + std::string(name) + ">", std::string(value));
    return result;
}

// A piece ends at the next separator or at the end of the text. Empty pieces are dropped.
std::vector<std::string> splitValues(const std::string &text) {
    std::vector<std::string> values;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find_first_of(",:", begin), text.size());
        const auto value = orvel::trimmed(std::string_view(text).substr(begin, end - begin));
        if (!value.empty()) values.emplace_back(value);
        begin = end + 1;
    }
    return values;
}
