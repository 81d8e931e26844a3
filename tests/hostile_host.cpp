// SPDX-License-Identifier: MIT
// A hostile host: it defines functions with the library's names, a log function that throws or
// calls back, threads that end in the middle of a call, and children of threads that are inside
// one.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "base/handles.hpp"
#include "include/orvel_core.h"
#include "include/orvel_core.hpp"

// What the library must not call.
std::string trim(const std::string &) {
    std::abort();
}
std::vector<std::string> splitValues(const std::string &) {
    std::abort();
}
bool containsDotComponents(const std::string &) {
    std::abort();
}
extern "C" int path_is_link(const char *) {
    std::abort();
}
extern "C" int remove_dir(const char *) {
    std::abort();
}

namespace {

enum Mood { Calm, Throw, ThrowNumber, CallBack };
thread_local Mood mood = Calm;
thread_local std::string lastLine;
std::atomic<long> calls = 0, refusals = 0;
std::atomic<bool> isOver = false;
constinit std::chrono::steady_clock::time_point begin;

void require(bool condition, const char *what) {
    if (condition) return;
    std::fprintf(stderr, "FAILED: %s (mood %d, last line \"%s\")\n", what, mood, lastLine.c_str());
    std::abort();
}

std::string ask(const char *path, bool batch) {
    ++calls;
    lastLine.clear();
    const orvel::MallocString single(batch ? nullptr : pathNormalize(path));
    const std::unique_ptr<path_normalize_result_t, orvel::Releaser<freeBatchPathNormalize>> record(
        batch ? batchPathNormalize(&path, 1) : nullptr);
    return single ? single.get() : record ? record->paths[0] : "null";
}

}  // namespace

extern "C" void orvel_log_v2(std::int32_t, std::int32_t, void *, void *, const char *, std::int32_t,
                             const char *format, ...) {
    lastLine = format;
    refusals += lastLine.find("rate limit") != lastLine.npos;
    if (mood == Throw) throw std::length_error("full");
    if (mood == ThrowNumber) throw 7;
    if (mood != CallBack) return;
    const std::string line = lastLine;
    mood = Calm;
    (void)ask("/var/tmp/x", line.find("batch") == line.npos);
    mood = CallBack;
    lastLine = line;
}

namespace {

// Takes all tokens before the library has been initialised; sanitizers have not been either.
void callEarly() {
    begin = std::chrono::steady_clock::now();
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    for (int i = 0; i < 150; ++i) (void)ask(nullptr, false);
#endif
}
[[gnu::section(".preinit_array"), gnu::used]] void (*const early)() = callEarly;

// Each thread goes through the moods. A mood has an effect only in a call that logs.
void callEverything(int number) {
    for (int turn = number; !isOver; ++turn) {
        mood = static_cast<Mood>(turn % 4);
        const bool batch = turn & 4;
        const std::string answer = ask(turn & 8 ? "/var/opt/a" : "a", batch);
        const char *const ends[] = {"rate limit", "catch std exception, error: %s, input",
                                    "catch unknown exception, input", "rate limit"};
        require((mood % 3 == 0 && answer == (turn & 8 ? "/opt/a" : "a")) ||
                    (answer == "null" && lastLine.find(ends[mood]) != lastLine.npos),
                "answer");
        require(answer != "null" || errno == (mood % 3 == 0 ? EAGAIN : EIO), "errno");
        mood = Calm;
        orvel::ConfigTree tree;
        std::string mode;
        require(!parseConfig("/dev/null", StageSystem, tree), "parseConfig");
        require(
            getOverlayMountMappings({{"General", {{"Mode", {"m"}}}}}, mode).empty() && mode == "m",
            "overlays");
        require(trimTrailingSlash("/a/") == "/a" && replaceVariables("<a>", {{"a", "b"}}) == "b",
                "strings");
        require(
            _pathNormalize("/tmprootx") == "/sysrootx" && _batchPathNormalize({"a"}).size() == 1,
            "core");
        require(checkBindMountPoint({{"/a", "/b"}}, "/a/c") == "/b/c" &&
                    checkBindMountPoint1("").empty(),
                "list");
        require(replaceBeginString("ab", "a", "c") == "cb", "beginning");
        require(canonicalizePath("/proc/..") == "/" && !isBlockDevice("/", mode), "mounts");
        require(resolveBasePath("/", {}) == "/" && replaceTarget({{"/b", "/a"}}).size() == 1,
                "mount points");
        (void)(processMountInfo(), mergeMountMappings(),
               sortedMappings());  // mounts may come and go
        int count = 0;
        char **names = get_dir_list("/sys", &count);
        for (int i = 0; i < count; ++i) std::free(names[i]);
        std::free(names);
        require(count > 0 && !get_dir_list("/dev/null", &count) &&
                    !get_file_list_from_dir("/dev/null", &count),
                "listings");
        require(!get_path_list_from_dir("/dev/null", &count) &&
                    orvel::MallocString(get_absolute_path("/dev")),
                "paths");
        require(copy_file("/", "/") == -1 && copy_dir("/no", "/no") == -2, "copying");
        require(path_is_mount_bind("/no", "/no") == 0 && path_is_same("/", "/") == 1, "comparing");
        require(path_is_exist("/no") == -1 && path_is_dir("/") == 1, "predicates");
        char blanks[] = " x ";
        struct tm now = {};
        get_current_time(&now);
        require(ltrim_anyway(blanks) == 3 && now.tm_year > 100, "time");
        require(orvel::MallocString(strrpc("a", "a", "b")) != nullptr, "replacing");
    }
}

void *callForever(void *) {
    for (;; pthread_testcancel()) (void)(ask("/a", false), ask("/a", true));
}

// The library's, not the one above.
int removeTree(const std::string &path) {
    return reinterpret_cast<int (*)(const char *)>(dlsym(RTLD_NEXT, "remove_dir"))(path.c_str());
}

// Utilities in all files of them; alone, since get_time_str() needs the locale for itself.
void *useFilesForever(void *directory) {
    const std::string tree = static_cast<const char *>(directory), copy = tree + "/copy";
    for (;; pthread_testcancel()) {
        (void)(mkdir(copy.c_str(), 0755), copy_dir((tree + "/tree").c_str(), copy.c_str()));
        for (const auto listing : {get_file_list_from_dir, get_path_list_from_dir, get_dir_list}) {
            int count = 0;
            char **paths = listing(tree.c_str(), &count);
            for (int i = 0; paths != nullptr && i < count; ++i) std::free(paths[i]);
            std::free(paths);
        }
        (void)(removeTree(copy), path_is_mount_bind("/", "/proc"));
        const orvel::MallocString absolute(get_absolute_path(tree.c_str())), now(get_time_str());
    }
}

void cancelInTheMiddle(void *(*call)(void *), char *argument) {
    for (int i = 0; i < 500; ++i) {
        pthread_t thread;
        require(pthread_create(&thread, nullptr, call, argument) == 0, "thread");
        usleep(200);
        pthread_cancel(thread);
        pthread_join(thread, nullptr);
    }
}

void forkInTheMiddle() {
    isOver = false;
    const auto hammer = [] {
        while (!isOver) (void)ask("", false);
    };
    std::thread hammers[] = {std::thread(hammer), std::thread(hammer)};
    for (int i = 0; i < 200; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);  // for one that hangs
            mood = Calm;
            const bool isWell = ask("", false) == "null" && (ask("a", true) == "a" || refusals > 0);
            _exit(isWell ? 0 : 1);
        }
        int status = 0;
        require(waitpid(child, &status, 0) == child && status == 0, "child");
    }
    isOver = true;
    for (std::thread &thread : hammers) thread.join();
}

}  // namespace

int main() {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) threads.emplace_back(callEverything, i);
    cancelInTheMiddle(callForever, nullptr);
    isOver = true;
    for (std::thread &thread : threads) thread.join();
    char directory[] = "/tmp/orvel-hostile-XXXXXX";
    require(mkdtemp(directory) != nullptr, "directory");
    const std::string tree = std::string(directory) + "/tree";
    require(mkdir(tree.c_str(), 0755) == 0, "tree");
    orvel::Fd(open((tree + "/file").c_str(), O_CREAT | O_WRONLY, 0644));
    cancelInTheMiddle(useFilesForever, directory);
    require(removeTree(directory) == 0 && path_is_exist(directory) == -1, "removed");
    forkInTheMiddle();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
    const long admitted = calls - refusals;
    std::printf("%ld calls in %.1f s, %ld of them admitted\n", calls.load(), elapsed.count(),
                admitted);
    require(refusals > 0 && admitted >= 100 && admitted <= 100 + elapsed.count() * 100,
            "the limiter's bound");
}
