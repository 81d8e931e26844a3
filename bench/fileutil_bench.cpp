// SPDX-License-Identifier: MIT
// The file utilities against the commands that a user would take instead, both timed in one run, in
// alternating order, on a tmpfs of a private mount namespace. Prints the ratio of the medians; the
// start of the command's process counts for the command. Needs root.
#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "include/orvel_core.h"

namespace {

constexpr int kRounds = 15;

void check(bool success, const std::string &what) {
    if (!success) throw std::runtime_error(what);
}

void shell(const std::string &script) {
    check(std::system(("set -e; " + script).c_str()) == 0, script);
}

// Runs a command with its output thrown away, as directly as posix_spawn can.
void command(std::vector<const char *> words) {
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    char *const *arguments = const_cast<char *const *>(words.data());
    check(posix_spawnp(&child, words[0], &actions, nullptr, arguments, environ) == 0, words[0]);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    check(waitpid(child, &status, 0) == child && status == 0, words[0]);
}

double milliseconds(const std::function<void()> &function) {
    using namespace std::chrono;
    const auto start = steady_clock::now();
    function();
    return duration<double, std::milli>(steady_clock::now() - start).count();
}

struct Comparison {
    const char *name;
    std::string prepare;  // a shell script before each of the two
    std::function<void()> library;
    std::vector<const char *> words;  // of the command
};

void compare(const Comparison &comparison) {
    std::vector<double> library;
    std::vector<double> tool;
    const std::function<void()> reference = [&] { command(comparison.words); };
    for (int round = 0; round < kRounds; ++round)
        for (const bool first : {true, false}) {
            shell(comparison.prepare);
            const bool isLibrary = first == (round % 2 == 0);
            (isLibrary ? library : tool)
                .push_back(milliseconds(isLibrary ? comparison.library : reference));
        }
    std::nth_element(library.begin(), library.begin() + kRounds / 2, library.end());
    std::nth_element(tool.begin(), tool.begin() + kRounds / 2, tool.end());
    const double ours = library[kRounds / 2];
    const double theirs = tool[kRounds / 2];
    std::printf("%-44s %9.2f ms %9.2f ms %8.2f\n", comparison.name, ours, theirs, ours / theirs);
}

void listAndFree(const char *directory) {
    int count = 0;
    char **paths = get_file_list_from_dir(directory, &count);
    check(paths != nullptr && count == 10'000, "listing");
    for (int i = 0; i < count; ++i) std::free(paths[i]);
    std::free(static_cast<void *>(paths));
}

}  // namespace

int main() try {
    check(unshare(CLONE_NEWNS) == 0, "unshare");
    check(mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
    check(mount("tmpfs", "/mnt", "tmpfs", 0, "size=2g") == 0 && chdir("/mnt") == 0, "tmpfs");
    shell(
        "mkdir tree copies; cd tree; for i in $(seq 1000); do mkdir $i; "
        "for j in 1 2 3 4 5 6 7 8 9 10; do echo $i$j > $i/$j; done; done; "
        "head -c 256M /dev/urandom > ../big");
    std::printf("%-44s %12s %12s %8s\n", "", "library", "command", "ratio");
    const Comparison comparisons[] = {
        {"remove_dir / rm -rf, 10,000 files",
         "cp -r tree doomed",
         [] { check(remove_dir("/mnt/doomed") == 0, "remove_dir"); },
         {"rm", "-rf", "doomed"}},
        {"copy_dir / cp -r, 10,000 files",
         "rm -rf copies/*",
         [] { check(copy_dir("/mnt/tree", "/mnt/copies") == 0, "copy_dir"); },
         {"cp", "-r", "tree", "copies"}},
        {"copy_file / cp -r, 256 MiB",
         "rm -rf copies/*",
         [] { check(copy_file("/mnt/big", "/mnt/copies/big") == 0, "copy_file"); },
         {"cp", "-r", "big", "copies/big"}},
        {"get_file_list_from_dir / find, 10,000 files",
         "",
         [] { listAndFree("/mnt/tree"); },
         {"find", "tree", "-not", "-type", "d"}},
    };
    for (const Comparison &comparison : comparisons) compare(comparison);
    return 0;
} catch (const std::exception &error) {
    std::fprintf(stderr, "fileutil_bench: failed: %s\n", error.what());
    return 1;
}
