// SPDX-License-Identifier: MIT
// What can be printed, and how wide it is, is the locale's business: without UTF-8 in it, every
// byte above ASCII is escaped.
#include "tools/output.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <stdexcept>
#include <string_view>

namespace tool {
namespace {

constexpr std::size_t kGap = 2;

struct Printable {
    std::string text;
    std::size_t width = 0;  // in columns of the terminal
};

Printable printable(std::string_view text) {
    Printable result;
    std::mbstate_t state = {};
    while (!text.empty()) {
        wchar_t character = 0;
        const std::size_t length = std::mbrtowc(&character, text.data(), text.size(), &state);
        const bool isCharacter = length > 0 && length <= text.size();  // else NUL or an error
        // What has no width may turn the direction of writing, or hide.
        if (const int width = isCharacter ? wcwidth(character) : 0;
            width > 0 && character != L'\\') {
            result.text += text.substr(0, length);
            result.width += static_cast<std::size_t>(width);
            text.remove_prefix(length);
            continue;
        }
        std::array<char, sizeof "\\x00"> escape = {};
        (void)std::snprintf(escape.data(), escape.size(), "\\x%02x",
                            static_cast<unsigned>(static_cast<unsigned char>(text.front())));
        result.text += escape.data();
        result.width += escape.size() - 1;
        text.remove_prefix(1);
        state = {};
    }
    return result;
}

bool isTerminal(std::FILE *stream) {
    return isatty(fileno(stream)) == 1;
}

bool hasColours() {
    const char *refusal = std::getenv("NO_COLOR");
    const char *terminal = std::getenv("TERM");
    return (refusal == nullptr || *refusal == '\0') && terminal != nullptr &&
           std::strcmp(terminal, "dumb") != 0;
}

void printAligned(const Rows &rows) {
    std::vector<std::size_t> widths(rows.names.size());
    std::vector<std::vector<Printable>> lines;
    const auto addLine = [&](const std::vector<std::string> &cells) {
        std::vector<Printable> &line = lines.emplace_back();
        for (std::size_t i = 0; i < cells.size(); ++i) {
            line.push_back(printable(cells[i]));
            widths[i] = std::max(widths[i], line.back().width);
        }
    };
    addLine(rows.names);
    for (Printable &name : lines.front())
        std::transform(name.text.begin(), name.text.end(), name.text.begin(), ::toupper);
    for (const auto &cells : rows.cells) addLine(cells);
    for (const auto &line : lines) {
        std::string text;
        for (std::size_t i = 0; i < line.size(); ++i)
            text += line[i].text + std::string(widths[i] - line[i].width + kGap, ' ');
        text.erase(text.find_last_not_of(' ') + 1);
        const bool isBold = &line == &lines.front() && hasColours();
        (void)std::printf(isBold ? "\033[1m%s\033[0m\n" : "%s\n", text.c_str());
    }
}

void writeRaw(const std::string &text, char end) {
    // Failures are seen once, by the stream's error flag, when the program ends.
    (void)std::fwrite(text.data(), 1, text.size(), stdout);
    (void)std::fputc(end, stdout);
}

}  // namespace

std::string shown(const std::string &text, std::FILE *stream) {
    return isTerminal(stream) ? printable(text).text : text;
}

void writeItem(const std::string &text, char separator) {
    writeRaw(separator == '\0' ? text : shown(text, stdout), separator);
}

void print(const Rows &rows, char separator) {
    if (separator != '\0' && isTerminal(stdout)) return printAligned(rows);
    const char between = separator == '\0' ? '\0' : '\t';
    for (const auto &cells : rows.cells)
        for (std::size_t i = 0; i < cells.size(); ++i)
            writeRaw(cells[i], i + 1 < cells.size() ? between : separator);
}

void finishOutput() {
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        throw std::runtime_error(std::string("standard output: ") + std::strerror(errno));
}

}  // namespace tool
