// SPDX-License-Identifier: MIT
// orvel-path: the path under which the running system shows a file, from the command line.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "base/handles.hpp"
#include "base/log.hpp"
#include "include/orvel_core.hpp"
#include "tools/host_log.hpp"
#include "tools/inquiry.hpp"
#include "tools/root.hpp"

namespace {

enum ExitStatus { kDone = 0, kRefused = 1, kFailed = 2 };

struct Options {
    std::vector<std::string> paths;
    std::optional<std::string>
        root;  // an empty one, from an unset variable, must not pass for none
    bool nulSeparated = false;
    bool table = false;
    int verbosity = 0;
};

// Raw bytes, so that the output can be processed: prefix, tab, replacement.
void printTable() {
    for (const auto &[prefix, replacement] : sortedMappings())
        std::printf("%s\t%s\n", prefix.c_str(), replacement.c_str());
}

// getdelim, not std::getline: a path may be of any length, and exhaustion must not look like the
// end.
void askStandardInput(tool::Inquiry &inquiry, char separator) {
    char *line = nullptr;
    std::size_t capacity = 0;
    ssize_t length = 0;
    while ((length = getdelim(&line, &capacity, separator, stdin)) >= 0) {
        std::string path(line, static_cast<std::size_t>(length));
        if (path.ends_with(separator)) path.pop_back();
        inquiry.ask(std::move(path));
    }
    const int error = errno;
    const orvel::MallocString owned(line);
    if (std::feof(stdin) == 0)
        throw std::runtime_error(std::string("standard input: ") + std::strerror(error));
}

// Arguments, or else standard input; true if none was refused.
bool askPaths(const Options &options) {
    const char separator = options.nulSeparated ? '\0' : '\n';
    tool::Inquiry inquiry(separator);
    for (const std::string &path : options.paths) inquiry.ask(path);
    if (options.paths.empty()) askStandardInput(inquiry, separator);
    inquiry.finish();
    return !inquiry.hadRefusals();
}

// The parser takes "[a,b]" for a list of two. A NUL in front, which no argument has, keeps it
// whole.
std::vector<std::string> shieldedArguments(int argc, char **argv) {
    std::vector<std::string> arguments;
    bool afterOptions = false;
    for (int i = 1; i < argc; ++i) {
        std::string argument = argv[i];
        if (argument.starts_with('[')) argument.insert(0, 1, '\0');
        // Nor would it see that this one has a value, an empty one.
        const bool isEmptyRoot = !afterOptions && argument == "--root=";
        afterOptions = afterOptions || argument == "--";
        if (isEmptyRoot) argument.pop_back();
        arguments.push_back(std::move(argument));
        if (isEmptyRoot) arguments.emplace_back();
    }
    std::reverse(arguments.begin(), arguments.end());  // as the parser wants them
    return arguments;
}

void unshield(std::string &argument) {
    if (argument.starts_with('\0')) argument.erase(0, 1);
}

// The root is entered before the first look at the system; every library is loaded by then.
int run(const Options &options) {
    tool::setLogLevel(orvel::log::Error - options.verbosity);
    if (options.root) tool::enterRoot(*options.root);
    ExitStatus status = kDone;
    if (options.table)
        printTable();
    else if (!askPaths(options))
        status = kRefused;
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        throw std::runtime_error(std::string("standard output: ") + std::strerror(errno));
    return status;
}

}  // namespace

int main(int argc, char **argv) try {
    Options options;
    CLI::App app(
        "Prints, for each PATH or each line of standard input, the path under which the running\n"
        "system shows that file. A path that is refused is printed as it came.\n"
        "Exit status: 0 done, 1 a path was refused, 2 it could not be done.",
        "orvel-path");
    app.add_option("PATH", options.paths, "paths to normalise; none: standard input");
    app.add_flag("-0,--null", options.nulSeparated, "paths end in NUL, not in a line feed");
    auto *table = app.add_flag("--table", options.table, "print the ordered mapping list");
    app.get_option("PATH")->excludes(table);
    app.add_option("--root", options.root, "enter directory DIR first")->type_name("DIR");
    app.add_flag("-v,--verbose", options.verbosity,
                 "show the library's warnings; twice: its trace; thrice: all");
    app.set_version_flag("--version", "orvel-path " ORVEL_VERSION);
    try {
        app.parse(shieldedArguments(argc, argv));
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? kDone : kFailed;
    }
    for (std::string &path : options.paths) unshield(path);
    if (options.root) unshield(*options.root);
    return run(options);
} catch (const std::exception &error) {
    (void)std::fprintf(stderr, "orvel-path: %s\n", error.what());
    return kFailed;
}
