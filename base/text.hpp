// SPDX-License-Identifier: MIT
// Strings are bytes in any encoding; only the blank and the tab are white space.
#pragma once

#include <string_view>

namespace orvel {

// text without blanks and tabs at both ends.
inline std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t";
    const std::size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

}  // namespace orvel
