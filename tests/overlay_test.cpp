// SPDX-License-Identifier: MIT
// The overlay configuration: the string helpers, the file format with each of its complaints, and
// the mappings that follow.
#include <sys/mman.h>
#include <unistd.h>

#include <map>

#include "base/handles.hpp"
#include "overlay/config_reader.hpp"
#include "tests/support/support.hpp"

namespace {

using support::map, support::takeLog;

TEST(Strings, TrimTheirEnds) {
    EXPECT_EQ(trim("") + trim(" \t "), "");
    EXPECT_EQ(trim("\ta b \nx\r\v "), "a b \nx\r\v");  // other white space is ordinary
    for (const auto &[path, expected] :
         support::pairs("'' -> ''  / -> /  /// -> /  a/ -> a  /usr// -> /usr  /a/b -> /a/b"))
        EXPECT_EQ(trimTrailingSlash(path), expected);
}

TEST(Strings, ReplaceVariablesOnceAndInByteOrder) {
    const std::unordered_map<std::string, std::string> variables = {
        {"stage", "/s"}, {"none", ""}, {"Loop", "<Loop>x"}, {"A", "<B>"}, {"B", "b<A>"}};
    EXPECT_EQ(replaceVariables("<stage>/x<stage><none>", variables), "/s/x/s");
    EXPECT_EQ(replaceVariables("<Stage><other>< stage><stage", variables),
              "<Stage><other>< stage><stage");
    EXPECT_EQ(replaceVariables("<Loop>", variables), "<Loop>x");
    EXPECT_EQ(replaceVariables("<A>|<B>", variables), "b<A>|b<A>");  // A, then B
    EXPECT_EQ(splitValues("a = /a: /b ,, /c, "), (std::vector<std::string>{"a = /a", "/b", "/c"}));
}

// What parsing a file into a tree leaves: the tree, as "section.key=a|b;" for every key in byte
// order, and the log.
std::string parseFile(const std::string &path, SystemStage stage = StageSystem,
                      orvel::ConfigTree tree = {}) {
    const bool accepted = parseConfig(path, stage, tree);
    std::map<std::string, std::string> sorted;
    for (const auto &[section, keys] : tree)
        for (const auto &[key, values] : keys)
            for (auto &joined = sorted[section + "." + key]; const std::string &value : values)
                joined += (joined.empty() ? "" : "|") + value;
    std::string left;
    for (const auto &[name, joined] : sorted) left += name + "=" + joined + ";";
    const std::string log = takeLog();
    EXPECT_EQ(accepted, log.empty());
    return left + log;
}

std::string parse(const std::string &text, SystemStage stage = StageSystem,
                  const orvel::ConfigTree &tree = {}) {
    const int fd = memfd_create("conf", 0);
    EXPECT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    const std::string left = parseFile("/proc/self/fd/" + std::to_string(fd), stage, tree);
    close(fd);
    return left;
}

const std::string kGood = "[General]\nMode=n\n[Overlay]\nP=\n";
const std::string kGoodTree = "General.Mode=n;Overlay.P=;";

TEST(ParseConfig, AcceptsTheFormat) {
    const std::string example =
        "[Overlay]\nStageInitrd = /i\nPathPre = <stage>/d/<Deploy>\n[General]\nMode=a\n#\n \t\n"
        "Mode\t= n, x # c\n[u.l-N]\nU = /u: /v = w#\nL=<PathPre>/l\n[General]\nDeploy = 1.0";
    const auto expected = [](const std::string &pre) {
        return "General.Deploy=1.0;General.Mode=n|x;Overlay.PathPre=" + pre +
               ";Overlay.StageInitrd=/i;u/l-N.L=" + pre + "/l;u/l-N.U=/u|/v = w;";
    };
    const std::string longValue(100'000, 'v');
    EXPECT_EQ(parse(example), expected("/d/1.0"));
    EXPECT_EQ(parse(example, StageInitrd), expected("/i/d/1.0"));
    EXPECT_EQ(parse(example, static_cast<SystemStage>(7)), expected("/d/1.0"));
    EXPECT_EQ(parse(kGood + "[X] # its name\nx=1"), kGoodTree + "X.x=1;");
    EXPECT_EQ(parse(kGood + "[X]\n[ a]b ]\nx=<?>\r\n"), " a]b .x=<?>\r;" + kGoodTree);
    EXPECT_EQ(parse(kGood + "[z]\nx=" + longValue), kGoodTree + "z.x=" + longValue + ";");
}

TEST(ParseConfig, ReplacesSectionsOfTheTree) {
    EXPECT_EQ(parse(kGood, StageSystem, {{"General", {{"Old", {"x"}}}}, {"A", {{"k", {"1"}}}}}),
              "A.k=1;" + kGoodTree);
}

// A stream that fails after its first bytes, as of a disk with a bad block.
TEST(ParseConfig, DropsALineThatAReadErrorCuts) {
    const auto read = [](void *isRead, char *buffer, std::size_t) -> ssize_t {
        errno = EIO;
        if (std::exchange(*static_cast<bool *>(isRead), true)) return -1;
        return std::snprintf(buffer, 100, "[a]\nwhole=/usr/local\ncut=/usr/lo");
    };
    bool isRead = false;
    const orvel::File file(fopencookie(&isRead, "r", {read, nullptr, nullptr, nullptr}));
    orvel::RawTable table;
    EXPECT_EQ(orvel::readConfig(file.get(), table), 0U);
    EXPECT_EQ(table, orvel::RawTable({{"a", {{"whole", "/usr/local"}}}}));
}

TEST(ParseConfig, ComplainsOnceAndSaysWhatIsLeft) {
    const char *lack = "3 parseConfig: Lack of necessary sections (General or Overlay)\n";
    const char *noSection =
        "3 parseConfig: It was found that there was no section before the key-value pair\n";
    const char *invalid = "3 parseConfig: Invalid key-value pairs were found\n";
    const char *emptyValue = "3 parseConfig: The value is empty after replacing the variable\n";
    const std::pair<std::string, std::string> rows[] = {
        {"", lack},
        {"[General]\n[Overlay]\n", lack},
        {"[ General ]\nx=1\n[Overlay]\nx=1", lack},
        {"[General]\r\n", noSection},
        {"\xEF\xBB\xBF[General]\n", noSection},
        {"no equals sign either", noSection},
        {kGood + "[]\n", "3 parseConfig: An empty section name was found\n"},
        {kGood + "[a#b]\n", invalid},
        {kGood + "[\n[]\n", invalid},  // the first fault ends it
        {kGood + "=x\n", "3 parseConfig: An empty key name was found\n"},
        {kGood + "[Overlay]\nPathPre=<stage>",
         "3 parseConfig: The result of calculating the PathPre variable is empty\n"},
        // Sections before the faulty one, in byte order, are there.
        {kGood + "[a]\nx=, :\n[b]\nx=<stage>",
         kGoodTree + "3 parseConfig: The result after splitting the scores is empty\n"},
        {kGood + "[A]\nk=1\n[a]\nx=<stage>\ny=,", "A.k=1;" + kGoodTree + emptyValue},
    };
    for (const auto &[text, left] : rows) EXPECT_EQ(parse(text), left) << text;
    EXPECT_EQ(parseFile("/no/such"), "2 parseConfig: open file /no/such failed.\n");
    EXPECT_EQ(parseFile("/"), lack);  // opens, but cannot be read: an empty file
}

TEST(OverlayMappings, FollowTheMode) {
    orvel::ConfigTree tree = {{"lib-N", {{"LowerDir", {"/a", "/b/"}}, {"MergeDir", {"/m", "/x"}}}},
                              {"Lib-N", {{"UpperDir", {"/b/", "/u"}}, {"MergeDir", {"/first"}}}},
                              {"-M", {{"LowerDir", {"/l"}}, {"MergeDir", {"/maint"}}}},
                              {"x-N", {{"LowerDir", {"/l"}}}}};
    std::string mode = "before";
    EXPECT_EQ(getOverlayMountMappings(tree, mode), map(""));
    tree["General"]["Mode"] = {};
    EXPECT_EQ(getOverlayMountMappings(tree, mode), map(""));
    EXPECT_EQ(mode, "before");
    tree["General"]["Mode"] = {"normal",
                               "Normal"};  // of two sections the later in byte order counts
    EXPECT_EQ(getOverlayMountMappings(tree, mode), map("/a -> /m  /b/ -> /m  /u -> /first"));
    tree["General"]["Mode"] = {"Normal"};
    EXPECT_EQ(getOverlayMountMappings(tree, mode), map("/l -> /maint"));
    const std::string function = " getOverlayMountMappings: ";
    EXPECT_EQ(mode + takeLog(),
              "Normal3" + function + "The General section was not found\n3" + function +
                  "The Mode configuration was not found or the Mode value is empty\n2" + function +
                  "in section x-N MergeDir was not found or its value is empty\n");
}

}  // namespace
