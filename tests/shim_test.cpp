#include "shim.h"

#include "test_env.h"

#include <cerrno>
#include <csignal>
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <thread>
#include <unistd.h>

TEST(shim, fails_the_call_asked_for) {
    REQUIRE_SHIM(SYS_ftruncate, SYS_newfstatat);
    const test_env::TempDir dir;
    const int fd = open((dir / "a").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    shim::fail(SYS_ftruncate, EIO, 2, 1);
    EXPECT_EQ(ftruncate(fd, 5), 0);
    EXPECT_EQ(ftruncate(fd, 6), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(ftruncate(fd, 7), 0);
    EXPECT_EQ(shim::calls(SYS_ftruncate), 3);
    shim::clear();
    shim::fail(SYS_newfstatat, EACCES, 1, -1, shim::path_ends(1, "/a"));
    struct stat st = {};
    EXPECT_EQ(lstat((dir / "a").c_str(), &st), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(lstat(dir.path().c_str(), &st), 0);
    close(fd);
}

TEST(shim, a_close_fails_and_still_closes) {
    REQUIRE_SHIM(SYS_close);
    const test_env::TempDir dir;
    const int fd = open((dir / "target").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    shim::rule(
        SYS_close, [](const shim::Call& call) { return shim::close_and_refuse(call, EIO); },
        shim::on_file(0, "target"));
    EXPECT_EQ(close(fd), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST(shim, gives_results_in_the_kernels_stead) {
    REQUIRE_SHIM(SYS_copy_file_range, SYS_ioctl, SYS_statfs);
    const test_env::TempDir dir;
    test_env::write_file(dir / "a", "content");
    const int from = open((dir / "a").c_str(), O_RDONLY | O_CLOEXEC);
    const int to = open((dir / "b").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    shim::rule(SYS_copy_file_range, [](const shim::Call&) { return shim::give(0); });
    EXPECT_EQ(copy_file_range(from, nullptr, to, nullptr, 7, 0), 0);
    shim::fail(SYS_ioctl, EPERM, 1, -1,
               [](const shim::Call& call) { return call.args[1] == FICLONE; });
    EXPECT_EQ(ioctl(to, FICLONE, from), -1);
    EXPECT_EQ(errno, EPERM);
    shim::fail(SYS_statfs, EIO);
    struct statvfs space = {};
    EXPECT_EQ(statvfs(dir.path().c_str(), &space), -1);
    close(from);
    close(to);
}

TEST(shim, a_listing_breaks_off) {
    REQUIRE_SHIM(SYS_getdents64);
    const test_env::TempDir dir;
    test_env::write_file(dir / "a", "");
    shim::fail(SYS_getdents64, EIO, 2);
    DIR* stream = opendir(dir.path().c_str());
    int seen = 0;
    errno = 0;
    while (readdir(stream))
        ++seen;
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(seen, 3);
    closedir(stream);
}

TEST(shim, no_more_threads_can_be_had) {
    REQUIRE_SHIM(SYS_clone3, SYS_clone);
    shim::fail(SYS_clone3, EAGAIN);
    shim::fail(SYS_clone, EAGAIN);
    EXPECT_THROW(std::thread([] {}).join(), std::system_error);
    shim::clear();
    std::thread([] {}).join();
}

TEST(shim, something_happens_between_two_steps) {
    REQUIRE_SHIM(SYS_openat);
    const test_env::TempDir dir;
    test_env::write_file(dir / "a", "content");
    shim::rule(
        SYS_openat,
        [&](const shim::Call&) {
            unlink((dir / "a").c_str());
            return shim::go();
        },
        shim::path_ends(1, "/a"));
    EXPECT_EQ(open((dir / "a").c_str(), O_RDONLY | O_CLOEXEC), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(shim, a_call_waits_until_released_or_woken) {
    REQUIRE_SHIM(SYS_pread64);
    const test_env::TempDir dir;
    test_env::write_file(dir / "a", "content");
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR2, &action, nullptr);
    shim::rule(SYS_pread64, [](const shim::Call&) { return shim::wait(); });
    for (const bool woken : {false, true}) {
        ssize_t result = 0;
        int code = 0;
        std::thread thread([&] {
            const int fd = open((dir / "a").c_str(), O_RDONLY | O_CLOEXEC);
            char buffer[16];
            result = pread(fd, buffer, sizeof buffer, 0);
            code = errno;
            close(fd);
        });
        ASSERT_TRUE(shim::wait_waiting(1));
        if (woken)
            pthread_kill(thread.native_handle(), SIGUSR2);
        else
            shim::release();
        thread.join();
        EXPECT_EQ(result, woken ? -1 : 7);
        if (woken) {
            EXPECT_EQ(code, EINTR);
        }
        shim::release();
    }
}

TEST(shim, other_threads_alone_can_be_meant) {
    REQUIRE_SHIM(SYS_ftruncate);
    const test_env::TempDir dir;
    const int fd = open((dir / "a").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    shim::fail(SYS_ftruncate, EIO, 1, -1, shim::not_this_thread());
    EXPECT_EQ(ftruncate(fd, 1), 0);
    int result = 0;
    std::thread([&] { result = ftruncate(fd, 1); }).join();
    EXPECT_EQ(result, -1);
    close(fd);
}

TEST(shim, children_of_the_test_are_left_alone) {
    REQUIRE_SHIM(SYS_openat);
    shim::fail(SYS_openat, EACCES, 1, -1, shim::path_ends(1, "passwd"));
    EXPECT_EQ(test_env::run("cat /etc/passwd"), 0);
}
