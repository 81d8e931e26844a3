// SPDX-License-Identifier: MIT
// The line format: "#" begins a comment anywhere in a line, "[name]" opens a section ("." in the
// name means "/"), and "key = value" belongs to the section above it.
#include "overlay/config_reader.hpp"

#include <algorithm>
#include <cerrno>
#include <new>
#include <optional>
#include <string_view>

#include "base/handles.hpp"
#include "base/log.hpp"
#include "include/orvel_core.hpp"

namespace orvel {
namespace {

// The lines of a stream, by getline(3), because std::getline takes a failed allocation for the end.
class LineReader {
public:
    explicit LineReader(std::FILE *file) : file_(file) {}

    // The next line without its newline, valid until the next call; nothing at the end.
    std::optional<std::string_view> next() {
        char *line = buffer_.release();
        errno = 0;
        const ssize_t length = getline(&line, &capacity_, file_);
        const int error = errno;
        buffer_.reset(line);
        // A failed read sets the stream's error flag and may leave a part of a line.
        if (std::ferror(file_) != 0) return std::nullopt;
        if (length < 0) {
            if (error == ENOMEM) throw std::bad_alloc();
            return std::nullopt;
        }
        std::string_view text(line, static_cast<std::size_t>(length));
        if (text.ends_with('\n')) text.remove_suffix(1);
        return text;
    }

private:
    std::FILE *file_;
    MallocString buffer_;
    std::size_t capacity_ = 0;
};

// A section without a key does not get into the table.
bool readKeyValue(const std::string &line, const std::string &section, RawTable &table) {
    if (section.empty()) {
        LOG_AS(kConfigCaller, Error,
               "It was found that there was no section before the key-value pair");
        return false;
    }
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos) {
        LOG_AS(kConfigCaller, Error, "Invalid key-value pairs were found");
        return false;
    }
    std::string key = trim(line.substr(0, equals));
    if (key.empty()) {
        LOG_AS(kConfigCaller, Error, "An empty key name was found");
        return false;
    }
    table[section].insert_or_assign(std::move(key), trim(line.substr(equals + 1)));
    return true;
}

}  // namespace

std::size_t readConfig(std::FILE *file, RawTable &table) {
    LineReader lines(file);
    std::string section;
    std::size_t number = 0;
    while (const auto text = lines.next()) {
        ++number;
        const std::string line = trim(std::string(text->substr(0, text->find('#'))));
        if (line.empty()) continue;
        if (line.starts_with('[') && line.ends_with(']')) {
            section = line.substr(1, line.size() - 2);
            if (section.empty()) {
                LOG_AS(kConfigCaller, Error, "An empty section name was found");
                return number;
            }
            std::replace(section.begin(), section.end(), '.', '/');
        } else if (!readKeyValue(line, section, table)) {
            return number;
        }
    }
    return 0;
}

}  // namespace orvel
