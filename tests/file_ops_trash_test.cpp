#include "file_ops.h"

#include "as_user.h"
#include "bg_task.h"
#include "log_lines.h"
#include "mounts_fixture.h"
#include "paths.h"
#include "test_env.h"
#include "wait_until.h"

#include <dlfcn.h>
#include <functional>
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

using test_env::exists;
using test_env::make_dirs;
using test_env::read_file;
using test_env::TempDir;
using test_env::write_file;

namespace {

// What answers for the library with "it did not work", if anything.
std::function<void()> g_failing_trash;

}  // namespace

// The library's own, unless a test wants an answer that it does not give.
gboolean g_file_trash(GFile* file, GCancellable* cancellable, GError** error) {
    if (g_failing_trash) {
        g_failing_trash();
        return FALSE;
    }
    static const auto library =
        reinterpret_cast<decltype(&g_file_trash)>(dlsym(RTLD_NEXT, "g_file_trash"));
    return library(file, cancellable, error);
}

namespace {

constexpr const char* kNoTrash = "This location has no trash. Delete permanently instead.";

std::string home_trash() {
    return test_env::root() + "/home/.local/share/Trash";
}

// Where an entry of a trash came from, as its record tells.
std::string origin(const std::string& trash, const std::string& name) {
    const std::string record = read_file(trash + "/info/" + name + ".trashinfo");
    EXPECT_EQ(record.rfind("[Trash Info]\n", 0), 0U) << record;
    EXPECT_NE(record.find("\nDeletionDate=2"), std::string::npos) << record;
    const size_t at = record.find("Path=") + 5;
    const std::string escaped = record.substr(at, record.find('\n', at) - at);
    char* const plain = g_uri_unescape_string(escaped.c_str(), nullptr);
    std::string path = plain ? plain : "";
    g_free(plain);
    return path;
}

BgTask::Status trashed(const std::vector<std::string>& paths) {
    EXPECT_TRUE(file_ops::start_delete(paths, true, "a title"));
    EXPECT_TRUE(test_env::wait_until([] { return !BgTask::instance().is_running(); }));
    const BgTask::Status status = BgTask::instance().snapshot();
    BgTask::instance().reap();
    return status;
}

}  // namespace

TEST(Trash, of_the_home_keeps_content_name_and_origin) {
    const TempDir dir(test_env::root() + "/home");
    const std::string odd = "a b%20\n#ü.txt";
    make_dirs(dir / "tree/sub");
    write_file(dir / "tree/sub/1", "one");
    write_file(dir / "tree/2", "two");
    write_file(dir / odd, "odd");
    const BgTask::Status status = trashed({dir / "tree", dir / odd});
    EXPECT_EQ(status.failures, std::vector<std::string>());
    EXPECT_EQ(status.total, 4 + 1);
    EXPECT_EQ(status.done, 5);
    EXPECT_EQ(status.detail, dir / odd);
    EXPECT_EQ(test_env::logged("delete to trash: " + dir / "tree"), 1);
    EXPECT_EQ(test_env::logged_with("PERMANENTLY"), 0);
    EXPECT_FALSE(exists(dir / "tree"));
    EXPECT_FALSE(exists(dir / odd));
    EXPECT_EQ(trash_dir(), home_trash() + "/files");
    EXPECT_EQ(read_file(trash_dir() + "/tree/sub/1"), "one");
    EXPECT_EQ(read_file(trash_dir() + "/" + odd), "odd");
    EXPECT_EQ(origin(home_trash(), "tree"), dir / "tree");
    EXPECT_EQ(origin(home_trash(), odd), dir / odd);
}

TEST(Trash, two_of_one_name_are_both_kept) {
    const TempDir dir(test_env::root() + "/home");
    for (const char* content : {"first", "second"}) {
        write_file(dir / "same", content);
        EXPECT_EQ(file_ops::move_to_trash(dir / "same"), "");
    }
    EXPECT_EQ(read_file(trash_dir() + "/same"), "first");
    EXPECT_EQ(read_file(trash_dir() + "/same.2"), "second");
    EXPECT_EQ(origin(home_trash(), "same.2"), dir / "same");
}

TEST(Trash, a_link_goes_and_not_what_it_points_to) {
    const TempDir dir(test_env::root() + "/home");
    write_file(dir / "target", "x");
    ASSERT_EQ(symlink("target", (dir / "trash-link").c_str()), 0);
    EXPECT_EQ(file_ops::move_to_trash(dir / "trash-link"), "");
    EXPECT_TRUE(exists(dir / "target"));
    EXPECT_TRUE(S_ISLNK(test_env::lstat_of(trash_dir() + "/trash-link").st_mode));
}

TEST(Trash, what_is_not_there_is_told_in_the_librarys_words) {
    const TempDir dir(test_env::root() + "/home");
    const std::string error = file_ops::move_to_trash(dir / "none");
    EXPECT_NE(error.find(dir / "none"), std::string::npos) << error;
    EXPECT_NE(error.find("No such file or directory"), std::string::npos) << error;
    write_file(dir / "there", "x");
    const BgTask::Status status = trashed({dir / "none", dir / "there"});
    EXPECT_EQ(status.failures, std::vector<std::string>{error});
    EXPECT_EQ(status.total, 1);
    EXPECT_EQ(status.done, 1);
    EXPECT_FALSE(exists(dir / "there"));
}

TEST(Trash, a_failure_without_a_reason_is_told_all_the_same) {
    g_failing_trash = [] {};
    EXPECT_EQ(file_ops::move_to_trash("/"), "Could not move it to the trash.");
    g_failing_trash = {};
}

TEST(Trash, what_could_not_go_is_not_told_as_gone_after_a_cancel) {
    const TempDir dir(test_env::root() + "/home");
    make_dirs(dir / "tree/sub");
    write_file(dir / "file", "x");
    g_failing_trash = [] { BgTask::instance().cancel(); };
    const BgTask::Status status = trashed({dir / "tree", dir / "file"});
    g_failing_trash = {};
    EXPECT_TRUE(status.cancelled);
    EXPECT_EQ(status.failures, std::vector<std::string>{"Could not move it to the trash."});
    EXPECT_EQ(status.total, 3);
    EXPECT_EQ(status.done, 0);
    EXPECT_TRUE(exists(dir / "file"));
}

TEST(Trash, another_file_system_gets_a_trash_of_its_own) {
    const mounts_fixture::LoopImage fs("ext4");
    REQUIRE_MOUNT(fs);
    make_dirs(fs / "folder");
    write_file(fs / "folder/file", "content");
    EXPECT_EQ(file_ops::move_to_trash(fs / "folder/file"), "");
    const std::string trash = fs / (".Trash-" + std::to_string(getuid()));
    EXPECT_FALSE(exists(fs / "folder/file"));
    EXPECT_EQ(read_file(trash + "/files/file"), "content");
    EXPECT_EQ(origin(trash, "file"), "folder/file");
    EXPECT_EQ(test_env::lstat_of(trash).st_mode & 07777U, 0700U);
    // The one of all users goes first where the administrator has made it.
    ASSERT_EQ(mkdir((fs / ".Trash").c_str(), 0777), 0);
    ASSERT_EQ(chmod((fs / ".Trash").c_str(), 01777), 0);
    write_file(fs / "second", "2");
    EXPECT_EQ(file_ops::move_to_trash(fs / "second"), "");
    const std::string shared = fs / (".Trash/" + std::to_string(getuid()));
    EXPECT_EQ(read_file(shared + "/files/second"), "2");
    EXPECT_EQ(origin(shared, "second"), "second");
}

TEST(Trash, a_read_only_file_system_has_none) {
    const mounts_fixture::LoopImage fs("ext4");
    REQUIRE_MOUNT(fs);
    make_dirs(fs / "tree");
    write_file(fs / "tree/file", "content");
    ASSERT_EQ(mount(nullptr, fs.path().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    const BgTask::Status status = trashed({fs / "tree"});
    EXPECT_EQ(status.failures, std::vector<std::string>{kNoTrash});
    // It stays, and completes its share of the bar.
    EXPECT_EQ(read_file(fs / "tree/file"), "content");
    EXPECT_EQ(status.total, 2);
    EXPECT_EQ(status.done, 2);
}

TEST(Trash, a_file_system_in_memory_has_none) {
    const mounts_fixture::Tmpfs fs;
    REQUIRE_MOUNT(fs);
    write_file(fs / "file", "content");
    EXPECT_EQ(file_ops::move_to_trash(fs / "file"), kNoTrash);
    EXPECT_EQ(read_file(fs / "file"), "content");
}

TEST(Trash, an_ordinary_user_who_may_not_make_one_has_none) {
    const mounts_fixture::LoopImage fs("ext4");
    REQUIRE_MOUNT(fs);
    chmod(test_env::root().c_str(), 0755);
    chmod((fs / "..").c_str(), 0755);
    make_dirs(fs / "mine");
    as_user::give(fs / "mine");
    EXPECT_TRUE(as_user::run([&] {
        write_file(fs / "mine/file", "content");
        EXPECT_EQ(file_ops::move_to_trash(fs / "mine/file"), kNoTrash);
        EXPECT_EQ(read_file(fs / "mine/file"), "content");
    }));
}

// Another program's idea of a trash must be ours.
TEST(Trash, another_tool_gives_back_file_name_and_place) {
    if (test_env::run("env -u GIO_USE_VFS timeout 20 dbus-run-session -- gio trash --list") != 0)
        GTEST_SKIP() << "no gio with a trash here (package gvfs)";
    const TempDir dir(test_env::root() + "/home");
    const std::string name = "come back %.txt";
    make_dirs(dir / "folder");
    write_file(dir / "folder/" + name, "content");
    EXPECT_EQ(file_ops::move_to_trash(dir / "folder/" + name), "");
    EXPECT_FALSE(exists(dir / "folder/" + name));
    std::string output;
    EXPECT_EQ(test_env::run("env -u GIO_USE_VFS timeout 20 dbus-run-session -- gio trash --restore "
                            "'trash:///come%20back%20%25.txt' 2>&1",
                            &output),
              0)
        << output;
    EXPECT_EQ(read_file(dir / "folder/" + name), "content");
    EXPECT_FALSE(exists(trash_dir() + "/" + name));
}
