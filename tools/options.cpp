// SPDX-License-Identifier: MIT
#include "tools/options.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <stdexcept>

namespace tool {
namespace {

constexpr const char *kDescription =
    "Prints, for each PATH or each line of standard input, the path under which the running\n"
    "system shows that file. A path that is refused is printed as it came.";

constexpr const char *kFooter =
    "Exit status:\n"
    "  0  done\n"
    "  1  a path was refused, or the configuration file is not accepted\n"
    "  2  wrong usage, or it could not be done\n"
    "\n"
    "On a terminal, lists are columns with headings, bold unless NO_COLOR is set, and what\n"
    "cannot be printed or has no width of its own is written \\xHH. Elsewhere bytes are raw,\n"
    "the cells of a row are separated by tabs, and there are no headings.\n"
    "\n"
    "In JSON, bytes that are not UTF-8 are replaced by U+FFFD; the member NAME_hex beside\n"
    "NAME has then the whole of it in hexadecimal.\n";

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

void declareTasks(CLI::App &app, Options &options) {
    CLI::Option *paths =
        app.add_option("PATH", options.paths, "paths; none: standard input")->type_name("");
    CLI::Option *table = app.add_flag(
        "--table", options.table, "print the ordered mapping list: prefix, replacement, origin");
    CLI::Option *why =
        app.add_flag("--why", options.why,
                     "print each step that changes a PATH, and whether the file is the same");
    CLI::Option *check =
        app.add_flag("--check-config", options.checkConfig,
                     "print how configuration file PATH (none: the system's) is read");
    table->excludes(paths, why, check);
    why->excludes(check);
    app.add_option("--stage", options.stage, "boot stage to read it for: initrd or system")
        ->type_name("STAGE")
        ->check(CLI::IsMember({"initrd", "system"}).description(""))
        ->needs(check);
}

void declareForms(CLI::App &app, Options &options) {
    CLI::Option *json = app.add_flag("--json", options.json, "print JSON");
    app.add_flag_callback(
           "-0,--null", [&] { options.separator = '\0'; },
           "what is read and written ends in NUL, also each cell of a list")
        ->excludes(json, app.get_option("--check-config"));
    app.add_option("--root", options.root, "enter directory DIR first")->type_name("DIR");
    app.add_flag("-v,--verbose", options.verbosity,
                 "show the library's warnings; twice: its trace; thrice: all");
    app.add_flag("-q,--quiet", options.quiet, "give no reasons and remarks on standard error");
    app.set_version_flag("--version", "orvel-path " ORVEL_VERSION);
    app.footer(kFooter);
}

}  // namespace

bool parseOptions(int argc, char **argv, Options &options) {
    CLI::App app(kDescription, "orvel-path");
    declareTasks(app, options);
    declareForms(app, options);
    try {
        app.parse(shieldedArguments(argc, argv));
        // Not by the parser's excludes(): its version 2.4 takes --verbose for given always.
        if (options.quiet && options.verbosity > 0)
            throw std::runtime_error("--verbose excludes --quiet");
        if (options.checkConfig && options.paths.size() > 1)
            throw std::runtime_error("--check-config takes one file");
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() != 0) throw std::runtime_error(error.what());
        (void)app.exit(error);  // prints what was asked for
        std::cout.flush();
        if (!std::cout) throw std::runtime_error("standard output cannot be written");
        return false;
    }
    for (std::string &path : options.paths) unshield(path);
    if (options.root) unshield(*options.root);
    return true;
}

}  // namespace tool
