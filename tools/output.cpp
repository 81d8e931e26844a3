// SPDX-License-Identifier: MIT
#include "tools/output.hpp"

#include <libsmartcols/libsmartcols.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <new>
#include <stdexcept>

#include "base/handles.hpp"
#include "tools/log.hpp"

namespace tool {
namespace {

using Table = std::unique_ptr<libscols_table, orvel::Releaser<scols_unref_table>>;

constexpr std::size_t kProseColumns = 36;  // of a terminal, for a cell with a sentence

std::string printable(std::string_view text) {
    std::string result;
    std::mbstate_t state = {};
    while (!text.empty()) {
        wchar_t character = 0;
        const std::size_t length = std::mbrtowc(&character, text.data(), text.size(), &state);
        const bool isCharacter = length > 0 && length <= text.size();  // else NUL or an error
        // What has no width may turn the direction of writing, or hide.
        if (isCharacter && wcwidth(character) > 0 && character != L'\\') {
            result += text.substr(0, length);
            text.remove_prefix(length);
            continue;
        }
        std::array<char, sizeof "\\x00"> escape = {};
        (void)std::snprintf(escape.data(), escape.size(), "\\x%02x",
                            static_cast<unsigned>(static_cast<unsigned char>(text.front())));
        result += escape.data();
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
    return isTerminal(stdout) && (refusal == nullptr || *refusal == '\0') && terminal != nullptr &&
           std::strcmp(terminal, "dumb") != 0;
}

const char *colourOf(const std::string &text) {
    if (text == "error" || text == "no") return "red";
    if (text == "warning" || text == "missing") return "brown";
    return text == "ok" || text == "yes" ? "green" : nullptr;
}

bool isProse(const std::string &member) {
    return member == "found" || member == "advice" || member == "by";
}

// Breaks text into lines between words.
std::string folded(std::string text) {
    std::size_t begin = 0;
    while (text.size() - begin > kProseColumns) {
        std::size_t blank = text.rfind(' ', begin + kProseColumns);
        if (blank == std::string::npos || blank <= begin) blank = text.find(' ', begin + 1);
        if (blank == std::string::npos) break;
        text[blank] = '\n';
        begin = blank + 1;
    }
    return text;
}

void require(int result) {
    if (result != 0) throw std::bad_alloc();
}

void addColumn(libscols_table *table, const std::string &member) {
    std::string heading = member;
    std::transform(heading.begin(), heading.end(), heading.begin(),
                   [](char c) { return c == '_' ? ' ' : static_cast<char>(std::toupper(c)); });
    const bool mayFold = isProse(member) && isTerminal(stdout);
    libscols_column *column =
        scols_table_new_column(table, heading.c_str(), 0, mayFold ? SCOLS_FL_WRAP : 0);
    if (column == nullptr) throw std::bad_alloc();
    if (mayFold)
        require(scols_column_set_wrapfunc(column, scols_wrapnl_chunksize, scols_wrapnl_nextchunk,
                                          nullptr));
}

void addLine(libscols_table *table, const Json &row, const Format &format) {
    libscols_line *line = scols_table_new_line(table, nullptr);
    if (line == nullptr) throw std::bad_alloc();
    std::size_t number = 0;
    for (const auto &[member, value] : row.items()) {
        std::string text = value.get<std::string>();
        if (!format.raw) text = printable(text);
        if (!format.raw && isTerminal(stdout) && isProse(member)) text = folded(std::move(text));
        require(scols_line_set_data(line, number, text.c_str()));
        if (member == "severity" || member == "same_file")
            require(scols_cell_set_color(scols_line_get_cell(line, number), colourOf(text)));
        ++number;
    }
}

// Makes cells printable, because the table would print characters without a width. The table
// escapes raw cells itself.
void printTable(const Json &rows, const Format &format) {
    const Table table(scols_new_table());
    if (!table) throw std::bad_alloc();
    require(scols_table_enable_noencoding(table.get(), format.raw ? 0 : 1));
    require(scols_table_enable_raw(table.get(), format.raw ? 1 : 0));
    require(scols_table_enable_noheadings(table.get(), format.noHeadings ? 1 : 0));
    require(scols_table_enable_colors(table.get(), hasColours() ? 1 : 0));
    for (const auto &[member, value] : rows.front().items()) addColumn(table.get(), member);
    for (const Json &row : rows) addLine(table.get(), row, format);
    require(scols_print_table(table.get()));
}

// The JSON library's own judgement, so that a member and its text always agree.
bool isUtf8(const Json &text) {
    try {
        (void)text.dump();
        return true;
    } catch (const Json::type_error &) {
        return false;
    }
}

std::string hexadecimal(const std::string &bytes) {
    constexpr const char *kDigits = "0123456789abcdef";
    std::string digits;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        digits += kDigits[value >> 4U];
        digits += kDigits[value & 0xFU];
    }
    return digits;
}

Json withHexadecimal(const Json &value) {
    if (!value.is_structured()) return value;
    Json result = value.is_array() ? Json::array() : Json::object();
    if (value.is_array())
        for (const Json &element : value) result.push_back(withHexadecimal(element));
    else
        for (const auto &[name, member] : value.items()) {
            result[name] = withHexadecimal(member);
            if (member.is_string() && !isUtf8(member))
                result[name + "_hex"] = hexadecimal(member.get<std::string>());
        }
    return result;
}

// In ASCII, so that a terminal gets no control character.
std::string dump(const Json &value, int indent) {
    return withHexadecimal(value).dump(indent, ' ', true, Json::error_handler_t::replace);
}

void printText(const Answer &answer, const Format &format) {
    const char *gap = "";
    for (const Json &rows : answer.tables) {
        if (rows.empty()) continue;
        (void)std::fputs(gap, stdout);
        printTable(rows, format);
        gap = "\n";
    }
    if (answer.tables.empty()) {
        const std::string line =
            format.separator == '\0' ? answer.line : shown(answer.line, stdout);
        (void)std::fwrite(line.data(), 1, line.size(), stdout);
        (void)std::fputc(format.separator, stdout);
    }
    if (!answer.remarks.empty()) finishOutput();  // they are about what has been written
    for (const std::string &remark : answer.remarks) complain(remark);
}

}  // namespace

void print(const Answer &answer, const Format &format) {
    if (format.json)
        (void)std::printf("%s\n", dump(answer.json, 2).c_str());
    else
        printText(answer, format);
}

void AnswerStream::add(const Answer &answer) {
    if (format_.json)
        (void)std::printf("%s  %s", isEmpty_ ? "[\n" : ",\n", dump(answer.json, -1).c_str());
    else {
        if (!isEmpty_ && !answer.tables.empty()) (void)std::fputc('\n', stdout);
        printText(answer, format_);
    }
    isEmpty_ = false;
}

void AnswerStream::finish() const {
    if (format_.json) (void)std::fputs(isEmpty_ ? "[]\n" : "\n]\n", stdout);
}

std::string shown(const std::string &text, std::FILE *stream) {
    return isTerminal(stream) ? printable(text) : text;
}

// The stream's error flag has the failures of all writes.
void finishOutput() {
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        throw std::runtime_error(std::string("standard output: ") + std::strerror(errno));
}

}  // namespace tool
