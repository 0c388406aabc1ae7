#include "faultfs.h"

#include "tree.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using faultfs::FaultFs;

namespace {

int open_error(const std::string& path, int flags = O_RDONLY) {
    const int fd = open(path.c_str(), flags | O_CLOEXEC, 0644);
    if (fd < 0)
        return errno;
    close(fd);
    return 0;
}

// A thread stuck in read(), and what its call gave in the end.
struct Reader {
    int fd;
    ssize_t result = 0;
    int code = 0;
    std::atomic<bool> done{false};
    std::thread thread;

    explicit Reader(const std::string& path) : fd(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        thread = std::thread([this] {
            char buffer[64];
            result = read(fd, buffer, sizeof buffer);
            code = errno;
            done = true;
        });
    }
    ~Reader() {
        thread.join();
        close(fd);
    }
};

void wake(std::thread& thread) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR2, &action, nullptr);
    pthread_kill(thread.native_handle(), SIGUSR2);
}

}  // namespace

TEST(faultfs, passes_a_whole_tree_through_in_both_directions) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    tree::Shape shape;
    shape.files = 30;
    shape.hard_links = 4;
    shape.fifos = 1;
    shape.sparse = 1;
    shape.folder_modes = true;
    shape.hostile_names = true;
    tree::build(fs.path(), 5, shape);
    tree::Compare how;
    how.folder_times = true;
    how.links = true;
    how.inodes = true;
    const tree::Snapshot behind = tree::snapshot(fs.backing());
    EXPECT_GT(behind.size(), 35U);
    EXPECT_EQ(tree::difference_text(behind, tree::snapshot(fs.path()), how), "");
    const test_env::TempDir plain;
    tree::build(plain.path(), 5, shape);
    how.inodes = false;
    how.folder_times = false;
    tree::Snapshot expected = tree::snapshot(plain.path());
    // Links to files of the tree hold the path of its root.
    for (auto& [path, node] : expected) {
        if (node.kind == 'l')
            node.link = behind.at(path).link;
    }
    EXPECT_EQ(tree::difference_text(expected, behind, how), "");
}

TEST(faultfs, its_type_is_the_subtype_asked_for) {
    for (const char* subtype : {"faultfs", ""}) {
        faultfs::Options options;
        options.subtype = subtype;
        const FaultFs fs(options);
        REQUIRE_MOUNT(fs);
        std::string type;
        test_env::run("findmnt -n -o FSTYPE --target '" + fs.path() + "'", &type);
        EXPECT_EQ(type, *subtype ? "fuse.faultfs\n" : "fuse\n");
    }
}

TEST(faultfs, fails_the_call_asked_for_and_no_other) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    test_env::write_file(fs / "a", "a");
    test_env::write_file(fs / "b", "b");
    fs.clear();
    fs.set(faultfs::fail("open", EACCES, 2, 1));
    EXPECT_EQ(open_error(fs / "a"), 0);
    EXPECT_EQ(open_error(fs / "a"), EACCES);
    EXPECT_EQ(open_error(fs / "a"), 0);
    EXPECT_EQ(fs.calls("open"), 3);
    fs.clear();
    fs.set(faultfs::fail("open", EIO, 1, -1, "b"));
    EXPECT_EQ(open_error(fs / "a"), 0);
    EXPECT_EQ(open_error(fs / "b"), EIO);
    EXPECT_EQ(open_error(fs / "b"), EIO);
    fs.clear();
    fs.set(faultfs::fail("create", ENOSPC));
    EXPECT_EQ(open_error(fs / "c", O_WRONLY | O_CREAT | O_EXCL), ENOSPC);
    EXPECT_FALSE(test_env::exists(fs.backing() + "/c"));
}

TEST(faultfs, every_change_can_fail) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    test_env::write_file(fs / "a", "a");
    const std::string a = fs / "a";
    const std::string b = fs / "b";
    for (const char* op : {"unlink", "rename", "mkdir", "rmdir", "symlink", "link", "chmod",
                           "utimens", "truncate", "statfs", "lookup"})
        fs.set(faultfs::fail(op, ESTALE));
    errno = 0;
    EXPECT_TRUE(mkdir(b.c_str(), 0755) != 0 && errno == ESTALE);
    fs.clear();
    for (const char* op : {"unlink", "rename", "mkdir", "rmdir", "symlink", "link", "chmod",
                           "utimens", "truncate", "statfs"})
        fs.set(faultfs::fail(op, EIO));
    EXPECT_TRUE(unlink(a.c_str()) != 0 && errno == EIO);
    EXPECT_TRUE(rename(a.c_str(), b.c_str()) != 0 && errno == EIO);
    EXPECT_TRUE(mkdir(b.c_str(), 0755) != 0 && errno == EIO);
    EXPECT_TRUE(symlink("x", b.c_str()) != 0 && errno == EIO);
    EXPECT_TRUE(link(a.c_str(), b.c_str()) != 0 && errno == EIO);
    EXPECT_TRUE(chmod(a.c_str(), 0600) != 0 && errno == EIO);
    EXPECT_TRUE(truncate(a.c_str(), 0) != 0 && errno == EIO);
    EXPECT_TRUE(utimensat(AT_FDCWD, a.c_str(), nullptr, 0) != 0 && errno == EIO);
    EXPECT_EQ(tree::snapshot(fs.backing()).size(), 1U);
}

TEST(faultfs, reads_writes_and_range_copies_fall_short) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    fs.set(faultfs::limit("read", 10));
    fs.set(faultfs::limit("write", 7));
    fs.set(faultfs::limit("copy_file_range", 3));
    const int fd = open((fs / "a").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    const int to = open((fs / "b").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    const std::string text(100, 'x');
    EXPECT_EQ(write(fd, text.data(), text.size()), 7);
    EXPECT_EQ(pwrite(fd, text.data(), text.size(), 7), 7);
    char buffer[100];
    EXPECT_EQ(pread(fd, buffer, sizeof buffer, 0), 10);
    off_t from = 0;
    EXPECT_EQ(copy_file_range(fd, &from, to, nullptr, 14, 0), 3);
    close(fd);
    close(to);
}

TEST(faultfs, a_close_reports_what_flush_said) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const int fd = open((fs / "a").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    fs.set(faultfs::fail("flush", EDQUOT));
    errno = 0;
    EXPECT_EQ(close(fd), -1);
    EXPECT_EQ(errno, EDQUOT);
}

TEST(faultfs, readdir_fails_in_the_middle) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    for (int i = 0; i < 10; ++i)
        test_env::write_file(fs.backing() + "/f" + std::to_string(i), "");
    fs.set(faultfs::limit("readdir", 4));
    fs.set(faultfs::fail("readdir", EIO, 2));
    DIR* dir = opendir(fs.path().c_str());
    ASSERT_NE(dir, nullptr);
    int seen = 0;
    errno = 0;
    while (readdir(dir))
        ++seen;
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(seen, 4);
    closedir(dir);
}

TEST(faultfs, can_be_without_fallocate_and_without_kinds) {
    faultfs::Options options;
    options.unknown_types = true;
    FaultFs fs(options);
    REQUIRE_MOUNT(fs);
    fs.set(faultfs::fail("fallocate", ENOSYS));
    const int fd = open((fs / "a").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    EXPECT_NE(fallocate(fd, 0, 0, 100), 0);
    EXPECT_EQ(errno, EOPNOTSUPP);
    close(fd);
    DIR* dir = opendir(fs.path().c_str());
    while (const struct dirent* entry = readdir(dir)) {
        if (entry->d_name[0] == 'a') {
            EXPECT_EQ(entry->d_type, DT_UNKNOWN);
        }
    }
    closedir(dir);
}

TEST(faultfs, can_take_two_cases_for_one_name) {
    faultfs::Options options;
    options.fold_case = true;
    const FaultFs fs(options);
    REQUIRE_MOUNT(fs);
    test_env::write_file(fs / "Name", "content");
    EXPECT_EQ(test_env::read_file(fs / "nAME"), "content");
    EXPECT_EQ(open_error(fs / "NAME", O_WRONLY | O_CREAT | O_EXCL), EEXIST);
    EXPECT_EQ(tree::snapshot(fs.path()).begin()->first, "name");
}

TEST(faultfs, can_keep_the_case_that_it_does_not_tell_apart) {
    faultfs::Options options;
    options.keep_case = true;
    const FaultFs fs(options);
    REQUIRE_MOUNT(fs);
    test_env::write_file(fs / "Name", "content");
    EXPECT_EQ(test_env::read_file(fs / "nAME"), "content");
    EXPECT_EQ(open_error(fs / "NAME", O_WRONLY | O_CREAT | O_EXCL), EEXIST);
    EXPECT_EQ(tree::snapshot(fs.path()).begin()->first, "Name");
}

TEST(faultfs, a_stalled_call_goes_on_when_told) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    test_env::write_file(fs / "a", "content");
    fs.set(faultfs::stall("read"));
    Reader reader(fs / "a");
    ASSERT_TRUE(fs.wait_stalled(1));
    EXPECT_FALSE(reader.done);
    fs.release();
    reader.thread.join();
    reader.thread = std::thread([] {});
    EXPECT_EQ(reader.result, 7);
    EXPECT_EQ(fs.stalled(), 0);
}

TEST(faultfs, a_stall_ends_with_eintr_when_the_caller_is_woken) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    test_env::write_file(fs / "a", "content");
    fs.set(faultfs::stall("read"));
    Reader reader(fs / "a");
    ASSERT_TRUE(fs.wait_stalled(1));
    wake(reader.thread);
    reader.thread.join();
    reader.thread = std::thread([] {});
    EXPECT_EQ(reader.result, -1);
    EXPECT_EQ(reader.code, EINTR);
}

TEST(faultfs, a_deaf_stall_does_not_hear_the_wake) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    test_env::write_file(fs / "a", "content");
    faultfs::Fault fault = faultfs::stall("read");
    fault.deaf = true;
    fs.set(fault);
    Reader reader(fs / "a");
    ASSERT_TRUE(fs.wait_stalled(1));
    wake(reader.thread);
    usleep(200'000);
    EXPECT_FALSE(reader.done);
    EXPECT_EQ(fs.stalled(), 1);
    fs.release();
}

TEST(faultfs, a_server_that_is_gone_fails_every_call) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    test_env::write_file(fs / "a", "content");
    fs.kill_server();
    EXPECT_EQ(open_error(fs / "a"), ENOTCONN);
}

TEST(faultfs, an_ordinary_user_is_held_to_the_modes) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    test_env::write_file(fs / "secret", "x", 0600);
    chmod(fs.path().c_str(), 0777);
    chmod(test_env::root().c_str(), 0755);
    const std::string as_nobody = "setpriv --reuid=65534 --regid=65534 --clear-groups sh -c ";
    EXPECT_NE(test_env::run(as_nobody + "'cat " + fs / "secret" + "'"), 0);
    EXPECT_EQ(test_env::run(as_nobody + "'touch " + fs / "mine" + "'"), 0);
    EXPECT_EQ(test_env::lstat_of(fs / "mine").st_uid, 65534U);
}
