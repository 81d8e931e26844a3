// SPDX-License-Identifier: MIT
// Why a path has the normalised form that it has.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/inquiry.hpp"
#include "tools/json.hpp"
#include "tools/origin.hpp"

namespace tool {

// Each step that changed a path, and what the kernel says of both ends. For many paths: it keeps
// the table of mappings as long as that explains the answers.
class Explainer {
public:
    void explain(const Answer &answer, char separator);
    void explain(const Answer &answer, Json &object);

private:
    Rows stepsOf(const std::string &path, const std::string &normalized);

    std::optional<std::vector<Entry>> table_;
};

}  // namespace tool
