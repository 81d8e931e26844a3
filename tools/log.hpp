// SPDX-License-Identifier: MIT
// The library's messages and this program's own, to standard error.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tool {

// The lowest level that is written; above Error, complaints are not written either.
void setLogLevel(std::int32_t level);

// Writes a message of this program to standard error.
void complain(const std::string &text);

// While this object exists, the library's messages are not written, and its warnings and errors are
// collected.
class MessageKeeper {
public:
    MessageKeeper();
    ~MessageKeeper();
    MessageKeeper(const MessageKeeper &) = delete;
    MessageKeeper &operator=(const MessageKeeper &) = delete;

    std::vector<std::string> messages;

private:
    MessageKeeper *outer_;
};

}  // namespace tool
