// SPDX-License-Identifier: MIT
// A service for hundreds of thousands of paths a second, more than the C entry points admit. It
// reads paths from standard input, one a line, and answers each with a line: the path under which
// the system shows the file, or nothing if the path is refused.
//     watcher          answers each path as it comes, from a list of mappings that it keeps
//     watcher --batch  reads all paths first and reads the mount table once
// The kept list is read again when the kernel reports that the mounts or the configuration have
// changed. Until this program has seen the report, which it looks for before each block of input,
// answers are those of the old mounts: up to 64 KiB of paths.
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <orvel_core.h>
#include <cstdio>
#include <cstring>
#include <orvel_core.hpp>

// The mappings of the system, read again when it changes.
class Mappings {
public:
    Mappings() { readAgain(); }

    // Waits for input or for a change of the system; false if there is neither. After a change the
    // list is a new one.
    bool waitForInput() {
        pollfd events[] = {{STDIN_FILENO, POLLIN, 0}, {mounts_, POLLPRI, 0}, {files_, POLLIN, 0}};
        do {
            if (poll(events, 3, -1) < 0) return false;
            if (events[1].revents != 0 || events[2].revents != 0) readAgain();
        } while (events[0].revents == 0);
        return true;
    }

    // What pathNormalize() does, with the kept list.
    std::string normalize(const std::string &path) const {
        if (path[0] != '/' || path == "/") return path;
        std::string shown =
            checkBindMountPoint(list_, replaceBeginString(path, "/tmproot", "/sysroot"));
        for (const std::string top : {"/tmp/", "/opt/", "/srv/", "/mnt/"})
            shown = replaceBeginString(shown, "/var" + top, top);
        return shown;
    }

private:
    // Takes the reports first: what changes from then on is reported again. The directory of the
    // configuration may be another one now, so it is watched again, too.
    void readAgain() {
        char reports[4096];
        while (read(files_, reports, sizeof reports) > 0) continue;
        pollfd mounts = {mounts_, POLLPRI, 0};
        (void)poll(&mounts, 1, 0);
        const std::string file = orvel::kConfigPath;
        (void)inotify_add_watch(files_, file.substr(0, file.rfind('/')).c_str(),
                                IN_CLOSE_WRITE | IN_MOVE | IN_DELETE | IN_ATTRIB);
        list_ = sortedMappings();
    }

    const int mounts_ = open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
    const int files_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    orvel::MappingList list_;
};

// What the C entry points refuse.
static bool isRefused(const std::string &path) {
    return path.empty() || path.size() > ORVEL_MAX_PATH_BYTES ||
           path.find('\0') != std::string::npos || containsDotComponents(path);
}

// Takes the whole lines off the front of input.
static std::vector<std::string> takeLines(std::string &input) {
    std::vector<std::string> lines;
    std::size_t begin = 0;
    for (std::size_t end; (end = input.find('\n', begin)) != std::string::npos; begin = end + 1)
        lines.push_back(input.substr(begin, end - begin));
    input.erase(0, begin);
    return lines;
}

int main(int argc, char **argv) {
    const bool isBatch = argc == 2 && std::strcmp(argv[1], "--batch") == 0;
    Mappings mappings;
    std::string input;
    char block[64 * 1024];
    ssize_t length = 0;
    do {
        if (!isBatch && !mappings.waitForInput()) return 1;
        length = read(STDIN_FILENO, block, sizeof block);
        if (length > 0) input.append(block, static_cast<std::size_t>(length));
        if (length == 0 && !input.empty() && input.back() != '\n') input += '\n';
        if (length > 0 && isBatch) continue;
        const std::vector<std::string> paths = takeLines(input);
        std::vector<std::string> shown;
        if (isBatch) shown = _batchPathNormalize(paths);
        for (std::size_t i = 0; i < paths.size(); ++i) {
            if (isRefused(paths[i]))
                (void)std::puts("");
            else
                (void)std::puts((isBatch ? shown[i] : mappings.normalize(paths[i])).c_str());
        }
        if (std::fflush(stdout) != 0) return 1;
    } while (length > 0);
    return length < 0 ? 1 : 0;
}
