// The plain roads of the transfer engine: a tree goes over, by copy, by move, twice in a row.

#include "copy_engine.h"
#include "run_engine.h"
#include "test_env.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using copy_engine::ConflictAction;
using copy_engine::Operation;
using test_env::EngineRun;
using test_env::TempDir;

namespace {

constexpr struct timespec kTime = {1234567890, 123456789};

void set_time(const std::string& path) {
    const struct timespec times[2] = {kTime, kTime};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

// A folder with files of several sizes, a folder in it, a link and an empty file.
void make_tree(const std::string& root) {
    test_env::make_dirs(root + "/sub/deeper");
    test_env::write_file(root + "/a.txt", "hello\n", 0640);
    test_env::write_file(root + "/empty", "", 0600);
    test_env::write_file(root + "/sub/big", test_env::pattern(3 * 1048576 + 17), 0755);
    test_env::write_file(root + "/sub/deeper/x", test_env::pattern(100, 7), 0444);
    ASSERT_EQ(symlink("a.txt", (root + "/link").c_str()), 0);
    for (const char* name : {"/a.txt", "/empty", "/sub/big", "/sub/deeper/x", "/link"})
        set_time(root + name);
}

void expect_tree(const std::string& root) {
    EXPECT_EQ(test_env::read_file(root + "/a.txt"), "hello\n");
    EXPECT_EQ(test_env::read_file(root + "/empty"), "");
    EXPECT_EQ(test_env::read_file(root + "/sub/big"), test_env::pattern(3 * 1048576 + 17));
    EXPECT_EQ(test_env::read_file(root + "/sub/deeper/x"), test_env::pattern(100, 7));
    EXPECT_EQ(test_env::lstat_of(root + "/a.txt").st_mode & 07777, 0640U);
    EXPECT_EQ(test_env::lstat_of(root + "/sub/big").st_mode & 07777, 0755U);
    EXPECT_EQ(test_env::lstat_of(root + "/sub/deeper/x").st_mode & 07777, 0444U);
    for (const char* name : {"/a.txt", "/empty", "/sub/big", "/sub/deeper/x", "/link"}) {
        EXPECT_EQ(test_env::lstat_of(root + name).st_mtim.tv_sec, kTime.tv_sec) << name;
        EXPECT_EQ(test_env::lstat_of(root + name).st_mtim.tv_nsec, kTime.tv_nsec) << name;
    }
    char text[16] = "";
    EXPECT_EQ(readlink((root + "/link").c_str(), text, sizeof text), 5);
}

}  // namespace

TEST(CopyEngineBasic, copy_brings_a_tree_over_and_leaves_the_source) {
    const TempDir dir;
    make_tree(dir / "src/tree");
    test_env::make_dirs(dir / "dst");
    const auto progress = test_env::run_engine({{dir / "src/tree"}, dir / "dst"});
    EXPECT_EQ(progress.failures_total, 0U);
    EXPECT_TRUE(progress.finished);
    EXPECT_FALSE(progress.cancelled);
    EXPECT_EQ(progress.files_total, 5);
    EXPECT_EQ(progress.files_done, 5);
    EXPECT_EQ(progress.files_copied, 5);
    EXPECT_EQ(progress.bytes_done, progress.bytes_total);
    expect_tree(dir / "src/tree");
    expect_tree(dir / "dst/tree");
}

TEST(CopyEngineBasic, move_inside_one_file_system_takes_the_tree_along) {
    const TempDir dir;
    make_tree(dir / "src/tree");
    test_env::make_dirs(dir / "dst");
    EngineRun run{{dir / "src/tree"}, dir / "dst"};
    run.op = Operation::Move;
    const auto progress = test_env::run_engine(run);
    EXPECT_EQ(progress.failures_total, 0U);
    EXPECT_EQ(progress.files_done, 5);
    EXPECT_EQ(progress.bytes_done, progress.bytes_total);
    EXPECT_FALSE(test_env::exists(dir / "src/tree"));
    expect_tree(dir / "dst/tree");
}

TEST(CopyEngineBasic, move_into_a_folder_that_is_there_merges_and_clears_the_source) {
    const TempDir dir;
    make_tree(dir / "src/tree");
    test_env::make_dirs(dir / "dst/tree/sub");
    test_env::write_file(dir / "dst/tree/other", "stays");
    EngineRun run{{dir / "src/tree"}, dir / "dst"};
    run.op = Operation::Move;
    run.default_action = ConflictAction::Overwrite;
    const auto progress = test_env::run_engine(run);
    EXPECT_EQ(progress.failures_total, 0U);
    EXPECT_FALSE(test_env::exists(dir / "src/tree"));
    expect_tree(dir / "dst/tree");
    EXPECT_EQ(test_env::read_file(dir / "dst/tree/other"), "stays");
}

TEST(CopyEngineBasic, an_engine_runs_again_after_reap) {
    const TempDir dir;
    make_tree(dir / "src/tree");
    test_env::make_dirs(dir / "one");
    test_env::make_dirs(dir / "two");
    EXPECT_EQ(test_env::run_engine({{dir / "src/tree"}, dir / "one"}).failures_total, 0U);
    EXPECT_EQ(test_env::run_engine({{dir / "src/tree"}, dir / "two"}).failures_total, 0U);
    expect_tree(dir / "one/tree");
    expect_tree(dir / "two/tree");
}

TEST(CopyEngineBasic, overwrite_replaces_the_name_and_not_what_it_links_to) {
    const TempDir dir;
    test_env::make_dirs(dir / "src");
    test_env::make_dirs(dir / "dst");
    test_env::write_file(dir / "src/f", "new");
    test_env::write_file(dir / "elsewhere", "untouched");
    ASSERT_EQ(symlink((dir / "elsewhere").c_str(), (dir / "dst/f").c_str()), 0);
    EngineRun run{{dir / "src/f"}, dir / "dst"};
    run.default_action = ConflictAction::Overwrite;
    EXPECT_EQ(test_env::run_engine(run).failures_total, 0U);
    EXPECT_EQ(test_env::read_file(dir / "dst/f"), "new");
    EXPECT_TRUE(S_ISREG(test_env::lstat_of(dir / "dst/f").st_mode));
    EXPECT_EQ(test_env::read_file(dir / "elsewhere"), "untouched");
}

TEST(CopyEngineBasic, two_sources_of_one_name_both_arrive_under_a_standing_overwrite) {
    const TempDir dir;
    for (const char* side : {"one", "two"}) {
        test_env::make_dirs(dir / side);
        test_env::write_file(dir / (std::string(side) + "/f"), side);
    }
    test_env::make_dirs(dir / "dst");
    EngineRun run{{dir / "one/f", dir / "two/f"}, dir / "dst"};
    run.default_action = ConflictAction::Overwrite;
    EXPECT_EQ(test_env::run_engine(run).failures_total, 0U);
    const std::string first = test_env::read_file(dir / "dst/f");
    const std::string second = test_env::read_file(dir / "dst/f.1");
    EXPECT_TRUE((first == "one" && second == "two") || (first == "two" && second == "one"))
        << first << " " << second;
}

// A link that was to replace a folder was asked about for ever: the folder stayed, and with it the
// conflict.
TEST(CopyEngineBasic, a_link_cannot_replace_a_folder_and_says_so) {
    const TempDir dir;
    test_env::make_dirs(dir / "src");
    test_env::make_dirs(dir / "dst/f/inside");
    ASSERT_EQ(symlink("somewhere", (dir / "src/f").c_str()), 0);
    EngineRun run{{dir / "src/f"}, dir / "dst"};
    run.default_action = ConflictAction::Overwrite;
    run.limit_seconds = 5;
    const auto progress = test_env::run_engine(run);
    ASSERT_EQ(progress.failures.size(), 1U);
    EXPECT_FALSE(progress.cancelled);
    EXPECT_EQ(progress.failures[0].path, dir / "src/f");
    EXPECT_TRUE(test_env::exists(dir / "dst/f/inside"));
}
