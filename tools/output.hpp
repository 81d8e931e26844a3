// SPDX-License-Identifier: MIT
// How text reaches people and programs: printable and in columns on a terminal, as raw bytes in a
// pipe.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace tool {

// text for the reader of stream: on a terminal, a byte of what cannot be printed, or has no width
// of its own, is written \x0a, and the backslash \x5c; anywhere else text is left alone.
std::string shown(const std::string &text, std::FILE *stream);

// Writes text and the separator to standard output, raw where the separator is NUL.
void writeItem(const std::string &text, char separator);

struct Rows {
    std::vector<std::string> names;  // of the columns
    std::vector<std::vector<std::string>> cells;
};

// Writes rows to standard output: aligned below their names on a terminal; elsewhere without names,
// the cells separated by tabs; raw and each cell ended by the separator where that is NUL.
void print(const Rows &rows, char separator);

// Throws std::runtime_error where standard output could not take everything.
void finishOutput();

}  // namespace tool
