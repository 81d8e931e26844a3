// SPDX-License-Identifier: MIT
// Asks the library for many paths.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tool {

struct Normalized {
    std::string path;
    std::optional<std::string> form;
    std::string refusal;  // why there is no form
};

// Collects paths into batches and reports each answer, in the order of the paths.
class Normalizer {
public:
    using Report = std::function<void(const Normalized &)>;
    explicit Normalizer(Report report) : report_(std::move(report)) {}

    void ask(std::string path);
    // To be called after the last path.
    void finish();

private:
    Report report_;
    std::vector<std::string> waiting_;
};

}  // namespace tool
