// SPDX-License-Identifier: MIT
// What a call costs over what the kernel and libmount cost for it: on hosts of several sizes, in
// one run, the measures of a host taken in turn. Prints medians in microseconds and the ratios.
// Needs root.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <numeric>
#include <random>
#include <stdexcept>

#include "bench/bench_host.hpp"
#include "include/orvel_core.h"
#include "include/orvel_core.hpp"
#include "mounts/libmount_handles.hpp"

namespace {

using bench::HostPlan;

enum Measure {
    Parse,
    Floor,
    Mappings,
    OneCall,
    Batch,
    LibmountAlone,
    ManyPaths,
    KeptList,
    kMeasures
};

// What a child process measured on its host.
struct Result {
    double microseconds[kMeasures];
    double overFloor, batchOverCall, callOverLibmount;  // medians of each round's own ratio
    long tableKiB, callKiB;  // what is needed at most, for libmount's own table and for a call
};

constexpr int kManyPaths = 100'000, kKeptPaths = 10'000;

constexpr HostPlan kHosts[] = {{"40, typical", 9, 27},
                               {"100 binds", 96},
                               {"1000 binds", 996},
                               {"5000 binds", 4996},
                               {"10000 binds", 9996},
                               {"1000, 990 others", 6, 990},
                               {.name = "10000 apart", .binds = 9996, .apart = true},
                               {.name = "1000 by a link", .binds = 993, .link = true},
                               {.name = "1000 slaves", .binds = 996, .slave = true},
                               {.name = "3000 slaves", .binds = 2996, .slave = true}};

void require(bool condition, const char *what) {
    if (!condition) throw std::runtime_error(what);
}

orvel::MountTable parsedTable() {
    orvel::MountTable table(mnt_new_table());
    require(table && mnt_table_parse_file(table.get(), "/proc/self/mountinfo") == 0, "mountinfo");
    return table;
}

// The floor: parse the table, readlink each target, stat each source.
void lookAtEveryMount() {
    const orvel::MountTable table = parsedTable();
    const orvel::MountIterator iterator(mnt_new_iter(MNT_ITER_FORWARD));
    char link[4096];
    struct stat status = {};
    for (libmnt_fs *fs = nullptr; mnt_table_next_fs(table.get(), iterator.get(), &fs) == 0;) {
        const char *source = mnt_fs_get_source(fs);
        if (source == nullptr || *source != '/') continue;
        (void)!readlink(mnt_fs_get_target(fs), link, sizeof link);
        (void)stat((std::string(source) + mnt_fs_get_root(fs)).c_str(), &status);
    }
}

void askLibmount(const std::string &path) {
    const std::unique_ptr<libmnt_cache, orvel::Releaser<mnt_unref_cache>> cache(mnt_new_cache());
    const orvel::MountTable table(mnt_new_table());
    mnt_table_set_cache(table.get(), cache.get());
    require(mnt_table_parse_file(table.get(), "/proc/self/mountinfo") == 0, "mountinfo");
    require(mnt_table_find_mountpoint(table.get(), path.c_str(), MNT_ITER_BACKWARD) != nullptr,
            "mount point");
}

// The most memory that a function has at a time, measured where it is called for the first time: in
// a child.
long peakKiB(const std::function<void()> &function) {
    const auto status = [](const char *field) {
        std::ifstream file("/proc/self/status");
        for (std::string word; file >> word;)
            if (long value = 0; word == field && file >> value) return value;
        return 0L;
    };
    int ends[2];
    require(pipe(ends) == 0, "pipe");
    if (fork() == 0) {
        std::ofstream("/proc/self/clear_refs") << "5";  // the peak is now
        const long before = status("VmRSS:");
        function();
        const long grown = status("VmHWM:") - before;
        _exit(write(ends[1], &grown, sizeof grown) == sizeof grown ? 0 : 1);
    }
    long grown = 0;
    require(read(ends[0], &grown, sizeof grown) == sizeof grown && wait(nullptr) > 0, "child");
    close(ends[0]);
    close(ends[1]);
    return grown;
}

double microseconds(const std::function<void()> &function) {
    using namespace std::chrono;
    const auto start = steady_clock::now();
    function();
    return duration<double, std::micro>(steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

Result measure(const std::vector<std::string> &storagePaths) {
    // Storage paths over all of the host, and as many that are normal already.
    std::vector<const char *> paths;
    for (std::size_t i = 0; i < 500; ++i) {
        paths.push_back("/usr/lib/x86_64-linux-gnu/libexample.so.1");
        paths.push_back(storagePaths[i * storagePaths.size() / 500].c_str());
    }
    std::vector<std::string> many;
    orvel::MappingList kept;
    const std::function<void()> measures[kMeasures] = {
        [] { (void)parsedTable(); },
        lookAtEveryMount,
        [] { require(!sortedMappings().empty(), "mappings"); },
        [&] { require(orvel::MallocString(pathNormalize(paths[1])) != nullptr, "one call"); },
        [&] {
            path_normalize_result_t *record = batchPathNormalize(paths.data(), paths.size());
            require(record && std::strncmp(record->paths[999], "/var/lib/machines/", 18) == 0,
                    "batch");
            freeBatchPathNormalize(record);
        },
        [&] { askLibmount(paths[1]); },
        [&] { require(_batchPathNormalize(many).back() != many.back(), "many paths"); },
        [&] {
            for (int i = 0; i < kKeptPaths; ++i) (void)checkBindMountPoint(kept, many[i]);
        },
    };
    Result result = {};
    result.tableKiB = peakKiB(measures[Parse]);
    result.callKiB = peakKiB(measures[Mappings]);
    for (int i = 0; i < kManyPaths; ++i) many.emplace_back(paths[i % paths.size()]);
    kept = sortedMappings();
    // The limiter has a hundred calls for them. What takes most of the time needs few rounds.
    constexpr int kRounds = 45, kFewRounds = 5;
    std::vector<double> samples[kMeasures];
    int order[kMeasures];
    std::iota(std::begin(order), std::end(order), 0);
    std::mt19937 random;
    for (int round = 0; round < kRounds; ++round) {
        // What ran before shows in caches and heap, so each follows each other one at times.
        std::shuffle(std::begin(order), std::end(order), random);
        for (const int which : order)
            if (which <= LibmountAlone || round < kFewRounds)
                samples[which].push_back(microseconds(measures[which]));
    }
    const auto ratio = [&](Measure a, Measure b) {
        std::vector<double> ratios;
        for (std::size_t round = 0; round < samples[a].size(); ++round)
            ratios.push_back(samples[a][round] / samples[b][round]);
        return median(ratios);
    };
    for (int i = 0; i < kMeasures; ++i) result.microseconds[i] = median(samples[i]);
    result.overFloor = ratio(Mappings, Floor);
    result.batchOverCall = ratio(Batch, OneCall);
    result.callOverLibmount = ratio(OneCall, LibmountAlone);
    return result;
}

// What function gives for the host's storage paths. It runs in a process of its own: the host is
// gone with it.
template <class Function>
auto inHostOfItsOwn(const HostPlan &plan, const Function &function) {
    char directory[] = "/tmp/orvel-bench-XXXXXX";
    require(mkdtemp(directory) != nullptr, "temporary directory");
    int ends[2];
    require(pipe(ends) == 0, "pipe");
    const pid_t child = fork();
    if (child == 0) try {
            const auto paths = bench::enterHost(plan, directory);
            const auto result = function(paths);
            _exit(write(ends[1], &result, sizeof result) == sizeof result ? 0 : 1);
        } catch (const std::exception &error) {
            std::fprintf(stderr, "normalize_bench: %s: %s\n", plan.name, error.what());
            _exit(1);
        }
    int status = 0;
    require(waitpid(child, &status, 0) == child && rmdir(directory) == 0 && status == 0,
            "a host was not measured");
    std::invoke_result_t<Function, std::vector<std::string>> result = {};
    require(read(ends[0], &result, sizeof result) == sizeof result, "result");
    close(ends[0]);
    close(ends[1]);
    return result;
}

void printRow(const char *name, const Result &result) {
    const double *us = result.microseconds;
    std::printf("%-17s", name);
    for (int i = 0; i <= LibmountAlone; ++i) std::printf(" %8.0f", us[i]);
    std::printf("   %5.2f %5.2f %5.2f", result.overFloor, result.batchOverCall,
                result.callOverLibmount);
    std::printf("   %6ld %6ld %5.2f\n", result.tableKiB, result.callKiB,
                static_cast<double>(result.callKiB) / static_cast<double>(result.tableKiB));
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char **argv) try {
    if (argc == 2) {
        const HostPlan plan = {.name = "counted", .binds = std::atoi(argv[1])};
        inHostOfItsOwn(plan, [](const auto &) {
            lookAtEveryMount();
            return sortedMappings().size();
        });
        return 0;
    }
    std::printf("%-17s %8s %8s %8s %8s %8s %8s   %5s %5s %5s   %6s %6s %5s\n", "microseconds",
                "parse", "floor", "sorted", "one call", "batch", "libmount", "s/f", "b/o", "o/l",
                "KiB", "call", "c/t");
    std::vector<Result> results;
    for (const HostPlan &plan : kHosts) {
        results.push_back(inHostOfItsOwn(plan, measure));
        printRow(plan.name, results.back());
    }
    std::printf("\n%-17s %12s %12s %12s %12s\n", "paths a second", "one call", "batch",
                "many at once", "kept list");
    for (std::size_t i = 0; i < results.size(); ++i) {
        const auto perSecond = [&](Measure which, int paths) {
            return paths * 1e6 / results[i].microseconds[which];
        };
        std::printf("%-17s %12.0f %12.0f %12.0f %12.0f\n", kHosts[i].name, perSecond(OneCall, 1),
                    perSecond(Batch, 1000), perSecond(ManyPaths, kManyPaths),
                    perSecond(KeptList, kKeptPaths));
    }
    const auto growth = [&](Measure which) {
        return results[4].microseconds[which] / results[2].microseconds[which];
    };
    std::printf("growth from 1,000 to 10,000 binds, of the library over the floor: %.2f\n",
                growth(Mappings) / growth(Floor));
} catch (const std::exception &error) {
    std::fprintf(stderr, "normalize_bench: %s\n", error.what());
    return 1;
}
