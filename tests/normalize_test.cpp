// SPDX-License-Identifier: MIT
// The limiter, the rules of the core, and the two entry points with every line that they log.
#include <chrono>
#include <fstream>
#include <memory>
#include <optional>

#include "base/handles.hpp"
#include "include/orvel_core.h"
#include "normalize/rate_limiter.hpp"
#include "tests/support/support.hpp"

namespace {

using support::pairs;
using support::takeLog;

TEST(Limiter, RefillsByWholeStepsSinceTheLastRefill) {
    constexpr std::int64_t kMs = 1'000'000;
    orvel::TokenBucket bucket(0);
    const std::pair<std::int64_t, int> rows[] = {
        {0, 100},        {10 * kMs - 1, 0}, {10 * kMs, 1},
        {35 * kMs, 2},                                      // the half step is dropped
        {44 * kMs, 0},   {53 * kMs, 1},     {62 * kMs, 0},  // every 9 ms
        {68 * kMs, 1},   {83 * kMs, 1},     {98 * kMs, 1},  // every 15 ms
        {kMs * kMs, 100}};
    for (const auto &[now, expected] : rows) {
        int taken = 0;
        while (bucket.take(now)) ++taken;
        EXPECT_EQ(taken, expected) << now;
    }
}

TEST(Core, FindsDotComponents) {
    for (const char *path : {"..", "/./", "/a//./b", "/.", "/a/../b", "a/..", "./a", "../a"})
        EXPECT_TRUE(containsDotComponents(path)) << path;
    for (const char *path :
         {"", ".", "/", "/a/..b", "/a/.b", "/a/b.", "/...", "..a", "a..", "a./b"})
        EXPECT_FALSE(containsDotComponents(path)) << path;
}

TEST(Core, AppliesTheFirstEntryOnAComponentBoundary) {
    const orvel::MappingList list =
        pairs("'' -> /never  /s/c/usr -> /usr  /d/ -> /e  /a -> /x  /a/b -> /y  /s/c -> /");
    for (const auto &[path, expected] :
         pairs("'' -> ''  /s/c/usr -> /usr  /s/c/usr/bin -> /usr/bin  /s/c/usrx -> /usrx"
               "  /s/cx -> /s/cx  /s/c -> /  /s/c/ -> /  /d/f -> /ef  /d -> /d  /a/b/c -> /x/b/c  "
               "s/c -> s/c"))
        EXPECT_EQ(checkBindMountPoint(list, path), expected);
    EXPECT_EQ(checkBindMountPoint({{"/", "/r/"}}, "/etc"), "/r/etc");
    EXPECT_EQ(replaceBeginString("/a", "", "/x") + replaceBeginString("/a", "/ab", "/x"), "/a/a");
}

// A root without a mount table, where the configuration alone maps a layer to a merged directory.
class ConfiguredRoot {
public:
    ConfiguredRoot(const std::string &layer, const std::string &merged) {
        mounts_.run("mkdir -p ostree/pkgs");
        std::ofstream(mounts_.path() + "/ostree/pkgs/system-ovl.conf")
            << "[General]\nMode=normal\n[Overlay]\nx=\n[o-N]\nLowerDir=" << layer
            << "\nMergeDir=" << merged;
        chroot_.emplace(mounts_.path());
    }

private:
    support::PrivateMounts mounts_;
    std::optional<support::Chroot> chroot_;
};

const std::string kLook = "3 processMountInfo: Unable to parse /proc/self/mountinfo\n";

TEST(Core, AppliesItsRulesInOrder) {
    SKIP_WITHOUT_ROOT();
    const ConfiguredRoot root("/sysroot/os/var", "/var");
    const std::string longest = "/sysroot/os/var/" + std::string(4096 - 16, 'x');
    orvel::MappingList rows = pairs(
        "/tmproot/os/var/lib -> /var/lib  /tmprootx -> /sysrootx  /var/opt/ -> /opt/  "
        "/sysroot/os/var/tmp/a -> /tmp/a"
        "  /var/srv/a -> /srv/a  /var/mnt/a -> /mnt/a  /var/tmp -> /var/tmp  /var/tmpx/ -> "
        "/var/tmpx/"
        "  /sysroot/os/varx -> /sysroot/os/varx");
    rows.emplace_back(longest, longest.substr(11));
    const std::size_t looks = rows.size();
    for (const std::string &alone :
         {std::string(), std::string("/"), std::string("var/tmp/a"), longest + "x"})
        rows.emplace_back(alone, alone);
    std::vector<std::string> paths, results;
    for (const auto &[path, expected] : rows) {
        EXPECT_EQ(_pathNormalize(path), expected);
        paths.push_back(path);
        results.push_back(expected);
    }
    EXPECT_EQ(_batchPathNormalize(paths), results);
    EXPECT_EQ(_batchPathNormalize({}).size(), 0U);
    EXPECT_EQ(takeLog().size(), (looks + 2) * kLook.size());
}

using Record = std::unique_ptr<path_normalize_result_t, orvel::Releaser<freeBatchPathNormalize>>;

// What a caller gets, "path|path|" or "null ERRNO", followed by the lines logged, shortened: "#"
// instead of the entry point's name.
std::string ask(const std::vector<const char *> &paths, bool batch) {
    const orvel::MallocString single(batch ? nullptr : pathNormalize(paths[0]));
    const Record record(batch ? batchPathNormalize(paths.data(), paths.size()) : nullptr);
    const int error = errno;
    const support::Unfailing unfailing;
    std::string answer;
    if (single) answer = single.get() + std::string("|");
    for (std::size_t i = 0; record && i < paths.size(); ++i)
        answer.append(record->paths[i]).append("|");
    answer = (answer.empty() ? std::string("null ") + strerrorname_np(error) : answer) + "\n" +
             takeLog();
    const std::string name = batch ? "batchPathNormalize: " : "pathNormalize: ";
    for (std::size_t at = 0; (at = answer.find(name, at)) != answer.npos; at += 2)
        answer.replace(at, name.size(), "# ");
    return answer;
}

TEST(EntryPoints, LogEveryStepOfTheirWay) {
    SKIP_WITHOUT_ROOT();
    const ConfiguredRoot root("/l", "/" + std::string(200, 'm'));
    const std::string merged = "/" + std::string(200, 'm');
    const std::string fits = "/l/" + std::string(4096 - 202, 'x'), over = fits + "x";
    const std::string input = "/" + std::string(4094, 'i'), tooLong = input + "i";
    const auto in = [](const std::string &path) { return "1 # input path : " + path + "\n"; };
    const auto out = [](const std::string &path) { return "1 # return path : " + path + "\n"; };
    const std::string invalid = "null EINVAL\n3 # input path is invalid (null or empty)\n";
    const std::pair<const char *, std::string> single[] = {
        {nullptr, invalid},
        {"", invalid},
        {"/..",
         "null EINVAL\n2 # input path contains dot components (. or ..), returning original path: "
         "/..\n"},
        {"/l/%s", merged + "/%s|\n" + in("/l/%s") + kLook + out(merged + "/%s")},
        {input.c_str(), input + "|\n" + in(input) + kLook + out(input)},
        {tooLong.c_str(),
         "null ENAMETOOLONG\n" + in(tooLong) + "3 # input path is too long: " + tooLong + "\n"},
        {fits.c_str(),
         merged + fits.substr(2) + "|\n" + in(fits) + kLook + out(merged + fits.substr(2))},
        {over.c_str(),
         "null ENAMETOOLONG\n" + in(over) + kLook + "3 # result path is too long: " + over + "\n"},
    };
    for (const auto &[path, expected] : single) EXPECT_EQ(ask({path}, false), expected);

    const std::string begin =
        "1 # start batch path normalize, total count: 2\n1 # the 0-th input path: /l/a\n";
    const std::string looked = kLook + "0 # the 0-th normalized path: " + merged + "/a\n";
    const std::pair<const char *, std::string> second[] = {
        {"b",
         merged + "/a|b|\n" + begin + "1 # the 1-th input path: b\n" + looked +
             "0 # the 1-th normalized path: b\n1 # batch path normalize success, total count: 2\n"},
        {nullptr, "null EINVAL\n" + begin + "3 # the 1-th input path is nullptr\n"},
        {"", "null EINVAL\n" + begin + "3 # the 1-th input path is empty\n"},
        {"/..", "null EINVAL\n" + begin +
                    "2 # the 1-th input path contains dot components (. or ..): /..\n"},
        {tooLong.c_str(), "null ENAMETOOLONG\n" + begin +
                              "3 # the 1-th input path exceeds maximum length: " + tooLong + "\n"},
        {over.c_str(), "null ENAMETOOLONG\n" + begin + "1 # the 1-th input path: " + over + "\n" +
                           looked + "3 # the 1-th normalized path is too long: " + over + "\n"},
    };
    for (const auto &[path, expected] : second) EXPECT_EQ(ask({"/l/a", path}, true), expected);
    EXPECT_EQ(ask({}, true), "null EINVAL\n3 # input paths pointer is nullptr\n");
    EXPECT_EQ(ask(std::vector<const char *>(1001, "b"), true),
              "null E2BIG\n3 # input paths count 1001 exceeds maximum allowed 1000\n");
    EXPECT_TRUE(ask(std::vector<const char *>(1000, "b"), true).starts_with("b|b|"));
    const char *const path = "/a";
    errno = 0;
    EXPECT_EQ(batchPathNormalize(&path, 0), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(takeLog(), "3 batchPathNormalize: input paths count is 0\n");
}

TEST(EntryPoints, NeverHandOutWhatACallerWouldMisread) {
    SKIP_WITHOUT_ROOT();
    const ConfiguredRoot root("/l", std::string("/m\0x", 4));  // cut at its NUL it is another path
    EXPECT_EQ(ask({"/l/a"}, false), "null EILSEQ\n1 # input path : /l/a\n" + kLook +
                                        "3 # result path contains a NUL byte: /l/a\n");
    const std::string answer = ask({"a", "/l/a"}, true);
    EXPECT_TRUE(answer.starts_with("null EILSEQ\n")) << answer;
    EXPECT_TRUE(answer.ends_with("3 # the 1-th normalized path contains a NUL byte: /l/a\n"))
        << answer;
}

TEST(EntryPoints, AreRefusedWithAnEmptyBucket) {
    while (orvel::checkRateLimit()) continue;
    const std::string refusal =
        "null EAGAIN\n2 # pathNormalize call rate limit exceeded, rejecting request\n";
    EXPECT_EQ(ask({nullptr}, false), refusal);
    EXPECT_EQ(ask({}, true), refusal);
}

// With a mount table and a configuration to read.
TEST(EntryPoints, SurviveWhateverFails) {
    SKIP_WITHOUT_ROOT();
    const support::PrivateMounts mounts;
    mounts.run("mkdir work; " MAKE_HOST " work");
    const support::Chroot root(mounts / "work/host");
    const std::vector<const char *> paths = {"/var/overlay/usr-local/x",
                                             "/sysroot/ostree/deploy/example/var/y"};
    const std::string noTable = "/usr/local/x|/sysroot/ostree/deploy/example/var/y|",
                      noOverlay = "/var/overlay/usr-local/x|/var/y|";
    const auto isRefusal = [&](const std::string &answer) {
        const std::size_t failure = answer.find("\n3 # ");
        const bool isKnown = answer.find("\n3 # malloc failed") == failure ||
                             answer.find("error: std::bad_alloc", failure) != answer.npos;
        return (failure != answer.npos && isKnown && answer.starts_with("null ENOMEM\n") &&
                answer.find('\n', failure + 1) == answer.size() - 1) ||
               (answer.find("\n3 processMountInfo: ") != answer.npos &&
                noTable.starts_with(answer.substr(0, answer.find("\n"))));
    };
    support::failInTurn([&] { return ask(paths, false); }, isRefusal);
    support::failInTurn([&] { return ask(paths, true); }, isRefusal);

    const struct {
        std::string failing, answer, line;
    } rows[] = {
        {"mnt_new_table", noTable,
         "3 processMountInfo: The libmount table cannot be initialized\n"},
        {"mnt_table_parse_file", noTable,
         "3 processMountInfo: Unable to parse /proc/self/mountinfo\n"},
        {"mnt_table_next_fs", noTable, ""},
        {"mnt_new_iter", "null ENOMEM",
         "3 # catch std exception, error: std::bad_alloc, input count: 2\n"},
        {"realpath", "/usr/local/x|/var/y|", ""},
        {"fopen", noOverlay, "2 parseConfig: open file /ostree/pkgs/system-ovl.conf failed.\n"},
    };
    for (const auto &[failing, answer, line] : rows) {
        support::ahead += std::chrono::milliseconds(10);
        support::failingCall = failing;
        const std::string actual = ask(paths, true);
        support::failingCall.clear();
        EXPECT_TRUE(actual.starts_with(answer + "\n") && actual.find(line) != actual.npos)
            << actual;
    }
}

}  // namespace
