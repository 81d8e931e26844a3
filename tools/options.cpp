// SPDX-License-Identifier: MIT
#include "tools/options.hpp"

#include <getopt.h>
#include <libmount.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "tools/log.hpp"

namespace tool {
namespace {

constexpr const char *kHelp = R"(
Usage:
 orvel-path [options] [PATH...]
 orvel-path --why|--names [options] [PATH...]
 orvel-path --table|--check-host [options]
 orvel-path --check-config [options] [FILE]

Print the path under which the running system shows each PATH, or each line of
standard input.

What to print:
 -w, --why            each step that changes a PATH, or why none does
     --names          each name under which the file of a PATH can be reached
 -t, --table          the mappings in the order in which they are applied
     --check-config   how the library reads the configuration FILE, which
                      may be - for standard input, or the system's
     --check-host     what prevents normalisation on this host

Where to look:
     --root DIR       in the root directory DIR
 -N, --task PID       in the mount namespace and the root of process PID
     --stage STAGE    with --check-config: in boot stage initrd or system
     --strict         with --check-config: exit status 1 also on remarks

How to print it:
 -0, --null           input and output lines end in NUL
 -J, --json           JSON
 -n, --noheadings     tables without headings
 -r, --raw            tables with one blank between cells, blanks in them escaped
 -q, --quiet          no refusals and remarks on standard error
 -v, --verbose        the library's warnings; -vv: its trace; -vvv: all

 -h, --help           this help
 -V, --version        the version

Exit status: 0 done; 1 a path is refused, the configuration is not accepted, or
the host has errors; 2 wrong usage or another failure.

For more details see orvel-path(1).
)";

enum LongOnly { kNames = 256, kCheckConfig, kCheckHost, kRoot, kStage, kStrict };

// clang-format off
constexpr std::array<option, 18> kOptions = {{
    {"why", no_argument, nullptr, 'w'}, {"names", no_argument, nullptr, kNames},
    {"table", no_argument, nullptr, 't'}, {"check-config", no_argument, nullptr, kCheckConfig},
    {"check-host", no_argument, nullptr, kCheckHost}, {"root", required_argument, nullptr, kRoot},
    {"task", required_argument, nullptr, 'N'}, {"stage", required_argument, nullptr, kStage},
    {"strict", no_argument, nullptr, kStrict}, {"null", no_argument, nullptr, '0'}, {"json", no_argument, nullptr, 'J'},
    {"noheadings", no_argument, nullptr, 'n'}, {"raw", no_argument, nullptr, 'r'},
    {"quiet", no_argument, nullptr, 'q'}, {"verbose", no_argument, nullptr, 'v'},
    {"help", no_argument, nullptr, 'h'}, {"version", no_argument, nullptr, 'V'}, {}}};
// clang-format on

// A wrong use of the options. The text is empty if getopt has reported it.
struct Mistake : std::runtime_error {
    using std::runtime_error::runtime_error;
};

void setMode(Options &options, Mode mode) {
    if (options.mode != Mode::Paths && options.mode != mode)
        throw Mistake(
            "--why, --names, --table, --check-config and --check-host exclude each other");
    options.mode = mode;
}

int numberOf(const std::string &text) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number <= 0)
        throw Mistake("option '--task': '" + text + "' is not a process number");
    return number;
}

SystemStage stageOf(const std::string &text) {
    if (text != "initrd" && text != "system")
        throw Mistake("option '--stage': '" + text + "' is neither 'initrd' nor 'system'");
    return text == "initrd" ? StageInitrd : StageSystem;
}

void take(int letter, Options &options) {
    Format &format = options.format;
    if (letter == 'w') return setMode(options, Mode::Why);
    if (letter == kNames) return setMode(options, Mode::Names);
    if (letter == 't') return setMode(options, Mode::Table);
    if (letter == kCheckConfig) return setMode(options, Mode::CheckConfig);
    if (letter == kCheckHost) return setMode(options, Mode::CheckHost);
    if (letter == '?') throw Mistake("");
    if (letter == kRoot) options.root = optarg;
    if (letter == 'N') options.task = numberOf(optarg);
    if (letter == kStage) options.stage = stageOf(optarg);
    if (letter == '0') format.separator = '\0';
    format.json = format.json || letter == 'J';
    format.noHeadings = format.noHeadings || letter == 'n';
    format.raw = format.raw || letter == 'r';
    options.strict = options.strict || letter == kStrict;
    options.quiet = options.quiet || letter == 'q';
    options.verbosity += letter == 'v' ? 1 : 0;
}

void checkTogether(const Options &options) {
    const Mode mode = options.mode;
    const std::size_t mostPaths = mode == Mode::Table || mode == Mode::CheckHost ? 0
                                  : mode == Mode::CheckConfig                    ? 1
                                                                                 : SIZE_MAX;
    if (options.paths.size() > mostPaths)
        throw Mistake("extra operand '" + options.paths[mostPaths] + "'");
    if (options.stage && mode != Mode::CheckConfig) throw Mistake("--stage needs --check-config");
    if (options.strict && mode != Mode::CheckConfig) throw Mistake("--strict needs --check-config");
    if (options.quiet && options.verbosity > 0) throw Mistake("--verbose excludes --quiet");
    if (options.root && options.task) throw Mistake("--task excludes --root");
}

void printVersion() {
    const char *libmount = nullptr;
    (void)mnt_get_library_version(&libmount);  // a number, of which the text is enough
    (void)std::printf("orvel-path %s (libmount %s)\n", ORVEL_VERSION, libmount);
}

}  // namespace

std::optional<int> parseOptions(int argc, char **argv, Options &options) try {
    char name[] = "orvel-path";  // not a whole path before getopt's messages
    if (argc > 0) argv[0] = name;
    int letter = 0;
    while ((letter = getopt_long(argc, argv, "wtN:0JnrqvhV", kOptions.data(), nullptr)) != -1) {
        if (letter == 'h') (void)std::fputs(kHelp + 1, stdout);
        if (letter == 'V') printVersion();
        if (letter == 'h' || letter == 'V') {
            finishOutput();
            return 0;
        }
        take(letter, options);
    }
    options.paths.assign(argv + optind, argv + argc);
    checkTogether(options);
    return std::nullopt;
} catch (const Mistake &mistake) {
    if (*mistake.what() != '\0') complain(mistake.what());
    (void)std::fputs("Try 'orvel-path --help' for more information.\n", stderr);
    return 2;
}

}  // namespace tool
