// SPDX-License-Identifier: MIT
// Warnings and errors of the two entry points are not written: the tool reports a refusal by errno,
// with the path.
#include "tools/log.hpp"

#include <cstdarg>
#include <cstdio>
#include <string_view>
#include <utility>

#include "base/log.hpp"
#include "tools/output.hpp"

namespace {

std::int32_t lowestLevel = orvel::log::Error;
tool::MessageKeeper *keeper = nullptr;

// Measures first, because a line may hold a whole path.
[[gnu::format(printf, 1, 0)]] std::string formatted(const char *format, std::va_list arguments) {
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length < 0) return format;
    std::vector<char> text(static_cast<std::size_t>(length) + 1);
    (void)std::vsnprintf(text.data(), text.size(), format, arguments);  // has just been measured
    return {text.data(), static_cast<std::size_t>(length)};
}

}  // namespace

void tool::setLogLevel(std::int32_t level) {
    lowestLevel = level;
}

void tool::complain(const std::string &text) {
    if (lowestLevel > orvel::log::Error) return;
    const std::string line = "orvel-path: " + shown(text, stderr) + '\n';
    (void)std::fwrite(line.data(), 1, line.size(), stderr);
}

tool::MessageKeeper::MessageKeeper() : outer_(std::exchange(keeper, this)) {
}

tool::MessageKeeper::~MessageKeeper() {
    keeper = outer_;
}

extern "C" void orvel_log_v2(std::int32_t level, std::int32_t, void *, void *, const char *function,
                             std::int32_t, const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::string text = formatted(format, arguments);
    va_end(arguments);
    const std::string_view caller = function;
    const bool isEntryPoint = caller == "pathNormalize" || caller == "batchPathNormalize";
    if (isEntryPoint && level >= orvel::log::Warning) return;
    if (keeper != nullptr && level >= orvel::log::Warning)
        keeper->messages.push_back(std::move(text));
    else if (keeper == nullptr && level >= lowestLevel)
        tool::complain(std::string(caller) + ": " + text);
}
