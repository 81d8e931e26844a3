#include <cstdarg>
#include <cstdio>
#include <utility>

#include "base/log.hpp"
#include "tests/support/support.hpp"

std::function<void()> support::onLogLine;
static std::string recorded;

std::string support::takeLog() {
    return std::exchange(recorded, {});
}

extern "C" void orvel_log_v2(std::int32_t level, std::int32_t module, void *first, void *second,
                             const char *function, std::int32_t line, const char *format, ...) {
    char text[16384];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const bool isCorrect = module == 3 && !first && !second && line > 0;
    recorded += std::to_string(level) + " " + function + (isCorrect ? ": " : "?? ") + text + "\n";
    if (support::onLogLine) support::onLogLine();
}
