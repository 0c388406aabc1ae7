#include "recent.h"

#include "as_user.h"
#include "fresh_process.h"
#include "log_lines.h"
#include "mounts_fixture.h"
#include "test_env.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using test_env::exists;
using test_env::logged;
using test_env::lstat_of;
using test_env::read_file;
using test_env::write_file;

using Strings = std::vector<std::string>;

std::string list_path() {
    test_env::make_dirs(test_env::root() + "/config/Ferrodeck");
    return test_env::root() + "/config/Ferrodeck/recent.txt";
}

TEST(Recent, a_missing_file_is_an_empty_list_without_a_word) {
    REQUIRE_FRESH_PROCESS();
    EXPECT_EQ(recent::all(), Strings{});
    EXPECT_EQ(test_env::log_text(), "");
    EXPECT_FALSE(exists(list_path()));
}

TEST(Recent, lines_that_are_no_absolute_path_or_come_again_are_skipped) {
    EXPECT_EQ(recent::parse(""), Strings{});
    EXPECT_EQ(recent::parse("/a\n/b\n"), (Strings{"/a", "/b"}));
    EXPECT_EQ(recent::parse("/a\r\n/b\r\r\n"), (Strings{"/a", "/b"}));
    EXPECT_EQ(recent::parse("\n\n/a\nrelative\n /b\n#/c\n/a\n/a/\n"), (Strings{"/a", "/a/"}));
    EXPECT_EQ(recent::parse("/no line end"), Strings{"/no line end"});
    EXPECT_EQ(recent::parse("/tab\there\n"), Strings{"/tab\there"});
}

TEST(Recent, of_20_lines_the_first_10_that_pass_are_taken) {
    std::string text;
    Strings expected;
    for (int i = 0; i < 10; ++i) {
        const std::string path = "/folder" + std::to_string(i);
        text += path + "\n" + (i % 2 ? path : std::string("no path")) + "\n";
        expected.push_back(path);
    }
    EXPECT_EQ(recent::parse(text), expected);
    EXPECT_EQ(recent::parse(text + "/eleventh\n"), expected);
    EXPECT_EQ(recent::parse("/first\n" + text).back(), "/folder8");
}

TEST(Recent, the_latest_is_first) {
    REQUIRE_FRESH_PROCESS();
    recent::add("/a");
    recent::add("/b");
    recent::add("/c");
    EXPECT_EQ(read_file(list_path()), "/c\n/b\n/a\n");
    // One that is further down moves up.
    recent::add("/a");
    EXPECT_EQ(read_file(list_path()), "/a\n/c\n/b\n");
    EXPECT_EQ(test_env::log_text(), "");
}

TEST(Recent, an_eleventh_drops_the_oldest) {
    REQUIRE_FRESH_PROCESS();
    std::string expected;
    for (int i = 1; i <= 10; ++i) {
        recent::add("/folder" + std::to_string(i));
        expected = "/folder" + std::to_string(i) + "\n" + expected;
    }
    EXPECT_EQ(read_file(list_path()), expected);
    recent::add("/eleventh");
    expected = "/eleventh\n" + expected;
    expected.erase(expected.rfind("/folder1\n"));
    EXPECT_EQ(read_file(list_path()), expected);
    // One of the ten does not make room for itself.
    recent::add("/folder2");
    EXPECT_EQ(recent::parse(read_file(list_path())).size(), 10U);
}

TEST(Recent, what_is_no_absolute_path_or_first_already_writes_nothing) {
    REQUIRE_FRESH_PROCESS();
    recent::add("");
    recent::add("relative");
    EXPECT_FALSE(exists(list_path()));
    recent::add("/a");
    ASSERT_EQ(unlink(list_path().c_str()), 0);
    recent::add("/a");
    EXPECT_FALSE(exists(list_path()));
    recent::add("/b");
    EXPECT_EQ(read_file(list_path()), "/b\n/a\n");
}

TEST(Recent, adding_goes_on_from_the_file) {
    REQUIRE_FRESH_PROCESS();
    write_file(list_path(), "/x\r\n/y\r\n");
    recent::add("/y");
    EXPECT_EQ(read_file(list_path()), "/y\n/x\n");
    // Read once: what others write is not seen.
    write_file(list_path(), "/other\n");
    recent::add("/z");
    EXPECT_EQ(read_file(list_path()), "/z\n/y\n/x\n");
}

TEST(Recent, the_file_is_written_over_in_place) {
    REQUIRE_FRESH_PROCESS();
    write_file(list_path(), "/a/very/long/path/to/begin/with\nrubbish\nrubbish\nrubbish\n");
    const ino_t before = lstat_of(list_path()).st_ino;
    recent::add("/b");
    EXPECT_EQ(lstat_of(list_path()).st_ino, before);
    EXPECT_EQ(read_file(list_path()), "/b\n/a/very/long/path/to/begin/with\n");
    recent::add("/c");
    EXPECT_EQ(lstat_of(list_path()).st_ino, before);
    EXPECT_FALSE(exists(list_path() + ".tmp"));
}

TEST(Recent, folders_that_have_gone_are_not_shown_but_stay_in_the_list) {
    REQUIRE_FRESH_PROCESS();
    const test_env::TempDir dir;
    test_env::make_dirs(dir / "there");
    test_env::make_dirs(dir / "going");
    write_file(dir / "file", "");
    ASSERT_EQ(symlink("there", (dir / "link").c_str()), 0);
    for (const char* name : {"going", "file", "link", "there"})
        recent::add(dir / name);
    EXPECT_EQ(recent::all(), (Strings{dir / "there", dir / "link", dir / "going"}));
    ASSERT_EQ(rmdir((dir / "going").c_str()), 0);
    EXPECT_EQ(recent::all(), (Strings{dir / "there", dir / "link"}));
    EXPECT_NE(read_file(list_path()).find("going"), std::string::npos);
    test_env::make_dirs(dir / "going");
    EXPECT_EQ(recent::all(), (Strings{dir / "there", dir / "link", dir / "going"}));
}

TEST(Recent, saving_first_of_all_does_not_empty_the_file) {
    REQUIRE_FRESH_PROCESS();
    write_file(list_path(), "/a\n");
    recent::save();
    EXPECT_EQ(read_file(list_path()), "/a\n");
}

TEST(Recent, a_failed_save_is_one_warning) {
    REQUIRE_FRESH_PROCESS();
    ASSERT_EQ(mkdir(list_path().c_str(), 0700), 0);
    recent::add("/a");
    EXPECT_EQ(logged("recent: cannot write " + list_path()), 1);
}

TEST(Recent, on_a_full_disk_the_old_list_stays) {
    REQUIRE_FRESH_PROCESS();
    mounts_fixture::Tmpfs disk("size=16k");
    REQUIRE_MOUNT(disk);
    setenv("XDG_CONFIG_HOME", disk.path().c_str(), 1);
    const std::string path = disk / "Ferrodeck/recent.txt";
    recent::add("/old");
    test_env::run("cat /dev/zero > " + (disk / "filler"));
    recent::add("/" + std::string(5000, 'x'));
    EXPECT_EQ(read_file(path), "/old\n");
    EXPECT_EQ(logged("recent: cannot write " + path), 1);
}

TEST(Recent, in_a_folder_that_cannot_be_written_the_old_file_stays) {
    REQUIRE_FRESH_PROCESS();
    const test_env::TempDir config;
    test_env::make_dirs(config / "Ferrodeck");
    write_file(config / "Ferrodeck/recent.txt", "/a\n", 0444);
    as_user::give(config.path());
    as_user::give(config / "Ferrodeck");
    as_user::give(config / "Ferrodeck/recent.txt");
    ASSERT_EQ(chmod((config / "Ferrodeck").c_str(), 0555), 0);
    EXPECT_TRUE(as_user::run([&config] {
        setenv("XDG_CONFIG_HOME", config.path().c_str(), 1);
        recent::add("/b");
    }));
    ASSERT_EQ(chmod((config / "Ferrodeck").c_str(), 0755), 0);
    EXPECT_EQ(read_file(config / "Ferrodeck/recent.txt"), "/a\n");
}

}  // namespace
