// SPDX-License-Identifier: MIT
// orvel-path: the path under which the running system shows a file, from the command line.
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "base/handles.hpp"
#include "base/log.hpp"
#include "tools/log.hpp"
#include "tools/modes.hpp"
#include "tools/options.hpp"
#include "tools/root.hpp"

namespace {

using tool::Answer;
using tool::Mode;
using tool::Options;

enum ExitStatus { kDone = 0, kFoundFaults = 1, kFailed = 2 };

// getdelim, not std::getline: a path may be of any length, and exhaustion must not look like the
// end.
void askStandardInput(tool::Normalizer &normalizer, char separator) {
    char *line = nullptr;
    std::size_t capacity = 0;
    ssize_t length = 0;
    while ((length = getdelim(&line, &capacity, separator, stdin)) >= 0) {
        std::string path(line, static_cast<std::size_t>(length));
        if (path.ends_with(separator)) path.pop_back();
        normalizer.ask(std::move(path));
    }
    const int error = errno;
    const orvel::MallocString owned(line);
    if (std::feof(stdin) == 0)
        throw std::runtime_error(std::string("standard input: ") + std::strerror(error));
}

// Arguments, or else standard input.
ExitStatus answerPaths(const Options &options) {
    ExitStatus status = kDone;
    const tool::Host host = options.mode == Mode::Paths ? tool::Host{} : tool::readHost();
    tool::AnswerStream answers(options.format);
    tool::Normalizer normalizer([&](const tool::Normalized &normalized) {
        if (!normalized.form) status = kFoundFaults;
        answers.add(options.mode == Mode::Why     ? why(host, normalized)
                    : options.mode == Mode::Names ? names(host, normalized)
                                                  : answerOf(normalized));
    });
    for (const std::string &path : options.paths) normalizer.ask(path);
    if (options.paths.empty()) askStandardInput(normalizer, options.format.separator);
    normalizer.finish();
    answers.finish();
    return status;
}

ExitStatus answerOnce(const Options &options) {
    if (options.mode == Mode::Table) {
        print(table(tool::readHost()), options.format);
        return kDone;
    }
    if (options.mode == Mode::CheckConfig) {
        const Answer answer =
            tool::checkConfig(options.paths.empty() ? orvel::kConfigPath : options.paths.front(),
                              options.stage.value_or(StageSystem));
        print(answer, options.format);
        const bool isGood =
            answer.json["accepted"] && !(options.strict && !answer.json["remarks"].empty());
        return isGood ? kDone : kFoundFaults;
    }
    const Answer answer = checkHost(tool::readHost());
    print(answer, options.format);
    for (const tool::Json &finding : answer.json)
        if (finding["severity"] == "error") return kFoundFaults;
    return kDone;
}

// The root is entered before the first look at the system; every library is loaded by then.
ExitStatus run(const Options &options) {
    tool::setLogLevel(orvel::log::Error + (options.quiet ? 1 : -options.verbosity));
    if (options.root)
        tool::enterRoot(*options.root);
    else if (options.task)
        tool::enterTask(*options.task);
    else if (options.mode != Mode::CheckConfig)
        tool::requireProc("/");
    if (options.root && options.mode != Mode::CheckHost) tool::requireDeviceNodes(*options.root);
    const bool hasPaths =
        options.mode == Mode::Paths || options.mode == Mode::Why || options.mode == Mode::Names;
    const ExitStatus status = hasPaths ? answerPaths(options) : answerOnce(options);
    tool::finishOutput();
    return status;
}

}  // namespace

int main(int argc, char **argv) try {
    (void)std::setlocale(LC_CTYPE, "");  // or what can be printed stays ASCII
    Options options;
    const std::optional<int> status = tool::parseOptions(argc, argv, options);
    return status ? *status : run(options);
} catch (const std::exception &error) {
    tool::setLogLevel(orvel::log::Error);  // a failure is reported even if --quiet is given
    tool::complain(error.what());
    return kFailed;
}
