// SPDX-License-Identifier: MIT
#include "mounts/base_resolver.hpp"

#include <vector>

namespace orvel {

// A path is its own base until more is known, so a chain that comes back to it ends there.
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
    // Every step of the chain up to the base ends at it; steps after it are the rest of a circle.
    for (auto *step : chain) {
        if (step->first == base) break;
        step->second = base;
    }
    return base;
}

}  // namespace orvel
