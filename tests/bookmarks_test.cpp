#include "bookmarks.h"

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

using bookmarks::Bookmark;
using test_env::exists;
using test_env::logged;
using test_env::lstat_of;
using test_env::read_file;
using test_env::write_file;

using List = std::vector<Bookmark>;

std::string list_path() {
    test_env::make_dirs(test_env::root() + "/config/Ferrodeck");
    return test_env::root() + "/config/Ferrodeck/bookmarks.txt";
}

TEST(Bookmarks, a_missing_file_is_an_empty_list_without_a_word) {
    REQUIRE_FRESH_PROCESS();
    EXPECT_EQ(bookmarks::all(), List{});
    EXPECT_FALSE(bookmarks::contains("/usr"));
    EXPECT_FALSE(bookmarks::remove("/usr"));
    EXPECT_EQ(test_env::log_text(), "");
    EXPECT_FALSE(exists(list_path()));
}

TEST(Bookmarks, the_file_is_read_once_at_the_first_use) {
    REQUIRE_FRESH_PROCESS();
    write_file(list_path(), "Users\t/usr\nGone\t/no/such/folder\nUsers\t/usr\n");
    const List expected = {{"Users", "/usr"}, {"Gone", "/no/such/folder"}, {"Users", "/usr"}};
    EXPECT_EQ(bookmarks::all(), expected);
    EXPECT_EQ(logged("bookmarks: 3 loaded from " + list_path()), 1);
    write_file(list_path(), "");
    bookmarks::load();
    EXPECT_EQ(bookmarks::all(), expected);
    EXPECT_EQ(logged("bookmarks: 3 loaded from " + list_path()), 1);
}

TEST(Bookmarks, lines_are_taken_as_they_come) {
    struct Case {
        std::string text;
        List expected;
    };
    const Case kCases[] = {
        {"", {}},
        {"\n\r\n\n", {}},
        {"no tab here\n", {}},
        {"a\t/a", {{"a", "/a"}}},
        {"a\t/a\r\nb\t/b\r\n", {{"a", "/a"}, {"b", "/b"}}},
        {"a\t/a\r\r\n", {{"a", "/a"}}},
        {"a\t/a\tb\n", {{"a", "/a\tb"}}},
        {"\t/a\n", {{"", "/a"}}},
        {"a\t\n", {{"a", ""}}},
        {"a\trelative\n", {{"a", "relative"}}},
        {"\t", {{"", ""}}},
        {" a \t /a \n", {{" a ", " /a "}}},
        {"# a\t/a\n", {{"# a", "/a"}}},
        {"fragment\nb\t/b\nfragment", {{"b", "/b"}}},
        {std::string("a\0b\t/c\n", 7), {{std::string("a\0b", 3), "/c"}}},
    };
    for (const Case& row : kCases)
        EXPECT_EQ(bookmarks::parse(row.text), row.expected) << row.text;
}

TEST(Bookmarks, adding_appends_saves_and_tells_the_log) {
    REQUIRE_FRESH_PROCESS();
    EXPECT_TRUE(bookmarks::add("/usr/share"));
    EXPECT_EQ(read_file(list_path()), "share\t/usr/share\n");
    EXPECT_EQ(logged("bookmark added: /usr/share"), 1);
    EXPECT_TRUE(bookmarks::add("/usr/lib/"));
    EXPECT_EQ(read_file(list_path()), "share\t/usr/share\nlib\t/usr/lib/\n");
    // It need not be there.
    EXPECT_TRUE(bookmarks::add("/no/such/folder"));
    EXPECT_EQ(bookmarks::all(),
              (List{{"share", "/usr/share"}, {"lib", "/usr/lib/"}, {"folder", "/no/such/folder"}}));
    EXPECT_FALSE(exists(list_path() + ".tmp"));
}

TEST(Bookmarks, the_root_is_named_by_itself) {
    REQUIRE_FRESH_PROCESS();
    EXPECT_TRUE(bookmarks::add("/"));
    EXPECT_TRUE(bookmarks::add("//"));
    EXPECT_EQ(bookmarks::all(), (List{{"/", "/"}, {"//", "//"}}));
}

TEST(Bookmarks, what_is_no_absolute_path_or_marked_already_is_refused) {
    REQUIRE_FRESH_PROCESS();
    EXPECT_FALSE(bookmarks::add(""));
    EXPECT_FALSE(bookmarks::add("usr"));
    EXPECT_FALSE(bookmarks::add("./usr"));
    EXPECT_FALSE(exists(list_path()));
    EXPECT_TRUE(bookmarks::add("/usr"));
    EXPECT_FALSE(bookmarks::add("/usr"));
    // A trailing slash makes another path.
    EXPECT_FALSE(bookmarks::contains("/usr/"));
    EXPECT_TRUE(bookmarks::add("/usr/"));
    EXPECT_EQ(bookmarks::all().size(), 2U);
    EXPECT_EQ(test_env::logged_with("bookmark added"), 2);
}

TEST(Bookmarks, removing_takes_every_entry_of_that_path_and_keeps_the_order) {
    REQUIRE_FRESH_PROCESS();
    write_file(list_path(), "1\t/a\n2\t/b\n3\t/a\n4\t/c\n5\t/a/\n");
    EXPECT_TRUE(bookmarks::remove("/a"));
    EXPECT_EQ(read_file(list_path()), "2\t/b\n4\t/c\n5\t/a/\n");
    EXPECT_EQ(logged("bookmark removed: /a"), 1);
    const ino_t inode = lstat_of(list_path()).st_ino;
    EXPECT_FALSE(bookmarks::remove("/a"));
    EXPECT_FALSE(bookmarks::remove(""));
    EXPECT_EQ(lstat_of(list_path()).st_ino, inode);
    EXPECT_EQ(test_env::logged_with("bookmark removed"), 1);
}

// The text that names the entry moves while the list closes up.
TEST(Bookmarks, an_entry_is_removed_by_its_own_text) {
    REQUIRE_FRESH_PROCESS();
    write_file(list_path(), "1\t/a\n2\t/b\n3\t/b\n4\t/c\n5\t/d\n");
    EXPECT_TRUE(bookmarks::remove(bookmarks::all()[1].path));
    EXPECT_EQ(bookmarks::all(), (List{{"1", "/a"}, {"4", "/c"}, {"5", "/d"}}));
    EXPECT_EQ(logged("bookmark removed: /b"), 1);
}

TEST(Bookmarks, the_file_is_replaced_not_written_over) {
    REQUIRE_FRESH_PROCESS();
    write_file(list_path(), "a\t/a\n");
    ASSERT_EQ(link(list_path().c_str(), (list_path() + ".witness").c_str()), 0);
    const ino_t before = lstat_of(list_path()).st_ino;
    EXPECT_TRUE(bookmarks::add("/b"));
    EXPECT_NE(lstat_of(list_path()).st_ino, before);
    EXPECT_EQ(read_file(list_path() + ".witness"), "a\t/a\n");
}

TEST(Bookmarks, a_tab_in_a_name_becomes_a_blank) {
    REQUIRE_FRESH_PROCESS();
    EXPECT_TRUE(bookmarks::add("/x/a\tb\tc"));
    // In the list the name is what it was; the path is written as it stands.
    EXPECT_EQ(bookmarks::all(), (List{{"a\tb\tc", "/x/a\tb\tc"}}));
    EXPECT_EQ(read_file(list_path()), "a b c\t/x/a\tb\tc\n");
    EXPECT_EQ(bookmarks::parse(read_file(list_path())), (List{{"a b c", "/x/a\tb\tc"}}));
}

TEST(Bookmarks, a_line_feed_in_a_path_splits_its_line) {
    REQUIRE_FRESH_PROCESS();
    EXPECT_TRUE(bookmarks::add("/x\ny/name"));
    EXPECT_EQ(read_file(list_path()), "name\t/x\ny/name\n");
    EXPECT_EQ(bookmarks::parse(read_file(list_path())), (List{{"name", "/x"}}));
}

TEST(Bookmarks, saving_first_of_all_does_not_empty_the_file) {
    REQUIRE_FRESH_PROCESS();
    write_file(list_path(), "a\t/a\n");
    bookmarks::save();
    EXPECT_EQ(read_file(list_path()), "a\t/a\n");
}

TEST(Bookmarks, an_earlier_list_can_be_put_back) {
    REQUIRE_FRESH_PROCESS();
    write_file(list_path(), "My own name\t/a\nb\t/b\n");
    const List before = bookmarks::all();
    const ino_t inode = lstat_of(list_path()).st_ino;
    bookmarks::restore(before);
    EXPECT_EQ(lstat_of(list_path()).st_ino, inode);  // nothing to do
    EXPECT_TRUE(bookmarks::remove("/a"));
    bookmarks::restore(before);
    EXPECT_EQ(read_file(list_path()), "My own name\t/a\nb\t/b\n");
}

TEST(Bookmarks, where_nothing_can_be_saved_the_list_in_memory_changes_alone) {
    REQUIRE_FRESH_PROCESS();
    mounts_fixture::Tmpfs disk("size=16k");
    REQUIRE_MOUNT(disk);
    setenv("XDG_CONFIG_HOME", disk.path().c_str(), 1);
    EXPECT_TRUE(bookmarks::add("/a"));
    test_env::run("cat /dev/zero > " + (disk / "filler"));
    EXPECT_TRUE(bookmarks::add("/b"));
    EXPECT_EQ(read_file(disk / "Ferrodeck/bookmarks.txt"), "a\t/a\n");
    EXPECT_EQ(bookmarks::all(), (List{{"a", "/a"}, {"b", "/b"}}));
}

TEST(Bookmarks, in_a_folder_that_cannot_be_written_the_old_file_stays) {
    REQUIRE_FRESH_PROCESS();
    const test_env::TempDir config;
    test_env::make_dirs(config / "Ferrodeck");
    write_file(config / "Ferrodeck/bookmarks.txt", "a\t/a\n");
    as_user::give(config.path());
    as_user::give(config / "Ferrodeck");
    ASSERT_EQ(chmod((config / "Ferrodeck").c_str(), 0555), 0);
    EXPECT_TRUE(as_user::run([&config] {
        setenv("XDG_CONFIG_HOME", config.path().c_str(), 1);
        EXPECT_TRUE(bookmarks::remove("/a"));
        EXPECT_EQ(bookmarks::all(), List{});
    }));
    ASSERT_EQ(chmod((config / "Ferrodeck").c_str(), 0755), 0);
    EXPECT_EQ(read_file(config / "Ferrodeck/bookmarks.txt"), "a\t/a\n");
}

}  // namespace
