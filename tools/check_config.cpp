// SPDX-License-Identifier: MIT
// What the library makes of a configuration file, and what it does not mind but a human would.
#include "tools/check_config.hpp"

#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <vector>

#include "base/handles.hpp"
#include "tools/host_log.hpp"
#include "tools/json.hpp"
#include "tools/origin.hpp"
#include "tools/output.hpp"

namespace tool {
namespace {

// One row for each value, and one for a key without any.
Rows valuesOf(const orvel::ConfigTree &tree) {
    Rows rows = {{"section", "key", "value"}, {}};
    for (const auto &[section, keys] : std::map(tree.begin(), tree.end()))
        for (const auto &[key, list] : std::map(keys.begin(), keys.end())) {
            if (list.empty()) rows.cells.push_back({section, key, ""});
            for (const std::string &value : list) rows.cells.push_back({section, key, value});
        }
    return rows;
}

// What looks like a reference and is still there names no variable.
void remarkOnValues(const Rows &values, Rows &remarks) {
    for (const auto &row : values.cells) {
        const std::string &value = row[2];
        for (std::size_t end = value.find('>'); end != std::string::npos;
             end = value.find('>', end + 1)) {
            const std::size_t begin = value.rfind('<', end);
            if (begin == std::string::npos || value.find('>', begin) != end) continue;
            remarks.cells.push_back({"section " + row[0] + ", key " + row[1] +
                                     ": nothing replaces " + value.substr(begin, end - begin + 1)});
        }
    }
}

// The section's key that this one would be if case did not matter, as it does; null: none.
const char *meantKey(const std::string &section, const std::string &key) {
    using Names = std::vector<const char *>;
    const Names names = section == "General"   ? Names{"Mode", "Deploy"}
                        : section == "Overlay" ? Names{"StageInitrd", "StageSystem", "PathPre"}
                                               : Names{"LowerDir", "UpperDir", "MergeDir"};
    for (const char *name : names)
        if (key != name && strcasecmp(key.c_str(), name) == 0) return name;
    return nullptr;
}

void remarkOnKeys(const orvel::ConfigTree &tree, Rows &remarks) {
    for (const auto &[section, keys] : std::map(tree.begin(), tree.end()))
        for (const auto &[key, values] : std::map(keys.begin(), keys.end())) {
            const char *meant = meantKey(section, key);
            if (meant == nullptr) continue;
            std::string remark = "section " + section;
            remark.append(", key ").append(key).append(": not read; it is to be ");
            remarks.cells.push_back({remark.append(meant)});
        }
}

bool isOdd(const std::string &directory) {
    return !directory.starts_with('/') || directory.ends_with('/');
}

void remarkOnEntries(const std::vector<Entry> &entries, Rows &remarks) {
    std::set<std::string> odd;
    for (const Entry &entry : entries) {
        if (isOdd(entry.prefix)) odd.insert(entry.prefix);
        if (isOdd(entry.replacement) && entry.replacement != "/") odd.insert(entry.replacement);
        if (entry.prefix.starts_with("/tmproot"))
            remarks.cells.push_back({"directory " + entry.prefix +
                                     " matches no path: /tmproot is read as /sysroot first"});
        if (entry.sections.size() < 2) continue;
        std::string text = "directory " + entry.prefix + " is in several sections:";
        for (const std::string &section : entry.sections) text += ' ' + section;
        remarks.cells.push_back({text + "; the last one counts"});
    }
    for (const std::string &directory : odd)
        remarks.cells.push_back(
            {"directory " + directory + " should begin, but not end, with a slash"});
}

void remarkOnSections(const orvel::ConfigTree &tree, const std::vector<Entry> &entries,
                      Rows &remarks) {
    std::string mode;
    MessageKeeper said;  // such as that a section has no MergeDir
    (void)getOverlayMountMappings(tree, mode);
    for (const std::string &message : said.messages) remarks.cells.push_back({message});
    std::set<std::string> idle;
    for (const auto &[name, keys] : tree) idle.insert(name);
    for (const char *required : {"General", "Overlay"}) idle.erase(required);
    for (const Entry &entry : entries)
        for (const std::string &name : entry.sections) idle.erase(name);
    const std::string inMode = " maps nothing in mode '" + mode + "'";
    for (const std::string &name : idle)
        remarks.cells.push_back({std::string("section ").append(name).append(inMode)});
}

// Not in a comment, which "#" begins wherever it stands.
bool refersTo(const std::string &text, const std::string &reference) {
    for (std::size_t at = text.find(reference); at != std::string::npos;
         at = text.find(reference, at + 1))
        if (text.find('#', text.rfind('\n', at) + 1) > at) return true;
    return false;
}

// A variable without a value is replaced by nothing, which the tree does not show.
void remarkOnVariables(const std::string &text, const orvel::ConfigTree &tree, SystemStage stage,
                       Rows &remarks) {
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
        remark.append(" is replaced by nothing: section ").append(section);
        remarks.cells.push_back({remark.append(" has no ").append(key)});
    }
}

// The library says only that it could not read a file; here is why.
std::string readFile(const std::string &file, Rows &remarks) {
    struct stat status = {};
    if (stat(file.c_str(), &status) != 0) status.st_mode = S_IFREG;  // fopen will say why
    if (S_ISDIR(status.st_mode)) remarks.cells.push_back({"is a directory"});
    // A pipe can be read once, and that is for the library to do.
    if (!S_ISREG(status.st_mode) && !S_ISSOCK(status.st_mode)) return {};
    const orvel::File stream(std::fopen(file.c_str(), "re"));
    if (!stream) {
        remarks.cells.push_back({std::string("cannot be read: ") + std::strerror(errno)});
        return {};
    }
    std::string text;
    std::array<char, BUFSIZ> block = {};
    while (const std::size_t length = std::fread(block.data(), 1, block.size(), stream.get()))
        text.append(block.data(), length);
    return text;
}

// Bytes that an editor does not show.
void remarkOnBytes(const std::string &text, Rows &remarks) {
    if (text.starts_with("\xEF\xBB\xBF"))
        remarks.cells.push_back(
            {"line 1 begins with a byte-order mark, which belongs to its text"});
    const std::size_t first = (text + '\n').find("\r\n");
    if (first == std::string::npos) return;
    const auto line = std::count(text.data(), text.data() + first, '\n') + 1;
    remarks.cells.push_back(
        {"line " + std::to_string(line) +
         " is the first with a carriage return at its end, which belongs to its text"});
}

struct Findings {
    std::string complaint;  // the library's, where it does not accept the file
    Rows values, mappings, remarks;
};

Findings read(const std::string &file, SystemStage stage) {
    Findings found = {{}, valuesOf({}), toRows({}), {{"remark"}, {}}};
    const std::string text = readFile(file, found.remarks);
    orvel::ConfigTree tree;
    MessageKeeper said;
    if (parseConfig(file, stage, tree)) {
        const std::vector<Entry> entries = overlayEntries(tree);
        found.values = valuesOf(tree);
        found.mappings = toRows(entries);
        remarkOnSections(tree, entries, found.remarks);
        remarkOnKeys(tree, found.remarks);
        remarkOnValues(found.values, found.remarks);
        remarkOnVariables(text, tree, stage, found.remarks);
        remarkOnEntries(entries, found.remarks);
    } else {
        found.complaint = said.messages.at(0);
    }
    remarkOnBytes(text, found.remarks);
    return found;
}

void printJson(const Findings &found) {
    Json object = {{"accepted", found.complaint.empty()}};
    if (!found.complaint.empty()) put(object, "complaint", found.complaint);
    object["values"] = toJson(found.values);
    object["mappings"] = toJson(found.mappings);
    object["remarks"] = toJson(found.remarks);
    print(object);
}

void printText(const std::string &file, const Findings &found) {
    if (found.complaint.empty()) {
        print(found.values, '\n');
        writeItem("", '\n');
        print(found.mappings, '\n');
        finishOutput();  // what is said of it comes after it
    } else {
        complain("'" + file + "': not accepted: " + found.complaint);
    }
    for (const auto &row : found.remarks.cells) complain("'" + file + "': " + row.front());
}

}  // namespace

bool checkConfig(const std::string &file, SystemStage stage, bool inJson) {
    const Findings found = read(file, stage);
    if (inJson)
        printJson(found);
    else
        printText(file, found);
    return found.complaint.empty();
}

}  // namespace tool
