#include "file_ops.h"

#include "as_user.h"
#include "fs_ops.h"
#include "log_lines.h"
#include "logger.h"
#include "shim.h"
#include "test_env.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

using test_env::lstat_of;
using test_env::make_dirs;
using test_env::TempDir;
using test_env::write_file;

namespace {

mode_t mode_of(const std::string& path) {
    return lstat_of(path).st_mode & 07777;
}

std::string chmod_failed(const std::string& path, int code) {
    return "The permissions could not be changed.: " + path + ": " + std::strerror(code);
}

std::string chown_failed(const std::string& detail) {
    return "The owner could not be changed. Usually only the administrator may do this.: " + detail;
}

// A tree with every kind of entry, and a link that leads out of it.
class RightsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        Log::instance().clear();
        make_dirs(m_dir / "tree/sub");
        write_file(m_dir / "outside", "", 0600);
        write_file(m_dir / "tree/file", "", 0644);
        write_file(m_dir / "tree/sub/script", "", 0755);
        ASSERT_EQ(symlink("../outside", (m_dir / "tree/link").c_str()), 0);
        ASSERT_EQ(symlink("missing", (m_dir / "tree/broken").c_str()), 0);
        ASSERT_EQ(mkfifo((m_dir / "tree/fifo").c_str(), 0600), 0);
    }

    const TempDir m_dir;
};

using file_ops::set_owner;
using file_ops::set_permissions;

}  // namespace

// --- Permissions --------------------------------------------------------------------------------

TEST_F(RightsTest, bits_are_set_as_they_stand_and_a_folder_alone_gets_no_more) {
    EXPECT_EQ(set_permissions(m_dir / "tree/file", 0640, false), "");
    EXPECT_EQ(mode_of(m_dir / "tree/file"), 0640U);
    EXPECT_EQ(test_env::logged("chmod 0640 " + m_dir / "tree/file"), 1);
    EXPECT_EQ(set_permissions(m_dir / "tree/file", 07755, false), "");
    EXPECT_EQ(mode_of(m_dir / "tree/file"), 07755U);
    EXPECT_EQ(test_env::logged("chmod 7755 " + m_dir / "tree/file"), 1);
    // The kind of the file is no permission.
    EXPECT_EQ(set_permissions(m_dir / "tree/file", S_IFDIR | 0604, false), "");
    EXPECT_EQ(mode_of(m_dir / "tree/file"), 0604U);
    EXPECT_EQ(set_permissions(m_dir / "tree/sub", 0640, false), "");
    EXPECT_EQ(mode_of(m_dir / "tree/sub"), 0640U);
    // A link has no bits of its own.
    EXPECT_EQ(set_permissions(m_dir / "tree/link", 0444, false), "");
    EXPECT_EQ(mode_of(m_dir / "outside"), 0444U);
}

TEST_F(RightsTest, a_recursive_change_keeps_folders_enterable_and_leaves_links_alone) {
    EXPECT_EQ(set_permissions(m_dir / "tree", 0640, true), "");
    EXPECT_EQ(test_env::logged("chmod 0640 -R " + m_dir / "tree"), 1);
    EXPECT_EQ(mode_of(m_dir / "tree"), 0750U);
    EXPECT_EQ(mode_of(m_dir / "tree/sub"), 0750U);
    for (const char* file : {"tree/file", "tree/sub/script", "tree/fifo"})
        EXPECT_EQ(mode_of(m_dir / file), 0640U) << file;
    EXPECT_EQ(mode_of(m_dir / "outside"), 0600U);
    // Each read bit brings its own execute bit.
    EXPECT_EQ(set_permissions(m_dir / "tree", 0404, true), "");
    EXPECT_EQ(mode_of(m_dir / "tree/sub"), 0505U);
    EXPECT_EQ(mode_of(m_dir / "tree/file"), 0404U);
    EXPECT_EQ(set_permissions(m_dir / "tree", 07040, true), "");
    EXPECT_EQ(mode_of(m_dir / "tree/sub"), 07050U);
    // A link as the whole tree.
    EXPECT_EQ(set_permissions(m_dir / "tree/link", 0777, true), "");
    EXPECT_EQ(mode_of(m_dir / "outside"), 0600U);
    // A single file too.
    EXPECT_EQ(set_permissions(m_dir / "outside", 0611, true), "");
    EXPECT_EQ(mode_of(m_dir / "outside"), 0611U);
}

TEST_F(RightsTest, what_is_not_there_is_told) {
    for (const bool recursive : {false, true})
        EXPECT_EQ(set_permissions(m_dir / "none", 0644, recursive),
                  chmod_failed(m_dir / "none", ENOENT));
    for (const bool recursive : {false, true})
        EXPECT_EQ(set_owner(m_dir / "none", "root", "", recursive),
                  chown_failed(m_dir / "none" + ": " + std::strerror(ENOENT)));
}

TEST_F(RightsTest, an_ordinary_user_changes_what_is_his_and_the_first_error_is_told) {
    if (geteuid() != 0)
        GTEST_SKIP() << "somebody else's file is needed (needs root)";
    as_user::give(m_dir.path());
    for (const char* his : {"tree", "tree/sub", "tree/sub/script"})
        as_user::give(m_dir / his);
    EXPECT_TRUE(as_user::run([&] {
        EXPECT_EQ(set_permissions(m_dir / "tree/sub/script", 0600, false), "");
        EXPECT_EQ(set_permissions(m_dir / "outside", 0666, false),
                  chmod_failed(m_dir / "outside", EPERM));
        // Root's file and pipe stay; the walk goes on.
        const std::string error = set_permissions(m_dir / "tree", 0444, true);
        EXPECT_TRUE(error == chmod_failed(m_dir / "tree/file", EPERM) ||
                    error == chmod_failed(m_dir / "tree/fifo", EPERM))
            << error;
        EXPECT_EQ(mode_of(m_dir / "tree/file"), 0644U);
        EXPECT_EQ(mode_of(m_dir / "tree/sub/script"), 0444U);
        EXPECT_EQ(mode_of(m_dir / "tree/sub"), 0555U);
        EXPECT_EQ(mode_of(m_dir / "tree"), 0555U);
        // A folder that cannot be read is changed all the same.
        EXPECT_EQ(set_permissions(m_dir / "tree/sub", 0, false), "");
        EXPECT_EQ(set_permissions(m_dir / "tree/sub", 0755, true),
                  chmod_failed(m_dir / "tree/sub", EACCES));
        EXPECT_EQ(mode_of(m_dir / "tree/sub"), 0755U);
        EXPECT_EQ(mode_of(m_dir / "tree/sub/script"), 0444U);
    }));
}

// The user takes a file away and puts a link of its name there, while root is at work.
TEST_F(RightsTest, an_entry_swapped_for_a_link_in_between_leads_nowhere) {
    REQUIRE_SHIM(SYS_newfstatat, SYS_openat);
    int swapped = 0;
    const auto swap = [&](const std::string& name) {
        return [&, name](const shim::Call&) {
            if (swapped++ == 0) {
                rename((m_dir / "tree/" + name).c_str(), (m_dir / "taken").c_str());
                (void)!symlink((m_dir / "outside").c_str(), (m_dir / "tree/" + name).c_str());
            }
            return shim::go();
        };
    };
    // The C library opens a file to change its mode without following a link.
    shim::rule(SYS_openat, swap("file"), shim::path_ends(1, "file"));
    EXPECT_EQ(set_permissions(m_dir / "tree", 0777, true), "");
    shim::clear();
    EXPECT_GT(swapped, 0);
    EXPECT_EQ(mode_of(m_dir / "outside"), 0600U);

    make_dirs(m_dir / "tree/folder");
    write_file(m_dir / "tree/folder/inside", "", 0600);
    swapped = 0;
    shim::rule(SYS_openat, swap("folder"), shim::path_ends(1, "folder"));
    std::remove((m_dir / "taken").c_str());
    EXPECT_NE(set_permissions(m_dir / "tree", 0777, true), "");
    shim::clear();
    EXPECT_EQ(mode_of(m_dir / "outside"), 0600U);
    EXPECT_EQ(mode_of(m_dir / "taken/inside"), 0600U);
}

TEST_F(RightsTest, an_owner_is_not_given_to_what_a_link_in_between_points_to) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root may give a file away (needs root)";
    REQUIRE_SHIM(SYS_fchownat);
    bool swapped = false;
    shim::rule(
        SYS_fchownat,
        [&](const shim::Call&) {
            if (!std::exchange(swapped, true)) {
                std::remove((m_dir / "tree/file").c_str());
                (void)!symlink("../outside", (m_dir / "tree/file").c_str());
            }
            return shim::go();
        },
        shim::path_ends(1, "file"));
    EXPECT_EQ(set_owner(m_dir / "tree", "nobody", "", true), "");
    shim::clear();
    EXPECT_TRUE(swapped);
    EXPECT_EQ(lstat_of(m_dir / "outside").st_uid, 0U);
}

// --- Owner --------------------------------------------------------------------------------------

TEST_F(RightsTest, nobody_named_is_a_success_without_a_call) {
    EXPECT_EQ(set_owner(m_dir / "none", "", "", false), "");
    EXPECT_EQ(set_owner(m_dir / "none", "", "", true), "");
    EXPECT_EQ(test_env::logged_with("chown"), 0);
}

TEST_F(RightsTest, an_unknown_name_is_told_and_nothing_is_changed) {
    EXPECT_EQ(set_owner(m_dir / "tree", "no-such-user", "", true), chown_failed("no-such-user"));
    EXPECT_EQ(set_owner(m_dir / "tree", "root", "no-such-group", true),
              chown_failed("no-such-group"));
    EXPECT_EQ(set_owner(m_dir / "tree", "", "no-such-group", false), chown_failed("no-such-group"));
    EXPECT_EQ(test_env::logged_with("chown"), 0);
    EXPECT_EQ(lstat_of(m_dir / "tree").st_uid, geteuid());
}

TEST_F(RightsTest, root_gives_away_a_single_entry_and_each_half_alone) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root may give a file away (needs root)";
    const std::string file = m_dir / "tree/file";
    EXPECT_EQ(set_owner(file, "nobody", "", false), "");
    EXPECT_EQ(lstat_of(file).st_uid, 65534U);
    EXPECT_EQ(lstat_of(file).st_gid, 0U);
    EXPECT_EQ(test_env::logged("chown nobody: " + file), 1);
    EXPECT_EQ(set_owner(file, "root", "nogroup", false), "");
    EXPECT_EQ(lstat_of(file).st_uid, 0U);
    EXPECT_EQ(lstat_of(file).st_gid, 65534U);
    EXPECT_EQ(set_owner(file, "", "root", false), "");
    EXPECT_EQ(lstat_of(file).st_gid, 0U);
    EXPECT_EQ(test_env::logged("chown :root " + file), 1);
    // The link itself, not what it points to; and a folder without what is in it.
    EXPECT_EQ(set_owner(m_dir / "tree/link", "nobody", "", false), "");
    EXPECT_EQ(lstat_of(m_dir / "tree/link").st_uid, 65534U);
    EXPECT_EQ(lstat_of(m_dir / "outside").st_uid, 0U);
    EXPECT_EQ(set_owner(m_dir / "tree", "nobody", "nogroup", false), "");
    EXPECT_EQ(lstat_of(m_dir / "tree").st_uid, 65534U);
    EXPECT_EQ(lstat_of(m_dir / "tree/sub").st_uid, 0U);
}

TEST_F(RightsTest, root_gives_away_a_tree_without_the_links_in_it) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root may give a file away (needs root)";
    EXPECT_EQ(set_owner(m_dir / "tree", "nobody", "nogroup", true), "");
    EXPECT_EQ(test_env::logged("chown nobody:nogroup -R " + m_dir / "tree"), 1);
    for (const char* entry : {"tree", "tree/sub", "tree/sub/script", "tree/file", "tree/fifo"}) {
        EXPECT_EQ(lstat_of(m_dir / entry).st_uid, 65534U) << entry;
        EXPECT_EQ(lstat_of(m_dir / entry).st_gid, 65534U) << entry;
    }
    for (const char* entry : {"tree/link", "tree/broken", "outside"})
        EXPECT_EQ(lstat_of(m_dir / entry).st_uid, 0U) << entry;
}

TEST_F(RightsTest, an_ordinary_user_cannot_give_a_file_away) {
    as_user::give(m_dir.path());
    EXPECT_TRUE(as_user::run([&] {
        write_file(m_dir / "mine", "");
        EXPECT_EQ(set_owner(m_dir / "mine", "root", "", false),
                  chown_failed(m_dir / "mine" + ": " + std::strerror(EPERM)));
        make_dirs(m_dir / "my-tree/sub");
        EXPECT_EQ(set_owner(m_dir / "my-tree", "root", "", true),
                  chown_failed(m_dir / "my-tree/sub" + ": " + std::strerror(EPERM)));
    }));
}
