// SPDX-License-Identifier: MIT
// The steps are walked again through the library's own functions, and must arrive at its answer.
#include "tools/explain.hpp"

#include <algorithm>

#include "include/orvel_core.hpp"
#include "tools/host_log.hpp"
#include "tools/output.hpp"
#include "tools/same_file.hpp"

namespace tool {
namespace {

// With nothing in place of its prefix, an entry changes every path that it applies to; with its
// replacement it need not.
bool appliesTo(const Entry &entry, const std::string &path) {
    return checkBindMountPoint({{entry.prefix, {}}}, path) != path;
}

std::string describe(const Entry &entry) {
    const std::vector<std::string> cells = toRows({entry}).cells.front();
    return cells[2] + ' ' + cells[3] + ": " + cells[0] + " -> " + cells[1];
}

// The rules that changed the path, in their order, what each made of it, and by what; nothing where
// that is not what the table gives.
std::optional<Rows> findSteps(const std::vector<Entry> &table, const std::string &path,
                              const std::string &normalized) {
    Rows steps = {{"step", "path", "by"}, {}};
    if (!path.starts_with('/') || path == "/") return steps;
    std::string current = replaceBeginString(path, "/tmproot", "/sysroot");
    if (current != path) steps.cells.push_back({"temporary root", current, "/tmproot -> /sysroot"});
    const auto entry = std::find_if(table.begin(), table.end(),
                                    [&](const Entry &each) { return appliesTo(each, current); });
    if (entry != table.end()) {
        current = checkBindMountPoint({{entry->prefix, entry->replacement}}, current);
        steps.cells.push_back({"mapping", current, describe(*entry)});
    }
    if (current == "/var" + normalized)
        steps.cells.push_back({"/var rule", normalized, "/var is dropped"});
    else if (current != normalized)
        return std::nullopt;
    return steps;
}

}  // namespace

Rows Explainer::stepsOf(const std::string &path, const std::string &normalized) {
    const MessageKeeper saidAlready;  // by the call that answered
    if (!table_) table_ = readTable();
    std::optional<Rows> steps = findSteps(*table_, path, normalized);
    if (!steps) {
        table_ = readTable();
        steps = findSteps(*table_, path, normalized);
    }
    if (steps) return *std::move(steps);
    return {{"step", "path", "by"},
            {{"mapping", normalized, "mounts that have changed meanwhile"}}};
}

void Explainer::explain(const Answer &answer, char separator) {
    Rows rows = {{"step", "path", "by"}, {{"asked", answer.path, ""}}};
    if (answer.normalized) {
        for (auto &step : stepsOf(answer.path, *answer.normalized).cells)
            rows.cells.push_back(std::move(step));
        const bool isUnchanged = *answer.normalized == answer.path;
        rows.cells.push_back({"given", *answer.normalized, isUnchanged ? "unchanged" : ""});
        const auto [verdict, detail] = compareFiles(answer.path, *answer.normalized);
        rows.cells.push_back({"same file", verdict, detail});
    } else {
        rows.cells.push_back({"refused", answer.path, answer.reason});
    }
    print(rows, separator);
}

void Explainer::explain(const Answer &answer, Json &object) {
    if (!answer.normalized) return;
    object["steps"] = toJson(stepsOf(answer.path, *answer.normalized));
    const auto [verdict, detail] = compareFiles(answer.path, *answer.normalized);
    object["same_file"] = verdict;
    put(object, "same_file_by", detail);
}

}  // namespace tool
