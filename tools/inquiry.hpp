// SPDX-License-Identifier: MIT
// Asks the library for many paths and writes what it answers.
#pragma once

#include <string>
#include <vector>

namespace tool {

// Collects paths into batches and writes each answer, followed by the separator, to standard
// output. A path that the library refuses is written as it came; the reason goes to standard error.
class Inquiry {
public:
    explicit Inquiry(char separator) : separator_(separator) {}

    void ask(std::string path);
    // To be called after the last path.
    void finish();
    bool hadRefusals() const { return hadRefusals_; }

private:
    void askSingly(const std::string &path);
    void write(const char *bytes, std::size_t length) const;

    char separator_;
    bool hadRefusals_ = false;
    std::vector<std::string> waiting_;
};

}  // namespace tool
