// SPDX-License-Identifier: MIT
#include "mounts/base_resolver.hpp"

#include <vector>

namespace orvel {

// A path is its own base at first, so a chain that returns to it ends there.
std::string BaseResolver::resolve(std::string base) {
    std::vector<std::pair<const std::string, std::string> *> chain;
    while (true) {
        const auto [step, isNew] = bases_.try_emplace(base, base);
        if (!isNew) {
            base = step->second;
            break;
        }
        chain.push_back(&*step);
        const auto mounted = sources_.find(base);
        if (mounted == sources_.end()) break;
        base = mounted->second;
    }
    // All steps before the base get it as their base. Steps after it are the rest of a circle.
    for (auto *step : chain) {
        if (step->first == base) break;
        step->second = base;
    }
    return base;
}

}  // namespace orvel
