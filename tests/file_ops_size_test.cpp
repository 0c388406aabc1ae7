#include "file_ops.h"

#include "as_user.h"
#include "fresh_process.h"
#include "shim.h"
#include "test_env.h"
#include "wait_until.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using file_ops::folder_size::Status;
using test_env::make_dirs;
using test_env::TempDir;
using test_env::write_file;
namespace folder_size = file_ops::folder_size;

namespace {

Status counted(const std::string& path) {
    folder_size::start(path);
    EXPECT_TRUE(test_env::wait_until([] { return !folder_size::snapshot().running; }));
    return folder_size::snapshot();
}

std::string count_text(const Status& s) {
    return std::to_string(s.bytes) + " bytes, " + std::to_string(s.files) + " files, " +
           std::to_string(s.dirs) + " dirs" + (s.running ? ", running" : "") +
           (s.done ? ", done" : "") + (s.incomplete ? ", incomplete" : "");
}

}  // namespace

TEST(FolderSize, before_the_first_count_there_is_nothing) {
    EXPECT_EQ(test_env::answer_of_child([] {
                  folder_size::abandon();
                  folder_size::cancel();
                  return count_text(folder_size::snapshot());
              }),
              "0 bytes, 0 files, 0 dirs");
}

TEST(FolderSize, a_folder_is_counted_to_its_end) {
    const TempDir dir;
    make_dirs(dir / "a/b");
    write_file(dir / "one", "12345");
    write_file(dir / "a/b/two", "123");
    ASSERT_EQ(symlink("/usr", (dir / "link").c_str()), 0);
    EXPECT_EQ(count_text(counted(dir.path())), "8 bytes, 3 files, 3 dirs, done");
    // The next one begins at nothing.
    EXPECT_EQ(count_text(counted(dir / "a/b")), "3 bytes, 1 files, 1 dirs, done");
    EXPECT_EQ(count_text(counted(dir / "none")), "0 bytes, 0 files, 0 dirs, done");
}

TEST(FolderSize, what_cannot_be_read_makes_it_incomplete) {
    const TempDir dir;
    as_user::give(dir.path());
    EXPECT_TRUE(as_user::run([&] {
        make_dirs(dir / "closed");
        write_file(dir / "file", "1234");
        chmod((dir / "closed").c_str(), 0);
        EXPECT_EQ(count_text(counted(dir.path())), "4 bytes, 1 files, 2 dirs, done, incomplete");
        EXPECT_EQ(count_text(counted(dir / "file")), "4 bytes, 1 files, 0 dirs, done");
        chmod((dir / "closed").c_str(), 0755);
    }));
}

TEST(FolderSize, without_a_thread_the_count_is_empty_and_incomplete) {
    REQUIRE_SHIM(SYS_clone3, SYS_clone);
    for (const long number : {SYS_clone3, SYS_clone})
        shim::fail(number, EAGAIN, 1);
    folder_size::start("/");
    shim::clear();
    EXPECT_EQ(count_text(folder_size::snapshot()), "0 bytes, 0 files, 0 dirs, incomplete");
    const auto before = std::chrono::steady_clock::now();
    folder_size::cancel();  // there is nobody to wait for
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(400));
}

// The worker stands at a subfolder that does not answer. What it has counted until then is shown;
// the call of the kernel is watched, so the names come one by one.
class SizingHeldUp : public ::testing::Test {
  protected:
    void SetUp() override {
        REQUIRE_SHIM(SYS_openat);
        make_dirs(m_dir / "held/deeper");
        for (int i = 0; i < 100; ++i)
            write_file(m_dir / std::to_string(i), "12");
        shim::rule(
            SYS_openat, [](const shim::Call&) { return shim::wait(); }, shim::path_ends(1, "held"));
        shim::rule(
            SYS_openat,
            [this](const shim::Call&) {
                ++m_deeper;
                return shim::go();
            },
            shim::path_ends(1, "deeper"));
        m_threads = threads();
        folder_size::start(m_dir.path());
        ASSERT_TRUE(shim::wait_waiting(1));
    }
    void TearDown() override {
        shim::clear();
        folder_size::cancel();
    }

    static std::ptrdiff_t threads() {
        const std::filesystem::directory_iterator tasks("/proc/self/task");
        return std::distance(begin(tasks), end(tasks));
    }
    // The worker gets its answer, and goes as far as it will.
    void let_it_end() {
        shim::release();
        EXPECT_TRUE(test_env::wait_until([this] { return threads() == m_threads; }));
    }

    const TempDir m_dir;
    std::ptrdiff_t m_threads = 0;  // before the worker
    std::atomic<int> m_deeper{0};  // how often the folder behind the one that is held was opened
};

TEST_F(SizingHeldUp, the_count_is_seen_as_it_grows) {
    // After 64 of the 101 names; how many are files depends on where the folder stands.
    const Status status = folder_size::snapshot();
    EXPECT_TRUE(status.running);
    EXPECT_FALSE(status.done);
    EXPECT_GE(status.files, 63);
    EXPECT_LE(status.files, 64);
    EXPECT_EQ(status.bytes, status.files * 2);
    EXPECT_EQ(status.dirs, 1);
    let_it_end();
    EXPECT_EQ(m_deeper, 1);
    EXPECT_EQ(count_text(folder_size::snapshot()), "200 bytes, 100 files, 3 dirs, done");
}

TEST_F(SizingHeldUp, an_abandoned_count_is_not_running_at_once_and_never_done) {
    const auto before = std::chrono::steady_clock::now();
    folder_size::abandon();
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(100));
    EXPECT_FALSE(folder_size::snapshot().running);
    let_it_end();
    EXPECT_EQ(m_deeper, 0);
    const Status status = folder_size::snapshot();
    EXPECT_FALSE(status.done);
    EXPECT_FALSE(status.running);
    EXPECT_GE(status.files, 63);
}

TEST_F(SizingHeldUp, a_new_count_does_not_wait_for_one_that_hangs) {
    const TempDir other;
    write_file(other / "file", "1");
    EXPECT_EQ(count_text(counted(other.path())), "1 bytes, 1 files, 1 dirs, done");
    EXPECT_EQ(shim::waiting(), 1);
    // Nor does the old one, when it goes on at last, count on or add to what is shown.
    let_it_end();
    EXPECT_EQ(m_deeper, 0);
    EXPECT_EQ(count_text(folder_size::snapshot()), "1 bytes, 1 files, 1 dirs, done");
}

TEST_F(SizingHeldUp, cancel_waits_for_the_end_but_not_for_ever) {
    const auto before = std::chrono::steady_clock::now();
    folder_size::cancel();  // it hangs: this comes back all the same
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(5));
    EXPECT_EQ(shim::waiting(), 1);
    // The end of one that does not hang is waited for.
    std::thread helper([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        shim::release();
    });
    folder_size::cancel();
    EXPECT_EQ(shim::waiting(), 0);
    helper.join();
    EXPECT_FALSE(folder_size::snapshot().running);
}

TEST(FolderSize, properties_tell_of_the_entry_and_have_a_folder_counted) {
    const TempDir dir;
    make_dirs(dir / "folder");
    write_file(dir / "folder/file", "123");
    FsEntry entry;
    entry.name = "folder";
    entry.kind = FsEntry::Kind::Dir;
    entry.size = 4096;
    entry.mtime = 1700000000;
    entry.perm = 0750;
    entry.owner = "ann";
    entry.group = "staff";
    const file_ops::Properties p = file_ops::properties_of(entry, dir.path());
    EXPECT_EQ(p.path, dir / "folder");
    EXPECT_EQ(p.name, "folder");
    EXPECT_TRUE(p.is_dir);
    EXPECT_EQ(p.size, 4096);
    EXPECT_EQ(p.mtime, 1700000000);
    EXPECT_EQ(p.permissions, "drwxr-x---");
    EXPECT_EQ(p.owner, "ann");
    EXPECT_EQ(p.group, "staff");
    EXPECT_EQ(p.link_target, "");
    EXPECT_GT(p.free_space, 0);
    ASSERT_TRUE(test_env::wait_until([] { return folder_size::snapshot().done; }));
    EXPECT_EQ(count_text(folder_size::snapshot()), "3 bytes, 1 files, 1 dirs, done");
}

TEST(FolderSize, properties_of_what_is_no_folder_count_nothing) {
    const TempDir dir;
    write_file(dir / "one", "1");
    (void)counted(dir.path());
    FsEntry entry;
    entry.name = "link";
    entry.kind = FsEntry::Kind::SymlinkDir;
    entry.link_target = "/usr";
    file_ops::Properties p = file_ops::properties_of(entry, dir.path());
    EXPECT_FALSE(p.is_dir);
    EXPECT_EQ(p.link_target, "/usr");
    entry.kind = FsEntry::Kind::File;
    p = file_ops::properties_of(entry, dir / "none");
    EXPECT_FALSE(p.is_dir);
    EXPECT_EQ(p.free_space, -1);
    EXPECT_EQ(count_text(folder_size::snapshot()), "1 bytes, 1 files, 1 dirs, done");
}
