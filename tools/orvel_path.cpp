// SPDX-License-Identifier: MIT
// orvel-path: the path under which the running system shows a file, from the command line.
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <utility>

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

// Answers what has been read if the input pauses, so that "tail -f log | orvel-path" works. The
// pause is the time in which the library's rate limit allows another call.
void askStandardInput(tool::Normalizer &normalizer, char separator) {
    constexpr int kPauseMs = 10;
    std::string line;
    std::array<char, 65536> block;
    while (true) {
        pollfd input = {STDIN_FILENO, POLLIN, 0};
        if (poll(&input, 1, kPauseMs) == 0) normalizer.finish();
        const ssize_t length = read(STDIN_FILENO, block.data(), block.size());
        if (length < 0 && errno == EINTR) continue;
        if (length < 0)
            throw std::runtime_error(std::string("standard input: ") + std::strerror(errno));
        if (length == 0) break;
        std::string_view rest(block.data(), static_cast<std::size_t>(length));
        while (true) {
            const std::size_t end = rest.find(separator);
            line.append(rest.substr(0, end));
            if (end == std::string_view::npos) break;
            normalizer.ask(std::exchange(line, {}));
            rest.remove_prefix(end + 1);
        }
    }
    if (!line.empty()) normalizer.ask(line);  // the last line may have no end
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
        const bool isFaulty = options.strict && !answer.json["remarks"].empty();
        return answer.json["accepted"] && !isFaulty ? kDone : kFoundFaults;
    }
    const Answer answer = checkHost(tool::readHost());
    print(answer, options.format);
    for (const tool::Json &finding : answer.json)
        if (finding["severity"] == "error") return kFoundFaults;
    return kDone;
}

// Enters the root before it reads anything of the system; every library is loaded by then.
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
