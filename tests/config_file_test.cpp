// The small files of the configuration folder: what a reader finds in them, and what is left of
// them when a save is cut short at any of its calls.

#include "config_file.h"

#include "as_user.h"
#include "fresh_process.h"
#include "mounts_fixture.h"
#include "shim.h"
#include "test_env.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <functional>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using config_file::lines;
using config_file::overwrite;
using config_file::replace;
using config_file::value_start;
using test_env::exists;
using test_env::lstat_of;
using test_env::read_file;
using test_env::TempDir;
using test_env::write_file;

using Strings = std::vector<std::string>;

TEST(ConfigFile, lines_lose_their_ends_whatever_these_are) {
    EXPECT_EQ(lines(""), Strings{});
    EXPECT_EQ(lines("a"), Strings{"a"});
    EXPECT_EQ(lines("a\n"), Strings{"a"});
    EXPECT_EQ(lines("a\nb"), (Strings{"a", "b"}));
    EXPECT_EQ(lines("a\r\nb\r\r\n"), (Strings{"a", "b"}));
    EXPECT_EQ(lines("\n\na\n\n"), (Strings{"", "", "a", ""}));
    EXPECT_EQ(lines("a\rb\n"), Strings{"a\rb"});
    EXPECT_EQ(lines(std::string("a\0b\n", 4)), Strings{std::string("a\0b", 3)});
}

TEST(ConfigFile, a_value_begins_behind_the_colon_of_the_first_occurrence) {
    EXPECT_EQ(value_start("{\"k\": 1, \"k\": 2}", "k"), 5U);
    EXPECT_EQ(value_start("\"k\"  x\n:1", "k"), 8U);
    EXPECT_EQ(value_start("\"kk\": 1", "k"), std::string::npos);
    EXPECT_EQ(value_start("k: 1", "k"), std::string::npos);
    EXPECT_EQ(value_start(": \"k\" 1", "k"), std::string::npos);
    EXPECT_EQ(value_start("", "k"), std::string::npos);
}

TEST(ConfigFile, a_file_is_read_whole_and_a_failure_leaves_the_text) {
    const TempDir dir;
    const std::string content = test_env::pattern(100'000);
    write_file(dir / "file", content);
    std::string text = "before";
    ASSERT_TRUE(config_file::read(dir / "file", text));
    EXPECT_EQ(text, content);
    EXPECT_FALSE(config_file::read(dir / "none", text));
    EXPECT_FALSE(config_file::read(dir.path(), text));
    EXPECT_EQ(text, content);
    write_file(dir / "file", "");
    EXPECT_TRUE(config_file::read(dir / "file", text));
    EXPECT_EQ(text, "");
}

TEST(ConfigFile, a_replaced_file_is_another_one_and_an_overwritten_one_the_same) {
    const TempDir dir;
    write_file(dir / "file", "old and long");
    const ino_t first = lstat_of(dir / "file").st_ino;
    ASSERT_EQ(link((dir / "file").c_str(), (dir / "witness").c_str()), 0);
    ASSERT_TRUE(replace(dir / "file", "new\n"));
    EXPECT_EQ(read_file(dir / "file"), "new\n");
    EXPECT_NE(lstat_of(dir / "file").st_ino, first);
    EXPECT_EQ(read_file(dir / "witness"), "old and long");
    const ino_t second = lstat_of(dir / "file").st_ino;
    for (const char* text : {"longer than before\n", "x\n", "", "again\n"}) {
        ASSERT_TRUE(overwrite(dir / "file", text));
        EXPECT_EQ(read_file(dir / "file"), text);
        EXPECT_EQ(lstat_of(dir / "file").st_ino, second);
    }
    EXPECT_FALSE(exists(dir / "file.tmp"));
}

TEST(ConfigFile, a_stale_temporary_file_is_written_over) {
    const TempDir dir;
    write_file(dir / "file.tmp", std::string(1000, 'x'));
    ASSERT_TRUE(replace(dir / "file", "new\n"));
    EXPECT_EQ(read_file(dir / "file"), "new\n");
    EXPECT_FALSE(exists(dir / "file.tmp"));
}

TEST(ConfigFile, a_failed_rename_takes_the_temporary_file_with_it) {
    const TempDir dir;
    test_env::make_dirs(dir / "file/full");
    EXPECT_FALSE(replace(dir / "file", "new\n"));
    EXPECT_TRUE(exists(dir / "file/full"));
    EXPECT_FALSE(exists(dir / "file.tmp"));
    EXPECT_FALSE(overwrite(dir / "file", "new\n"));
    EXPECT_FALSE(overwrite(dir / "none/file", "new\n"));
}

TEST(ConfigFile, a_full_disk_leaves_the_old_text) {
    mounts_fixture::Tmpfs disk("size=16k");
    REQUIRE_MOUNT(disk);
    write_file(disk / "file", "old\n");
    test_env::run("cat /dev/zero > " + (disk / "filler"));
    EXPECT_FALSE(replace(disk / "file", std::string(600, 'n')));
    EXPECT_EQ(read_file(disk / "file"), "old\n");
    EXPECT_TRUE(exists(disk / "file.tmp"));
    // The file has one page of its own, which is written without new room; a second is not there.
    EXPECT_FALSE(overwrite(disk / "file", std::string(5000, 'n')));
    EXPECT_EQ(read_file(disk / "file"), "old\n");
    EXPECT_TRUE(overwrite(disk / "file", std::string(600, 'n')));
    EXPECT_EQ(read_file(disk / "file"), std::string(600, 'n'));
    EXPECT_FALSE(overwrite(disk / "other", "new\n"));
}

TEST(ConfigFile, without_the_right_to_write_the_old_text_stays) {
    const TempDir dir;
    write_file(dir / "file", "old\n", 0444);
    as_user::give(dir.path());
    as_user::give(dir / "file");
    ASSERT_EQ(chmod(dir.path().c_str(), 0555), 0);
    EXPECT_TRUE(as_user::run([&dir] {
        EXPECT_FALSE(replace(dir / "file", "new\n"));
        EXPECT_FALSE(overwrite(dir / "file", "new\n"));
        EXPECT_EQ(read_file(dir / "file"), "old\n");
    }));
    chmod(dir.path().c_str(), 0755);
    EXPECT_FALSE(exists(dir / "file.tmp"));
}

// --- Failing calls ----------------------------------------------------------------------------

TEST(ConfigFile, a_close_that_fails_replaces_nothing) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_SHIM(SYS_close);
    const TempDir dir;
    write_file(dir / "file", "old\n");
    // Where a quota is told only at the close.
    shim::rule(
        SYS_close, [](const shim::Call& call) { return shim::close_and_refuse(call, EDQUOT); },
        shim::on_file(0, "file.tmp"));
    EXPECT_FALSE(replace(dir / "file", "new\n"));
    shim::clear();
    EXPECT_EQ(read_file(dir / "file"), "old\n");
}

TEST(ConfigFile, short_and_interrupted_writes_go_on) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_SHIM(SYS_write);
    const TempDir dir;
    shim::fail(SYS_write, EINTR, 1, 2, shim::on_file(0, "file.tmp"));
    EXPECT_TRUE(replace(dir / "file", "new\n"));
    shim::clear();
    EXPECT_EQ(read_file(dir / "file"), "new\n");
}

TEST(ConfigFile, where_room_cannot_be_reserved_the_text_is_written_all_the_same) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_SHIM(SYS_fallocate);
    const TempDir dir;
    shim::fail(SYS_fallocate, EOPNOTSUPP);
    EXPECT_TRUE(overwrite(dir / "file", "new\n"));
    EXPECT_EQ(read_file(dir / "file"), "new\n");
    shim::clear();
    shim::fail(SYS_fallocate, ENOSPC);
    EXPECT_FALSE(overwrite(dir / "file", "newer\n"));
    shim::clear();
    EXPECT_EQ(read_file(dir / "file"), "new\n");
}

// --- Killed in the middle ---------------------------------------------------------------------

const std::vector<long> kSavingCalls = {SYS_openat,     SYS_write,     SYS_close,
                                        SYS_rename,     SYS_unlink,    SYS_fstat,
                                        SYS_newfstatat, SYS_fallocate, SYS_ftruncate};

// Runs body in a process of its own that is killed before its nth watched call from the moment it
// begins. False: it came to its end before that.
bool killed_before_call(int nth, const std::function<void()>& body) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        if (!shim::install(kSavingCalls).empty())
            _exit(99);
        static int left = nth;
        for (const long number : kSavingCalls)
            shim::rule(number, [](const shim::Call&) {
                if (--left == 0) {
                    kill(getpid(), SIGKILL);
                    return shim::wait();
                }
                return shim::go();
            });
        body();
        _exit(0);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR)
        continue;
    EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0) << status;
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

TEST(ConfigFile, killed_before_any_call_of_a_replacement_the_file_is_old_or_new) {
    REQUIRE_FRESH_PROCESS();
    int kills = 0;
    int old_seen = 0;
    for (int nth = 1;; ++nth) {
        const TempDir dir;
        write_file(dir / "file", "old\n");
        const bool killed =
            killed_before_call(nth, [&dir] { (void)replace(dir / "file", "the new text\n"); });
        const std::string found = read_file(dir / "file");
        EXPECT_TRUE(found == "old\n" || found == "the new text\n") << nth << ": " << found;
        old_seen += found == "old\n";
        if (!killed)
            break;
        ++kills;
        ASSERT_LT(nth, 100);
    }
    // Opening, writing, closing, renaming.
    EXPECT_GE(kills, 4);
    EXPECT_GE(old_seen, 4);
}

// The reader of such a file skips empty lines, so those do not count.
TEST(ConfigFile, killed_before_any_call_of_an_overwriting_the_lines_are_old_or_new) {
    REQUIRE_FRESH_PROCESS();
    const std::string old_text = "/an/old/and/rather/long/path\n/another\n";
    int kills = 0;
    for (const std::string& new_text :
         {std::string("/new\n"), std::string("/new\n/longer/by/far/than/what/was/there/before\n")})
        for (int nth = 1;; ++nth) {
            const TempDir dir;
            write_file(dir / "file", old_text);
            const bool killed =
                killed_before_call(nth, [&] { (void)overwrite(dir / "file", new_text); });
            std::string found = read_file(dir / "file");
            while (found.ends_with("\n\n"))
                found.pop_back();
            EXPECT_TRUE(found == old_text || found == new_text) << nth << ": " << found;
            if (!killed)
                break;
            ++kills;
            ASSERT_LT(nth, 100);
        }
    EXPECT_GE(kills, 8);
}

// A process that does nothing but save two texts in turn, killed at random moments. Empty lines at
// the end do not count.
void expect_whole_after_kills(bool (*save)(const std::string&, const std::string&),
                              const std::string& first, const std::string& second) {
    const TempDir dir;
    write_file(dir / "file", first);
    for (int round = 0; round < 200; ++round) {
        std::fflush(nullptr);
        const pid_t child = fork();
        if (child == 0)
            for (int i = 0;; ++i)
                (void)save(dir / "file", i % 2 ? first : second);
        usleep(static_cast<useconds_t>(500 + round * 17));
        kill(child, SIGKILL);
        while (waitpid(child, nullptr, 0) < 0 && errno == EINTR)
            continue;
        std::string found = read_file(dir / "file");
        while (found.ends_with("\n\n"))
            found.pop_back();
        ASSERT_TRUE(found == first || found == second) << round << ": " << found.size();
    }
}

TEST(ConfigFile, killed_at_random_moments_the_file_is_whole) {
    expect_whole_after_kills(replace, std::string(2000, 'a') + "\n", std::string(900, 'b') + "\n");
}

TEST(ConfigFile, killed_at_random_moments_an_overwritten_file_is_whole) {
    // A list of common length, one of the longest paths that there are, and both in turn.
    const std::string short_list = std::string(2000, 'b') + "\n";
    const std::string long_list = std::string(40'000, 'a') + "\n";
    expect_whole_after_kills(overwrite, std::string(4095, 'a') + "\n", short_list);
    expect_whole_after_kills(overwrite, std::string(20'000, 'c') + "\n", long_list);
    expect_whole_after_kills(overwrite, long_list, short_list);
}

TEST(ConfigFile, what_one_write_may_tear_is_replaced) {
    const TempDir dir;
    write_file(dir / "file", std::string(4095, 'a') + "\n");
    const ino_t first = lstat_of(dir / "file").st_ino;
    ASSERT_TRUE(overwrite(dir / "file", std::string(4095, 'b') + "\n"));
    EXPECT_EQ(lstat_of(dir / "file").st_ino, first);
    // Kept, so that its inode is not given away again.
    ASSERT_EQ(link((dir / "file").c_str(), (dir / "witness").c_str()), 0);
    ASSERT_TRUE(overwrite(dir / "file", std::string(4096, 'c') + "\n"));
    EXPECT_NE(lstat_of(dir / "file").st_ino, first);
    EXPECT_EQ(read_file(dir / "file"), std::string(4096, 'c') + "\n");
    EXPECT_EQ(read_file(dir / "witness"), std::string(4095, 'b') + "\n");
    EXPECT_FALSE(exists(dir / "file.tmp"));
}

}  // namespace
