// SPDX-License-Identifier: MIT
// Asks the library for many paths.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tool {

struct Answer {
    std::string path;
    std::optional<std::string> normalized;
    std::string reason;  // where the library refused the path
};

// Collects paths into batches and reports each answer, in the order of the paths.
class Inquiry {
public:
    using Report = std::function<void(const Answer &)>;
    explicit Inquiry(Report report) : report_(std::move(report)) {}

    void ask(std::string path);
    // To be called after the last path.
    void finish();

private:
    Report report_;
    std::vector<std::string> waiting_;
};

}  // namespace tool
