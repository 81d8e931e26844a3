// SPDX-License-Identifier: MIT
// A path that grows and shrinks in a fixed buffer. It refuses what does not fit.
#pragma once

#include <cstddef>
#include <cstring>

#include "base/bounded.hpp"

namespace orvel {

template <std::size_t MaxLength>
class PathBuffer {
public:
    // False, with nothing changed, if the result would be longer than MaxLength.
    bool append(const char *text) {
        const std::size_t added = std::strlen(text);
        if (added > MaxLength - length_) return false;
        (void)strcat_s(text_ + length_, sizeof text_ - length_, text);  // cannot fail: it fits
        length_ += added;
        return true;
    }

    // "/" and a name below the path.
    bool push(const char *name) {
        const std::size_t before = length_;
        if (append("/") && append(name)) return true;
        truncate(before);
        return false;
    }

    // Removes the last name.
    void pop() {
        const char *slash = std::strrchr(text_, '/');
        truncate(slash ? static_cast<std::size_t>(slash - text_) : 0);
    }

    void truncate(std::size_t length) {
        length_ = length;
        text_[length] = '\0';
    }

    void drop_trailing_slash() {
        if (length_ > 0 && text_[length_ - 1] == '/') truncate(length_ - 1);
    }

    const char *text() const { return text_; }
    std::size_t length() const { return length_; }

private:
    char text_[MaxLength + 1] = "";
    std::size_t length_ = 0;
};

}  // namespace orvel
