// SPDX-License-Identifier: MIT
// A configuration of arbitrary bytes through parser, expansion and overlay mappings, for the stage
// that the first byte says: one complaint or none, names and values of the format's form, mappings
// of what is written.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <set>

#include "include/orvel_core.hpp"

namespace {

int lines = 0;

void require(bool condition, const char *what) {
    if (condition) return;
    std::fprintf(stderr, "WRONG: %s\n", what);
    std::abort();
}

}  // namespace

extern "C" void orvel_log_v2(std::int32_t, std::int32_t, void *, void *, const char *, std::int32_t,
                             const char *, ...) {
    ++lines;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size) {
    if (size == 0) return 0;
    const SystemStage stage = data[0] % 2 ? StageSystem : StageInitrd;
    orvel::ConfigTree tree;
    const int fd = memfd_create("conf", MFD_CLOEXEC);
    require(write(fd, data + 1, size - 1) == static_cast<ssize_t>(size - 1), "memfd");
    lines = 0;
    const bool accepted = parseConfig("/proc/self/fd/" + std::to_string(fd), stage, tree);
    close(fd);
    require(lines == (accepted ? 0 : 1), "one complaint, or none");
    require(!accepted || (tree.count("General") && tree.count("Overlay")), "sections");
    std::set<std::string> written;
    for (const auto &[section, keys] : tree)
        for (const auto &[key, values] : keys) {
            require(trim(key) == key && !key.empty() && section.find('.') == section.npos, "names");
            for (const std::string &value : values)
                require(splitValues(value) == std::vector{value}, "form");
            written.insert(values.begin(), values.end());
        }
    // Every layer and every merged directory is in the tree.
    std::string mode;
    for (const auto &[layer, merged] : getOverlayMountMappings(tree, mode))
        require(written.count(layer) && written.count(merged), "mapping");
    return 0;
}
