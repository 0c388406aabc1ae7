#include "fs_ops.h"

#include "as_user.h"
#include "faultfs.h"
#include "mounts_fixture.h"
#include "shim.h"
#include "test_env.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <set>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

using test_env::exists;
using test_env::TempDir;
using test_env::write_file;

namespace {

std::string text(const std::string& path, int code) {
    return path + ": " + std::strerror(code);
}

// Makes this thread's last error one that no test here causes otherwise.
void leave_error(int code) {
    EXPECT_NE(fsops::err_from("/left", code), "");
    EXPECT_EQ(fsops::last_error_code(), code);
}

const fsops::RawEntry* entry_of(const fsops::RawListing& listing, const std::string& name) {
    for (const fsops::RawEntry& entry : listing.entries) {
        if (entry.name == name)
            return &entry;
    }
    return nullptr;
}

void make_socket(const std::string& path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, path.c_str(), path.size());
    ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(fd);
}

}  // namespace

// --- Errors -------------------------------------------------------------------------------------

TEST(fs_ops, exactly_fourteen_codes_are_transient) {
    const std::set<int> transient = {EINTR,     EIO,          EAGAIN,       EBUSY,      ETXTBSY,
                                     ENETDOWN,  ENETUNREACH,  ECONNABORTED, ECONNRESET, ETIMEDOUT,
                                     EHOSTDOWN, EHOSTUNREACH, ESTALE,       EREMOTEIO};
    ASSERT_EQ(transient.size(), 14U);
    for (int code = -1; code < 200; ++code)
        EXPECT_EQ(fsops::is_transient(code), transient.contains(code)) << code;
}

TEST(fs_ops, a_failing_call_gives_the_path_and_the_reason_and_keeps_the_code) {
    const TempDir dir;
    write_file(dir / "file", "");
    EXPECT_EQ(fsops::remove_file(dir / "missing"), text(dir / "missing", ENOENT));
    EXPECT_EQ(fsops::last_error_code(), ENOENT);
    EXPECT_EQ(fsops::remove_file(dir.path()), text(dir.path(), EISDIR));
    EXPECT_EQ(fsops::last_error_code(), EISDIR);
    EXPECT_EQ(fsops::remove_dir(dir / "file"), text(dir / "file", ENOTDIR));
    EXPECT_EQ(fsops::last_error_code(), ENOTDIR);
    EXPECT_EQ(fsops::rename_path(dir / "missing", dir / "b"), text(dir / "missing", ENOENT));
    EXPECT_EQ(fsops::make_symlink("text", dir / "file"), text(dir / "file", EEXIST));
    EXPECT_EQ(fsops::last_error_code(), EEXIST);
    std::string out = "kept";
    EXPECT_EQ(fsops::read_link(dir / "file", out), text(dir / "file", EINVAL));
    EXPECT_EQ(fsops::last_error_code(), EINVAL);
}

TEST(fs_ops, success_gives_an_empty_text_and_leaves_the_code) {
    const TempDir dir;
    leave_error(EXDEV);
    EXPECT_EQ(fsops::make_dir(dir / "sub", 0755), "");
    EXPECT_EQ(fsops::remove_dir(dir / "sub"), "");
    write_file(dir / "a", "x");
    EXPECT_EQ(fsops::rename_path(dir / "a", dir / "b"), "");
    EXPECT_EQ(fsops::remove_file(dir / "b"), "");
    EXPECT_EQ(fsops::last_error_code(), EXDEV);
}

TEST(fs_ops, each_thread_has_its_own_code) {
    leave_error(EXDEV);
    int other = -1;
    std::thread([&] { other = fsops::last_error_code(); }).join();
    EXPECT_EQ(other, 0);
    std::thread([] { leave_error(EPERM); }).join();
    EXPECT_EQ(fsops::last_error_code(), EXDEV);
}

TEST(fs_ops, failures_without_a_system_call_leave_the_older_code) {
    leave_error(EXDEV);
    EXPECT_EQ(fsops::make_dirs("some/where", 0755), "invalid path: some/where");
    EXPECT_EQ(fsops::last_error_code(), EXDEV);
    EXPECT_EQ(fsops::list_dir_raw("/no/such/folder").error, text("/no/such/folder", ENOENT));
    EXPECT_EQ(fsops::last_error_code(), EXDEV);
}

// --- Stat ---------------------------------------------------------------------------------------

TEST(fs_ops, a_stat_tells_what_stands_there) {
    const TempDir dir;
    write_file(dir / "file", "12345", 04751);
    const struct timespec times[2] = {{1, 0}, {1'234'567'890, 999}};
    utimensat(AT_FDCWD, (dir / "file").c_str(), times, 0);
    const fsops::Stat file = fsops::lstat_path(dir / "file");
    const struct stat expected = test_env::lstat_of(dir / "file");
    EXPECT_TRUE(file.exists);
    EXPECT_TRUE(file.is_regular);
    EXPECT_FALSE(file.is_dir);
    EXPECT_FALSE(file.is_symlink);
    EXPECT_EQ(file.size, 5);
    EXPECT_EQ(file.mtime, 1'234'567'890);
    EXPECT_EQ(file.perm, 04751U);
    EXPECT_EQ(file.device, expected.st_dev);
    EXPECT_EQ(file.inode, expected.st_ino);
    const fsops::Stat folder = fsops::stat_path(dir.path());
    EXPECT_TRUE(folder.exists);
    EXPECT_TRUE(folder.is_dir);
    EXPECT_FALSE(folder.is_regular);
}

TEST(fs_ops, lstat_sees_the_link_and_stat_what_it_points_to) {
    const TempDir dir;
    write_file(dir / "file", "12345");
    ASSERT_EQ(symlink("file", (dir / "link").c_str()), 0);
    EXPECT_TRUE(fsops::lstat_path(dir / "link").is_symlink);
    EXPECT_FALSE(fsops::lstat_path(dir / "link").is_regular);
    EXPECT_TRUE(fsops::stat_path(dir / "link").is_regular);
    EXPECT_FALSE(fsops::stat_path(dir / "link").is_symlink);
    EXPECT_EQ(fsops::stat_path(dir / "link").size, 5);
}

TEST(fs_ops, a_failed_stat_is_all_zero) {
    const fsops::Stat none = fsops::lstat_path("/no/such/file");
    EXPECT_FALSE(none.exists);
    EXPECT_FALSE(none.is_dir || none.is_symlink || none.is_regular);
    EXPECT_EQ(none.size, 0);
    EXPECT_EQ(none.mtime, 0);
    EXPECT_EQ(none.perm, 0U);
    EXPECT_EQ(none.device, 0U);
}

TEST(fs_ops, a_dangling_link_exists) {
    const TempDir dir;
    ASSERT_EQ(symlink("nowhere", (dir / "link").c_str()), 0);
    EXPECT_TRUE(fsops::exists(dir / "link"));
    EXPECT_FALSE(fsops::stat_path(dir / "link").exists);
    EXPECT_FALSE(fsops::exists(dir / "nowhere"));
}

// --- Folders ------------------------------------------------------------------------------------

TEST(fs_ops, make_dir_takes_the_low_twelve_bits) {
    const TempDir dir;
    umask(0);
    EXPECT_EQ(fsops::make_dir(dir / "sub", S_IFREG | 01751), "");
    EXPECT_EQ(test_env::lstat_of(dir / "sub").st_mode, S_IFDIR | 01751U);
}

TEST(fs_ops, make_dir_is_content_with_a_folder_and_with_nothing_else) {
    const TempDir dir;
    test_env::make_dirs(dir / "sub");
    ASSERT_EQ(symlink("sub", (dir / "link").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", (dir / "dangling").c_str()), 0);
    write_file(dir / "file", "");
    EXPECT_EQ(fsops::make_dir(dir / "sub", 0755), "");
    EXPECT_EQ(fsops::make_dir(dir / "link", 0755), "");
    EXPECT_EQ(fsops::make_dir(dir / "dangling", 0755), text(dir / "dangling", EEXIST));
    EXPECT_EQ(fsops::make_dir(dir / "file", 0755), text(dir / "file", EEXIST));
    EXPECT_EQ(fsops::last_error_code(), EEXIST);
}

TEST(fs_ops, make_dirs_makes_what_is_missing) {
    const TempDir dir;
    umask(0);
    EXPECT_EQ(fsops::make_dirs(dir / "a//b/c/", 0700), "");
    for (const char* name : {"a", "a/b", "a/b/c"})
        EXPECT_EQ(test_env::lstat_of(dir / name).st_mode, S_IFDIR | 0700U) << name;
    EXPECT_EQ(fsops::make_dirs(dir / "a/b", 0755), "");
    EXPECT_EQ(fsops::make_dirs("/", 0755), "");
}

TEST(fs_ops, make_dirs_wants_an_absolute_path) {
    const TempDir dir;
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    EXPECT_EQ(fsops::make_dirs("a/b", 0755), "invalid path: a/b");
    EXPECT_EQ(fsops::make_dirs("", 0755), "invalid path: ");
    EXPECT_FALSE(exists(dir / "a"));
}

TEST(fs_ops, make_dirs_stops_at_the_first_failure_and_rolls_nothing_back) {
    const TempDir dir;
    test_env::make_dirs(dir / "new");
    write_file(dir / "new/file", "");
    EXPECT_EQ(fsops::make_dirs(dir / "new/file/c/d", 0755), text(dir / "new/file", EEXIST));
    const std::string too_long(300, 'n');
    EXPECT_EQ(fsops::make_dirs(dir / "one/two/" + too_long + "/three", 0755),
              text(dir / "one/two/" + too_long, ENAMETOOLONG));
    EXPECT_TRUE(exists(dir / "one/two"));
}

// --- Renaming -----------------------------------------------------------------------------------

TEST(fs_ops, rename_path_replaces_and_rename_no_replace_does_not) {
    const TempDir dir;
    write_file(dir / "a", "a");
    write_file(dir / "b", "b");
    EXPECT_EQ(fsops::rename_no_replace(dir / "a", dir / "b"), text(dir / "a", EEXIST));
    EXPECT_EQ(fsops::last_error_code(), EEXIST);
    EXPECT_EQ(test_env::read_file(dir / "b"), "b");
    ASSERT_EQ(symlink("nowhere", (dir / "dangling").c_str()), 0);
    EXPECT_EQ(fsops::rename_no_replace(dir / "a", dir / "dangling"), text(dir / "a", EEXIST));
    EXPECT_EQ(fsops::rename_no_replace(dir / "a", dir / "c"), "");
    EXPECT_EQ(fsops::rename_path(dir / "c", dir / "b"), "");
    EXPECT_EQ(test_env::read_file(dir / "b"), "a");
}

TEST(fs_ops, rename_no_replace_looks_first_where_the_flag_is_unknown) {
    REQUIRE_SHIM(SYS_renameat2);
    const TempDir dir;
    for (const int code : {EINVAL, ENOSYS}) {
        write_file(dir / "a", "a");
        write_file(dir / "b", "b");
        shim::fail(SYS_renameat2, code, 1, -1,
                   [](const shim::Call& call) { return call.args[4] != 0; });
        EXPECT_EQ(fsops::rename_no_replace(dir / "a", dir / "b"), text(dir / "a", EEXIST));
        EXPECT_EQ(fsops::last_error_code(), EEXIST);
        EXPECT_EQ(test_env::read_file(dir / "b"), "b");
        EXPECT_EQ(fsops::rename_no_replace(dir / "a", dir / "c"), "");
        EXPECT_EQ(test_env::read_file(dir / "c"), "a");
        EXPECT_EQ(fsops::remove_file(dir / "c"), "");
        shim::clear();
    }
}

TEST(fs_ops, what_cannot_be_examined_counts_as_another_device) {
    const mounts_fixture::Tmpfs other;
    REQUIRE_MOUNT(other);
    const TempDir dir;
    write_file(dir / "file", "");
    ASSERT_EQ(symlink(other.path().c_str(), (dir / "away").c_str()), 0);
    EXPECT_FALSE(fsops::rename_would_cross_device(dir / "file", dir / "new"));
    EXPECT_TRUE(fsops::rename_would_cross_device(dir / "file", other / "new"));
    EXPECT_TRUE(fsops::rename_would_cross_device(dir / "missing", dir / "new"));
    EXPECT_TRUE(fsops::rename_would_cross_device(dir / "file", dir / "missing/new"));
    EXPECT_TRUE(fsops::rename_would_cross_device(dir / "missing", dir / "missing/new"));
    // The folder is followed, the source is not.
    EXPECT_TRUE(fsops::rename_would_cross_device(dir / "file", dir / "away/new"));
    EXPECT_FALSE(fsops::rename_would_cross_device(dir / "away", dir / "new"));
    // A name alone is taken to stand in the root.
    const bool same = test_env::lstat_of(dir / "file").st_dev == test_env::lstat_of("/").st_dev;
    EXPECT_EQ(fsops::rename_would_cross_device(dir / "file", "new"), !same);
    EXPECT_TRUE(fsops::rename_would_cross_device(other.path(), "new"));
}

// --- Links --------------------------------------------------------------------------------------

TEST(fs_ops, read_link_reads_texts_of_every_length) {
    const TempDir dir;
    for (const size_t length : {1U, 1023U, 1024U, 1025U, 2048U, 4095U}) {
        const std::string link = dir / std::to_string(length);
        const std::string expected(length, 'x');
        if (symlink(expected.c_str(), link.c_str()) != 0) {
            ASSERT_EQ(errno, ENAMETOOLONG);
            continue;
        }
        std::string found = "old";
        EXPECT_EQ(fsops::read_link(link, found), "");
        EXPECT_EQ(found, expected);
    }
}

TEST(fs_ops, read_link_gives_up_after_two_mebibytes) {
    REQUIRE_SHIM(SYS_readlinkat, SYS_readlink);
    std::vector<uint64_t> sizes;
    shim::rule(SYS_readlinkat, [&](const shim::Call& call) {
        sizes.push_back(call.args[3]);
        return shim::give(static_cast<int64_t>(call.args[3]));
    });
    shim::rule(SYS_readlink, [&](const shim::Call& call) {
        sizes.push_back(call.args[2]);
        return shim::give(static_cast<int64_t>(call.args[2]));
    });
    leave_error(EXDEV);
    std::string out;
    const std::string result = fsops::read_link("/a/link", out);
    shim::clear();
    EXPECT_EQ(result, "/a/link: symlink target too long");
    EXPECT_EQ(fsops::last_error_code(), EXDEV);
    ASSERT_EQ(sizes.size(), 12U);
    EXPECT_EQ(sizes.front(), 1024U);
    EXPECT_EQ(sizes.back(), 2097152U);
}

// --- Names and space ----------------------------------------------------------------------------

TEST(fs_ops, a_name_is_what_a_folder_can_hold) {
    for (const std::string& good : {std::string("a"), std::string("..."), std::string(" "),
                                    std::string("-rf"), std::string("\xff"), std::string(255, 'n')})
        EXPECT_TRUE(fsops::is_valid_name(good)) << good;
    for (const std::string& bad :
         {std::string(), std::string("."), std::string(".."), std::string("a/b"), std::string("/"),
          std::string("a\0b", 3), std::string(256, 'n')})
        EXPECT_FALSE(fsops::is_valid_name(bad)) << bad;
}

TEST(fs_ops, space_is_what_ordinary_users_may_fill) {
    const mounts_fixture::Tmpfs mount("size=16m");
    REQUIRE_MOUNT(mount);
    write_file(mount / "file", std::string(1 << 20, 'x'));
    EXPECT_EQ(fsops::free_space(mount.path()), 15 << 20);
    int64_t total = 0;
    int64_t free = 0;
    EXPECT_TRUE(fsops::disk_space(mount.path(), total, free));
    EXPECT_EQ(total, 16 << 20);
    EXPECT_EQ(free, 15 << 20);
    // Blocks set aside for root are not free.
    const mounts_fixture::LoopImage image("ext4", "-m 20");
    REQUIRE_MOUNT(image);
    EXPECT_TRUE(fsops::disk_space(image.path(), total, free));
    EXPECT_LT(free, total * 85 / 100);
}

TEST(fs_ops, unknown_space_is_minus_one_and_leaves_the_results_alone) {
    int64_t total = 11;
    int64_t free = 22;
    EXPECT_EQ(fsops::free_space("/no/such/folder"), -1);
    EXPECT_FALSE(fsops::disk_space("/no/such/folder", total, free));
    EXPECT_EQ(total, 11);
    EXPECT_EQ(free, 22);
    REQUIRE_SHIM(SYS_statfs, SYS_fstatfs);
    shim::fail(SYS_statfs, EIO);
    shim::fail(SYS_fstatfs, EIO);
    EXPECT_EQ(fsops::free_space("/"), -1);
}

// --- Listing ------------------------------------------------------------------------------------

TEST(fs_ops, a_raw_listing_knows_every_kind) {
    const TempDir dir;
    test_env::make_dirs(dir / "folder");
    write_file(dir / "file", "12345");
    write_file(dir / "twin", "123");
    ASSERT_EQ(link((dir / "twin").c_str(), (dir / "twin2").c_str()), 0);
    ASSERT_EQ(symlink("folder", (dir / "link").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", (dir / "dangling").c_str()), 0);
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0644), 0);
    make_socket(dir / "socket");
    const bool device = mknod((dir / "null").c_str(), S_IFCHR | 0644, makedev(1, 3)) == 0;
    const fsops::RawListing listing = fsops::list_dir_raw(dir.path());
    EXPECT_EQ(listing.error, "");
    EXPECT_EQ(listing.entries.size(), device ? 9U : 8U);
    EXPECT_EQ(entry_of(listing, "."), nullptr);
    EXPECT_EQ(entry_of(listing, ".."), nullptr);

    const fsops::RawEntry* file = entry_of(listing, "file");
    ASSERT_TRUE(file);
    EXPECT_FALSE(file->is_dir || file->is_symlink || file->is_special);
    EXPECT_EQ(file->size, 5);
    EXPECT_EQ(file->inode, test_env::lstat_of(dir / "file").st_ino);
    EXPECT_EQ(file->device, test_env::lstat_of(dir / "file").st_dev);
    EXPECT_EQ(file->nlink, 1U);
    EXPECT_EQ(entry_of(listing, "twin")->nlink, 2U);
    EXPECT_EQ(entry_of(listing, "twin")->inode, entry_of(listing, "twin2")->inode);

    for (const char* name : {"folder", "link", "dangling", "fifo", "socket"}) {
        const fsops::RawEntry* entry = entry_of(listing, name);
        ASSERT_TRUE(entry) << name;
        EXPECT_EQ(entry->is_dir, std::string(name) == "folder") << name;
        EXPECT_EQ(entry->is_symlink, std::strstr("link dangling", name) != nullptr) << name;
        EXPECT_EQ(entry->is_special, std::strstr("fifo socket", name) != nullptr) << name;
        EXPECT_EQ(entry->size, 0) << name;
        EXPECT_EQ(entry->inode, 0U) << name;
        EXPECT_EQ(entry->device, 0U) << name;
        EXPECT_EQ(entry->nlink, 1U) << name;
    }
    if (device) {
        EXPECT_TRUE(entry_of(listing, "null")->is_special);
    }
}

TEST(fs_ops, a_raw_listing_asks_for_a_stat_of_regular_files_alone) {
    REQUIRE_SHIM(SYS_newfstatat, SYS_statx, SYS_lstat, SYS_stat);
    const TempDir dir;
    for (int i = 0; i < 5; ++i) {
        test_env::make_dirs(dir / "folder" + std::to_string(i));
        ASSERT_EQ(symlink("x", (dir / "link" + std::to_string(i)).c_str()), 0);
        ASSERT_EQ(mkfifo((dir / "fifo" + std::to_string(i)).c_str(), 0644), 0);
        write_file(dir / "file" + std::to_string(i), "");
    }
    std::vector<std::string> asked;
    for (const long number : {SYS_newfstatat, SYS_statx}) {
        shim::rule(number, [&](const shim::Call& call) {
            const std::string name = call.arg_text(1).substr(call.arg_text(1).rfind('/') + 1);
            if (!name.empty())
                asked.push_back(name.substr(0, 4));
            return shim::go();
        });
    }
    const fsops::RawListing listing = fsops::list_dir_raw(dir.path());
    shim::clear();
    EXPECT_EQ(listing.entries.size(), 20U);
    EXPECT_EQ(std::count(asked.begin(), asked.end(), "file"), 5);
    for (const char* kind : {"fold", "link", "fifo"})
        EXPECT_EQ(std::count(asked.begin(), asked.end(), kind), 0) << kind;
}

TEST(fs_ops, an_entry_that_cannot_be_examined_stays_with_its_defaults) {
    REQUIRE_SHIM(SYS_newfstatat, SYS_statx);
    const TempDir dir;
    write_file(dir / "good", "12345");
    write_file(dir / "bad", "12345");
    shim::fail(SYS_newfstatat, EIO, 1, -1, shim::path_ends(1, "bad"));
    shim::fail(SYS_statx, EIO, 1, -1, shim::path_ends(1, "bad"));
    const fsops::RawListing listing = fsops::list_dir_raw(dir.path());
    shim::clear();
    EXPECT_EQ(listing.error, "");
    ASSERT_TRUE(entry_of(listing, "good") && entry_of(listing, "bad"));
    EXPECT_EQ(entry_of(listing, "good")->size, 5);
    EXPECT_EQ(entry_of(listing, "bad")->size, 0);
    EXPECT_EQ(entry_of(listing, "bad")->inode, 0U);
    EXPECT_EQ(entry_of(listing, "bad")->nlink, 1U);
    EXPECT_FALSE(entry_of(listing, "bad")->is_special);
}

TEST(fs_ops, where_readdir_tells_no_kind_a_stat_does_but_hard_links_stay_unknown) {
    faultfs::Options options;
    options.unknown_types = true;
    const faultfs::FaultFs fs(options);
    REQUIRE_MOUNT(fs);
    test_env::make_dirs(fs / "folder");
    write_file(fs / "file", "12345");
    ASSERT_EQ(link((fs / "file").c_str(), (fs / "twin").c_str()), 0);
    ASSERT_EQ(symlink("folder", (fs / "link").c_str()), 0);
    ASSERT_EQ(mkfifo((fs / "fifo").c_str(), 0644), 0);
    const fsops::RawListing listing = fsops::list_dir_raw(fs.path());
    EXPECT_EQ(listing.error, "");
    ASSERT_EQ(listing.entries.size(), 5U);
    EXPECT_TRUE(entry_of(listing, "folder")->is_dir);
    EXPECT_TRUE(entry_of(listing, "link")->is_symlink);
    EXPECT_TRUE(entry_of(listing, "fifo")->is_special);
    const fsops::RawEntry* file = entry_of(listing, "file");
    EXPECT_FALSE(file->is_dir || file->is_symlink || file->is_special);
    EXPECT_EQ(file->size, 5);
    for (const fsops::RawEntry& entry : listing.entries) {
        EXPECT_EQ(entry.inode, 0U) << entry.name;
        EXPECT_EQ(entry.device, 0U) << entry.name;
        EXPECT_EQ(entry.nlink, 1U) << entry.name;
    }
}

TEST(fs_ops, a_folder_that_cannot_be_opened_is_an_error_without_a_code) {
    const TempDir dir;
    write_file(dir / "file", "");
    leave_error(EXDEV);
    EXPECT_EQ(fsops::list_dir_raw(dir / "missing").error, text(dir / "missing", ENOENT));
    EXPECT_EQ(fsops::list_dir_raw(dir / "file").error, text(dir / "file", ENOTDIR));
    EXPECT_EQ(fsops::last_error_code(), EXDEV);
}

TEST(fs_ops, a_folder_without_rights_is_an_error_for_an_ordinary_user) {
    const TempDir dir;
    test_env::make_dirs(dir / "closed");
    as_user::give(dir.path());
    chmod((dir / "closed").c_str(), 0700);
    EXPECT_TRUE(as_user::run([&] {
        if (test_env::lstat_of(dir / "closed").st_uid == geteuid())
            chmod((dir / "closed").c_str(), 0);
        EXPECT_EQ(fsops::list_dir_raw(dir / "closed").error, text(dir / "closed", EACCES));
    }));
    chmod((dir / "closed").c_str(), 0700);
}

TEST(fs_ops, a_listing_that_breaks_off_is_an_error_and_keeps_what_it_read) {
    faultfs::FaultFs fs;
    REQUIRE_MOUNT(fs);
    for (int i = 0; i < 10; ++i)
        write_file(fs / "f" + std::to_string(i), "");
    fs.set(faultfs::limit("readdir", 6));
    fs.set(faultfs::fail("readdir", EIO, 2));
    leave_error(EXDEV);
    const fsops::RawListing listing = fsops::list_dir_raw(fs.path());
    EXPECT_EQ(listing.error, text(fs.path(), EIO));
    EXPECT_GE(listing.entries.size(), 4U);
    EXPECT_LE(listing.entries.size(), 6U);
    EXPECT_EQ(fsops::last_error_code(), EXDEV);
}

TEST(fs_ops, a_listing_opens_again_what_a_signal_interrupted) {
    REQUIRE_SHIM(SYS_openat);
    const TempDir dir;
    write_file(dir / "f", "x");
    shim::fail(SYS_openat, EINTR, 1, 2, shim::path_ends(1, dir.path()));
    const fsops::RawListing listing = fsops::list_dir_raw(dir.path());
    shim::clear();
    EXPECT_EQ(listing.error, "");
    EXPECT_EQ(listing.entries.size(), 1U);
}

TEST(fs_ops, a_listing_of_an_open_folder_leaves_the_descriptor_open) {
    const TempDir dir;
    write_file(dir / "\xff\n", "");
    const int fd = open(dir.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int round = 0; round < 2; ++round) {
        const fsops::RawListing listing = fsops::list_dir_raw_at(fd, "/the/path");
        EXPECT_EQ(listing.error, "");
        ASSERT_EQ(listing.entries.size(), 1U);
        EXPECT_EQ(listing.entries[0].name, "\xff\n");
        EXPECT_NE(fcntl(fd, F_GETFD), -1);
    }
    close(fd);
}
