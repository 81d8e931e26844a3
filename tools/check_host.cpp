// SPDX-License-Identifier: MIT
// The checks of --check-host for overlays, mappings and fixed rules, and the rows of all findings.
#include "tools/check_host.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "tools/modes.hpp"
#include "tools/same_file.hpp"

namespace tool {
namespace {

bool exists(const std::string &path) {
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0;
}

// Whether both are one directory, links followed.
bool isOneDirectory(const std::string &a, const std::string &b) {
    return compareFiles(canonicalizePath(a), canonicalizePath(b)).verdict == "yes";
}

const Mount *overlayAt(const Host &host, const std::string &path) {
    const Mount *mount = host.mountAbove(path);
    const bool isOverlay =
        mount != nullptr && mount->mountPoint == path && mount->type == "overlay";
    return isOverlay ? mount : nullptr;
}

void findUndescribedOverlays(const Host &host, Findings &findings) {
    for (const Mount &mount : host.mounts) {
        const std::string &place = mount.mountPoint;
        const bool isDescribed =
            std::any_of(host.table.begin(), host.table.end(), [&](const Entry &entry) {
                return !entry.sections.empty() && entry.replacement == place;
            });
        if (overlayAt(host, place) != &mount || isDescribed) continue;
        std::string found = "is an undescribed overlay: paths of its layers stay unchanged";
        std::vector<std::string> names = host.storageNames(place);
        std::erase_if(names, [](const std::string &name) { return !exists(name); });
        for (const std::string &name : names)
            found += "; " + name + " is given as it, but may show other files";
        const bool isOfSystem = place == "/" || place == "/usr" || place == "/etc";
        if (names.empty() && !isOfSystem) continue;
        findings.push_back({names.empty() ? Severity::Error : Severity::Warning, place, found});
    }
}

void findReplacedFiles(const Host &host, Findings &findings) {
    for (const Entry &entry : host.table) {
        if (entry.sections.empty() || overlayAt(host, entry.replacement) == nullptr) continue;
        const orvel::ConfigSection &section = host.config.at(entry.sections.back());
        const auto lower = section.find("LowerDir");
        if (lower != section.end() &&
            std::count(lower->second.begin(), lower->second.end(), entry.prefix) > 0)
            findings.push_back({Severity::Warning, entry.prefix,
                                "given as the overlay " + entry.replacement +
                                    ", whose upper layer may replace or hide files"});
    }
}

bool isMissing(const Entry &entry) {
    return entry.sections.empty() && !exists(entry.replacement);
}

void findMovedMounts(const Host &host, Findings &findings) {
    for (const Entry &entry : host.table)
        if (isMissing(entry))
            findings.push_back(
                {Severity::Error, entry.prefix,
                 "given as " + entry.replacement + ", which is missing, for " + entry.mountPoint});
}

// Other checks judge prefixes that are devices, and mounts whose storage is not shown.
void judgeMappings(const Host &host, Findings &findings) {
    for (const Entry &entry : host.table) {
        const bool isShown = exists(entry.prefix) && !entry.prefix.starts_with("/dev/");
        if (isMissing(entry) || (entry.sections.empty() && !isShown)) continue;
        const auto [verdict, detail] = compareFiles(entry.prefix, entry.replacement);
        if (verdict == "yes" || verdict == "likely") continue;
        if (verdict == "unknown" && overlayAt(host, entry.replacement) != nullptr) continue;
        const bool isWrong =
            verdict == "no" || (exists(entry.prefix) && !exists(entry.replacement));
        findings.push_back({isWrong ? Severity::Error : Severity::Warning, entry.prefix,
                            "given as " + entry.replacement +
                                (exists(entry.prefix) ? ": " + detail : ", but missing")});
    }
}

void findTemporaryRoot(const Host &host, Findings &findings) {
    for (const Entry &entry : host.table)
        if (entry.prefix.starts_with("/tmproot"))
            findings.push_back({Severity::Error, entry.prefix,
                                "matches no path, because /tmproot is replaced by /sysroot first"});
    if (exists("/tmproot") && !isOneDirectory("/tmproot", "/sysroot"))
        findings.push_back(
            {Severity::Error, "/tmproot", "is replaced by /sysroot, which is another directory"});
}

void findVarTwins(const Host &host, Findings &findings) {
    for (const std::string shown : {"/tmp", "/opt", "/srv", "/mnt"}) {
        const std::string twin = "/var" + shown;
        if (!exists(twin) || isOneDirectory(twin, shown)) continue;
        std::vector<std::string> names = host.storageNames(twin);
        names.insert(names.begin(), twin);
        for (const auto &[prefix, replacement] : host.mappings)  // of mounts below it
            if (replacement.starts_with(twin + "/")) names.push_back(prefix);
        std::erase_if(names, [](const std::string &name) { return !exists(name); });
        for (const std::string &name : names)
            findings.push_back({Severity::Error, name,
                                "given as " + shown + ", which is " +
                                    (exists(shown) ? "another directory" : "missing")});
    }
}

void findOstreeLink(const Host &, Findings &findings) {
    std::array<char, 4096> target = {};
    const ssize_t length = readlink("/ostree", target.data(), target.size());
    if (length >= 0)
        findings.push_back({Severity::Warning, "/ostree",
                            "is a link to " +
                                std::string(target.data(), static_cast<size_t>(length)) +
                                ", which is not followed: paths through it stay unchanged"});
}

void findConfiguration(const Host &host, Findings &findings) {
    const std::string file = orvel::kConfigPath;
    if (!host.complaint.empty())
        findings.push_back({exists(file) ? Severity::Error : Severity::Warning, file,
                            exists(file) ? "is not accepted: " + host.complaint
                                         : "is missing, so no overlay is described"});
    if (!host.complaint.empty()) return;
    const Answer answer = checkConfig(file, StageSystem);
    for (const Json &remark : answer.json["remarks"])
        findings.push_back({Severity::Warning, file, remark["remark"]});
}

constexpr Check kChecks[] = {
    {"undescribed-overlay", findUndescribedOverlays, "each overlay on the way is described",
     "describe the overlay's layers in system-ovl.conf"},
    {"replaced-file", findReplacedFiles, "no described overlay has a lower layer",
     "check important files with --why"},
    {"moved-mount", findMovedMounts, "each mount point below another mount's storage exists",
     "let the mounts propagate, or mount below the shown path"},
    {"mapping", judgeMappings, "each mapping leads to the same directory",
     "look for a mount that covers one of them, or correct system-ovl.conf"},
    {"temporary-root", findTemporaryRoot, "/tmproot is /sysroot or missing",
     "mount nothing at /tmproot; if it is there, make it a link to /sysroot"},
    {"var-twin", findVarTwins, "/tmp, /opt, /srv and /mnt are those of /var",
     "make it a link to its twin below /var"},
    {"ostree-link", findOstreeLink, "/ostree is not a link",
     "resolve links first, as by realpath(1)"},
    {"configuration", findConfiguration, "the configuration is accepted, without remarks",
     "see --check-config"},
};

const char *nameOf(Severity severity) {
    constexpr std::array<const char *, 3> kNames = {"error", "warning", "ok"};
    return kNames.at(static_cast<std::size_t>(severity));
}

void addRows(const Check &check, const Host &host, Json &rows) {
    Findings findings;
    check.look(host, findings);
    if (findings.empty()) findings.push_back({Severity::Ok, "", check.fine});
    for (const auto &[severity, path, found] : findings)
        rows.push_back({{"severity", nameOf(severity)},
                        {"name", check.name},
                        {"found", found},
                        {"advice", severity == Severity::Ok ? "" : check.advice},
                        {"path", path}});
}

}  // namespace

Answer checkHost(const Host &host) {
    Json rows = Json::array();
    for (const Check &check : mountChecks()) addRows(check, host, rows);
    for (const Check &check : kChecks) addRows(check, host, rows);
    return {.json = rows, .tables = {rows}};
}

}  // namespace tool
