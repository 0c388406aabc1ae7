// One file from here to there: what arrives, what is left when it fails, and which calls are made.

#include "as_user.h"
#include "faultfs.h"
#include "fs_ops.h"
#include "mounts_fixture.h"
#include "shim.h"
#include "test_env.h"
#include "tree.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/falloc.h>
#include <linux/fs.h>
#include <numeric>
#include <ostream>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using faultfs::FaultFs;
using mounts_fixture::LoopImage;
using mounts_fixture::Tmpfs;
using test_env::exists;
using test_env::lstat_of;
using test_env::make_dirs;
using test_env::pattern;
using test_env::read_file;
using test_env::TempDir;
using test_env::write_file;

namespace {

constexpr int64_t kMiB = 1 << 20;
constexpr const char* kNotRegular = "not a regular file (pipe, socket or device)";

std::string text(const std::string& path, int code) {
    return path + ": " + std::strerror(code);
}

void leave_error(int code) {
    EXPECT_NE(fsops::err_from("/left", code), "");
}

std::string copy(const std::string& source, const std::string& target) {
    return fsops::copy_file(source, target, {}, nullptr);
}

// A copy that keeps what its progress saw.
struct Watched {
    std::vector<int64_t> counts;
    bool cloned = true;
    std::string error;
    int64_t sum = 0;

    Watched(const std::string& source, const std::string& target) {
        error = fsops::copy_file(
            source, target,
            [this](int64_t count) {
                counts.push_back(count);
                return true;
            },
            &cloned);
        sum = std::accumulate(counts.begin(), counts.end(), int64_t{0});
    }
};

void set_times(const std::string& path, time_t access, time_t change, long nanoseconds) {
    const struct timespec times[2] = {{access, 777}, {change, nanoseconds}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

// Byte for byte, with mode and times.
void expect_same(const std::string& source, const std::string& target) {
    const struct stat a = lstat_of(source);
    const struct stat b = lstat_of(target);
    EXPECT_TRUE(S_ISREG(b.st_mode));
    EXPECT_EQ(a.st_mode, b.st_mode) << target;
    EXPECT_EQ(a.st_size, b.st_size) << target;
    EXPECT_EQ(a.st_mtim.tv_sec, b.st_mtim.tv_sec) << target;
    EXPECT_EQ(a.st_mtim.tv_nsec, b.st_mtim.tv_nsec) << target;
    EXPECT_TRUE(read_file(source) == read_file(target)) << target;
}

// Pieces of data at offsets, the rest holes.
void make_sparse(const std::string& path, int64_t size, const std::vector<int64_t>& data_at) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(ftruncate(fd, size), 0);
    const std::string piece = pattern(65536, 9);
    for (const int64_t at : data_at)
        ASSERT_EQ(pwrite(fd, piece.data(), piece.size(), at), 65536);
    close(fd);
}

// The whole-range reflink is refused, and range copies too, so that read and write do the work.
void force_read_and_write() {
    shim::fail(SYS_ioctl, EOPNOTSUPP, 1, -1,
               [](const shim::Call& call) { return call.args[1] == FICLONE; });
    shim::fail(SYS_copy_file_range, EXDEV);
}

bool is_creation(const shim::Call& call) {
    return call.args[2] & O_CREAT;
}

}  // namespace

// --- What arrives -------------------------------------------------------------------------------

class copy_of_size : public testing::TestWithParam<int64_t> {};

TEST_P(copy_of_size, keeps_bytes_mode_and_times_and_counts_every_byte) {
    const TempDir dir;
    write_file(dir / "a", pattern(static_cast<size_t>(GetParam())), 0640);
    set_times(dir / "a", 1'000'000'000, 1'234'567'890, 123'456'789);
    const Watched copied(dir / "a", dir / "b");
    EXPECT_EQ(copied.error, "");
    EXPECT_EQ(lstat_of(dir / "b").st_atim.tv_sec, 1'000'000'000);
    EXPECT_EQ(lstat_of(dir / "b").st_atim.tv_nsec, 777);
    expect_same(dir / "a", dir / "b");
    EXPECT_EQ(copied.sum, GetParam());
    EXPECT_FALSE(copied.cloned);
    for (const int64_t count : copied.counts)
        EXPECT_LE(count, kMiB);
}

INSTANTIATE_TEST_SUITE_P(fs_ops_copy, copy_of_size,
                         testing::Values(0, 1, 4095, 4096, 4097, kMiB - 1, kMiB, kMiB + 1,
                                         3 * kMiB + 7));

TEST(fs_ops_copy, the_first_sign_of_life_comes_before_anything_is_created) {
    const TempDir dir;
    write_file(dir / "a", "content");
    std::vector<std::pair<int64_t, bool>> seen;
    EXPECT_EQ(fsops::copy_file(
                  dir / "a", dir / "b",
                  [&](int64_t count) {
                      seen.emplace_back(count, exists(dir / "b"));
                      return true;
                  },
                  nullptr),
              "");
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0], std::pair(int64_t{0}, false));
    EXPECT_EQ(seen[1], std::pair(int64_t{7}, true));
}

TEST(fs_ops_copy, modes_are_exact_whatever_the_umask) {
    const TempDir dir;
    umask(077);
    for (const mode_t mode : {0444U, 0666U, 0777U, 0000U, 02755U, 04755U, 01644U}) {
        const std::string name = std::to_string(mode);
        write_file(dir / name, "x", mode);
        EXPECT_EQ(copy(dir / name, dir / name + ".copy"), "");
        EXPECT_EQ(lstat_of(dir / name + ".copy").st_mode & 07777, mode);
    }
    umask(022);
}

TEST(fs_ops_copy, an_ordinary_user_copies_with_exact_modes_too) {
    const TempDir dir;
    as_user::give(dir.path());
    EXPECT_TRUE(as_user::run([&] {
        umask(077);
        for (const mode_t mode : {0444U, 0666U, 0777U, 06755U}) {
            const std::string name = std::to_string(mode);
            write_file(dir / name, "x", mode);
            EXPECT_EQ(copy(dir / name, dir / name + ".copy"), "");
            EXPECT_EQ(lstat_of(dir / name + ".copy").st_mode & 07777, mode);
        }
    }));
}

TEST(fs_ops_copy, rights_of_a_users_program_do_not_go_over_to_root) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root makes files of other owners";
    const TempDir dir;
    write_file(dir / "a", "x");
    ASSERT_EQ(chown((dir / "a").c_str(), as_user::kUid, as_user::kUid), 0);
    ASSERT_EQ(chmod((dir / "a").c_str(), 06755), 0);
    EXPECT_EQ(copy(dir / "a", dir / "b"), "");
    EXPECT_EQ(lstat_of(dir / "b").st_uid, 0U);
    EXPECT_EQ(lstat_of(dir / "b").st_mode & 07777, 0755U);
    ASSERT_EQ(chown((dir / "a").c_str(), 0, 0), 0);
    ASSERT_EQ(chmod((dir / "a").c_str(), 06755), 0);
    EXPECT_EQ(copy(dir / "a", dir / "c"), "");
    EXPECT_EQ(lstat_of(dir / "c").st_mode & 07777, 06755U);
}

TEST(fs_ops_copy, a_link_as_the_source_means_the_file_behind_it) {
    const TempDir dir;
    write_file(dir / "a", "content");
    ASSERT_EQ(symlink("a", (dir / "link").c_str()), 0);
    EXPECT_EQ(copy(dir / "link", dir / "b"), "");
    expect_same(dir / "a", dir / "b");
}

// --- What cannot be copied ----------------------------------------------------------------------

TEST(fs_ops_copy, a_source_that_is_not_there_leaves_the_target_alone) {
    const TempDir dir;
    write_file(dir / "b", "old");
    EXPECT_EQ(copy(dir / "missing", dir / "b"), text(dir / "missing", ENOENT));
    EXPECT_EQ(fsops::last_error_code(), ENOENT);
    EXPECT_EQ(read_file(dir / "b"), "old");
}

TEST(fs_ops_copy, pipes_sockets_devices_and_folders_fail_before_anything_is_opened) {
    REQUIRE_SHIM(SYS_openat, SYS_open);
    const TempDir dir;
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0644), 0);
    make_dirs(dir / "folder");
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, (dir / "socket").c_str());
    ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(fd);
    write_file(dir / "b", "old");
    leave_error(EXDEV);
    shim::clear();
    for (const std::string& source :
         {dir / "fifo", dir / "socket", dir / "folder", std::string("/dev/null")}) {
        bool cloned = true;
        bool asked = false;
        EXPECT_EQ(fsops::copy_file(
                      source, dir / "b",
                      [&](int64_t) {
                          asked = true;
                          return true;
                      },
                      &cloned),
                  kNotRegular)
            << source;
        EXPECT_FALSE(cloned);
        EXPECT_FALSE(asked);
    }
    EXPECT_EQ(shim::calls(SYS_openat) + shim::calls(SYS_open), 0);
    EXPECT_EQ(fsops::last_error_code(), EXDEV);
    EXPECT_EQ(read_file(dir / "b"), "old");
}

TEST(fs_ops_copy, a_source_without_rights_leaves_the_target_alone) {
    const TempDir dir;
    as_user::give(dir.path());
    EXPECT_TRUE(as_user::run([&] {
        write_file(dir / "a", "x", 0);
        write_file(dir / "b", "old");
        EXPECT_EQ(copy(dir / "a", dir / "b"), text(dir / "a", EACCES));
        EXPECT_EQ(fsops::last_error_code(), EACCES);
        EXPECT_EQ(read_file(dir / "b"), "old");
    }));
}

// A file server holds a lease on it and gives it up when asked, which takes a moment.
TEST(fs_ops_copy, a_source_under_a_lease_is_waited_for) {
    const Tmpfs mount;
    REQUIRE_MOUNT(mount);
    write_file(mount / "a", pattern(10'000));
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t holder = fork();
    if (holder == 0) {
        signal(SIGIO, SIG_IGN);
        const int fd = open((mount / "a").c_str(), O_RDWR | O_CLOEXEC);
        const char held = fcntl(fd, F_SETLEASE, F_WRLCK) == 0 ? 'y' : 'n';
        (void)!write(ready[1], &held, 1);
        usleep(1'500'000);
        fcntl(fd, F_SETLEASE, F_UNLCK);
        _exit(0);
    }
    char held = 'n';
    ASSERT_EQ(read(ready[0], &held, 1), 1);
    close(ready[0]);
    close(ready[1]);
    if (held == 'y') {
        EXPECT_EQ(copy(mount / "a", mount / "b"), "");
        expect_same(mount / "a", mount / "b");
    }
    waitpid(holder, nullptr, 0);
    if (held != 'y')
        GTEST_SKIP() << "no leases here";
}

TEST(fs_ops_copy, a_target_that_cannot_be_made_carries_its_own_path) {
    const TempDir dir;
    write_file(dir / "a", "x");
    make_dirs(dir / "folder");
    EXPECT_EQ(copy(dir / "a", dir / "missing/b"), text(dir / "missing/b", ENOENT));
    EXPECT_EQ(fsops::last_error_code(), ENOENT);
    EXPECT_NE(copy(dir / "a", dir / "folder"), "");
    EXPECT_TRUE(S_ISDIR(lstat_of(dir / "folder").st_mode));
    EXPECT_EQ(copy(dir / "a", dir / "a/b"), text(dir / "a/b", ENOTDIR));
    const std::string long_name(256, 'n');
    EXPECT_EQ(copy(dir / "a", dir / long_name), text(dir / long_name, ENAMETOOLONG));
    as_user::give(dir.path());
    chmod((dir / "folder").c_str(), 0755);
    if (geteuid() == 0) {
        EXPECT_TRUE(as_user::run([&] {
            EXPECT_EQ(copy(dir / "a", dir / "folder/b"), text(dir / "folder/b", EACCES));
            EXPECT_EQ(fsops::last_error_code(), EACCES);
        }));
    }
}

TEST(fs_ops_copy, a_file_is_never_copied_onto_itself) {
    const TempDir dir;
    make_dirs(dir / "folder");
    write_file(dir / "folder/a", "content");
    ASSERT_EQ(link((dir / "folder/a").c_str(), (dir / "hard").c_str()), 0);
    ASSERT_EQ(symlink("folder", (dir / "way").c_str()), 0);
    ASSERT_EQ(symlink("folder/a", (dir / "soft").c_str()), 0);
    leave_error(EXDEV);
    for (const auto& [from, to] : {std::pair("folder/a", "folder/a"),
                                   {"folder/a", "hard"},
                                   {"hard", "folder/a"},
                                   {"folder/a", "way/a"},
                                   {"soft", "folder/a"}}) {
        EXPECT_EQ(copy(dir / from, dir / to), "source and target are the same file") << to;
        EXPECT_EQ(read_file(dir / "folder/a"), "content");
        EXPECT_EQ(lstat_of(dir / "hard").st_nlink, 2U);
    }
    EXPECT_EQ(fsops::last_error_code(), EXDEV);
    const mounts_fixture::Bind bind(dir / "folder");
    REQUIRE_MOUNT(bind);
    EXPECT_EQ(copy(dir / "folder/a", bind / "a"), "source and target are the same file");
    EXPECT_EQ(read_file(dir / "folder/a"), "content");
}

// --- What stood there before --------------------------------------------------------------------

TEST(fs_ops_copy, an_existing_target_is_replaced_and_never_opened) {
    REQUIRE_SHIM(SYS_openat);
    const TempDir dir;
    write_file(dir / "a", "new");
    write_file(dir / "b", std::string(5000, 'o'), 0444);
    ASSERT_EQ(link((dir / "b").c_str(), (dir / "shared").c_str()), 0);
    std::vector<uint64_t> flags;
    shim::rule(
        SYS_openat,
        [&](const shim::Call& call) {
            flags.push_back(call.args[2]);
            return shim::go();
        },
        shim::path_ends(1, "b"));
    EXPECT_EQ(copy(dir / "a", dir / "b"), "");
    shim::clear();
    expect_same(dir / "a", dir / "b");
    EXPECT_EQ(read_file(dir / "shared"), std::string(5000, 'o'));
    ASSERT_EQ(flags.size(), 1U);
    EXPECT_EQ(flags[0] & (O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC),
              static_cast<uint64_t>(O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC));
}

TEST(fs_ops_copy, what_a_link_at_the_target_points_to_is_untouched) {
    const TempDir dir;
    write_file(dir / "a", "new");
    write_file(dir / "victim", "old");
    ASSERT_EQ(symlink("victim", (dir / "b").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", (dir / "c").c_str()), 0);
    ASSERT_EQ(symlink("a", (dir / "d").c_str()), 0);
    for (const char* target : {"b", "c", "d"}) {
        EXPECT_EQ(copy(dir / "a", dir / target), "") << target;
        expect_same(dir / "a", dir / target);
    }
    EXPECT_EQ(read_file(dir / "victim"), "old");
    EXPECT_FALSE(exists(dir / "nowhere"));
}

TEST(fs_ops_copy, a_pipe_at_the_target_is_in_the_way) {
    const TempDir dir;
    write_file(dir / "a", "new");
    ASSERT_EQ(mkfifo((dir / "b").c_str(), 0644), 0);
    EXPECT_EQ(copy(dir / "a", dir / "b"), "a file with this name is in the way");
    EXPECT_TRUE(S_ISFIFO(lstat_of(dir / "b").st_mode));
}

TEST(fs_ops_copy, a_name_taken_at_the_last_moment_is_not_touched) {
    REQUIRE_SHIM(SYS_openat);
    const TempDir dir;
    write_file(dir / "a", "new");
    write_file(dir / "victim", "old");
    shim::rule(SYS_openat, [&](const shim::Call& call) {
        if (is_creation(call) && call.arg_text(1).ends_with("b"))
            (void)!symlink("victim", (dir / "b").c_str());
        return shim::go();
    });
    EXPECT_EQ(copy(dir / "a", dir / "b"), text(dir / "b", EEXIST));
    shim::clear();
    EXPECT_EQ(read_file(dir / "victim"), "old");
    EXPECT_TRUE(S_ISLNK(lstat_of(dir / "b").st_mode));
}

TEST(fs_ops_copy, a_failed_copy_leaves_no_target_even_where_one_stood) {
    REQUIRE_SHIM(SYS_ioctl, SYS_copy_file_range, SYS_read);
    const TempDir dir;
    write_file(dir / "a", pattern(3 * kMiB));
    write_file(dir / "b", "old");
    force_read_and_write();
    shim::fail(SYS_read, EIO, 2, -1, shim::on_file(0, "a"));
    EXPECT_EQ(copy(dir / "a", dir / "b"), text(dir / "a", EIO));
    EXPECT_EQ(fsops::last_error_code(), EIO);
    shim::clear();
    EXPECT_FALSE(exists(dir / "b"));
}

// --- Stopping -----------------------------------------------------------------------------------

TEST(fs_ops_copy, a_stop_before_the_start_is_cancelled_and_creates_nothing) {
    const TempDir dir;
    write_file(dir / "a", "content");
    leave_error(EXDEV);
    bool cloned = true;
    EXPECT_EQ(fsops::copy_file(
                  dir / "a", dir / "b", [](int64_t) { return false; }, &cloned),
              "cancelled");
    EXPECT_EQ(fsops::last_error_code(), EXDEV);
    EXPECT_FALSE(exists(dir / "b"));
    EXPECT_FALSE(cloned);
}

TEST(fs_ops_copy, a_stop_in_mid_copy_looks_like_success_and_leaves_no_target) {
    const TempDir dir;
    write_file(dir / "a", pattern(5 * kMiB));
    for (const int stop_at : {1, 2, 4}) {
        write_file(dir / "b", "old");
        int calls = 0;
        EXPECT_EQ(fsops::copy_file(
                      dir / "a", dir / "b",
                      [&](int64_t count) { return count == 0 || ++calls < stop_at; }, nullptr),
                  "");
        EXPECT_EQ(calls, stop_at);
        EXPECT_FALSE(exists(dir / "b"));
    }
}

TEST(fs_ops_copy, a_stop_at_a_hole_ends_the_copy_too) {
    const TempDir dir;
    make_sparse(dir / "a", 9 * kMiB, {0, 8 * kMiB});
    std::vector<int64_t> counts;
    EXPECT_EQ(fsops::copy_file(
                  dir / "a", dir / "b",
                  [&](int64_t count) {
                      counts.push_back(count);
                      return count < 2 * kMiB;
                  },
                  nullptr),
              "");
    EXPECT_GT(counts.back(), 2 * kMiB);
    EXPECT_FALSE(exists(dir / "b"));
}

// --- Sparse files -------------------------------------------------------------------------------

struct Holes {
    const char* name;
    int64_t size;
    std::vector<int64_t> data_at;
};

void PrintTo(const Holes& holes, std::ostream* out) {
    *out << holes.name;
}

class copy_of_holes : public testing::TestWithParam<Holes> {};

void check_sparse_copy(const std::string& dir, const Holes& holes) {
    make_sparse(dir + "/a", holes.size, holes.data_at);
    const Watched copied(dir + "/a", dir + "/b");
    EXPECT_EQ(copied.error, "");
    expect_same(dir + "/a", dir + "/b");
    EXPECT_EQ(copied.sum, holes.size);
    const auto data = static_cast<blkcnt_t>(holes.data_at.size() * 65536 / 512);
    EXPECT_LE(lstat_of(dir + "/b").st_blocks, data + 64);
}

TEST_P(copy_of_holes, is_whole_and_counts_the_holes_as_done) {
    const TempDir dir;
    check_sparse_copy(dir.path(), GetParam());
}

TEST_P(copy_of_holes, stays_sparse_in_memory_too) {
    const Tmpfs mount("size=64m");
    REQUIRE_MOUNT(mount);
    check_sparse_copy(mount.path(), GetParam());
}

TEST_P(copy_of_holes, is_whole_when_read_and_written) {
    REQUIRE_SHIM(SYS_ioctl, SYS_copy_file_range);
    force_read_and_write();
    const TempDir dir;
    check_sparse_copy(dir.path(), GetParam());
    shim::clear();
}

INSTANTIATE_TEST_SUITE_P(fs_ops_copy, copy_of_holes,
                         testing::Values(Holes{"between", 20 * kMiB, {0, 5 * kMiB, 19 * kMiB}},
                                         Holes{"ends", 20 * kMiB + 5, {8 * kMiB}},
                                         Holes{"leading", 10 * kMiB + 65536, {10 * kMiB}},
                                         Holes{"trailing", 10 * kMiB, {0}}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(fs_ops_copy, a_file_that_is_one_hole_arrives_with_its_size) {
    const TempDir dir;
    make_sparse(dir / "a", 5 * kMiB, {});
    const Watched copied(dir / "a", dir / "b");
    EXPECT_EQ(copied.error, "");
    EXPECT_EQ(copied.sum, 5 * kMiB);
    expect_same(dir / "a", dir / "b");
}

TEST(fs_ops_copy, a_target_full_of_old_data_shows_no_trace_of_it_in_the_holes) {
    const TempDir dir;
    make_sparse(dir / "a", 4 * kMiB, {0, 3 * kMiB});
    write_file(dir / "b", std::string(6 * kMiB, 'o'));
    EXPECT_EQ(copy(dir / "a", dir / "b"), "");
    expect_same(dir / "a", dir / "b");
}

TEST(fs_ops_copy, holes_are_looked_for_only_where_blocks_are_missing) {
    REQUIRE_SHIM(SYS_lseek);
    const TempDir dir;
    write_file(dir / "dense", pattern(3 * kMiB));
    sync();  // so that every block is counted
    int asked = 0;
    shim::rule(SYS_lseek, [&](const shim::Call& call) {
        if (call.args[2] == SEEK_DATA || call.args[2] == SEEK_HOLE)
            ++asked;
        return shim::go();
    });
    EXPECT_EQ(copy(dir / "dense", dir / "b"), "");
    EXPECT_EQ(asked, 0);
    make_sparse(dir / "sparse", 4 * kMiB, {0, 3 * kMiB});
    EXPECT_EQ(copy(dir / "sparse", dir / "c"), "");
    EXPECT_GT(asked, 0);
    shim::clear();
}

class copy_without_seek : public testing::TestWithParam<std::pair<int, int>> {};

TEST_P(copy_without_seek, copies_everything) {
    REQUIRE_SHIM(SYS_lseek);
    const auto [code, nth] = GetParam();
    const TempDir dir;
    make_sparse(dir / "a", 4 * kMiB, {0, 2 * kMiB, 3 * kMiB});
    shim::fail(SYS_lseek, code, nth, -1,
               [](const shim::Call& call) { return call.args[2] == SEEK_DATA; });
    const Watched copied(dir / "a", dir / "b");
    shim::clear();
    EXPECT_EQ(copied.error, "");
    EXPECT_EQ(copied.sum, 4 * kMiB);
    expect_same(dir / "a", dir / "b");
}

INSTANTIATE_TEST_SUITE_P(fs_ops_copy, copy_without_seek,
                         testing::Values(std::pair(EINVAL, 1), std::pair(EOPNOTSUPP, 1),
                                         std::pair(EIO, 1), std::pair(EIO, 2)));

TEST(fs_ops_copy, a_bad_sector_where_holes_are_looked_for_shows_as_the_error_of_the_read) {
    REQUIRE_SHIM(SYS_lseek, SYS_read, SYS_ioctl, SYS_copy_file_range);
    const TempDir dir;
    make_sparse(dir / "a", 4 * kMiB, {0, 2 * kMiB});
    force_read_and_write();
    shim::fail(SYS_lseek, EIO, 2, -1,
               [](const shim::Call& call) { return call.args[2] == SEEK_DATA; });
    shim::fail(SYS_read, EIO, 3, -1, shim::on_file(0, "a"));
    EXPECT_EQ(copy(dir / "a", dir / "b"), text(dir / "a", EIO));
    shim::clear();
    EXPECT_FALSE(exists(dir / "b"));
}

// A file system that answers nonsense: data before the place where it was asked for, a hole at the
// very place where data begins. The copy went round for ever, and nobody asked it to stop.
TEST(fs_ops_copy, nonsense_about_holes_ends_in_a_whole_copy) {
    REQUIRE_SHIM(SYS_lseek);
    const TempDir dir;
    make_sparse(dir / "a", 4 * kMiB, {0, 3 * kMiB});
    for (const int whence : {SEEK_DATA, SEEK_HOLE}) {
        constexpr int kEnough = 1000;
        int asked = 0;
        shim::rule(
            SYS_lseek,
            [&](const shim::Call& call) {
                if (++asked > kEnough)
                    return shim::go();
                return shim::give(whence == SEEK_DATA ? 0 : static_cast<int64_t>(call.args[1]));
            },
            [=](const shim::Call& call) { return call.args[2] == static_cast<uint64_t>(whence); });
        EXPECT_EQ(copy(dir / "a", dir / "b"), "");
        shim::clear();
        EXPECT_LT(asked, kEnough);
        expect_same(dir / "a", dir / "b");
    }
}

// --- Preallocation ------------------------------------------------------------------------------

TEST(fs_ops_copy, only_dense_files_above_a_mebibyte_are_preallocated) {
    REQUIRE_SHIM(SYS_fallocate);
    const TempDir dir;
    write_file(dir / "none", "");
    write_file(dir / "small", pattern(kMiB));
    write_file(dir / "large", pattern(kMiB + 1));
    make_sparse(dir / "sparse", 8 * kMiB, {0, 7 * kMiB});
    sync();
    for (const char* name : {"none", "small", "sparse"}) {
        EXPECT_EQ(copy(dir / name, dir / name + std::string(".copy")), "");
        EXPECT_EQ(shim::calls(SYS_fallocate), 0) << name;
    }
    EXPECT_EQ(copy(dir / "large", dir / "large.copy"), "");
    EXPECT_EQ(shim::calls(SYS_fallocate), 1);
}

class copy_without_fallocate : public testing::TestWithParam<int> {};

TEST_P(copy_without_fallocate, goes_on_as_if_nothing_had_been_asked) {
    REQUIRE_SHIM(SYS_fallocate, SYS_write, SYS_pwrite64);
    const TempDir dir;
    write_file(dir / "a", pattern(3 * kMiB));
    shim::fail(SYS_fallocate, GetParam());
    EXPECT_EQ(copy(dir / "a", dir / "b"), "");
    expect_same(dir / "a", dir / "b");
    EXPECT_EQ(shim::calls(SYS_fallocate), 1);
    // The C library's stand-in writes a byte into every block.
    EXPECT_EQ(shim::calls(SYS_pwrite64), 0);
    EXPECT_LE(shim::calls(SYS_write), 16);
    shim::clear();
}

INSTANTIATE_TEST_SUITE_P(fs_ops_copy, copy_without_fallocate,
                         testing::Values(EOPNOTSUPP, ENOSYS, ENOSPC, EINTR, EIO, EPERM));

TEST(fs_ops_copy, a_file_system_without_preallocation_gets_the_bytes_once) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    write_file(dir / "a", pattern(4 * kMiB));
    fs.set(faultfs::fail("fallocate", EOPNOTSUPP));
    EXPECT_EQ(copy(dir / "a", fs / "b"), "");
    expect_same(dir / "a", fs / "b");
    EXPECT_LE(fs.calls("write"), 40);
}

// --- Range copies -------------------------------------------------------------------------------

TEST(fs_ops_copy, a_range_copy_that_ends_early_is_tried_once_with_read) {
    REQUIRE_SHIM(SYS_copy_file_range, SYS_ioctl);
    const TempDir dir;
    write_file(dir / "a", pattern(3 * kMiB + 5));
    shim::fail(SYS_ioctl, EOPNOTSUPP, 1, -1,
               [](const shim::Call& call) { return call.args[1] == FICLONE; });
    for (const int64_t from : {1, 2, 4}) {
        shim::clear();
        shim::rule(SYS_copy_file_range, [=](const shim::Call& call) {
            return call.nth >= from ? shim::give(0) : shim::go();
        });
        const Watched copied(dir / "a", dir / "b" + std::to_string(from));
        EXPECT_GT(shim::calls(SYS_copy_file_range), 0);
        EXPECT_EQ(copied.error, "");
        EXPECT_EQ(copied.sum, 3 * kMiB + 5);
        expect_same(dir / "a", dir / "b" + std::to_string(from));
    }
    shim::clear();
}

class range_copy_refused : public testing::TestWithParam<int> {};

TEST_P(range_copy_refused, falls_back_for_this_chunk_and_for_the_rest_of_the_process) {
    REQUIRE_SHIM(SYS_copy_file_range, SYS_ioctl);
    const TempDir dir;
    write_file(dir / "a", pattern(3 * kMiB + 5));
    shim::fail(SYS_copy_file_range, GetParam(), 2);
    const Watched copied(dir / "a", dir / "b");
    EXPECT_EQ(copied.error, "");
    EXPECT_EQ(copied.sum, 3 * kMiB + 5);
    expect_same(dir / "a", dir / "b");
    EXPECT_EQ(shim::calls(SYS_copy_file_range), 2);
    shim::clear();
    std::string other;
    std::thread([&] { other = copy(dir / "a", dir / "c"); }).join();
    EXPECT_EQ(other, "");
    expect_same(dir / "a", dir / "c");
    EXPECT_EQ(shim::calls(SYS_copy_file_range), 0);
}

INSTANTIATE_TEST_SUITE_P(fs_ops_copy, range_copy_refused,
                         testing::Values(EBADF, EXDEV, EINVAL, ENOSYS, EOPNOTSUPP));

TEST(fs_ops_copy, other_failures_of_a_range_copy_carry_the_sources_path) {
    REQUIRE_SHIM(SYS_copy_file_range);
    const TempDir dir;
    write_file(dir / "a", pattern(3 * kMiB));
    for (const int code : {EIO, ENOSPC, EPERM, ESTALE, ETXTBSY}) {
        shim::clear();
        shim::fail(SYS_copy_file_range, code, 2);
        EXPECT_EQ(copy(dir / "a", dir / "b"), text(dir / "a", code));
        EXPECT_EQ(fsops::last_error_code(), code);
        EXPECT_FALSE(exists(dir / "b"));
    }
    shim::clear();
    // None of them is remembered.
    EXPECT_EQ(copy(dir / "a", dir / "b"), "");
    EXPECT_GT(shim::calls(SYS_copy_file_range), 0);
}

TEST(fs_ops_copy, an_interrupted_range_copy_asks_whether_to_go_on) {
    REQUIRE_SHIM(SYS_copy_file_range);
    const TempDir dir;
    write_file(dir / "a", pattern(2 * kMiB));
    shim::fail(SYS_copy_file_range, EINTR, 2, 1);
    const Watched copied(dir / "a", dir / "b");
    EXPECT_EQ(copied.error, "");
    expect_same(dir / "a", dir / "b");
    EXPECT_EQ(copied.counts, (std::vector<int64_t>{0, kMiB, 0, kMiB}));
    shim::clear();
    shim::fail(SYS_copy_file_range, EINTR, 2, 1);
    int zeros = 0;
    EXPECT_EQ(
        fsops::copy_file(
            dir / "a", dir / "b", [&](int64_t count) { return count > 0 || ++zeros < 2; }, nullptr),
        "");
    EXPECT_FALSE(exists(dir / "b"));
    shim::clear();
}

// --- Read and write -----------------------------------------------------------------------------

TEST(fs_ops_copy, interrupted_reads_and_writes_ask_whether_to_go_on) {
    REQUIRE_SHIM(SYS_read, SYS_write, SYS_ioctl, SYS_copy_file_range);
    const TempDir dir;
    write_file(dir / "a", pattern(2 * kMiB));
    for (const long number : {SYS_read, SYS_write}) {
        shim::clear();
        force_read_and_write();
        shim::fail(number, EINTR, 2, 1, shim::on_file(0, number == SYS_read ? "a" : "b"));
        const Watched copied(dir / "a", dir / "b");
        EXPECT_EQ(copied.error, "");
        EXPECT_EQ(copied.counts, (std::vector<int64_t>{0, kMiB, 0, kMiB}));
        expect_same(dir / "a", dir / "b");
        shim::clear();
        force_read_and_write();
        shim::fail(number, EINTR, 2, 1, shim::on_file(0, number == SYS_read ? "a" : "b"));
        int zeros = 0;
        EXPECT_EQ(fsops::copy_file(
                      dir / "a", dir / "b", [&](int64_t count) { return count > 0 || ++zeros < 2; },
                      nullptr),
                  "");
        EXPECT_EQ(zeros, 2);
        EXPECT_FALSE(exists(dir / "b"));
    }
    shim::clear();
}

TEST(fs_ops_copy, a_failed_read_names_the_source_and_a_failed_write_the_target) {
    REQUIRE_SHIM(SYS_read, SYS_write, SYS_ioctl, SYS_copy_file_range);
    const TempDir dir;
    write_file(dir / "a", pattern(3 * kMiB));
    for (const int64_t nth : {1, 2, 3}) {
        for (const long number : {SYS_read, SYS_write}) {
            shim::clear();
            force_read_and_write();
            const char* name = number == SYS_read ? "a" : "b";
            shim::fail(number, ESTALE, nth, -1, shim::on_file(0, name));
            EXPECT_EQ(copy(dir / "a", dir / "b"), text(dir / name, ESTALE));
            EXPECT_EQ(fsops::last_error_code(), ESTALE);
            EXPECT_FALSE(exists(dir / "b"));
        }
    }
    shim::clear();
}

TEST(fs_ops_copy, short_reads_and_writes_are_made_good) {
    FaultFs fs;
    REQUIRE_MOUNT(fs);
    const TempDir dir;
    write_file(fs / "a", pattern(300'000));
    write_file(dir / "c", pattern(300'000));
    fs.set(faultfs::limit("read", 4099));
    fs.set(faultfs::limit("write", 1021));
    fs.set(faultfs::limit("copy_file_range", 5003));
    const Watched out(fs / "a", dir / "b");
    EXPECT_EQ(out.error, "");
    EXPECT_EQ(out.sum, 300'000);
    expect_same(fs.backing() + "/a", dir / "b");
    const Watched in(dir / "c", fs / "d");
    EXPECT_EQ(in.error, "");
    EXPECT_EQ(in.sum, 300'000);
    expect_same(dir / "c", fs.backing() + "/d");
    const Watched within(fs / "a", fs / "e");
    EXPECT_EQ(within.error, "");
    EXPECT_EQ(within.sum, 300'000);
    expect_same(fs.backing() + "/a", fs.backing() + "/e");
}

TEST(fs_ops_copy, a_write_that_moves_nothing_does_not_spin_for_ever) {
    REQUIRE_SHIM(SYS_write, SYS_ioctl, SYS_copy_file_range);
    const TempDir dir;
    write_file(dir / "a", pattern(1000));
    force_read_and_write();
    shim::rule(
        SYS_write,
        [](const shim::Call& call) {
            return call.nth < 1000 ? shim::give(0) : shim::refuse(ESTALE);
        },
        shim::on_file(0, "b"));
    EXPECT_EQ(copy(dir / "a", dir / "b"), text(dir / "b", EIO));
    EXPECT_FALSE(exists(dir / "b"));
    shim::clear();
}

// --- Sources that change ------------------------------------------------------------------------

class copy_of_a_changing_source : public testing::TestWithParam<long> {};

TEST_P(copy_of_a_changing_source, that_shrinks_arrives_with_the_recorded_size) {
    REQUIRE_SHIM(SYS_read, SYS_copy_file_range, SYS_ioctl);
    const TempDir dir;
    write_file(dir / "a", pattern(3 * kMiB));
    const std::string whole = read_file(dir / "a");
    const long number = GetParam();
    if (number == SYS_read)
        force_read_and_write();
    shim::rule(
        number,
        [&](const shim::Call& call) {
            if (call.nth == 2)
                (void)!truncate((dir / "a").c_str(), kMiB + 100);
            return shim::go();
        },
        shim::on_file(0, "a"));
    EXPECT_EQ(copy(dir / "a", dir / "b"), "");
    shim::clear();
    std::string expected = whole.substr(0, kMiB + 100);
    expected.resize(3 * kMiB);
    EXPECT_TRUE(read_file(dir / "b") == expected);
}

TEST_P(copy_of_a_changing_source, that_shrinks_at_once_arrives_with_the_recorded_size) {
    REQUIRE_SHIM(SYS_read, SYS_copy_file_range, SYS_ioctl);
    const TempDir dir;
    // Small enough not to be preallocated.
    write_file(dir / "a", pattern(5000));
    const long number = GetParam();
    if (number == SYS_read)
        force_read_and_write();
    shim::rule(
        number,
        [&](const shim::Call& call) {
            if (call.nth == 1)
                (void)!truncate((dir / "a").c_str(), 100);
            return shim::go();
        },
        shim::on_file(0, "a"));
    EXPECT_EQ(copy(dir / "a", dir / "b"), "");
    shim::clear();
    std::string expected = pattern(100);
    expected.resize(5000);
    EXPECT_TRUE(read_file(dir / "b") == expected);
}

TEST_P(copy_of_a_changing_source, that_grows_arrives_with_the_recorded_size) {
    REQUIRE_SHIM(SYS_read, SYS_copy_file_range, SYS_ioctl);
    const TempDir dir;
    write_file(dir / "a", pattern(3 * kMiB));
    const std::string whole = read_file(dir / "a");
    const long number = GetParam();
    if (number == SYS_read)
        force_read_and_write();
    shim::rule(
        number,
        [&](const shim::Call& call) {
            if (call.nth == 2)
                test_env::run("printf more >> '" + dir / "a" + "'");
            return shim::go();
        },
        shim::on_file(0, "a"));
    const Watched copied(dir / "a", dir / "b");
    shim::clear();
    EXPECT_EQ(copied.error, "");
    EXPECT_EQ(copied.sum, 3 * kMiB);
    EXPECT_TRUE(read_file(dir / "b") == whole);
}

INSTANTIATE_TEST_SUITE_P(fs_ops_copy, copy_of_a_changing_source,
                         testing::Values(SYS_read, SYS_copy_file_range));

// Data that came behind the recorded end stood for the end of the last hole, which was then left
// out.
TEST(fs_ops_copy, a_hole_at_the_end_of_a_source_that_grows_is_kept) {
    const TempDir dir;
    make_sparse(dir / "a", 8 * kMiB, {0});
    const std::string whole = read_file(dir / "a");
    bool grown = false;
    const auto grow = [&](int64_t count) {
        if (count > 0 && !grown) {
            grown = true;
            test_env::run("head -c 100000 /dev/urandom >> '" + dir / "a" + "'");
        }
        return true;
    };
    EXPECT_EQ(fsops::copy_file(dir / "a", dir / "b", grow, nullptr), "");
    EXPECT_TRUE(grown);
    EXPECT_TRUE(read_file(dir / "b") == whole);
}

// --- The end of the copy ------------------------------------------------------------------------

TEST(fs_ops_copy, a_full_target_is_an_error_and_leaves_nothing) {
    const Tmpfs mount("size=2m");
    REQUIRE_MOUNT(mount);
    const TempDir dir;
    write_file(dir / "a", pattern(4 * kMiB));
    EXPECT_EQ(copy(dir / "a", mount / "b"), text(mount / "b", ENOSPC));
    EXPECT_EQ(fsops::last_error_code(), ENOSPC);
    EXPECT_FALSE(exists(mount / "b"));
    EXPECT_EQ(fsops::free_space(mount.path()), 2 * kMiB);
    EXPECT_FALSE(fsops::is_transient(fsops::last_error_code()));
}

// Lost on the last call: the bytes may not be there, so the copy has failed.
constexpr int kLosses[] = {EIO, ENOSPC, EDQUOT, ESTALE, EFBIG, ETIMEDOUT, EREMOTEIO};
constexpr int kTrifles[] = {EPERM, EACCES, EINVAL, EOPNOTSUPP, ENOSYS, EROFS, EINTR};

class failing_last_call : public testing::TestWithParam<long> {};

void fail_last_call(long number, int code) {
    shim::rule(
        number,
        [=](const shim::Call& call) {
            return number == SYS_close ? shim::close_and_refuse(call, code) : shim::refuse(code);
        },
        shim::on_file(0, "target"));
}

TEST_P(failing_last_call, is_an_error_of_the_copy_when_bytes_may_be_lost) {
    REQUIRE_SHIM(GetParam());
    const TempDir dir;
    // A hole at the end and a mode that the umask holds back, so that both have to be set.
    make_sparse(dir / "a", 3 * kMiB, {0});
    chmod((dir / "a").c_str(), 0666);
    for (const int code : kLosses) {
        fail_last_call(GetParam(), code);
        EXPECT_EQ(copy(dir / "a", dir / "target"), text(dir / "target", code));
        EXPECT_EQ(fsops::last_error_code(), code);
        shim::clear();
        EXPECT_FALSE(exists(dir / "target")) << code;
    }
}

TEST_P(failing_last_call, is_ignored_otherwise) {
    REQUIRE_SHIM(GetParam());
    const TempDir dir;
    write_file(dir / "a", pattern(10'000), 0666);
    for (const int code : kTrifles) {
        fail_last_call(GetParam(), code);
        EXPECT_EQ(copy(dir / "a", dir / "target"), "");
        shim::clear();
        EXPECT_TRUE(read_file(dir / "a") == read_file(dir / "target")) << code;
    }
}

INSTANTIATE_TEST_SUITE_P(fs_ops_copy, failing_last_call,
                         testing::Values(SYS_close, SYS_ftruncate, SYS_fchmod, SYS_utimensat));

// A stop that comes while mode and times are put on: what is left would have neither.
TEST(fs_ops_copy, a_stop_at_the_last_calls_leaves_no_target) {
    REQUIRE_SHIM(SYS_fchmod, SYS_utimensat);
    const TempDir dir;
    write_file(dir / "a", pattern(10'000), 0666);
    for (const long number : {SYS_fchmod, SYS_utimensat}) {
        bool stopped = false;
        shim::rule(number, [&](const shim::Call&) {
            stopped = true;
            return shim::refuse(EINTR);
        });
        const auto going = [&](int64_t) { return !stopped; };
        EXPECT_EQ(fsops::copy_file(dir / "a", dir / "target", going, nullptr), "");
        shim::clear();
        EXPECT_TRUE(stopped);
        EXPECT_FALSE(exists(dir / "target"));
    }
}

// A signal that is meant for somebody else spoils one call; mode and times belong to the copy.
TEST(fs_ops_copy, interrupted_last_calls_are_made_again) {
    REQUIRE_SHIM(SYS_fchmod, SYS_utimensat, SYS_ftruncate);
    const TempDir dir;
    make_sparse(dir / "a", 3 * kMiB, {0});
    chmod((dir / "a").c_str(), 0666);
    set_times(dir / "a", 1'000'000'000, 1'100'000'000, 123'456'789);
    for (const long number : {SYS_fchmod, SYS_utimensat, SYS_ftruncate}) {
        shim::fail(number, EINTR, 1, 2);
        EXPECT_EQ(copy(dir / "a", dir / "target"), "");
        EXPECT_EQ(shim::calls(number), 3);
        shim::clear();
        expect_same(dir / "a", dir / "target");
    }
}

// The hole at the end was missing from the copy, and nobody was told.
TEST(fs_ops_copy, a_hole_at_the_end_arrives_where_no_length_can_be_set) {
    REQUIRE_SHIM(SYS_ftruncate, SYS_pwrite64);
    const TempDir dir;
    make_sparse(dir / "a", 3 * kMiB, {0});
    for (const int code : kTrifles) {
        shim::fail(SYS_ftruncate, code);
        EXPECT_EQ(copy(dir / "a", dir / "target"), "");
        shim::clear();
        expect_same(dir / "a", dir / "target");
    }
    shim::fail(SYS_ftruncate, EOPNOTSUPP);
    shim::fail(SYS_pwrite64, EPERM);
    EXPECT_EQ(copy(dir / "a", dir / "target"), text(dir / "target", EPERM));
    shim::clear();
    EXPECT_FALSE(exists(dir / "target"));
}

// A second signal, of a user who presses twice, must not leave half a file.
TEST(fs_ops_copy, an_interrupted_removal_is_tried_again) {
    REQUIRE_SHIM(SYS_unlinkat, SYS_newfstatat);
    const TempDir dir;
    write_file(dir / "a", pattern(10'000));
    for (const long number : {SYS_unlinkat, SYS_newfstatat}) {
        shim::fail(number, EINTR, 1, 2, shim::path_ends(1, "target"));
        fsops::CopyJob job;
        const std::string source = dir / "a";
        const std::string target = dir / "target";
        job.source = {AT_FDCWD, source.c_str(), &source};
        job.target = {AT_FDCWD, target.c_str(), &target};
        const fsops::CopyProgress stop_at_data = [](int64_t count) { return count == 0; };
        job.on_progress = &stop_at_data;
        const fsops::CopyOutcome outcome = fsops::copy_file_at(job);
        shim::clear();
        EXPECT_EQ(outcome.error, "");
        EXPECT_FALSE(exists(target));
    }
}

TEST(fs_ops_copy, nothing_is_synced) {
    REQUIRE_SHIM(SYS_fsync, SYS_fdatasync, SYS_sync_file_range, SYS_syncfs, SYS_sync);
    const TempDir dir;
    write_file(dir / "a", pattern(2 * kMiB));
    EXPECT_EQ(copy(dir / "a", dir / "b"), "");
    for (const long number : {SYS_fsync, SYS_fdatasync, SYS_sync_file_range, SYS_syncfs, SYS_sync})
        EXPECT_EQ(shim::calls(number), 0);
}

TEST(fs_ops_copy, source_and_target_are_opened_once) {
    REQUIRE_SHIM(SYS_openat, SYS_open);
    const TempDir dir;
    write_file(dir / "source-file", pattern(2 * kMiB));
    int source = 0;
    int target = 0;
    shim::rule(SYS_openat, [&](const shim::Call& call) {
        source += call.arg_text(1).ends_with("source-file");
        target += call.arg_text(1).ends_with("target-file");
        return shim::go();
    });
    EXPECT_EQ(copy(dir / "source-file", dir / "target-file"), "");
    EXPECT_EQ(source, 1);
    EXPECT_EQ(target, 1);
    EXPECT_EQ(shim::calls(SYS_open), 0);
    shim::clear();
}

TEST(fs_ops_copy, no_descriptor_stays_open_whatever_happens) {
    REQUIRE_SHIM(SYS_read, SYS_write, SYS_copy_file_range, SYS_ioctl, SYS_fchmod);
    const TempDir dir;
    write_file(dir / "a", pattern(2 * kMiB), 0666);
    const auto lowest_free = [] {
        const int fd = dup(0);
        close(fd);
        return fd;
    };
    const int before = lowest_free();
    EXPECT_EQ(copy(dir / "a", dir / "b"), "");
    EXPECT_NE(copy(dir / "a", dir / "missing/b"), "");
    (void)fsops::copy_file(
        dir / "a", dir / "b", [](int64_t n) { return n == 0; }, nullptr);
    shim::fail(SYS_copy_file_range, EIO);
    EXPECT_NE(copy(dir / "a", dir / "b"), "");
    shim::clear();
    shim::fail(SYS_fchmod, EIO);
    EXPECT_NE(copy(dir / "a", dir / "b"), "");
    shim::clear();
    force_read_and_write();
    shim::fail(SYS_write, EIO);
    EXPECT_NE(copy(dir / "a", dir / "b"), "");
    shim::clear();
    (void)fsops::clone_file(dir / "a", dir / "b");
    EXPECT_EQ(lowest_free(), before);
}

TEST(fs_ops_copy, many_threads_copy_at_once) {
    const TempDir dir;
    for (int i = 0; i < 40; ++i) {
        write_file(dir / std::to_string(i),
                   pattern(static_cast<size_t>(i) * 40'000, static_cast<uint32_t>(i)));
    }
    std::atomic<int> next{0};
    std::atomic<int> failed{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int file; (file = next++) < 40;) {
                const std::string name = std::to_string(file);
                failed += !copy(dir / name, dir / name + ".copy").empty();
                failed += copy(dir / "missing", dir / name + ".none").empty();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failed, 0);
    for (int i = 0; i < 40; ++i)
        expect_same(dir / std::to_string(i), dir / std::to_string(i) + ".copy");
}

// --- Reflinks -----------------------------------------------------------------------------------

class reflink : public testing::TestWithParam<const char*> {};

TEST_P(reflink, moves_no_data_and_tells_the_size_once) {
    const LoopImage mount(GetParam());
    REQUIRE_MOUNT(mount);
    write_file(mount / "a", pattern(8 * kMiB), 0640);
    set_times(mount / "a", 1'000'000'000, 1'234'567'890, 123'456'789);
    sync();
    const int64_t free_before = fsops::free_space(mount.path());
    const Watched copied(mount / "a", mount / "b");
    EXPECT_EQ(copied.error, "");
    EXPECT_TRUE(copied.cloned);
    expect_same(mount / "a", mount / "b");
    EXPECT_EQ(copied.sum, 8 * kMiB);
    EXPECT_EQ(std::count(copied.counts.begin(), copied.counts.end(), 8 * kMiB), 1);
    sync();
    EXPECT_GT(fsops::free_space(mount.path()), free_before - 2 * kMiB);
}

TEST_P(reflink, does_not_care_for_the_answer_once_it_is_done) {
    const LoopImage mount(GetParam());
    REQUIRE_MOUNT(mount);
    write_file(mount / "a", pattern(kMiB));
    bool cloned = false;
    EXPECT_EQ(fsops::copy_file(
                  mount / "a", mount / "b", [](int64_t n) { return n == 0; }, &cloned),
              "");
    EXPECT_TRUE(cloned);
    expect_same(mount / "a", mount / "b");
}

TEST_P(reflink, replaces_without_touching_what_shared_the_old_file) {
    const LoopImage mount(GetParam());
    REQUIRE_MOUNT(mount);
    write_file(mount / "a", pattern(kMiB));
    write_file(mount / "b", "old");
    ASSERT_EQ(link((mount / "b").c_str(), (mount / "shared").c_str()), 0);
    const Watched copied(mount / "a", mount / "b");
    EXPECT_TRUE(copied.cloned);
    EXPECT_EQ(read_file(mount / "shared"), "old");
    EXPECT_EQ(copy(mount / "a", mount / "a"), "source and target are the same file");
    expect_same(mount / "a", mount / "b");
}

TEST_P(reflink, of_an_empty_and_of_a_sparse_file) {
    const LoopImage mount(GetParam());
    REQUIRE_MOUNT(mount);
    write_file(mount / "empty", "", 0600);
    make_sparse(mount / "sparse", 9 * kMiB, {kMiB, 8 * kMiB});
    for (const char* name : {"empty", "sparse"}) {
        EXPECT_EQ(copy(mount / name, mount / "copy-" + name), "");
        expect_same(mount / name, mount / "copy-" + name);
    }
}

TEST_P(reflink, clone_file_alone_does_the_same) {
    const LoopImage mount(GetParam());
    REQUIRE_MOUNT(mount);
    write_file(mount / "a", pattern(kMiB), 0604);
    set_times(mount / "a", 1'000'000'000, 1'234'567'890, 123'456'789);
    write_file(mount / "b", "old");
    EXPECT_EQ(fsops::clone_file(mount / "a", mount / "b"), "");
    expect_same(mount / "a", mount / "b");
}

INSTANTIATE_TEST_SUITE_P(fs_ops_copy, reflink, testing::Values("btrfs", "xfs"));

class reflink_refused : public testing::TestWithParam<std::pair<int, bool>> {};

TEST_P(reflink_refused, is_remembered_for_the_two_devices_when_it_is_for_good) {
    REQUIRE_SHIM(SYS_ioctl);
    const auto [code, for_good] = GetParam();
    const TempDir dir;
    write_file(dir / "a", pattern(100'000));
    int asked = 0;
    shim::rule(SYS_ioctl, [&, code = code](const shim::Call& call) {
        if (call.args[1] != FICLONE)
            return shim::go();
        ++asked;
        return shim::refuse(code);
    });
    for (int i = 0; i < 3; ++i) {
        const std::string target = dir / "b" + std::to_string(i);
        const Watched copied(dir / "a", target);
        EXPECT_EQ(copied.error, "");
        EXPECT_FALSE(copied.cloned);
        EXPECT_EQ(copied.sum, 100'000);
        expect_same(dir / "a", target);
    }
    EXPECT_EQ(asked, for_good ? 1 : 3);
    // Another pair of devices has not been asked yet.
    const Tmpfs mount;
    if (mount.ok()) {
        asked = 0;
        EXPECT_EQ(copy(dir / "a", mount / "b"), "");
        EXPECT_EQ(asked, 1);
    }
    shim::clear();
}

INSTANTIATE_TEST_SUITE_P(fs_ops_copy, reflink_refused,
                         testing::Values(std::pair(EOPNOTSUPP, true), std::pair(EXDEV, true),
                                         std::pair(ENOTTY, true), std::pair(EPERM, false),
                                         std::pair(EIO, false), std::pair(EINVAL, false)));

TEST(fs_ops_copy, clone_file_has_its_own_short_texts_and_no_code) {
    const Tmpfs mount;
    REQUIRE_MOUNT(mount);
    write_file(mount / "a", "content");
    ASSERT_EQ(mkfifo((mount / "fifo").c_str(), 0644), 0);
    leave_error(EXDEV);
    EXPECT_EQ(fsops::clone_file(mount / "missing", mount / "b"), "not a regular file");
    EXPECT_EQ(fsops::clone_file(mount.path(), mount / "b"), "not a regular file");
    EXPECT_EQ(fsops::clone_file(mount / "fifo", mount / "b"), "not a regular file");
    EXPECT_EQ(fsops::clone_file(mount / "a", mount / "missing/b"), "open target");
    EXPECT_EQ(fsops::clone_file(mount / "a", mount / "b"), std::strerror(EOPNOTSUPP));
    EXPECT_FALSE(exists(mount / "b"));
    EXPECT_EQ(fsops::last_error_code(), EXDEV);
}

TEST(fs_ops_copy, a_refused_clone_removes_the_target_that_stood_there) {
    const Tmpfs mount;
    REQUIRE_MOUNT(mount);
    write_file(mount / "a", "content");
    write_file(mount / "b", "old");
    ASSERT_EQ(link((mount / "b").c_str(), (mount / "shared").c_str()), 0);
    EXPECT_EQ(fsops::clone_file(mount / "a", mount / "b"), std::strerror(EOPNOTSUPP));
    EXPECT_FALSE(exists(mount / "b"));
    EXPECT_EQ(read_file(mount / "shared"), "old");
}

TEST(fs_ops_copy, clone_file_never_harms_its_source) {
    const Tmpfs mount;
    REQUIRE_MOUNT(mount);
    write_file(mount / "a", "content");
    EXPECT_NE(fsops::clone_file(mount / "a", mount / "a"), "");
    ASSERT_TRUE(exists(mount / "a"));
    EXPECT_EQ(read_file(mount / "a"), "content");
}

TEST(fs_ops_copy, an_unreadable_source_of_a_clone_is_open) {
    const TempDir dir;
    as_user::give(dir.path());
    EXPECT_TRUE(as_user::run([&] {
        write_file(dir / "a", "x", 0);
        EXPECT_EQ(fsops::clone_file(dir / "a", dir / "b"), "open");
        EXPECT_FALSE(exists(dir / "b"));
    }));
}

// --- Relative to folders ------------------------------------------------------------------------

namespace {

struct AtJob {
    std::string source_path;
    std::string target_path;
    std::string source_name;
    std::string target_name;
    int source_dir;
    int target_dir;
    fsops::CopyJob job;

    AtJob(const std::string& dir, const std::string& from, const std::string& to)
        : source_path(dir + "/" + from), target_path(dir + "/" + to), source_name(from),
          target_name(to), source_dir(open(dir.c_str(), O_PATH | O_CLOEXEC)),
          target_dir(open(dir.c_str(), O_PATH | O_CLOEXEC)) {
        job.source = {source_dir, source_name.c_str(), &source_path};
        job.target = {target_dir, target_name.c_str(), &target_path};
    }
    ~AtJob() {
        close(source_dir);
        close(target_dir);
    }
};

}  // namespace

TEST(fs_ops_copy, a_link_put_in_the_sources_place_is_a_failure) {
    const TempDir dir;
    write_file(dir / "secret", "x");
    ASSERT_EQ(symlink("secret", (dir / "a").c_str()), 0);
    AtJob at(dir.path(), "a", "b");
    const fsops::CopyOutcome outcome = fsops::copy_file_at(at.job);
    EXPECT_NE(outcome.error, "");
    EXPECT_FALSE(exists(dir / "b"));
}

TEST(fs_ops_copy, a_file_swapped_for_a_link_before_it_is_opened_is_a_failure) {
    REQUIRE_SHIM(SYS_openat);
    const TempDir dir;
    write_file(dir / "secret", "x");
    write_file(dir / "a", "x");
    shim::rule(
        SYS_openat,
        [&](const shim::Call&) {
            unlink((dir / "a").c_str());
            (void)!symlink("secret", (dir / "a").c_str());
            return shim::go();
        },
        [](const shim::Call& call) { return call.arg_text(1) == "a"; });
    AtJob at(dir.path(), "a", "b");
    const fsops::CopyOutcome outcome = fsops::copy_file_at(at.job);
    shim::clear();
    EXPECT_EQ(outcome.error, text(dir / "a", ELOOP));
    EXPECT_FALSE(exists(dir / "b"));
}

TEST(fs_ops_copy, a_taken_name_is_told_and_not_touched) {
    const TempDir dir;
    write_file(dir / "a", "new");
    write_file(dir / "b", "old");
    AtJob at(dir.path(), "a", "b");
    const fsops::CopyOutcome kept = fsops::copy_file_at(at.job);
    EXPECT_TRUE(kept.target_exists);
    EXPECT_EQ(read_file(dir / "b"), "old");
    at.job.replace = true;
    const fsops::CopyOutcome replaced = fsops::copy_file_at(at.job);
    EXPECT_EQ(replaced.error, "");
    EXPECT_FALSE(replaced.target_exists);
    EXPECT_FALSE(at.job.replace);
    expect_same(dir / "a", dir / "b");
    EXPECT_EQ(replaced.source_id.inode, lstat_of(dir / "a").st_ino);
    EXPECT_EQ(replaced.source_size, 3);
    EXPECT_EQ(replaced.source_mtime.tv_nsec, lstat_of(dir / "a").st_mtim.tv_nsec);
    EXPECT_EQ(replaced.target_id.inode, lstat_of(dir / "b").st_ino);
    EXPECT_EQ(replaced.target_id.device, lstat_of(dir / "b").st_dev);
}

TEST(fs_ops_copy, an_early_end_and_bytes_past_the_end_are_told) {
    REQUIRE_SHIM(SYS_copy_file_range);
    const TempDir dir;
    for (const bool grows : {false, true}) {
        write_file(dir / "a", pattern(2 * kMiB));
        shim::rule(SYS_copy_file_range, [&, grows](const shim::Call& call) {
            if (call.nth == 2)
                (void)!truncate((dir / "a").c_str(), grows ? 2 * kMiB + 1 : kMiB);
            return shim::go();
        });
        AtJob at(dir.path(), "a", grows ? "b" : "c");
        at.job.check_past_end = true;
        const fsops::CopyOutcome outcome = fsops::copy_file_at(at.job);
        shim::clear();
        EXPECT_EQ(outcome.error, "");
        EXPECT_EQ(outcome.early_end, !grows);
        EXPECT_EQ(outcome.grew, grows);
        EXPECT_EQ(outcome.source_size, 2 * kMiB);
    }
    write_file(dir / "a", pattern(2 * kMiB));
    AtJob at(dir.path(), "a", "d");
    at.job.check_past_end = true;
    const fsops::CopyOutcome outcome = fsops::copy_file_at(at.job);
    EXPECT_FALSE(outcome.early_end || outcome.grew || outcome.stopped);
}

TEST(fs_ops_copy, the_creation_is_told_before_and_after) {
    const TempDir dir;
    write_file(dir / "a", "content");
    std::vector<std::string> seen;
    const std::function<void()> before = [&] {
        seen.emplace_back(exists(dir / "b") ? "before, there" : "before");
    };
    fsops::FileId told;
    const std::function<void(fsops::FileId)> after = [&](fsops::FileId id) {
        seen.emplace_back(exists(dir / "b") ? "after, there" : "after");
        told = id;
    };
    AtJob at(dir.path(), "a", "b");
    at.job.before_create = &before;
    at.job.after_create = &after;
    EXPECT_EQ(fsops::copy_file_at(at.job).error, "");
    EXPECT_EQ(seen, (std::vector<std::string>{"before", "after, there"}));
    EXPECT_EQ(told.inode, lstat_of(dir / "b").st_ino);
    told = {7, 7};
    EXPECT_TRUE(fsops::copy_file_at(at.job).target_exists);
    EXPECT_EQ(told, fsops::FileId{});
}
