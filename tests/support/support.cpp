// SPDX-License-Identifier: MIT
// The tests as the library's host, whose log function records; and what they can make fail in its
// objects (the linker's --wrap): the malloc family, operator new, single calls by their names. The
// clock can be put forward.
#include <libmount.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <utility>

#include "base/log.hpp"
#include "tests/support/support.hpp"

static thread_local int remaining = 0;
static thread_local bool failsOnce = false, hasFailed = false, isInLibmount = false;
std::string support::failingCall;
std::chrono::nanoseconds support::ahead{0};

void support::failInTurn(const std::function<std::string()> &call,
                         const std::function<bool(const std::string &)> &isRefusal) {
    const std::string whole = call();
    for (const bool onlyOne : {true, false}) {
        failsOnce = onlyOne;
        hasFailed = true;
        for (int n = 1; std::exchange(hasFailed, false); ++n) {
            ahead += std::chrono::milliseconds(10);  // a token of the limiter
            remaining = n;
            const std::string answer = call();
            remaining = 0;
            EXPECT_TRUE(answer == whole || (hasFailed && isRefusal(answer))) << n << answer;
        }
    }
}

support::Unfailing::Unfailing() : remaining_(std::exchange(remaining, 0)) {
}
support::Unfailing::~Unfailing() {
    remaining = remaining_;
}

static bool allocationFails() {
    if (remaining == 0 || --remaining > 0) return false;
    remaining = failsOnce ? 0 : 1;
    hasFailed = true;
    errno = ENOMEM;
    return true;
}

static bool fails(const char *name) {
    return support::failingCall == name && (errno = EIO);
}

void *operator new(std::size_t size) {
    void *block = allocationFails() ? nullptr : std::malloc(size);
    return block ? block : throw std::bad_alloc();
}
void operator delete(void *block) noexcept {
    std::free(block);
}
void operator delete(void *block, std::size_t) noexcept {
    std::free(block);
}

#define WRAP(condition, failure, result, name, parameters, arguments) \
    extern "C" result __real_##name parameters;                       \
    extern "C" result __wrap_##name parameters {                      \
        return condition ? failure : __real_##name arguments;         \
    }
#define WRAP_ALLOCATION(...) WRAP(allocationFails(), nullptr, __VA_ARGS__)
WRAP_ALLOCATION(void *, malloc, (std::size_t size), (size))
WRAP_ALLOCATION(void *, realloc, (void *block, std::size_t size), (block, size))
WRAP_ALLOCATION(char *, strdup, (const char *text), (text))
WRAP_ALLOCATION(char *, strndup, (const char *text, std::size_t size), (text, size))
WRAP(fails("mnt_new_table"), nullptr, libmnt_table *, mnt_new_table, (), ())
WRAP(fails("mnt_new_iter"), nullptr, libmnt_iter *, mnt_new_iter, (int direction), (direction))
extern "C" int __real_mnt_table_parse_file(libmnt_table *table, const char *file);
extern "C" int __wrap_mnt_table_parse_file(libmnt_table *table, const char *file) {
    isInLibmount = true;
    const int result =
        fails("mnt_table_parse_file") ? -1 : __real_mnt_table_parse_file(table, file);
    isInLibmount = false;
    return result;
}
WRAP(fails("mnt_table_next_fs"), -1, int, mnt_table_next_fs,
     (libmnt_table * table, libmnt_iter *iterator, libmnt_fs **fs), (table, iterator, fs))
WRAP(fails("realpath"), nullptr, char *, realpath, (const char *path, char *buffer), (path, buffer))
WRAP(fails("fopen"), nullptr, FILE *, fopen, (const char *path, const char *mode), (path, mode))

// What libmount allocates as it reads, where no sanitizer has a malloc of its own.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
extern "C" void *__libc_malloc(std::size_t size);
extern "C" void *__libc_calloc(std::size_t count, std::size_t size);
extern "C" void *malloc(std::size_t size) {
    return isInLibmount && allocationFails() ? nullptr : __libc_malloc(size);
}
extern "C" void *calloc(std::size_t count, std::size_t size) {
    return isInLibmount && allocationFails() ? nullptr : __libc_calloc(count, size);
}
#endif

// steady_clock::now(), whose time point is returned as its count.
extern "C" std::int64_t __real__ZNSt6chrono3_V212steady_clock3nowEv();
extern "C" std::int64_t __wrap__ZNSt6chrono3_V212steady_clock3nowEv() {
    return __real__ZNSt6chrono3_V212steady_clock3nowEv() + support::ahead.count();
}

static std::string recorded;

std::string support::takeLog() {
    return std::exchange(recorded, {});
}

extern "C" void orvel_log_v2(std::int32_t level, std::int32_t module, void *first, void *second,
                             const char *function, std::int32_t line, const char *format, ...) {
    const support::Unfailing unfailing;
    char text[16384];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const bool isCorrect = module == 3 && !first && !second && line > 0;
    recorded += std::to_string(level) + " " + function + (isCorrect ? ": " : "?? ") + text + "\n";
}
