// SPDX-License-Identifier: MIT
// The steps behind pathNormalize(), from C++: which directory the overlays of a configuration FILE
// show where. This program has no orvel_log_v2, so it gets no log messages.
#include <cstdio>
#include <orvel_core.hpp>

int main(int argc, char **argv) {
    orvel::ConfigTree tree;
    if (argc != 2 || !parseConfig(argv[1], StageSystem, tree)) {
        std::fputs("usage: overlays FILE, a configuration that the library accepts\n", stderr);
        return 1;
    }
    std::string mode;
    for (const auto &[layer, merged] : getOverlayMountMappings(tree, mode))
        std::printf("%s: %s is shown at %s\n", mode.c_str(), layer.c_str(), merged.c_str());
    return 0;
}
