// SPDX-License-Identifier: MIT
// The line format: "#" begins a comment wherever it stands, "[name]" opens a section ("." in the
// name stands for "/"), and "key = value" belongs to the section above it.
#include "overlay/config_reader.hpp"

#include <algorithm>
#include <cerrno>
#include <new>
#include <optional>
#include <string_view>

#include "base/handles.hpp"
#include "include/orvel_core.hpp"

namespace orvel {
namespace {

// The lines of a stream, by getline(3): std::getline takes a failed allocation for the end.
class LineReader {
public:
    explicit LineReader(std::FILE *file) : file_(file) {}

    // The next line without its line feed, valid until the next call; nothing at the end.
    std::optional<std::string_view> next() {
        char *line = buffer_.release();
        errno = 0;
        const ssize_t length = getline(&line, &capacity_, file_);
        const int error = errno;
        buffer_.reset(line);
        if (length < 0) {
            // A failed allocation sets errno but not the stream's error flag; a failed read sets
            // the flag, and is an end like any other.
            if (error == ENOMEM && std::ferror(file_) == 0) throw std::bad_alloc();
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

// A header alone stores nothing: a section comes to be with its first key.
ConfigFault readKeyValue(const std::string &line, const std::string &section, RawTable &table) {
    if (section.empty()) return ConfigFault::KeyOutsideSection;
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos) return ConfigFault::NoEqualsSign;
    std::string key = trim(line.substr(0, equals));
    if (key.empty()) return ConfigFault::EmptyKey;
    table[section].insert_or_assign(std::move(key), trim(line.substr(equals + 1)));
    return ConfigFault::None;
}

}  // namespace

ConfigFault readConfig(std::FILE *file, RawTable &table) {
    LineReader lines(file);
    std::string section;
    while (const auto text = lines.next()) {
        const std::string line = trim(std::string(text->substr(0, text->find('#'))));
        if (line.empty()) continue;
        if (line.starts_with('[') && line.ends_with(']')) {
            section = line.substr(1, line.size() - 2);
            if (section.empty()) return ConfigFault::EmptySectionName;
            std::replace(section.begin(), section.end(), '.', '/');
        } else if (const ConfigFault fault = readKeyValue(line, section, table);
                   fault != ConfigFault::None) {
            return fault;
        }
    }
    return ConfigFault::None;
}

}  // namespace orvel
