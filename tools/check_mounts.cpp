// SPDX-License-Identifier: MIT
// The checks of --check-host for mounts and devices.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <set>

#include "base/prefix.hpp"
#include "tools/check_host.hpp"
#include "tools/same_file.hpp"

namespace tool {
namespace {

using Mounts = std::vector<const Mount *>;

// The mounts of each block device, also of those without a node, in the order of the mount table.
std::map<std::string, Mounts> devicesOf(const Host &host) {
    std::map<std::string, Mounts> devices;
    for (const Mount &mount : host.mounts)
        if (mount.isDevice || mount.lacksNode()) devices[trim(mount.source)].push_back(&mount);
    return devices;
}

// The mount that shows most of its device: as a rule, storage paths are below its mount point.
const Mount &widestOf(const Mounts &mounts) {
    return **std::min_element(mounts.begin(), mounts.end(), [](const Mount *a, const Mount *b) {
        return a->root.size() < b->root.size();
    });
}

// The mount that the library uses for the whole device, which is the last one; or null.
const Mount *wholeOf(const Mounts &mounts) {
    const auto whole = std::find_if(mounts.rbegin(), mounts.rend(),
                                    [](const Mount *mount) { return mount->isWhole(); });
    return whole != mounts.rend() ? *whole : nullptr;
}

bool hasParts(const Mounts &mounts) {
    return std::any_of(mounts.begin(), mounts.end(),
                       [](const Mount *mount) { return mount->root != "/"; });
}

// The prefix that the mount gives to the table of mappings, or else its mount point.
std::string prefixOf(const Host &host, const Mount &mount) {
    const auto known = host.storagePaths.find(mount.mountPoint);
    return known != host.storagePaths.end() ? known->second : mount.mountPoint;
}

void findNoWholeMount(const Host &host, Findings &findings) {
    const auto devices = devicesOf(host);
    if (devices.empty()) findings.push_back({Severity::Error, "/", "no block device is mounted"});
    for (const auto &[device, mounts] : devices) {
        const Mount &widest = widestOf(mounts);
        if (widest.root == "/") continue;
        const auto shows = [&](const Mount *mount) {
            return mount->root != widest.root && orvel::covers(widest.root, mount->root);
        };
        const bool showsOthers = std::any_of(mounts.begin(), mounts.end(), shows);
        const bool isOne = mounts.size() == 1;
        for (const Mount *mount : mounts)  // as wide as the widest, as a bind of it elsewhere
            if (mount == &widest || (showsOthers && mount->root == widest.root))
                findings.push_back(
                    {isOne && mount->mountPoint != "/" ? Severity::Warning : Severity::Error,
                     isOne || showsOthers ? mount->mountPoint : "/",
                     device + " is not mounted whole; its directory " + mount->root +
                         " is mounted at " + mount->mountPoint});
    }
}

void findSubvolumes(const Host &host, Findings &findings) {
    for (const auto &[device, mounts] : devicesOf(host))
        if (const Mount &widest = widestOf(mounts); widest.type == "btrfs" && widest.root != "/")
            findings.push_back({Severity::Error, widest.mountPoint,
                                "is subvolume or directory " + widest.root + " of " + device});
}

// If several mounts show all of a device, or the directory with the storage of the root, storage
// paths are mapped below one of them only.
void findSeveralWholeMounts(const Host &host, Findings &findings) {
    for (const auto &[device, mounts] : devicesOf(host)) {
        const Mount *winner = wholeOf(mounts);
        if (winner == nullptr || !hasParts(mounts)) continue;
        const auto root = std::find_if(mounts.begin(), mounts.end(),
                                       [](const Mount *mount) { return mount->mountPoint == "/"; });
        for (const Mount *mount : mounts) {
            const bool showsRoot = root != mounts.end() && mount->root != (*root)->root &&
                                   orvel::covers(mount->root, (*root)->root);
            if ((mount->root == "/" || showsRoot) && mount->mountPoint != winner->mountPoint)
                findings.push_back({Severity::Error, mount->mountPoint,
                                    mount->root + " of " + device + " is mounted here; whole at " +
                                        winner->mountPoint + ", which wins"});
        }
    }
}

void findWholeMountAtRoot(const Host &host, Findings &findings) {
    for (const auto &[device, mounts] : devicesOf(host)) {
        const Mount *winner = wholeOf(mounts);
        if (winner == nullptr || winner->mountPoint != "/") continue;
        for (const Mount *mount : mounts)
            if (mount->root != "/")
                findings.push_back({Severity::Error, mount->root,
                                    "is also shown at " + mount->mountPoint + ", but " + device +
                                        " is mounted whole at /"});
    }
}

void findMissingNodes(const Host &host, Findings &findings) {
    for (const auto &[device, mounts] : devicesOf(host))
        if (mounts.front()->lacksNode())
            findings.push_back({Severity::Error, widestOf(mounts).mountPoint,
                                device + ", mounted here, is not a block device in this /dev"});
}

void findDeviceLinks(const Host &host, Findings &findings) {
    for (const auto &[device, mounts] : devicesOf(host)) {
        const Mount *whole = wholeOf(mounts);
        const std::string node = canonicalizePath(device);
        if (whole != nullptr && node != device)
            findings.push_back({Severity::Warning, node,
                                "given as " + whole->mountPoint + ", where " + device +
                                    ", a link to it, is mounted"});
    }
}

void findDeviceNames(const Host &host, Findings &findings) {
    const auto devices = devicesOf(host);
    for (const auto &[shorter, whole] : devices)
        for (const auto &[longer, mounts] : devices) {
            const bool isTaken = longer != shorter && longer.starts_with(shorter) &&
                                 wholeOf(whole) != nullptr && wholeOf(mounts) == nullptr;
            for (const Mount *mount : isTaken ? mounts : Mounts{})
                findings.push_back({Severity::Warning, prefixOf(host, *mount),
                                    "given as " + mount->mountPoint + ", since " + longer +
                                        " is taken for a name below " + shorter});
        }
}

void findSources(const Host &host, Findings &findings) {
    for (const Mount &mount : host.mounts) {
        if (!trim(mount.source).starts_with('/') || mount.isDevice || mount.lacksNode()) continue;
        const std::string what = "source " + mount.source + " of the " + mount.type + " mount ";
        if (mount.isFuse)
            findings.push_back({Severity::Ok, mount.mountPoint,
                                what + "may be chosen by any user; the library ignores it"});
        else
            findings.push_back(
                {Severity::Warning, prefixOf(host, mount),
                 what + mount.mountPoint + " is not a block device, but is replaced"});
    }
}

void findBlanks(const Host &host, Findings &findings) {
    for (const Mount &mount : host.mounts)
        if (mount.hasPath && trim(mount.mountPoint) != mount.mountPoint)
            findings.push_back({Severity::Warning, mount.mountPoint,
                                "is read as '" + trim(mount.mountPoint) + "'"});
}

// The mount that the kernel shows at the path; 0 if no such process, or the kernel is older
// than 5.8.
std::uint64_t mountIdAt(const std::string &path) {
    struct statx status = {};
    const int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
    const bool isKnown = statx(AT_FDCWD, path.c_str(), flags, STATX_MNT_ID, &status) == 0 &&
                         (status.stx_mask & STATX_MNT_ID) != 0;
    return isKnown ? status.stx_mnt_id : 0;
}

void findHiddenMounts(const Host &host, Findings &findings) {
    if (mountIdAt("/") == 0) return;
    for (const Mount &mount : host.mounts) {
        const std::uint64_t shown = mountIdAt(mount.mountPoint);
        if (!mount.hasPath || shown == mount.id) continue;
        const auto other = std::find_if(host.mounts.begin(), host.mounts.end(),
                                        [&](const Mount &each) { return each.id == shown; });
        // Harmless: the same directory, mounted over itself with other options.
        if (other != host.mounts.end() && other->source == mount.source &&
            other->root == mount.root)
            continue;
        if (other != host.mounts.end() && other->type == "overlay") continue;  // has its own check
        findings.push_back(
            {Severity::Warning, mount.mountPoint,
             mount.root + " of " + mount.source + ", mounted here, is hidden by " +
                 (other != host.mounts.end() ? "the " + other->type + " mount " + other->mountPoint
                                             : "another mount")});
    }
}

// A storage directory under a mount point that is given as the mount point. Other checks judge
// mappings and overlays.
void findCoveredDirectories(const Host &host, Findings &findings) {
    std::set<std::string> prefixes;
    for (const auto &[prefix, replacement] : host.mappings) prefixes.insert(prefix);
    for (const Mount &mount : host.mounts) {
        const std::string &place = mount.mountPoint;
        if (mount.type == "overlay" || host.mountAbove(place) != &mount) continue;
        for (const std::string &name : host.storageNames(place))
            if (!prefixes.contains(name) && checkBindMountPoint(host.mappings, name) == place &&
                compareFiles(name, place).verdict == "no")
                findings.push_back({Severity::Warning, name,
                                    "given as " + place + ", where the " + mount.type +
                                        " mount shows another directory"});
    }
}

constexpr Check kChecks[] = {
    {"whole-mount", findNoWholeMount, "each mounted block device is mounted whole",
     "mount the whole device, or describe the directories as layers in system-ovl.conf"},
    {"btrfs-subvolume", findSubvolumes, "no subvolume takes the place of a whole mount",
     "mount the whole device (subvolid=5), or describe the directories in system-ovl.conf"},
    {"several-whole-mounts", findSeveralWholeMounts, "no device is mounted whole twice",
     "unmount the later one, or ask from a mount namespace without it"},
    {"whole-mount-at-root", findWholeMountAtRoot, "no device with other mounts is whole at /",
     "mount the whole device at another place, too"},
    {"device-node", findMissingNodes, "each mounted block device has its node",
     "bind the device node into this /dev (with systemd, instead of PrivateDevices=yes)"},
    {"device-link", findDeviceLinks, "no device is mounted by a link to its node",
     "expect the mount point as the answer for this path"},
    {"device-name", findDeviceNames, "no device is taken for another one",
     "mount the device whole"},
    {"mount-source", findSources, "no mount has another file as its source",
     "check who may mount here"},
    {"blank-mount-point", findBlanks, "no mount point begins or ends with a blank",
     "rename the mount point"},
    {"hidden-mount", findHiddenMounts, "no mount of a path is hidden by another one",
     "unmount one of them"},
    {"covered-directory", findCoveredDirectories, "no mount covers a storage directory",
     "none: what a mount hides has no path of its own"},
};

}  // namespace

std::span<const Check> mountChecks() {
    return kChecks;
}

}  // namespace tool
