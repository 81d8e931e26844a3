// SPDX-License-Identifier: MIT
// A rule says that two prefixes name one directory: a mount point and its storage path, a merged
// directory and a layer, /sysroot and /tmproot, /var/tmp and /tmp. The rules lead from known names
// to others. Each rule is used once on the way to a name, because a mount that shows itself would
// give names without end.
#include <array>
#include <set>

#include "base/prefix.hpp"
#include "tools/modes.hpp"
#include "tools/same_file.hpp"

namespace tool {
namespace {

constexpr std::size_t kMaxNames = 1000;

enum Kind { Shown, Asked, MountPoint, Storage, TemporaryRoot, Layer, VarTwin };
constexpr std::array<const char *, 7> kKinds = {"shown",          "asked", "mount",    "storage",
                                                "temporary root", "layer", "/var twin"};

struct Rule {
    std::string shown, other;
    Kind toShown, toOther;  // what the name is that it leads to
};

struct Name {
    std::string path;
    Kind kind = Shown;
    std::set<const Rule *> used;
    Comparison sameFile;
};

std::vector<Rule> rulesOf(const Host &host) {
    std::vector<Rule> rules = {{"/sysroot", "/tmproot", Storage, TemporaryRoot}};
    for (const char *name : {"/tmp", "/opt", "/srv", "/mnt"})
        rules.push_back({name, std::string("/var") + name, VarTwin, VarTwin});
    for (const auto &[mountPoint, storagePath] : host.storagePaths)
        rules.push_back({mountPoint, storagePath, MountPoint, Storage});
    for (const Entry &entry : host.table)
        if (!entry.sections.empty())
            rules.push_back({entry.replacement, entry.prefix, MountPoint, Layer});
    for (const Mount &mount : host.mounts)
        for (const std::string &layer : mount.layers)  // named in the root of who mounted it
            if (compareFiles(layer, layer).verdict == "yes")
                rules.push_back({mount.mountPoint, layer, MountPoint, Layer});
    return rules;
}

std::string exchanged(const std::string &path, const std::string &from, const std::string &to) {
    const bool keepsSlash = from == "/" && path != "/";
    return orvel::replacePrefix(path, keepsSlash ? 0 : from.size(), to);
}

class Search {
public:
    Search(const Host &host, const std::string &asked, const std::string &form)
        : host_(host), rules_(rulesOf(host)), asked_(asked) {
        add(form, Shown, {});
        add(asked, Asked, {});
        const bool exists = names_.back().sameFile.verdict != "missing";
        for (std::size_t i = 0; i < names_.size(); ++i) {
            if (exists && names_[i].sameFile.verdict == "missing") continue;
            for (const Rule &rule : rules_)
                if (!names_[i].used.contains(&rule)) follow(rule, names_[i]);
        }
    }

    const std::vector<Name> &names() const { return names_; }

private:
    // Whether the mount shows path: no deeper mount covers it, and it contains no link.
    bool isStored(const std::string &path, const Rule &rule) const {
        const Mount *above = host_.mountAbove(path);
        return (above == nullptr || above->mountPoint.size() <= rule.shown.size()) &&
               linkAbove(path).empty();
    }

    void follow(const Rule &rule, const Name &name) {
        const std::string path = name.path;  // the list grows, and name with it
        std::set<const Rule *> used = name.used;
        used.insert(&rule);
        if (orvel::covers(rule.shown, path) && (rule.toOther != Storage || isStored(path, rule)))
            add(exchanged(path, rule.shown, rule.other), rule.toOther, used);
        if (orvel::covers(rule.other, path))
            add(exchanged(path, rule.other, rule.shown), rule.toShown, used);
    }

    void add(const std::string &path, Kind kind, const std::set<const Rule *> &used) {
        if (names_.size() < kMaxNames && known_.insert(path).second)
            names_.push_back({path, kind, used, compareFiles(asked_, path)});
    }

    const Host &host_;
    const std::vector<Rule> rules_;
    const std::string asked_;
    std::set<std::string> known_;
    std::vector<Name> names_;
};

}  // namespace

Answer names(const Host &host, const Normalized &normalized) {
    Answer answer = answerOf(normalized);
    if (!normalized.form) return answer;
    Json rows = Json::array();
    const Search search(host, normalized.path, *normalized.form);
    for (std::size_t kind = 0; kind < kKinds.size(); ++kind)
        for (const Name &name : search.names())
            if (name.kind == kind)
                rows.push_back({{"kind", kKinds.at(kind)},
                                {"same_file", name.sameFile.verdict},
                                {"name", name.path},
                                {"by", name.sameFile.detail}});
    answer.json["names"] = rows;
    answer.tables = {rows};
    return answer;
}

}  // namespace tool
