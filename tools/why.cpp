// SPDX-License-Identifier: MIT
// Repeats the steps by the library's own functions; the last one must be its answer.
#include <algorithm>
#include <optional>

#include "tools/modes.hpp"
#include "tools/same_file.hpp"

namespace tool {
namespace {

Json step(const std::string &name, const std::string &path, const std::string &by) {
    return {{"step", name}, {"path", path}, {"by", by}};
}

// Whether the entry applies to path. An empty replacement changes every such path, while the
// entry's own may leave it as it is.
bool appliesTo(const Entry &entry, const std::string &path) {
    return checkBindMountPoint({{entry.prefix, {}}}, path) != path;
}

std::string describe(const Entry &entry) {
    const std::string origin =
        entry.sections.empty() ? "mount " + entry.mountPoint : "overlay " + entry.sections.back();
    return origin + ": " + entry.prefix + " -> " + entry.replacement;
}

// The rules that changed the path, in their order, with each result; empty if the last result is
// not the library's answer.
std::optional<Json> findSteps(const std::vector<Entry> &table, const std::string &path,
                              const std::string &form) {
    Json steps = Json::array();
    if (!path.starts_with('/') || path == "/") return steps;
    std::string current = replaceBeginString(path, "/tmproot", "/sysroot");
    if (current != path) steps.push_back(step("temporary root", current, "/tmproot -> /sysroot"));
    const auto entry = std::find_if(table.begin(), table.end(),
                                    [&](const Entry &each) { return appliesTo(each, current); });
    if (entry != table.end()) {
        current = checkBindMountPoint({{entry->prefix, entry->replacement}}, current);
        steps.push_back(step("mapping", current, describe(*entry)));
    }
    if (current == "/var" + form)
        steps.push_back(step("/var rule", form, "/var is dropped"));
    else if (current != form)
        return std::nullopt;
    return steps;
}

std::string whyUnchanged(const Host &host, const std::string &path) {
    if (!path.starts_with('/')) return "relative";
    if (path == "/") return "the root";
    if (path.find("//") != std::string::npos) return "doubled slashes match no mapping";
    if (const std::string link = linkAbove(path); !link.empty()) return "below the link " + link;
    const Mount *mount = host.mountAbove(path);
    if (mount != nullptr && !mount->hasPath)
        return "on the " + mount->type + " mount " + mount->mountPoint +
               ", which no mapping covers";
    for (const Entry &entry : host.table)
        if (mount != nullptr && entry.replacement == mount->mountPoint)
            return "already normal: " + describe(entry);
    return "no mapping covers it; see --check-host";
}

}  // namespace

Answer answerOf(const Normalized &normalized) {
    const auto &[path, form, refusal] = normalized;
    if (form) return {.json = {{"path", path}, {"normalized", *form}}, .line = *form};
    return {.json = {{"path", path}, {"refused", refusal}},
            .line = path,
            .remarks = {"'" + path + "': refused: " + refusal}};
}

Answer why(const Host &host, const Normalized &normalized) {
    const auto &[path, form, refusal] = normalized;
    Answer answer = answerOf(normalized);
    Json rows = Json::array({step("asked", path, "")});
    if (form) {
        const Json steps = findSteps(host.table, path, *form)
                               .value_or(Json::array(
                                   {step("mapping", *form, "mounts that have changed meanwhile")}));
        const std::string unchanged = *form == path ? whyUnchanged(host, path) : "";
        const auto [verdict, detail] = compareFiles(path, *form);
        answer.json["steps"] = steps;
        if (!unchanged.empty()) answer.json["unchanged"] = unchanged;
        answer.json["same_file"] = verdict;
        answer.json["same_file_by"] = detail;
        rows.insert(rows.end(), steps.begin(), steps.end());
        rows.push_back(step("given", *form, unchanged.empty() ? "" : "unchanged: " + unchanged));
        rows.push_back(step("same file", verdict, detail));
    } else {
        rows.push_back(step("refused", path, refusal));
    }
    answer.tables = {rows};
    answer.remarks.clear();
    return answer;
}

}  // namespace tool
