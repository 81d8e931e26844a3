// SPDX-License-Identifier: MIT
// The parts that ask the system nothing: the rules for one path, the parser, the limiter.
#include <benchmark/benchmark.h>
#include <sys/mman.h>
#include <unistd.h>

#include "include/orvel_core.hpp"
#include "normalize/rate_limiter.hpp"

namespace {

// A list of as many entries as the argument, none of which matches.
void applyListInVain(benchmark::State &state) {
    orvel::MappingList list;
    for (int i = 0; i < state.range(0); ++i)
        list.emplace_back("/sysroot/ostree/deploy/example/var/lib/item" + std::to_string(i),
                          "/var/lib/item");
    const std::string path = "/sysroot/ostree/deploy/example/var/lib/other/file";
    for (auto _ : state) benchmark::DoNotOptimize(checkBindMountPoint(list, path));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(applyListInVain)->Arg(10)->Arg(1000)->Arg(10000);

void findDotComponents(benchmark::State &state) {
    const std::string path(static_cast<std::size_t>(state.range(0)), '/');
    for (auto _ : state) benchmark::DoNotOptimize(containsDotComponents(path));
}
BENCHMARK(findDotComponents)->Arg(60)->Arg(4095);

// If no mount point is in a backing path, and if all are.
void retarget(benchmark::State &state, const std::string &parent) {
    orvel::PathMap mounts = {{"/var", "/s/os/var"}};
    for (int i = 0; i < state.range(0); ++i)
        mounts.emplace(parent + "/lib/item" + std::to_string(i),
                       "/s/os/deploy/item" + std::to_string(i));
    for (auto _ : state) benchmark::DoNotOptimize(replaceTarget(mounts));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK_CAPTURE(retarget, none, "/var")->Arg(10)->Arg(1000)->Arg(10000);
BENCHMARK_CAPTURE(retarget, all, "/s/os/var")->Arg(10)->Arg(1000)->Arg(10000);

void parseSections(benchmark::State &state) {
    std::string text =
        "[General]\nMode=normal\nDeploy=d\n[Overlay]\nStageSystem=/s\nPathPre=<stage>/<Deploy>\n";
    for (int i = 0; i < state.range(0); ++i)
        text += "[usr.layer" + std::to_string(i) +
                "-N]\nLowerDir=<PathPre>/lower, /more\nUpperDir=/u\nMergeDir=/m\n";
    const int fd = memfd_create("conf", MFD_CLOEXEC);
    if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        state.SkipWithError("memfd");
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    for (auto _ : state) {
        orvel::ConfigTree tree;
        std::string mode;
        if (!parseConfig(path, StageSystem, tree)) state.SkipWithError("not accepted");
        benchmark::DoNotOptimize(getOverlayMountMappings(tree, mode));
    }
    close(fd);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(parseSections)->Arg(10)->Arg(1000);

// Refusals among them, once the bucket is empty.
void takeToken(benchmark::State &state) {
    for (auto _ : state) benchmark::DoNotOptimize(orvel::checkRateLimit());
}
BENCHMARK(takeToken);

}  // namespace

BENCHMARK_MAIN();
