// SPDX-License-Identifier: MIT
// The values and mappings of a configuration file, and remarks on what the library accepts but its
// author hardly meant.
#include <strings.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <vector>

#include "base/handles.hpp"
#include "overlay/config_reader.hpp"
#include "tools/log.hpp"
#include "tools/modes.hpp"
#include "tools/root.hpp"

namespace tool {
namespace {

using Remarks = std::vector<std::string>;

// One row for each value, and one for a key without any.
Json valuesOf(const orvel::ConfigTree &tree) {
    Json rows = Json::array();
    for (const auto &[section, keys] : std::map(tree.begin(), tree.end()))
        for (const auto &[key, list] : std::map(keys.begin(), keys.end()))
            for (const std::string &value : list.empty() ? Remarks{""} : list)
                rows.push_back({{"section", section}, {"key", key}, {"value", value}});
    return rows;
}

// A reference that is still in a value names no variable.
void remarkOnValues(const Json &values, Remarks &remarks) {
    for (const Json &row : values) {
        const std::string value = row["value"];
        for (std::size_t end = value.find('>'); end != std::string::npos;
             end = value.find('>', end + 1)) {
            const std::size_t begin = value.rfind('<', end);
            if (begin == std::string::npos || value.find('>', begin) != end) continue;
            remarks.push_back("section " + std::string(row["section"]) + ", key " +
                              std::string(row["key"]) + ": unknown variable " +
                              value.substr(begin, end - begin + 1));
        }
    }
}

// The key that the author meant, if key differs only in case; else null.
const char *meantKey(const std::string &section, const std::string &key) {
    using Names = std::vector<const char *>;
    const Names names = section == "General"   ? Names{"Mode", "Deploy"}
                        : section == "Overlay" ? Names{"StageInitrd", "StageSystem", "PathPre"}
                                               : Names{"LowerDir", "UpperDir", "MergeDir"};
    for (const char *name : names)
        if (key != name && strcasecmp(key.c_str(), name) == 0) return name;
    return nullptr;
}

void remarkOnKeys(const orvel::ConfigTree &tree, Remarks &remarks) {
    for (const auto &[section, keys] : std::map(tree.begin(), tree.end()))
        for (const auto &[key, values] : std::map(keys.begin(), keys.end())) {
            const char *meant = meantKey(section, key);
            if (meant == nullptr) continue;
            std::string remark = "section " + section;
            remark.append(", key ").append(key).append(": ignored; did you mean ");
            remarks.push_back(remark.append(meant).append("?"));
        }
}

void remarkOnDirectory(const std::string &directory, std::set<std::string> &remarks) {
    if (!directory.starts_with('/')) remarks.insert(directory + " does not begin with a slash");
    if (directory.size() > 1 && directory.ends_with('/'))
        remarks.insert(directory + " ends with a slash");
}

void remarkOnEntries(const std::vector<Entry> &entries, Remarks &remarks) {
    std::set<std::string> odd;
    for (const Entry &entry : entries) {
        remarkOnDirectory(entry.prefix, odd);
        remarkOnDirectory(entry.replacement, odd);
        if (entry.prefix.starts_with("/tmproot"))
            remarks.push_back("directory " + entry.prefix +
                              " matches no path: /tmproot is replaced by /sysroot first");
        if (entry.sections.size() < 2) continue;
        std::string text = "directory " + entry.prefix + " is in several sections:";
        for (const std::string &section : entry.sections) text += ' ' + section;
        remarks.push_back(text + "; the last one wins");
    }
    for (const std::string &remark : odd) remarks.push_back("directory " + remark);
}

void remarkOnSections(const orvel::ConfigTree &tree, const std::vector<Entry> &entries,
                      Remarks &remarks) {
    std::string mode;
    MessageKeeper said;  // such as that a section has no MergeDir
    (void)getOverlayMountMappings(tree, mode);
    for (const std::string &message : said.messages) remarks.push_back(message);
    std::set<std::string> idle;
    for (const auto &[name, keys] : tree) idle.insert(name);
    for (const char *required : {"General", "Overlay"}) idle.erase(required);
    for (const Entry &entry : entries)
        for (const std::string &name : entry.sections) idle.erase(name);
    const std::string inMode = " maps nothing in mode '" + mode + "'";
    for (const std::string &name : idle)
        remarks.push_back(std::string("section ").append(name).append(inMode));
}

// Whether text has the reference outside of comments, which begin at any "#".
bool refersTo(const std::string &text, const std::string &reference) {
    for (std::size_t at = text.find(reference); at != std::string::npos;
         at = text.find(reference, at + 1))
        if (text.find('#', text.rfind('\n', at) + 1) > at) return true;
    return false;
}

// The tree does not show references to a variable without a value.
void remarkOnVariables(const std::string &text, const orvel::ConfigTree &tree, SystemStage stage,
                       Remarks &remarks) {
    struct Variable {
        const char *reference, *section, *key;
    };
    const std::array<Variable, 3> variables = {
        {{"<stage>", "Overlay", stage == StageInitrd ? "StageInitrd" : "StageSystem"},
         {"<Deploy>", "General", "Deploy"},
         {"<PathPre>", "Overlay", "PathPre"}}};
    for (const auto &[reference, section, key] : variables) {
        const orvel::ConfigSection &keys = tree.at(section);
        const auto entry = keys.find(key);
        const bool hasValue = entry != keys.end() && !entry->second.empty();
        if (hasValue || !refersTo(text, reference)) continue;
        std::string remark = reference;
        remark.append(" is empty: section ").append(section);
        remarks.push_back(remark.append(" has no ").append(key));
    }
}

// The library does not say why it cannot read a file. This remark does.
std::string readFile(const std::string &file, Remarks &remarks) {
    const orvel::File stream(std::fopen(file.c_str(), "re"));
    std::string text;
    std::array<char, BUFSIZ> block = {};
    while (stream) {
        const std::size_t length = std::fread(block.data(), 1, block.size(), stream.get());
        if (length == 0) break;
        text.append(block.data(), length);
    }
    if (!stream || std::ferror(stream.get()) != 0)
        remarks.push_back(std::string("cannot be read: ") + std::strerror(errno));
    return text;
}

// A pipe can be read only once, so the library reads a copy of what came from it.
orvel::Fd copyOf(const std::string &text) {
    orvel::Fd copy(memfd_create("configuration", MFD_CLOEXEC));
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t length = write(copy.get(), text.data() + done, text.size() - done);
        if (length < 0) throw std::runtime_error(std::string("memfd: ") + std::strerror(errno));
        done += static_cast<std::size_t>(length);
    }
    return copy;
}

// The number of the line at fault, from the library's reader; 0 if no such process.
std::size_t faultyLine(std::string &text) {
    if (text.empty()) return 0;
    const orvel::File stream(fmemopen(text.data(), text.size(), "r"));
    orvel::RawTable table;
    const MessageKeeper said;
    return stream ? orvel::readConfig(stream.get(), table) : 0;
}

// Bytes that an editor does not show.
void remarkOnBytes(const std::string &text, Remarks &remarks) {
    if (text.starts_with("\xEF\xBB\xBF")) remarks.push_back("line 1: byte-order mark");
    const std::size_t first = (text + '\n').find("\r\n");
    if (first == std::string::npos) return;
    const auto line = std::count(text.data(), text.data() + first, '\n') + 1;
    remarks.push_back("line " + std::to_string(line) + ": carriage return at end of line");
}

}  // namespace

Answer checkConfig(const std::string &file, SystemStage stage) {
    const bool isStandardInput = file == "-";
    const std::string name = isStandardInput ? "standard input" : "'" + file + "'";
    Remarks remarks;
    std::string text = readFile(isStandardInput ? "/dev/stdin" : file, remarks);
    struct stat status = {};
    const bool isCopied =
        isStandardInput || (stat(file.c_str(), &status) == 0 && S_ISFIFO(status.st_mode));
    if (isCopied) requireProc("/");  // by which the copy has a name
    const orvel::Fd copy = isCopied ? copyOf(text) : orvel::Fd();
    orvel::ConfigTree tree;
    MessageKeeper said;
    const bool isAccepted =
        parseConfig(isCopied ? "/proc/self/fd/" + std::to_string(copy.get()) : file, stage, tree);
    if (!isAccepted) tree.clear();
    const std::vector<Entry> entries = overlayEntries(tree);
    const Json values = valuesOf(tree);
    if (isAccepted) {
        remarkOnSections(tree, entries, remarks);
        remarkOnKeys(tree, remarks);
        remarkOnValues(values, remarks);
        remarkOnVariables(text, tree, stage, remarks);
        remarkOnEntries(entries, remarks);
    }
    remarkOnBytes(text, remarks);

    Answer answer = {.json = {{"accepted", isAccepted}}, .tables = {values, toRows(entries)}};
    if (!isAccepted) {
        const std::size_t line = faultyLine(text);
        std::string complaint = line > 0 ? "line " + std::to_string(line) + ": " : "";
        complaint += said.messages.at(0);
        answer.json["complaint"] = complaint;
        answer.remarks.push_back(name + ": not accepted: " + complaint);
    }
    answer.json["values"] = values;
    answer.json["mappings"] = toRows(entries);
    answer.json["remarks"] = Json::array();
    for (const std::string &remark : remarks) {
        answer.json["remarks"].push_back({{"remark", remark}});
        answer.remarks.push_back(name + ": " + remark);
    }
    return answer;
}

}  // namespace tool
