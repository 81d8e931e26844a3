// SPDX-License-Identifier: MIT
// From the configuration file to the tree: read the lines, check the two required sections, work
// out the three variables ("stage", "Deploy", "PathPre"), then expand and split every value.
#include "base/handles.hpp"
#include "base/log.hpp"
#include "include/orvel_core.hpp"
#include "overlay/config_reader.hpp"

using orvel::RawSection;
using orvel::RawTable;

namespace {

using Variables = std::unordered_map<std::string, std::string>;

// Helpers log in the name of parseConfig().
constexpr const char *kCaller = orvel::kConfigCaller;

// "e" is close-on-exec: another thread may fork at any time.
bool readFile(const std::string &path, RawTable &table) {
    const orvel::File file(std::fopen(path.c_str(), "re"));
    if (file) return orvel::readConfig(file.get(), table) == 0;
    LOG_AS(kCaller, Warning, "open file %s failed.", path.c_str());
    return false;
}

// Empty for a missing key and for one without a value.
std::string valueOf(const RawSection &section, const char *key) {
    const auto entry = section.find(key);
    return entry == section.end() ? std::string() : entry->second;
}

// PathPre may refer to the other two variables, which are not expanded themselves.
bool collectVariables(const RawTable &table, SystemStage stage, Variables &variables) {
    const auto general = table.find("General");
    const auto overlay = table.find("Overlay");
    if (general == table.end() || overlay == table.end()) {
        LOG_AS(kCaller, Error, "Lack of necessary sections (General or Overlay)");
        return false;
    }
    const char *stageKey = stage == StageInitrd ? "StageInitrd" : "StageSystem";
    variables = {{"stage", valueOf(overlay->second, stageKey)},
                 {"Deploy", valueOf(general->second, "Deploy")}};
    const std::string text = valueOf(overlay->second, "PathPre");
    std::string pathPre = replaceVariables(text, variables);
    if (pathPre.empty() && !text.empty()) {
        LOG_AS(kCaller, Error, "The result of calculating the PathPre variable is empty");
        return false;
    }
    variables.emplace("PathPre", std::move(pathPre));
    return true;
}

// A value that is not empty but expands to nothing is an error.
bool expandSection(const RawSection &raw, const Variables &variables,
                   orvel::ConfigSection &section) {
    for (const auto &[key, value] : raw) {
        const std::string expanded = replaceVariables(value, variables);
        if (expanded.empty() && !value.empty()) {
            LOG_AS(kCaller, Error, "The value is empty after replacing the variable");
            return false;
        }
        std::vector<std::string> values = splitValues(expanded);
        if (values.empty() && !expanded.empty()) {
            LOG_AS(kCaller, Error, "The result after splitting the scores is empty");
            return false;
        }
        section.emplace(key, std::move(values));
    }
    return true;
}

}  // namespace

bool parseConfig(const std::string &path, SystemStage stage, orvel::ConfigTree &tree) {
    RawTable table;
    Variables variables;
    if (!readFile(path, table) || !collectVariables(table, stage, variables)) return false;
    // In byte order, so that a faulty value leaves the same sections in the tree each time.
    for (const auto &[name, raw] : table) {
        orvel::ConfigSection section;
        if (!expandSection(raw, variables, section)) return false;
        tree.insert_or_assign(name, std::move(section));
    }
    return true;
}
