// SPDX-License-Identifier: MIT
// This program as the library's host: where the library's messages go, and its own.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tool {

// The lowest level that is written to standard error; above Error, complaints are not either.
void setLogLevel(std::int32_t level);

// Writes a message of this program to standard error.
void complain(const std::string &text);

// Holds the library's messages back while it lives; those of warnings and errors are kept.
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
