// SPDX-License-Identifier: MIT
// orvel-path: the path under which the running system shows a file, from the command line.
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "base/handles.hpp"
#include "base/log.hpp"
#include "tools/check_config.hpp"
#include "tools/explain.hpp"
#include "tools/host_log.hpp"
#include "tools/inquiry.hpp"
#include "tools/json.hpp"
#include "tools/options.hpp"
#include "tools/origin.hpp"
#include "tools/output.hpp"
#include "tools/root.hpp"

namespace {

using tool::Options;

enum ExitStatus { kDone = 0, kRefused = 1, kFailed = 2 };

void printTable(const Options &options) {
    const tool::Rows rows = toRows(tool::readTable());
    if (options.json)
        tool::print(toJson(rows));
    else
        tool::print(rows, options.separator);
}

tool::Json toJson(const tool::Answer &answer) {
    tool::Json object;
    tool::put(object, "path", answer.path);
    if (answer.normalized)
        tool::put(object, "normalized", *answer.normalized);
    else
        tool::put(object, "refused", answer.reason);
    return object;
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
    bool hadRefusals = false;
    tool::Explainer explainer;
    tool::JsonArray array;
    tool::Inquiry inquiry([&](const tool::Answer &answer) {
        hadRefusals = hadRefusals || !answer.normalized;
        if (options.json) {
            tool::Json object = toJson(answer);
            if (options.why) explainer.explain(answer, object);
            return array.add(object);
        }
        if (options.why) return explainer.explain(answer, options.separator);
        tool::writeItem(answer.normalized.value_or(answer.path), options.separator);
        if (!answer.normalized) tool::complain("'" + answer.path + "': " + answer.reason);
    });
    for (const std::string &path : options.paths) inquiry.ask(path);
    if (options.paths.empty()) askStandardInput(inquiry, options.separator);
    inquiry.finish();
    if (options.json) array.finish();
    return !hadRefusals;
}

bool checkConfig(const Options &options) {
    const std::string file = options.paths.empty() ? orvel::kConfigPath : options.paths.front();
    const SystemStage stage = options.stage == "initrd" ? StageInitrd : StageSystem;
    return tool::checkConfig(file, stage, options.json);
}

// The root is entered before the first look at the system; every library is loaded by then.
ExitStatus run(const Options &options) {
    tool::setLogLevel(orvel::log::Error + (options.quiet ? 1 : -options.verbosity));
    if (options.root)
        tool::enterRoot(*options.root);
    else if (!options.checkConfig)
        tool::requireProc("/");
    bool isDone = true;
    if (options.table)
        printTable(options);
    else
        isDone = options.checkConfig ? checkConfig(options) : askPaths(options);
    tool::finishOutput();
    return isDone ? kDone : kRefused;
}

}  // namespace

int main(int argc, char **argv) try {
    (void)std::setlocale(LC_CTYPE, "");  // or what can be printed stays ASCII
    Options options;
    return tool::parseOptions(argc, argv, options) ? run(options) : kDone;
} catch (const std::exception &error) {
    tool::setLogLevel(orvel::log::Error);  // a failure is told, also quietly
    tool::complain(error.what());
    return kFailed;
}
