// SPDX-License-Identifier: MIT
// The file and directory utilities: answers, codes and messages; then what an attacker, a deep
// tree, few descriptors, a small stack or no memory can do to them.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <atomic>
#include <clocale>
#include <filesystem>
#include <regex>
#include <set>
#include <thread>

#include "base/bounded.hpp"
#include "base/handles.hpp"
#include "fileutil/directory_chain.hpp"
#include "include/orvel_core.h"
#include "tests/support/support.hpp"

namespace {

using support::Scratch;

// errno before each EXPECT_CALL. A success keeps it.
constexpr int kKept = 7777;

// Compares the result of a call and errno after it.
#define EXPECT_CALL(call, result, error)    \
    do {                                    \
        errno = kKept;                      \
        const auto actual = call;           \
        const int after = errno;            \
        EXPECT_EQ(actual, result) << #call; \
        EXPECT_EQ(after, error) << #call;   \
    } while (0)

std::string text(char *result) {
    const support::Unfailing unfailing;
    const orvel::MallocString owned(result);
    return result ? result : "null";
}

#ifndef ORVEL_HAVE_BOUNDSCHECK
TEST(BoundedCopies, WriteAllOrNothing) {
    char text[] = "abc";
    EXPECT_EQ(memcpy_s(text, 2, "xyz", 3), ERANGE);
    EXPECT_EQ(memset_s(text, 2, 'x', 3), ERANGE);
    EXPECT_EQ(strcat_s(text, sizeof text, "d"), ERANGE);
    EXPECT_EQ(memcpy_s(text, 2, nullptr, 1), EINVAL);
    EXPECT_EQ(memset_s(nullptr, 2, 'x', 1), EINVAL);
    EXPECT_EQ(strcat_s(text, sizeof text, nullptr), EINVAL);
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(memset_s(text, 3, 'x', 2), 0);
    EXPECT_EQ(memcpy_s(text + 1, 2, "yz", 2), 0);
    EXPECT_STREQ(text, "xyz");
    text[2] = '\0';
    EXPECT_EQ(strcat_s(text, sizeof text, "!"), 0);
    EXPECT_STREQ(text, "xy!");
}
#endif

TEST(Strings, LtrimAnywayDropsAllBlanks) {
    char blanks[] = " a b\tc ";
    EXPECT_CALL(ltrim_anyway(blanks), 7U, kKept);
    EXPECT_STREQ(blanks, "abc");
    EXPECT_CALL(ltrim_anyway(nullptr), 0U, EINVAL);
    std::string blanksBeyond = std::string(3000, ' ') + "x";
    EXPECT_EQ(ltrim_anyway(blanksBeyond.data()), 2048U);
    EXPECT_STREQ(blanksBeyond.c_str(), "x");
}

TEST(Strings, StrrpcReplacesFromLeftToRight) {
    const std::string a(3000, 'a');
    EXPECT_EQ(text(strrpc("ab-ab", "ab", "x")), "x-x");
    EXPECT_EQ(text(strrpc("ab-ab", "ab", nullptr)), "-");
    EXPECT_EQ(text(strrpc("aaa", "aa", "baa")), "baaa");
    EXPECT_EQ(text(strrpc("ab", "abc", "")), "ab");
    EXPECT_EQ(text(strrpc(a.c_str(), "a", "bc")).size(), 4096U);
    EXPECT_EQ(text(strrpc("xyx", "x", a.c_str())).size(), 4097U);
    const std::string cut(2047, 'x');  // the second byte of a match is not read
    EXPECT_EQ(text(strrpc((cut + "ab").c_str(), "ab", "")), cut + "a");
    for (const char *none : {static_cast<const char *>(nullptr), ""}) {
        EXPECT_CALL(strrpc(none, "a", "b"), nullptr, EINVAL);
        EXPECT_CALL(strrpc("a", none, "b"), nullptr, EINVAL);
    }
}

TEST(Time, IsNow) {
    struct tm now = {};
    errno = kKept;
    get_current_time(&now);
    EXPECT_GT(now.tm_year, 100);
    setenv("LC_ALL", "C.UTF-8", 1);
    EXPECT_CALL(text(get_time_str()).size(), 19U, kKept);
    EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), "C.UTF-8");
    get_current_time(nullptr);
    EXPECT_EQ(errno, EINVAL);
}

TEST(PathUtilities, LookAtLinksAndResolveTheirDirectories) {
    const Scratch at;
    at.run("mkdir d; touch f; ln f hard; ln -s f link; ln -s d dlink; ln -s no dangling");
    ASSERT_EQ(chdir(at.path().c_str()), 0);
    for (const auto &[file, expected] : support::pairs(
             "d/../f -> f  link -> link  dlink/../link -> link  dlink/ -> d  dangling -> dangling"))
        EXPECT_EQ(text(get_absolute_path(file.c_str())), at / expected);
    EXPECT_CALL(get_absolute_path("no"), nullptr, ENOENT);
    EXPECT_CALL(get_absolute_path(""), nullptr, ENOENT);
    EXPECT_CALL(get_absolute_path("/"), nullptr, ENOENT);
    EXPECT_CALL(get_absolute_path(nullptr), nullptr, EINVAL);
    support::failingCall = "realpath";
    EXPECT_EQ(text(get_absolute_path("d/../link")), "null");
    support::failingCall.clear();
    std::string answers;
    for (const char *name :
         {"d", "f", "link", "dlink", "dangling", "no", static_cast<const char *>(nullptr)})
        answers += std::to_string(path_is_exist(name)) + std::to_string(path_is_dir(name)) +
                   std::to_string(path_is_link(name)) + " ";
    EXPECT_EQ(answers, "110 100 101 101 101 -100 -100 ");
    EXPECT_CALL(path_is_dir("d"), 1, kKept);
    EXPECT_CALL(path_is_exist(nullptr), -1, EINVAL);
    EXPECT_CALL(path_is_same("f", "hard"), 1, kKept);
    EXPECT_CALL(path_is_same("f", "link"), 0, kKept);
    EXPECT_CALL(path_is_same("f", "d"), 0, kKept);
    EXPECT_CALL(path_is_same("f", "no"), -1, ENOENT);
    EXPECT_CALL(path_is_same(nullptr, "f"), -1, EINVAL);
}

TEST(PathUtilities, InTheRootAndAtMountPoints) {
    SKIP_WITHOUT_ROOT();
    const support::PrivateMounts at;
    at.run(R"(mkdir a 'b c' t; mount -t tmpfs one a; mount --bind a 'b c'; mount -t tmpfs two t
              ln -s a link)");
    const auto ask = [&](const char *a, const char *b) {
        return path_is_mount_bind((at / a).c_str(), (at / b).c_str());
    };
    EXPECT_CALL(ask("a", "b c"), 1, kKept);
    EXPECT_CALL(ask("a", "t"), 0, kKept);
    EXPECT_CALL(ask("a", "a/"), 0, kKept);
    at.run("mount -t tmpfs two 'b c'");  // the top-most mount wins
    EXPECT_EQ(ask("t", "b c"), 1);
    EXPECT_CALL(path_is_mount_bind("", "/"), -1, ENOENT);
    EXPECT_CALL(path_is_mount_bind("/", nullptr), -1, EINVAL);
    const support::Chroot chroot(at.path());
    EXPECT_EQ(text(get_absolute_path("/link")), "/link");
    EXPECT_EQ(text(get_absolute_path("//link")), "/link");
}

using Listing = char **(*)(const char *, int *);

// A listing's paths in order, each followed by a blank, those below base relative to it.
std::string list(Listing listing, const std::string &dir, const std::string &base) {
    int count = 0;
    char **paths = listing(dir.c_str(), &count);
    const support::Unfailing unfailing;
    std::string all = paths ? "" : "null " + std::to_string(count);
    for (int i = 0; paths && i < count; ++i) {
        const std::string path = text(paths[i]);
        all += (path.starts_with(base) ? "." + path.substr(base.size()) : path) + " ";
    }
    std::free(static_cast<void *>(paths));
    return all;
}

TEST(Listings, HaveTheirOrder) {
    const Scratch at;
    at.run("mkdir -p d/s/t e/x..y; touch d/s/t/a e/x..y/f; ln -s /etc d/s/t/link; ln -s d link");
    const std::string files = list(get_file_list_from_dir, at / "d/", at / "d");
    EXPECT_TRUE(files == "./s/t/a ./s/t/link " || files == "./s/t/link ./s/t/a ") << files;
    EXPECT_EQ(list(get_path_list_from_dir, at / "d", at / "d"), files + "./s/t ./s/t ./s ./s . ");
    EXPECT_EQ(list(get_path_list_from_dir, at / "e/../link", at / "d"),  // the link's own path last
              files + "./s/t ./s/t ./s " + at / "link/s " + at / "link ");
    EXPECT_EQ(list(get_path_list_from_dir, at / "e/x..y", at / "e/x..y"), "./f . ");
    EXPECT_EQ(list(get_file_list_from_dir, at / "e", ""), "null 0");  // "..", so empty
    EXPECT_EQ(list(get_dir_list, at / "e/../link", at / "link"), "./s ");
    ASSERT_EQ(chdir(at.path().c_str()), 0);
    EXPECT_EQ(list(get_file_list_from_dir, "d", at / "d"), files);
    EXPECT_EQ(list(get_dir_list, "d", at / "d"), "./s ");
}

TEST(Listings, RefuseWhatIsNoDirectory) {
    const Scratch at;
    at.run("mkdir -p d/e empty; touch f; ln -s d link");
    ASSERT_EQ(chdir(at.path().c_str()), 0);
    int count = 0, one = 1;
    for (const Listing listing : {get_file_list_from_dir, get_path_list_from_dir, get_dir_list}) {
        EXPECT_CALL(listing(nullptr, &count), nullptr, EINVAL);
        EXPECT_CALL(listing("d", nullptr), nullptr, EINVAL);
        EXPECT_CALL(listing("d", &one), nullptr, EINVAL);
        EXPECT_CALL(listing("", &count), nullptr, ENOENT);
        EXPECT_CALL(listing("no", &count), nullptr, ENOENT);
        EXPECT_CALL(listing("f", &count), nullptr, ENOTDIR);
        EXPECT_EQ(count, 0);
        EXPECT_EQ(one, 1);
    }
    EXPECT_CALL(get_file_list_from_dir("d/../d", &count), nullptr, EINVAL);
    EXPECT_CALL(get_file_list_from_dir("link", &count), nullptr, ELOOP);
    EXPECT_CALL(get_file_list_from_dir("empty", &count), nullptr, kKept);
    EXPECT_CALL(get_dir_list("empty", &count), nullptr, kKept);
    EXPECT_CALL(list(get_dir_list, "d", "\n"), at / "d/e ", kKept);
}

TEST(Listings, OfTheRootHaveNoDoubledSlash) {
    SKIP_WITHOUT_ROOT();
    const support::PrivateMounts at;
    at.run("mkdir d; ln -s / d/R");
    const orvel::Fd outside(open("/", O_PATH));
    {
        const support::Chroot root(at.path());
        EXPECT_EQ(chdir("/"), 0);
        for (const char *dir : {"//", "/.", ".", "d/R/"}) {
            EXPECT_EQ(list(get_path_list_from_dir, dir, "\n"), "/d/R /d /d / ") << dir;
            EXPECT_EQ(list(get_dir_list, dir, "\n"), "/d ") << dir;
        }
        EXPECT_EQ(list(get_path_list_from_dir, "d/R", "\n"), "/d/R /d /d/R/d /d/R ");
        EXPECT_EQ(list(get_path_list_from_dir, "/", "\n"), "null 0");
        int count = 0;
        EXPECT_CALL(get_file_list_from_dir("/d", &count), nullptr, ENOENT);  // no /proc
        EXPECT_EQ(fchdir(outside.get()), 0);
    }
}

// Looking at debugfs's directory "tracing" does not mount tracefs there, opening it does.
TEST(Listings, EnterWhatOpeningMounts) {
    SKIP_WITHOUT_ROOT();
    const support::PrivateMounts at;
    at.run("mkdir d; mount -t debugfs d d 2> /dev/null || :");
    struct stat before = {};
    if (lstat((at / "d/tracing").c_str(), &before) != 0) GTEST_SKIP() << "no debugfs with tracing";
    const std::string tracing = at / "d/tracing";
    EXPECT_TRUE(orvel::open_automounted(AT_FDCWD, tracing.c_str(), O_RDONLY, before));
    at.run("umount d/tracing");
    EXPECT_NE(list(get_file_list_from_dir, at / "d", at / "d").find("./tracing/README "),
              std::string::npos);
}

// Makes a call in the directory; its result, and what it wrote to standard error up to each colon.
std::string call(const Scratch &at, const std::function<int()> &function) {
    EXPECT_EQ(chdir(at.path().c_str()), 0);
    testing::internal::CaptureStderr();
    const std::string result = std::to_string(function());
    return result + std::regex_replace(testing::internal::GetCapturedStderr(),
                                       std::regex("([^:\n]*): [^\n]*\n"), " $1");
}

// All that there is, sorted.
std::string names(const std::string &directory) {
    std::istringstream words(list(get_path_list_from_dir, directory, directory));
    std::string all;
    for (const std::string &name :
         std::set<std::string>(std::istream_iterator<std::string>(words), {}))
        all += name + " ";
    return all;
}

TEST(RemoveDir, ReturnCodes) {
    const Scratch at;
    at.run("mkdir -p d/e; touch d/f file; ln -s d link; mkfifo fifo; mkdir a..b");
    ASSERT_EQ(chdir(at.path().c_str()), 0);
    EXPECT_CALL(remove_dir(nullptr), -1, EINVAL);
    EXPECT_CALL(remove_dir("a..b"), -1, EINVAL);
    EXPECT_CALL(remove_dir("link"), -1, ELOOP);
    EXPECT_CALL(remove_dir(""), 0, kKept);
    EXPECT_CALL(remove_dir("no/no"), 0, kKept);
    EXPECT_CALL(remove_dir("file/"), -2, ENOTDIR);
    EXPECT_CALL(remove_dir("file"), 0, kKept);
    EXPECT_CALL(remove_dir("d"), 0, kKept);
    EXPECT_EQ(names(at.path()), ". ./a..b ./fifo ./link ");
}

TEST(RemoveDir, KeepsLinksAndSpecialFiles) {
    const Scratch at;
    at.run(R"(mkdir -p t/d/e t/x t/y 't/new
line'; touch t/d/e/g 't/a b' t/x/a..b; ln -s ../f t/y/link; mkfifo t/fifo p; touch t/$(printf %0255d 0))");
    EXPECT_EQ(call(at, [] { return remove_dir("p"); }), "0 unknow file type!");
    EXPECT_EQ(call(at, [] { return remove_dir("p/x"); }), "-2 get directory stat error");
    EXPECT_EQ(call(at, [] { return remove_dir("t"); }), "0 unknow file type!");
    EXPECT_EQ(names(at.path()), ". ./p ./t ./t/fifo ./t/x ./t/x/a..b ./t/y ./t/y/link ");
}

TEST(RemoveDir, NeedsNoTypesFromTheFileSystem) {
    SKIP_WITHOUT_ROOT();
    const support::PrivateMounts at;
    at.run("mkdir m; truncate -s 2M disk; mkfs.ext2 -q -O ^filetype disk; mount -o loop disk m");
    at.run("mkdir -p m/t/d; touch m/t/d/f m/t/g; mkdir m/copy");
    EXPECT_EQ(copy_dir((at / "m/t").c_str(), (at / "m/copy").c_str()), 0);
    EXPECT_EQ(remove_dir((at / "m/t").c_str()), 0);
    at.run("test ! -e m/t; test -f m/copy/t/d/f; test -f m/copy/t/g");
}

TEST(CopyDir, ReturnCodes) {
    const Scratch at;
    at.run(
        "mkdir -p s y/q a..b; touch s/f y/file; ln -s s link; ln -s . y/p; cp -r s q; ln -s . p");
    ASSERT_EQ(chdir(at.path().c_str()), 0);
    EXPECT_CALL(copy_dir(nullptr, "y"), -1, EINVAL);
    EXPECT_CALL(copy_dir("./s", nullptr), -1, EINVAL);
    EXPECT_CALL(copy_dir("./no", "y"), -2, ENOENT);
    EXPECT_CALL(copy_dir("./s", "no"), -2, ENOENT);
    EXPECT_CALL(copy_dir("s", "y"), -1, EINVAL);   // no slash
    EXPECT_CALL(copy_dir("./p", "y"), -1, ELOOP);  // y/p is a link
    EXPECT_CALL(copy_dir("./s", "y/file"), -4, ENOTDIR);
    EXPECT_CALL(copy_dir("./q", "y"), -4, EEXIST);
    EXPECT_CALL(copy_dir("./s", "a..b"), -1, EINVAL);
    EXPECT_CALL(copy_dir("./s/../s", "y/q"), -1, EINVAL);
    EXPECT_CALL(copy_dir("./link", "y"), -1, ELOOP);  // by contract after it has made y/link
    EXPECT_CALL(copy_dir("./s", (std::string(4091, '/') + "tmp").c_str()), -1, ENAMETOOLONG);
    EXPECT_CALL(copy_dir("./s", "y"), 0, kKept);
    EXPECT_EQ(names(at / "y"), ". ./file ./link ./p ./q ./q/s ./s ./s/f ");
}

TEST(CopyDir, FollowsNoLinkAndSkipsSpecialFiles) {
    const Scratch at;
    at.run(R"(mkdir -p s/d/e y s/x..y; printf abc > s/f; chmod 750 s; mkfifo s/fifo
              ln -s f s/flink; ln -s d s/dlink; ln -s no s/dangling; touch s/d/a..b s/d/g)");
    EXPECT_EQ(call(at, [] { return copy_dir("./s/f", "y"); }), "-2 opendir error");
    EXPECT_EQ(call(at, [] { return copy_dir("./s/", "y/"); }), "0 unknow file type!");
    EXPECT_EQ(call(at, [] { return copy_dir("./s", "s/d"); }),
              "0 unknow file type!");  // into itself
    EXPECT_EQ(names(at / "y"), ". ./f ./s ./s/d ./s/d/e ./s/d/g ./s/dlink ./s/f ");
    EXPECT_EQ(names(at / "s/d"), ". ./a..b ./e ./g ./s ./s/d ./s/d/e ./s/d/g ./s/dlink ./s/f ");
    at.run("cmp s/f y/s/f; test $(stat -c %a y/s) = 750");
}

TEST(CopyFile, ReturnCodes) {
    const Scratch at;
    at.run(R"(mkdir s; printf abc > f; head -c 200000 /dev/urandom > old; cp old big
              ln -s f link; mkfifo fifo; touch a..b)");
    ASSERT_EQ(chdir(at.path().c_str()), 0);
    EXPECT_CALL(copy_file("f", "old"), 0, kKept);
    EXPECT_CALL(copy_file("big", "new"), 0, kKept);
    EXPECT_CALL(copy_file("f", "/dev/null"), 0, kKept);
    at.run("cmp f old; cmp big new");
    EXPECT_CALL(copy_file(nullptr, "new"), -1, EINVAL);
    EXPECT_CALL(copy_file("f", nullptr), -1, EINVAL);
    EXPECT_CALL(copy_file("a..b", "new"), -1, EINVAL);
    EXPECT_CALL(copy_file("f", "a..b"), -1, EINVAL);
    EXPECT_CALL(copy_file("link", "new"), -1, ELOOP);
    EXPECT_CALL(copy_file("f", "link"), -1, ELOOP);
    EXPECT_CALL(copy_file("no", "new"), -1, ENOENT);
    EXPECT_CALL(copy_file("f", "no/no"), -1, ENOENT);
    EXPECT_CALL(copy_file("s", "new"), -1, EISDIR);
    EXPECT_CALL(copy_file("f", "s"), -1, EISDIR);
    EXPECT_CALL(copy_file("fifo", "new"), -1, EINVAL);
}

TEST(RemovingAndCopying, AsAnOrdinaryUser) {
    SKIP_WITHOUT_ROOT();
    const Scratch at;
    at.run(
        "mkdir -p t/closed y; touch t/readonly; chmod 444 t/readonly; chown -R 65534 . t y; chmod "
        "0 t/closed"
        "; mkdir -p t/unsearchable/d; touch t/unsearchable/f; ln -s f t/unsearchable/l"
        "; chown -Rh 65534 t/unsearchable; chmod 444 t/unsearchable");
    std::thread([&] {
        (void)syscall(SYS_setresuid, 65534, 65534, 65534);  // raw: of this thread alone
        EXPECT_EQ(copy_file((at / "t/readonly").c_str(), (at / "y/z").c_str()), -1);
        EXPECT_EQ(call(at, [] { return remove_dir("t/unsearchable"); }),
                  "0 get directory stat error get directory stat error get directory stat error");
        at.run("chmod 755 t/unsearchable; rm -r t/unsearchable");
        EXPECT_EQ(call(at, [] { return copy_dir("./t", "y"); }), "0 opendir error");
        EXPECT_EQ(call(at, [] { return remove_dir("t/closed"); }), "-2 opendir error");
    }).join();
    EXPECT_EQ(names(at.path()), ". ./t ./t/closed ./t/readonly ./y ./y/t ./y/t/closed ");
}

// Exchanges a directory and a link in the tree, a file and a link, while it lives, and makes them
// when they are gone.
class Attacker {
public:
    explicit Attacker(std::string tree)
        : thread_([this, tree = std::move(tree)] {
              const std::string a = tree + "/a", b = tree + "/b", f = tree + "/f", g = tree + "/g";
              for (; !stop_; ++exchanges_) {
                  (void)renameat2(AT_FDCWD, f.c_str(), AT_FDCWD, g.c_str(), RENAME_EXCHANGE);
                  if (renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) == 0)
                      continue;
                  for (const std::string &name : {a, b, f, g})
                      (void)unlink(name.c_str());  // if it is the link
                  for (const std::string &name : {tree, a, a + "/dir"})
                      (void)mkdir(name.c_str(), 0755);
                  for (const std::string &name : {a + "/dir/file", f})
                      orvel::Fd(open(name.c_str(), O_CREAT | O_WRONLY, 0644));
                  (void)!(symlink("../outside", b.c_str()) +
                          symlink("../outside/sentinel", g.c_str()));
              }
          }) {}
    ~Attacker() {
        stop_ = true;
        thread_.join();
        EXPECT_GT(exchanges_, 5'000);
    }

private:
    std::atomic<bool> stop_ = false;
    std::atomic<int> exchanges_ = 0;
    std::thread thread_;
};

TEST(Race, NothingOutsideATreeIsTouched) {
    const Scratch at;
    at.run(
        "mkdir -p outside/dir copies; for f in sentinel dir/sentinel dir/file; do echo secret > "
        "outside/$f; done");
    const std::string copied = at / "copied", copies = at / "copies";
    testing::internal::CaptureStderr();  // there is much to complain of
    {
        const Attacker attacker(at / "tree");
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(4);
        while (std::chrono::steady_clock::now() < end) {
            for (const char *name : {"tree", "tree/a"}) {
                const std::string dir = at / name;
                const std::string seen = list(get_file_list_from_dir, dir, dir) +
                                         list(get_path_list_from_dir, at / "tree", dir);
                ASSERT_EQ(seen.find("sentinel"), seen.npos) << seen;
                (void)copy_dir(dir.c_str(), copies.c_str());
                (void)copy_file((at / "tree/f").c_str(), copied.c_str());
                (void)remove_dir(dir.c_str());
            }
            // Whatever was copied is empty, as the tree's own files are; what is outside is as it
            // was.
            at.run(
                "if grep -rq secret copies copied 2> /dev/null; then exit 1; fi; rm -rf copies/*;"
                "test $(cat outside/sentinel outside/dir/* | grep -c secret) = 3");
            ASSERT_EQ(names(at / "outside"), ". ./dir ./dir/file ./dir/sentinel ./sentinel ");
            ASSERT_FALSE(HasFailure());
        }
    }
    (void)testing::internal::GetCapturedStderr();
}

TEST(Race, ALinkIsNotOpenedForItsTarget) {
    const Scratch at;
    at.run("mkdir d; ln -s d link");
    struct stat target = {};
    ASSERT_EQ(stat((at / "link").c_str(), &target), 0);
    EXPECT_TRUE(orvel::open_examined(AT_FDCWD, (at / "d").c_str(), O_RDONLY, target));
    EXPECT_FALSE(orvel::open_examined(AT_FDCWD, (at / "link").c_str(), O_RDONLY, target));
    EXPECT_FALSE(orvel::open_automounted(AT_FDCWD, (at / "link").c_str(), O_RDONLY, target));
}

TEST(Race, ADirectoryMovedOutOfTheTreeEndsTheWayBack) {
    const Scratch at;
    at.run("mkdir -p t/1/2/3/4/5/6/7/8 elsewhere");
    orvel::DirectoryChain chain;
    std::string path = at / "t";
    for (int depth = 1; depth <= 9; path += "/" + std::to_string(depth++)) {
        struct stat status = {};
        ASSERT_EQ(lstat(path.c_str(), &status), 0);
        ASSERT_TRUE(chain.enter(orvel::Fd(open(path.c_str(), O_PATH)), status));
    }
    at.run("mv t/1 elsewhere");
    while (chain.depth() > 1) chain.leave();
    EXPECT_EQ(chain.fd(), -1);
}

// Runs a function on a thread with a small stack, with few descriptors to be had.
void runConfined(std::function<void()> function) {
    rlimit files = {};
    pthread_attr_t small;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &files), 0);
    ASSERT_EQ(pthread_attr_init(&small) + pthread_attr_setstacksize(&small, 256 * 1024), 0);
    const rlimit few = {32, files.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    pthread_t thread;
    const auto call = [](void *f) -> void * {
        return (*static_cast<std::function<void()> *>(f))(), f;
    };
    ASSERT_EQ(pthread_create(&thread, &small, call, &function), 0);
    pthread_join(thread, nullptr);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &files), 0);
}

auto openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST(Depth, NeedsNeitherStackNorDescriptors) {
    const Scratch at;
    const auto before = openDescriptors();
    orvel::Fd level(open(at.path().c_str(), O_PATH));
    for (int i = 0; i < 3000; ++i) {
        ASSERT_EQ(mkdirat(level.get(), "d", 0755), 0);
        level = orvel::Fd(openat(level.get(), "d", O_PATH));
        const orvel::Fd file(openat(level.get(), "f", O_CREAT | O_WRONLY, 0644));
    }
    level.reset(-1);
    at.run("mkdir copies");
    runConfined([&] {
        // One file at each level, as long as its path has at most 4096 bytes.
        const std::string files = list(get_file_list_from_dir, at / "d", "");
        EXPECT_EQ(std::count(files.begin(), files.end(), ' '), (4096 - at.path().size() - 2) / 2);
        EXPECT_EQ(copy_dir((at / "d").c_str(), (at / "copies").c_str()), 0);
        at.run(
            "before=$(printf $PWD/copies | wc -c)"
            "; test $(find copies -name f | wc -l) = $(((4095 - before) / 2 - 1))");
        EXPECT_EQ(remove_dir((at / "d").c_str()), 0);
        EXPECT_EQ(remove_dir((at / "copies").c_str()), 0);
    });
    EXPECT_EQ(names(at.path()), ". ");
    EXPECT_EQ(openDescriptors(), before);
}

// Makes a call with just so many descriptors free.
template <class Call>
auto withDescriptors(rlim_t free, const Call &call) {
    int highest = 0;
    for (int fd = 0; fd < 1024; ++fd)
        if (fcntl(fd, F_GETFD) >= 0) highest = fd;
    std::vector<orvel::Fd> holes;  // below that
    for (orvel::Fd fd(dup(0)); fd.get() < highest; fd = orvel::Fd(dup(0)))
        holes.push_back(std::move(fd));
    rlimit files = {};
    EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &files), 0);
    const rlimit few = {static_cast<rlim_t>(highest) + 1 + free, files.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    const auto result = call();
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &files), 0);
    return result;
}

TEST(Descriptors, ThatSufficeForALevelGiveAWholeResult) {
    const Scratch at;
    const std::string tree = at / "t", copies = at / "copies";
    at.run(
        "mkdir copies; d=t; for i in $(seq 12); do mkdir -p $d/a; touch $d/a/f $d/g; d=$d/a; done");
    const std::string whole = names(tree);
    testing::internal::CaptureStderr();
    for (rlim_t free = 0; free < 12; ++free) {
        for (const Listing listing : {get_file_list_from_dir, get_path_list_from_dir}) {
            const std::string all = list(listing, tree, tree);
            const std::string listed =
                withDescriptors(free, [&] { return list(listing, tree, tree); });
            EXPECT_TRUE(listed == all || (free < 4 && listed.starts_with("null")))
                << free << listed;
        }
        (void)withDescriptors(free, [&] { return copy_dir(tree.c_str(), copies.c_str()); });
        if (free >= 6) {
            EXPECT_EQ(names(copies + "/t"), whole) << free;
        }
        (void)remove_dir((copies + "/t").c_str());
        at.run("cp -r t victim");
        const std::string victim = at / "victim";
        (void)withDescriptors(free, [&] { return remove_dir(victim.c_str()); });
        EXPECT_TRUE(path_is_exist(victim.c_str()) == -1 || free < 4) << free;
        at.run("rm -rf victim; touch victim");
        EXPECT_EQ(withDescriptors(free, [&] { return remove_dir(victim.c_str()); }), 0);
        EXPECT_EQ(path_is_exist(victim.c_str()), -1) << free;
    }
    (void)testing::internal::GetCapturedStderr();
}

TEST(Memory, RunningOutGivesNoPartOfAList) {
    const Scratch at;
    at.run("mkdir -p t/s/u copies; cd t; touch $(seq 40); ln -s s link; cd s/u; touch $(seq 40)");
    const std::string dir = at / "t", link = at / "t/link", base;
    const auto isNull = [](const std::string &answer) { return answer.starts_with("null"); };
    const auto before = openDescriptors();
    for (const Listing listing : {get_file_list_from_dir, get_path_list_from_dir, get_dir_list})
        support::failInTurn([&] { return list(listing, dir, base); }, isNull);
    support::failInTurn([] { return text(strrpc("aba", "a", "xyz")); }, isNull);
    support::failInTurn([&] { return text(get_absolute_path(link.c_str())); }, isNull);
    // Copying and removing leave what they must, and nothing of their own; each undoes the other.
    const std::string copies = at / "copies", copy = copies + "/t";
    const std::string file = dir + "/1", other = copies + "/1";
    const auto any = [](const std::string &) { return true; };
    testing::internal::CaptureStderr();
    support::failInTurn(
        [&] {
            (void)(support::Unfailing(), remove_dir(copy.c_str()));
            return std::to_string(copy_dir(dir.c_str(), copies.c_str())) +
                   std::to_string(remove_dir(copy.c_str()));
        },
        any);
    support::failInTurn([&] { return std::to_string(copy_file(file.c_str(), other.c_str())); },
                        any);
    support::failInTurn(
        [&] {
            const int result = remove_dir(other.c_str());
            const bool isGone = path_is_exist(other.c_str()) == -1;
            (void)(support::Unfailing(), copy_file(file.c_str(), other.c_str()));
            return std::to_string(result) + (isGone ? " gone" : "");
        },
        [](const std::string &answer) { return answer == "0 gone"; });
    support::failInTurn([&] { return std::to_string(path_is_mount_bind("/proc", "/proc")); }, any);
    (void)testing::internal::GetCapturedStderr();
    EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
