// SPDX-License-Identifier: MIT
// Every mode computes an answer, and this prints it: as JSON, or as text in lines and in tables
// that follow findmnt's rules.
#pragma once

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace tool {

using Json = nlohmann::ordered_json;

struct Format {
    bool json = false;
    bool raw = false;  // cells separated by a blank, blanks in them escaped
    bool noHeadings = false;
    char separator = '\n';  // after each line that is not of a table
};

struct Answer {
    Json json = {};                         // what JSON shows; strings hold bytes of any encoding
    std::vector<Json> tables = {};          // what text shows: arrays of objects with equal members
    std::string line = {};                  // what text shows if there are no tables
    std::vector<std::string> remarks = {};  // what text adds on standard error
};

// Writes the answer to standard output. A member that is no UTF-8 has U+FFFD in place of such
// bytes, and beside it the whole of it in hexadecimal, as the member NAME_hex.
void print(const Answer &answer, const Format &format);

// Answers that are the elements of one array, written as they come.
class AnswerStream {
public:
    explicit AnswerStream(const Format &format) : format_(format) {}
    void add(const Answer &answer);
    // To be called after the last one.
    void finish() const;

private:
    const Format &format_;
    bool isEmpty_ = true;
};

// text for the reader of stream: on a terminal, a byte of what cannot be printed, or has no width
// of its own, is written \x0a, and the backslash \x5c; anywhere else text is left alone.
std::string shown(const std::string &text, std::FILE *stream);

// Throws std::runtime_error if standard output could not take everything.
void finishOutput();

}  // namespace tool
