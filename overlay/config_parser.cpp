// SPDX-License-Identifier: MIT
// From the configuration file to the tree: read the lines, check the two required sections, work
// out the three variables ("stage", "Deploy", "PathPre"), then expand and split every value.
#include "base/handles.hpp"
#include "base/log.hpp"
#include "include/orvel_core.hpp"
#include "overlay/config_reader.hpp"

using orvel::ConfigFault;
using orvel::RawSection;
using orvel::RawTable;

namespace {

using Variables = std::unordered_map<std::string, std::string>;

// The file is closed before anything is expanded. Close-on-exec: a host may fork at any time.
ConfigFault readFile(const std::string &path, RawTable &table) {
    const orvel::File file(std::fopen(path.c_str(), "re"));
    return file ? orvel::readConfig(file.get(), table) : ConfigFault::CannotOpen;
}

// Empty for a key that is not there, as for one without a value.
std::string valueOf(const RawSection &section, const char *key) {
    const auto entry = section.find(key);
    return entry == section.end() ? std::string() : entry->second;
}

// PathPre may refer to the other two variables, which are taken as written.
ConfigFault collectVariables(const RawTable &table, SystemStage stage, Variables &variables) {
    const auto general = table.find("General");
    const auto overlay = table.find("Overlay");
    if (general == table.end() || overlay == table.end()) return ConfigFault::MissingSection;

    const char *stageKey = stage == StageInitrd ? "StageInitrd" : "StageSystem";
    variables = {{"stage", valueOf(overlay->second, stageKey)},
                 {"Deploy", valueOf(general->second, "Deploy")}};
    const std::string text = valueOf(overlay->second, "PathPre");
    std::string pathPre = replaceVariables(text, variables);
    if (pathPre.empty() && !text.empty()) return ConfigFault::EmptyPathPre;
    variables.emplace("PathPre", std::move(pathPre));
    return ConfigFault::None;
}

// A value that was written must leave something, or the file means what nobody meant.
ConfigFault expandSection(const RawSection &raw, const Variables &variables,
                          orvel::ConfigSection &section) {
    for (const auto &[key, value] : raw) {
        const std::string expanded = replaceVariables(value, variables);
        if (expanded.empty() && !value.empty()) return ConfigFault::EmptyValue;
        std::vector<std::string> values = splitValues(expanded);
        if (values.empty() && !expanded.empty()) return ConfigFault::EmptyList;
        section.emplace(key, std::move(values));
    }
    return ConfigFault::None;
}

// Sections go into the tree one by one, in byte order, so that after a faulty value the tree holds
// the same sections each time.
ConfigFault load(const std::string &path, SystemStage stage, orvel::ConfigTree &tree) {
    RawTable table;
    if (const auto fault = readFile(path, table); fault != ConfigFault::None) return fault;
    Variables variables;
    if (const auto fault = collectVariables(table, stage, variables); fault != ConfigFault::None)
        return fault;
    // "General" and "Overlay" too: their values are read from the tree later.
    for (const auto &[name, raw] : table) {
        orvel::ConfigSection section;
        if (const auto fault = expandSection(raw, variables, section); fault != ConfigFault::None)
            return fault;
        tree.insert_or_assign(name, std::move(section));
    }
    return ConfigFault::None;
}

}  // namespace

// Every message stands here, since each line must carry this function's name.
bool parseConfig(const std::string &path, SystemStage stage, orvel::ConfigTree &tree) {
    switch (load(path, stage, tree)) {
        case ConfigFault::None:
            return true;
        case ConfigFault::CannotOpen:
            LOG(Warning, "open file %s failed.", path.c_str());
            break;
        case ConfigFault::EmptySectionName:
            LOG(Error, "An empty section name was found");
            break;
        case ConfigFault::KeyOutsideSection:
            LOG(Error, "It was found that there was no section before the key-value pair");
            break;
        case ConfigFault::NoEqualsSign:
            LOG(Error, "Invalid key-value pairs were found");
            break;
        case ConfigFault::EmptyKey:
            LOG(Error, "An empty key name was found");
            break;
        case ConfigFault::MissingSection:
            LOG(Error, "Lack of necessary sections (General or Overlay)");
            break;
        case ConfigFault::EmptyPathPre:
            LOG(Error, "The result of calculating the PathPre variable is empty");
            break;
        case ConfigFault::EmptyValue:
            LOG(Error, "The value is empty after replacing the variable");
            break;
        case ConfigFault::EmptyList:
            LOG(Error, "The result after splitting the scores is empty");
            break;
    }
    return false;
}
