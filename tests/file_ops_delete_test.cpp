#include "file_ops.h"

#include "as_user.h"
#include "bg_task.h"
#include "fresh_process.h"
#include "fs_ops.h"
#include "log_lines.h"
#include "logger.h"
#include "mounts_fixture.h"
#include "paths.h"
#include "shim.h"
#include "test_env.h"
#include "wait_until.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using test_env::exists;
using test_env::make_dirs;
using test_env::TempDir;
using test_env::write_file;

namespace {

using Paths = std::vector<std::string>;

std::string text(const std::string& path, int code) {
    return path + ": " + std::strerror(code);
}

// Runs a delete to its end. What is told of it then.
BgTask::Status deleted(const Paths& paths, bool to_trash = false) {
    EXPECT_TRUE(file_ops::start_delete(paths, to_trash, "a title"));
    EXPECT_TRUE(test_env::wait_until([] { return !BgTask::instance().is_running(); }));
    const BgTask::Status status = BgTask::instance().snapshot();
    BgTask::instance().reap();
    return status;
}

class DeleteTask : public ::testing::Test {
  protected:
    void SetUp() override {
        Log::instance().clear();
        make_dirs(m_dir / "tree/a/b");
        make_dirs(m_dir / "second");
        for (const char* file : {"tree/1", "tree/a/2", "tree/a/b/3", "tree/a/b/4", "second/5"})
            write_file(m_dir / file, "x");
        write_file(m_dir / "file", "x");
    }

    const TempDir m_dir;
};

}  // namespace

// --- For good -----------------------------------------------------------------------------------

TEST_F(DeleteTask, everything_named_goes_and_is_counted) {
    ASSERT_EQ(symlink("second", (m_dir / "tree/link").c_str()), 0);
    const BgTask::Status status = deleted({m_dir / "tree", m_dir / "file"});
    EXPECT_EQ(status.kind, BgTask::Kind::Delete);
    EXPECT_EQ(status.title, "a title");
    EXPECT_EQ(status.total, 5 + 3 + 1);
    EXPECT_EQ(status.done, status.total);
    EXPECT_TRUE(status.failures.empty());
    EXPECT_FALSE(status.cancelled);
    EXPECT_EQ(status.detail, m_dir / "file");
    EXPECT_FALSE(exists(m_dir / "tree"));
    EXPECT_FALSE(exists(m_dir / "file"));
    EXPECT_TRUE(exists(m_dir / "second/5"));
    EXPECT_EQ(test_env::logged("delete PERMANENTLY: " + m_dir / "tree"), 1);
    EXPECT_EQ(test_env::logged("delete PERMANENTLY: " + m_dir / "file"), 1);
    EXPECT_EQ(test_env::logged("DELETE done: 9 of 9 done, 0 failed"), 1);
}

TEST_F(DeleteTask, a_second_one_waits_its_turn) {
    REQUIRE_SHIM(SYS_unlinkat);
    shim::rule(SYS_unlinkat, [](const shim::Call&) { return shim::wait(); });
    ASSERT_TRUE(file_ops::start_delete({m_dir / "tree"}, false, "first"));
    ASSERT_TRUE(shim::wait_waiting(1));
    EXPECT_FALSE(file_ops::start_delete({m_dir / "file"}, false, "second"));
    EXPECT_EQ(BgTask::instance().snapshot().detail, m_dir / "tree");
    EXPECT_EQ(BgTask::instance().snapshot().total, 7);
    shim::clear();
    ASSERT_TRUE(test_env::wait_until([] { return !BgTask::instance().is_running(); }));
    BgTask::instance().reap();
    EXPECT_TRUE(exists(m_dir / "file"));
}

TEST_F(DeleteTask, what_is_not_there_is_a_failure_and_the_rest_goes) {
    const BgTask::Status status = deleted({m_dir / "none", m_dir / "file"});
    EXPECT_EQ(status.failures, Paths{text(m_dir / "none", ENOENT)});
    EXPECT_EQ(status.total, 1);
    EXPECT_EQ(status.done, 1);
    EXPECT_FALSE(exists(m_dir / "file"));
}

TEST_F(DeleteTask, what_an_ordinary_user_cannot_delete_completes_its_share_of_the_bar) {
    as_user::give(m_dir.path());
    EXPECT_TRUE(as_user::run([&] {
        make_dirs(m_dir / "mine/open");
        make_dirs(m_dir / "mine/fixed");
        for (const char* file : {"mine/open/1", "mine/fixed/2", "mine/fixed/3", "mine/4"})
            write_file(m_dir / file, "x");
        write_file(m_dir / "last", "x");
        chmod((m_dir / "mine/fixed").c_str(), 0555);
        const BgTask::Status status = deleted({m_dir / "mine", m_dir / "last"});
        EXPECT_EQ(status.total, 4 + 3 + 1);
        EXPECT_EQ(status.done, status.total);
        ASSERT_EQ(status.failures.size(), 1U);
        EXPECT_TRUE(status.failures[0] == text(m_dir / "mine/fixed/2", EACCES) ||
                    status.failures[0] == text(m_dir / "mine/fixed/3", EACCES))
            << status.failures[0];
        EXPECT_FALSE(exists(m_dir / "mine/open"));
        EXPECT_FALSE(exists(m_dir / "mine/4"));
        EXPECT_FALSE(exists(m_dir / "last"));
        EXPECT_TRUE(exists(m_dir / "mine/fixed/2"));
        chmod((m_dir / "mine/fixed").c_str(), 0755);
    }));
}

TEST_F(DeleteTask, a_mount_point_inside_stays_with_all_that_is_on_it) {
    const TempDir elsewhere;
    write_file(elsewhere / "theirs", "x");
    make_dirs(m_dir / "tree/a/bound");
    const mounts_fixture::Bind bind(elsewhere.path(), m_dir / "tree/a/bound");
    REQUIRE_MOUNT(bind);
    const BgTask::Status status = deleted({m_dir / "tree"});
    EXPECT_EQ(status.failures, Paths{m_dir / "tree/a/bound" + ": this folder is a mount point"});
    EXPECT_EQ(status.done, status.total);
    EXPECT_TRUE(exists(elsewhere / "theirs"));
    EXPECT_FALSE(exists(m_dir / "tree/1"));
    EXPECT_FALSE(exists(m_dir / "tree/a/b"));
}

TEST_F(DeleteTask, a_folder_swapped_for_a_link_on_the_way_leads_nowhere) {
    REQUIRE_SHIM(SYS_unlinkat, SYS_openat);
    make_dirs(m_dir / "outside");
    write_file(m_dir / "outside/theirs", "x");
    bool removing = false;
    bool swapped = false;
    // The folder is opened twice: to count, and to remove what is in it.
    shim::rule(SYS_unlinkat, [&](const shim::Call&) {
        removing = true;
        return shim::go();
    });
    shim::rule(
        SYS_openat,
        [&](const shim::Call&) {
            if (removing && !std::exchange(swapped, true)) {
                rename((m_dir / "tree/a").c_str(), (m_dir / "taken").c_str());
                (void)!symlink("../outside", (m_dir / "tree/a").c_str());
            }
            return shim::go();
        },
        shim::path_ends(1, "a"));
    const BgTask::Status status = deleted({m_dir / "tree"});
    shim::clear();
    EXPECT_TRUE(swapped);
    EXPECT_EQ(status.failures.size(), 1U);
    EXPECT_TRUE(exists(m_dir / "outside/theirs"));
    EXPECT_TRUE(exists(m_dir / "taken/b/3"));
}

// --- Cancelling ---------------------------------------------------------------------------------

TEST_F(DeleteTask, cancelling_stops_inside_a_tree_and_tells_what_went) {
    REQUIRE_SHIM(SYS_unlinkat);
    int removed = 0;
    shim::rule(
        SYS_unlinkat,
        [&](const shim::Call&) {
            if (++removed == 3)
                BgTask::instance().cancel();
            return shim::go();
        },
        [](const shim::Call& call) { return call.arg_text(1) >= "1" && call.arg_text(1) <= "9"; });
    make_dirs(m_dir / "big");
    for (int i = 0; i < 20; ++i)
        write_file(m_dir / "big/" + std::to_string(i + 1), "x");
    const BgTask::Status status = deleted({m_dir / "big", m_dir / "file"});
    shim::clear();
    EXPECT_TRUE(status.cancelled);
    EXPECT_EQ(status.total, 22);
    EXPECT_EQ(status.done, 3);
    EXPECT_TRUE(status.failures.empty());
    EXPECT_EQ(fsops::list_dir_raw(m_dir / "big").entries.size(), 17U);
    EXPECT_TRUE(exists(m_dir / "file"));
    EXPECT_EQ(test_env::logged("DELETE CANCELLED: 3 of 22 done, 0 failed"), 1);
}

TEST_F(DeleteTask, what_could_not_be_deleted_is_not_told_as_gone_after_a_cancel) {
    REQUIRE_SHIM(SYS_unlinkat);
    // Of "tree" the file 3 stays, with the three folders above it; then "second" is stopped.
    shim::fail(SYS_unlinkat, EBUSY, 1, -1, shim::path_ends(1, "3"));
    shim::rule(
        SYS_unlinkat,
        [](const shim::Call&) {
            BgTask::instance().cancel();
            return shim::go();
        },
        shim::path_ends(1, "5"));
    const BgTask::Status status = deleted({m_dir / "tree", m_dir / "second", m_dir / "file"});
    shim::clear();
    EXPECT_TRUE(status.cancelled);
    EXPECT_EQ(status.failures, Paths{text(m_dir / "tree/a/b/3", EBUSY)});
    EXPECT_EQ(status.done, 3 + 1);
    EXPECT_TRUE(exists(m_dir / "second"));
    EXPECT_TRUE(exists(m_dir / "file"));
}

TEST_F(DeleteTask, nothing_goes_when_it_is_cancelled_while_it_counts) {
    REQUIRE_SHIM(SYS_openat);
    shim::rule(
        SYS_openat,
        [](const shim::Call&) {
            BgTask::instance().cancel();
            return shim::go();
        },
        shim::path_ends(1, "a"));
    int further = 0;
    for (const char* folder : {"b", "second"})
        shim::rule(
            SYS_openat,
            [&further](const shim::Call&) {
                ++further;
                return shim::go();
            },
            shim::path_ends(1, folder));
    const BgTask::Status status = deleted({m_dir / "tree", m_dir / "second", m_dir / "file"});
    shim::clear();
    EXPECT_TRUE(status.cancelled);
    EXPECT_EQ(status.done, 0);
    // The folder, the one in it, and perhaps the file beside that.
    EXPECT_GE(status.total, 2);
    EXPECT_LE(status.total, 3);
    EXPECT_EQ(further, 0);
    EXPECT_TRUE(exists(m_dir / "tree/1"));
    EXPECT_TRUE(exists(m_dir / "file"));
    EXPECT_EQ(test_env::logged_with("delete PERMANENTLY"), 0);
}

// --- Inside the trash ---------------------------------------------------------------------------

class DeleteInTrash : public DeleteTask {
  protected:
    void SetUp() override {
        make_dirs(files());
        make_dirs(info());
        for (const char* name : {"old", "other", "kept"})
            write_file(info() + "/" + name + ".trashinfo", "[Trash Info]\n");
        make_dirs(files() + "/old");
        write_file(files() + "/old/kept", "x");
        write_file(files() + "/other", "x");
        write_file(files() + "/kept", "x");
        write_file(info() + "/../directorysizes", "4096 0 old\n");
    }
    void TearDown() override { (void)fsops::remove_recursive(files() + "/..", {}); }

    static std::string files() { return trash_dir(); }
    static std::string info() { return files() + "/../info"; }
    static bool has_record(const std::string& name) {
        return exists(info() + "/" + name + ".trashinfo");
    }
};

TEST_F(DeleteInTrash, an_entrys_record_goes_with_it_and_nothing_else_does) {
    // What stands deeper has no record of its own.
    EXPECT_TRUE(deleted({files() + "/old/kept"}).failures.empty());
    EXPECT_TRUE(has_record("kept"));
    const BgTask::Status status = deleted({files() + "/old", files() + "/other"});
    EXPECT_TRUE(status.failures.empty());
    EXPECT_EQ(status.done, 2);
    EXPECT_FALSE(has_record("old"));
    EXPECT_FALSE(has_record("other"));
    EXPECT_TRUE(has_record("kept"));
    EXPECT_TRUE(exists(files() + "/kept"));
    EXPECT_EQ(test_env::read_file(info() + "/../directorysizes"), "4096 0 old\n");
    // Nor has a file of that name elsewhere.
    write_file(m_dir / "kept", "x");
    EXPECT_TRUE(deleted({m_dir / "kept"}).failures.empty());
    EXPECT_TRUE(has_record("kept"));
}

TEST_F(DeleteInTrash, the_record_goes_whatever_path_leads_to_the_trash) {
    ASSERT_EQ(symlink(files().c_str(), (m_dir / "trash").c_str()), 0);
    EXPECT_TRUE(deleted({m_dir / "trash/other"}).failures.empty());
    EXPECT_FALSE(has_record("other"));
}

TEST_F(DeleteInTrash, a_record_that_is_not_there_is_no_matter_and_one_that_stays_is_logged) {
    std::remove((info() + "/other.trashinfo").c_str());
    EXPECT_TRUE(deleted({files() + "/other"}).failures.empty());
    EXPECT_EQ(test_env::logged_with("trash: "), 0);
    std::remove((info() + "/kept.trashinfo").c_str());
    make_dirs(info() + "/kept.trashinfo/folder");
    EXPECT_TRUE(deleted({files() + "/kept"}).failures.empty());
    EXPECT_EQ(test_env::logged_with("trash: "), 1);
}

TEST_F(DeleteInTrash, what_stays_keeps_its_record) {
    REQUIRE_SHIM(SYS_unlinkat);
    shim::fail(SYS_unlinkat, EBUSY, 1, -1, shim::path_ends(1, "kept"));
    const BgTask::Status status = deleted({files() + "/old"});
    shim::clear();
    EXPECT_EQ(status.failures.size(), 1U);
    EXPECT_TRUE(has_record("old"));
}
