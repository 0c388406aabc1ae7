// What a listing reads from disk: kinds, sizes, names, totals and failures. The order of a listing
// is in dir_lister_test.cpp.

#include "dir_lister.h"
#include "fresh_process.h"
#include "mounts_fixture.h"
#include "shim.h"
#include "test_env.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

using dir_lister::Listing;
using test_env::TempDir;
using test_env::write_file;
using Kind = FsEntry::Kind;
using Names = std::vector<std::string>;

namespace {

const FsEntry& named(const Listing& listing, const std::string& name) {
    static const FsEntry none;
    for (const FsEntry& entry : listing.entries) {
        if (entry.name == name)
            return entry;
    }
    ADD_FAILURE() << "no entry " << name;
    return none;
}

bool lists(const Listing& listing, const std::string& name) {
    return std::any_of(listing.entries.begin(), listing.entries.end(),
                       [&name](const FsEntry& entry) { return entry.name == name; });
}

Names names_of(const Listing& listing) {
    Names names;
    for (const FsEntry& entry : listing.entries)
        names.push_back(entry.name);
    return names;
}

void make_link(const std::string& text, const std::string& path) {
    ASSERT_EQ(symlink(text.c_str(), path.c_str()), 0) << path << ": " << std::strerror(errno);
}

// What a listing says, in a form that can be carried out of a child process.
std::string text_of(const Listing& listing) {
    std::vector<std::string> lines;
    for (const FsEntry& e : listing.entries) {
        lines.push_back(e.name + " kind=" + std::to_string(static_cast<int>(e.kind)) + " size=" +
                        std::to_string(e.size) + " owner='" + e.owner + e.group + "' link='" +
                        e.link_target + "' hidden=" + (e.hidden ? "1" : "0") + " zero=" +
                        (e.mtime == 0 && e.ctime == 0 && e.btime == 0 && e.perm == 0 ? "1" : "0"));
    }
    std::sort(lines.begin(), lines.end());
    std::string text = listing.error + "|" + std::to_string(listing.error_code) + "|" +
                       std::to_string(listing.file_count) + "|" +
                       std::to_string(listing.dir_count) + "|" +
                       std::to_string(listing.total_bytes) + "\n";
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

// The listing as somebody without root's rights gets it.
std::string read_as_ordinary_user(const std::string& path) {
    return test_env::answer_of_child([&path] {
        if (geteuid() == 0 && !test_env::become_ordinary_user())
            return std::string("root's rights cannot be given up");
        return text_of(dir_lister::read(path, true));
    });
}

// Lets an ordinary user search the way to a temporary folder and list it.
void open_way(const TempDir& dir) {
    ASSERT_EQ(chmod(test_env::root().c_str(), 0711), 0);
    ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
}

}  // namespace

// --- The parent row -----------------------------------------------------------------------------

TEST(dir_lister_read, the_root_has_no_parent_row) {
    const Listing root = dir_lister::read("/", true);
    EXPECT_EQ(root.error_code, 0);
    EXPECT_FALSE(root.entries.empty());
    EXPECT_FALSE(lists(root, ".."));
}

TEST(dir_lister_read, only_the_exact_string_of_a_slash_is_the_root) {
    for (const char* path : {"/usr/", "/usr", "//", "/.", "/usr/.."}) {
        const Listing listing = dir_lister::read(path, false);
        ASSERT_FALSE(listing.entries.empty()) << path;
        EXPECT_EQ(listing.entries.front().kind, Kind::Parent) << path;
        EXPECT_EQ(listing.path, path);
    }
}

TEST(dir_lister_read, the_parent_row_comes_first_and_is_not_examined) {
    const TempDir dir;
    write_file(dir / "a", "x");
    const Listing listing = dir_lister::read(dir.path(), false);
    ASSERT_EQ(listing.entries.size(), 2U);
    const FsEntry& parent = listing.entries.front();
    EXPECT_EQ(parent.name, "..");
    EXPECT_EQ(parent.kind, Kind::Parent);
    EXPECT_EQ(parent.size, -1);
    EXPECT_EQ(parent.mtime, 0);
    EXPECT_EQ(parent.ctime, 0);
    EXPECT_EQ(parent.btime, 0);
    EXPECT_EQ(parent.perm, 0U);
    EXPECT_EQ(parent.owner, "");
    EXPECT_EQ(parent.group, "");
    EXPECT_FALSE(parent.hidden);
}

TEST(dir_lister_read, an_empty_directory_is_the_parent_row_alone) {
    const TempDir dir;
    for (const bool show_hidden : {false, true}) {
        const Listing listing = dir_lister::read(dir.path(), show_hidden);
        EXPECT_EQ(names_of(listing), Names{".."});
        EXPECT_EQ(listing.error, "");
        EXPECT_EQ(listing.error_code, 0);
        EXPECT_EQ(listing.file_count, 0);
        EXPECT_EQ(listing.dir_count, 0);
        EXPECT_EQ(listing.total_bytes, 0);
    }
}

// --- Names --------------------------------------------------------------------------------------

TEST(dir_lister_read, hidden_names_come_on_demand_alone) {
    const TempDir dir;
    write_file(dir / ".dot", "12345");
    write_file(dir / "..two", "1");
    write_file(dir / "...", "1");
    write_file(dir / "plain", "123");
    const Listing without = dir_lister::read(dir.path(), false);
    EXPECT_EQ(names_of(without), (Names{"..", "plain"}));
    EXPECT_EQ(without.file_count, 1);
    EXPECT_EQ(without.total_bytes, 3);
    const Listing with = dir_lister::read(dir.path(), true);
    EXPECT_EQ(with.entries.size(), 5U);
    EXPECT_TRUE(named(with, ".dot").hidden);
    EXPECT_TRUE(named(with, "..two").hidden);
    EXPECT_TRUE(named(with, "...").hidden);
    EXPECT_FALSE(named(with, "plain").hidden);
    EXPECT_EQ(with.file_count, 4);
    EXPECT_EQ(with.total_bytes, 10);
}

TEST(dir_lister_read, a_name_that_is_no_utf8_is_examined_under_its_raw_bytes) {
    const TempDir dir;
    write_file(dir / "caf\xE9", std::string(77, 'x'), 0640);
    const struct timespec times[2] = {{.tv_sec = 5, .tv_nsec = 0}, {.tv_sec = 1234, .tv_nsec = 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, (dir / "caf\xE9").c_str(), times, 0), 0);
    ASSERT_EQ(mkdir((dir / "\xFF\xFE").c_str(), 0755), 0);
    const Listing listing = dir_lister::read(dir.path(), false);
    const FsEntry& file = named(listing, "caf\xEF\xBF\xBD");
    EXPECT_EQ(file.kind, Kind::File);
    EXPECT_EQ(file.size, 77);
    EXPECT_EQ(file.mtime, 1234);
    EXPECT_EQ(file.perm, 0640U);
    EXPECT_EQ(named(listing, "\xEF\xBF\xBD\xEF\xBF\xBD").kind, Kind::Dir);
    EXPECT_EQ(listing.file_count, 1);
    EXPECT_EQ(listing.dir_count, 1);
}

TEST(dir_lister_read, hostile_names_come_as_they_are) {
    const TempDir dir;
    const Names hostile = {"a\nb", "tab\t", " ",        "-rf",  "'\"",
                           "\\",   "*",     "\xC3\xA4", "\x01", std::string(255, 'n')};
    for (const std::string& name : hostile)
        write_file(dir / name, name);
    const Listing listing = dir_lister::read(dir.path(), false);
    EXPECT_EQ(listing.file_count, static_cast<int>(hostile.size()));
    for (const std::string& name : hostile)
        EXPECT_EQ(named(listing, name).size, static_cast<int64_t>(name.size()));
}

TEST(dir_lister_read, does_not_sort) {
    const TempDir dir;
    for (int i = 0; i < 300; ++i)
        write_file(dir / ("f" + std::to_string(i)), "");
    Names raw = {".."};
    DIR* handle = opendir(dir.path().c_str());
    ASSERT_NE(handle, nullptr);
    while (const struct dirent* entry = readdir(handle)) {
        if (entry->d_name[0] != '.')
            raw.emplace_back(entry->d_name);
    }
    closedir(handle);
    EXPECT_EQ(names_of(dir_lister::read(dir.path(), false)), raw);
}

TEST(dir_lister_read, a_relative_path_and_a_trailing_slash_find_the_same_entries) {
    const TempDir dir;
    write_file(dir / "f", "12", 0600);
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    for (const std::string& path : {std::string("."), std::string("./"), dir.path() + "/"}) {
        const Listing listing = dir_lister::read(path, false);
        EXPECT_EQ(names_of(listing), (Names{"..", "f"})) << path;
        EXPECT_EQ(named(listing, "f").size, 2) << path;
    }
    ASSERT_EQ(chdir("/"), 0);
}

// --- Kinds, sizes and totals --------------------------------------------------------------------

TEST(dir_lister_read, files_and_directories_have_what_the_disk_says) {
    const TempDir dir;
    write_file(dir / "f", std::string(1234, 'x'));
    ASSERT_EQ(chmod((dir / "f").c_str(), 06751), 0);
    ASSERT_EQ(mkdir((dir / "d").c_str(), 0755), 0);
    ASSERT_EQ(chmod((dir / "d").c_str(), 01777), 0);
    const struct timespec times[2] = {{.tv_sec = 9, .tv_nsec = 0},
                                      {.tv_sec = 1'000'000, .tv_nsec = 999'999'999}};
    ASSERT_EQ(utimensat(AT_FDCWD, (dir / "f").c_str(), times, 0), 0);
    const Listing listing = dir_lister::read(dir.path(), false);
    const FsEntry& file = named(listing, "f");
    EXPECT_EQ(file.kind, Kind::File);
    EXPECT_EQ(file.size, 1234);
    EXPECT_EQ(file.perm, 06751U);
    EXPECT_EQ(file.mtime, 1'000'000);  // whole seconds, cut and not rounded
    EXPECT_EQ(file.ctime, test_env::lstat_of(dir / "f").st_ctim.tv_sec);
    EXPECT_EQ(file.link_target, "");
    const FsEntry& folder = named(listing, "d");
    EXPECT_EQ(folder.kind, Kind::Dir);
    EXPECT_EQ(folder.size, -1);
    EXPECT_EQ(folder.perm, 01777U);
    EXPECT_EQ(folder.mtime, test_env::lstat_of(dir / "d").st_mtim.tv_sec);
    EXPECT_EQ(listing.file_count, 1);
    EXPECT_EQ(listing.dir_count, 1);
    EXPECT_EQ(listing.total_bytes, 1234);
}

TEST(dir_lister_read, times_before_the_epoch_stay_negative) {
    const TempDir dir;
    write_file(dir / "old", "");
    const struct timespec times[2] = {{.tv_sec = -50, .tv_nsec = 0}, {.tv_sec = -50, .tv_nsec = 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, (dir / "old").c_str(), times, 0), 0);
    if (test_env::lstat_of(dir / "old").st_mtim.tv_sec != -50)
        GTEST_SKIP() << "the file system keeps no time before 1970";
    EXPECT_EQ(named(dir_lister::read(dir.path(), false), "old").mtime, -50);
}

TEST(dir_lister_read, a_sparse_file_counts_with_its_length) {
    const TempDir dir;
    write_file(dir / "sparse", "");
    ASSERT_EQ(truncate((dir / "sparse").c_str(), 5'000'000'000), 0);
    const Listing listing = dir_lister::read(dir.path(), false);
    EXPECT_EQ(named(listing, "sparse").size, 5'000'000'000);
    EXPECT_EQ(listing.total_bytes, 5'000'000'000);
}

TEST(dir_lister_read, links_are_told_apart_by_their_targets_and_count_nowhere) {
    const TempDir dir;
    const TempDir elsewhere;
    write_file(elsewhere / "file", std::string(1000, 'x'));
    ASSERT_EQ(mkdir((elsewhere / "folder").c_str(), 0755), 0);
    make_link(elsewhere / "file", dir / "to_file");
    make_link(elsewhere / "folder", dir / "to_folder");
    make_link("no/such", dir / "broken");
    make_link("/dev/null", dir / "to_device");
    make_link("to_folder", dir / "to_link");
    const Listing listing = dir_lister::read(dir.path(), false);

    const FsEntry& to_file = named(listing, "to_file");
    EXPECT_EQ(to_file.kind, Kind::Symlink);
    EXPECT_EQ(to_file.link_target, elsewhere / "file");
    EXPECT_EQ(to_file.size, static_cast<int64_t>((elsewhere / "file").size()));  // the link's own
    EXPECT_EQ(to_file.perm, 0777U);

    const FsEntry& to_folder = named(listing, "to_folder");
    EXPECT_EQ(to_folder.kind, Kind::SymlinkDir);
    EXPECT_EQ(to_folder.link_target, elsewhere / "folder");
    EXPECT_EQ(to_folder.size, -1);

    const FsEntry& broken = named(listing, "broken");
    EXPECT_EQ(broken.kind, Kind::BrokenSymlink);
    EXPECT_EQ(broken.link_target, "no/such");
    EXPECT_EQ(broken.size, 7);

    EXPECT_EQ(named(listing, "to_device").kind, Kind::Symlink);
    EXPECT_EQ(named(listing, "to_link").kind, Kind::SymlinkDir);
    EXPECT_EQ(named(listing, "to_link").link_target, "to_folder");

    EXPECT_EQ(listing.file_count, 0);
    EXPECT_EQ(listing.dir_count, 0);
    EXPECT_EQ(listing.total_bytes, 0);
}

TEST(dir_lister_read, links_in_a_loop_are_broken) {
    const TempDir dir;
    make_link("self", dir / "self");
    make_link("pong", dir / "ping");
    make_link("ping", dir / "pong");
    const Listing listing = dir_lister::read(dir.path(), false);
    for (const char* name : {"self", "ping", "pong"}) {
        EXPECT_EQ(named(listing, name).kind, Kind::BrokenSymlink) << name;
        EXPECT_EQ(named(listing, name).size, 4) << name;
    }
    EXPECT_EQ(named(listing, "ping").link_target, "pong");
}

TEST(dir_lister_read, a_link_text_is_sanitised_and_may_fill_the_buffer) {
    const TempDir dir;
    make_link("caf\xE9", dir / "latin");
    const std::string longest(PATH_MAX - 1, 'x');
    const bool has_long = symlink(longest.c_str(), (dir / "long").c_str()) == 0;
    const Listing listing = dir_lister::read(dir.path(), false);
    EXPECT_EQ(named(listing, "latin").link_target, "caf\xEF\xBF\xBD");
    EXPECT_EQ(named(listing, "latin").size, 4);
    if (!has_long)
        GTEST_SKIP() << "the file system takes no link text of " << longest.size() << " bytes";
    EXPECT_EQ(named(listing, "long").link_target, longest);
    EXPECT_EQ(named(listing, "long").kind, Kind::BrokenSymlink);
}

TEST(dir_lister_read, a_link_under_a_name_that_is_no_utf8_is_followed) {
    const TempDir dir;
    write_file(dir / "target", "");
    make_link("target", dir / "l\xE9");
    const FsEntry link = named(dir_lister::read(dir.path(), false), "l\xEF\xBF\xBD");
    EXPECT_EQ(link.kind, Kind::Symlink);
    EXPECT_EQ(link.link_target, "target");
}

TEST(dir_lister_read, a_listing_through_a_link_lists_the_target) {
    const TempDir dir;
    ASSERT_EQ(mkdir((dir / "folder").c_str(), 0755), 0);
    write_file(dir / "folder/f", "1");
    make_link("folder", dir / "link");
    EXPECT_EQ(names_of(dir_lister::read(dir / "link", false)), (Names{"..", "f"}));
}

TEST(dir_lister_read, fifos_sockets_and_devices_are_special_with_size_zero) {
    const TempDir dir;
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0640), 0);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(fd, 0);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (dir / "socket").c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(bind(fd, reinterpret_cast<struct sockaddr*>(&address), sizeof address), 0);
    close(fd);
    const bool has_device = mknod((dir / "device").c_str(), S_IFCHR | 0600, makedev(1, 3)) == 0 &&
                            mknod((dir / "block").c_str(), S_IFBLK | 0600, makedev(7, 0)) == 0;
    const Listing listing = dir_lister::read(dir.path(), false);
    EXPECT_EQ(named(listing, "fifo").perm, 0640U);
    for (const FsEntry& entry : listing.entries) {
        if (entry.kind == Kind::Parent)
            continue;
        EXPECT_EQ(entry.kind, Kind::Special) << entry.name;
        EXPECT_EQ(entry.size, 0) << entry.name;
        EXPECT_NE(entry.mtime, 0) << entry.name;
        EXPECT_NE(entry.owner, "") << entry.name;
    }
    EXPECT_EQ(listing.file_count, 0);
    EXPECT_EQ(listing.dir_count, 0);
    EXPECT_EQ(listing.total_bytes, 0);
    if (!has_device)
        GTEST_SKIP() << "no right to make device nodes; FIFO and socket were tested";
    EXPECT_TRUE(lists(listing, "device") && lists(listing, "block"));
}

// --- Birth times --------------------------------------------------------------------------------

namespace {

// What the kernel itself says, or -1 when the file system does not tell.
int64_t birth_time(const std::string& path) {
    struct statx reply = {};
    if (statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME, &reply) != 0 ||
        !(reply.stx_mask & STATX_BTIME))
        return -1;
    return reply.stx_btime.tv_sec;
}

}  // namespace

TEST(dir_lister_read, a_birth_time_is_listed_where_the_file_system_keeps_it) {
    const mounts_fixture::Tmpfs fs;
    const std::string base = fs.ok() ? fs.path() : "/dev/shm";
    const TempDir dir(base);
    write_file(dir / "f", "");
    const int64_t known = birth_time(dir / "f");
    if (known <= 0)
        GTEST_SKIP() << base << " keeps no birth times";
    // A file that is older than its birth, so that no other time can pass for it.
    const struct timespec times[2] = {{.tv_sec = 5, .tv_nsec = 0}, {.tv_sec = 5, .tv_nsec = 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, (dir / "f").c_str(), times, 0), 0);
    const Listing listing = dir_lister::read(dir.path(), false);
    EXPECT_EQ(named(listing, "f").btime, known);
    EXPECT_EQ(named(listing, "f").mtime, 5);
}

TEST(dir_lister_read, without_a_birth_time_it_is_zero) {
    if (birth_time("/proc/self/status") != -1)
        GTEST_SKIP() << "/proc tells birth times here";
    const FsEntry status = named(dir_lister::read("/proc/self", false), "status");
    EXPECT_EQ(status.kind, Kind::File);
    EXPECT_EQ(status.btime, 0);
    EXPECT_NE(status.mtime, 0);
}

// --- Owners -------------------------------------------------------------------------------------

TEST(dir_lister_read, owner_and_group_are_names) {
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root, whose name is certain";
    const TempDir dir;
    write_file(dir / "f", "");
    const FsEntry file = named(dir_lister::read(dir.path(), false), "f");
    EXPECT_EQ(file.owner, "root");
    EXPECT_EQ(file.group, "root");
}

TEST(dir_lister_read, ids_that_nobody_knows_are_shown_as_numbers) {
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root to give files away";
    const TempDir dir;
    write_file(dir / "f", "");
    ASSERT_EQ(chown((dir / "f").c_str(), 3'000'000'001U, 3'000'000'002U), 0);
    make_link("f", dir / "l");
    ASSERT_EQ(lchown((dir / "l").c_str(), 54321, 54322), 0);
    const Listing listing = dir_lister::read(dir.path(), false);
    EXPECT_EQ(named(listing, "f").owner, "3000000001");
    EXPECT_EQ(named(listing, "f").group, "3000000002");
    EXPECT_EQ(named(listing, "l").owner, "54321");  // the link's, not its target's
    EXPECT_EQ(named(listing, "l").group, "54322");
}

namespace {

// Shows the process other accounts; both files may be rewritten later.
bool use_accounts(const TempDir& database, const std::string& users, const std::string& groups) {
    write_file(database / "passwd", users);
    write_file(database / "group", groups);
    return test_env::mount_bind(database / "passwd", "/etc/passwd") &&
           test_env::mount_bind(database / "group", "/etc/group");
}

}  // namespace

TEST(dir_lister_read, names_of_users_and_groups_are_asked_for_once_per_run) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    const TempDir dir;
    write_file(dir / "known", "");
    write_file(dir / "unknown", "");
    ASSERT_EQ(chown((dir / "known").c_str(), 61001, 61001), 0);
    ASSERT_EQ(chown((dir / "unknown").c_str(), 61002, 61002), 0);
    const TempDir accounts;
    ASSERT_TRUE(use_accounts(accounts, "root:x:0:0::/:/bin/sh\nfirst:x:61001:0::/:/bin/sh\n",
                             "root:x:0:\ngfirst:x:61001:\n"));
    const Listing before = dir_lister::read(dir.path(), false);
    EXPECT_EQ(named(before, "known").owner, "first");
    EXPECT_EQ(named(before, "known").group, "gfirst");
    EXPECT_EQ(named(before, "unknown").owner, "61002");
    EXPECT_EQ(named(before, "unknown").group, "61002");

    // Neither a changed name nor one that has come into being shows.
    write_file(accounts / "passwd", "second:x:61001:0::/:/bin/sh\nnew:x:61002:0::/:/bin/sh\n");
    write_file(accounts / "group", "gsecond:x:61001:\ngnew:x:61002:\n");
    const struct passwd* changed = getpwuid(61001);
    ASSERT_TRUE(changed && changed->pw_name == std::string("second"));
    const Listing after = dir_lister::read(dir.path(), false);
    EXPECT_EQ(text_of(after), text_of(before));
}

TEST(dir_lister_read, a_user_whose_name_is_empty_is_shown_as_a_number) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    const TempDir dir;
    write_file(dir / "f", "");
    ASSERT_EQ(chown((dir / "f").c_str(), 61003, 61003), 0);
    const TempDir accounts;
    ASSERT_TRUE(use_accounts(accounts, ":x:61003:0::/:/bin/sh\n", ":x:61003:\n"));
    const struct passwd* user = getpwuid(61003);
    if (!user || *user->pw_name)
        GTEST_SKIP() << "libc gives no account with an empty name";
    const FsEntry file = named(dir_lister::read(dir.path(), false), "f");
    EXPECT_EQ(file.owner, "61003");
    EXPECT_EQ(file.group, "61003");
}

// --- Failures -----------------------------------------------------------------------------------

TEST(dir_lister_read, what_cannot_be_opened_has_an_error_and_not_even_a_parent_row) {
    const TempDir dir;
    write_file(dir / "file", "");
    make_link("loop", dir / "loop");
    const std::pair<std::string, int> rows[] = {
        {dir / "missing", ENOENT},
        {dir / "file", ENOTDIR},
        {dir / "loop", ELOOP},
        {"", ENOENT},
        {std::string(PATH_MAX + 10, 'x'), ENAMETOOLONG},
    };
    for (const auto& [path, code] : rows) {
        const Listing listing = dir_lister::read(path, true);
        EXPECT_EQ(listing.path, path);
        EXPECT_EQ(listing.error_code, code) << path;
        EXPECT_EQ(listing.error, std::strerror(code)) << path;
        EXPECT_TRUE(listing.entries.empty()) << path;
        EXPECT_EQ(listing.file_count + listing.dir_count, 0);
        EXPECT_EQ(listing.total_bytes, 0);
    }
}

TEST(dir_lister_read, a_folder_without_the_right_to_read_is_refused_to_an_ordinary_user) {
    const TempDir dir;
    open_way(dir);
    ASSERT_EQ(mkdir((dir / "closed").c_str(), 0755), 0);
    ASSERT_EQ(chmod((dir / "closed").c_str(), 0311), 0);
    EXPECT_EQ(read_as_ordinary_user(dir / "closed"), "Permission denied|13|0|0|0\n");
    if (geteuid() == 0) {
        EXPECT_EQ(names_of(dir_lister::read(dir / "closed", true)), Names{".."});
    }
}

TEST(dir_lister_read, entries_that_cannot_be_examined_stay_in_the_list_uncounted) {
    const TempDir dir;
    open_way(dir);
    ASSERT_EQ(mkdir((dir / "names_only").c_str(), 0755), 0);
    write_file(dir / "names_only/.hidden", "123");
    write_file(dir / "names_only/file", "123");
    ASSERT_EQ(mkdir((dir / "names_only/folder").c_str(), 0755), 0);
    ASSERT_EQ(chmod((dir / "names_only").c_str(), 0444), 0);  // may be read, not searched
    EXPECT_EQ(read_as_ordinary_user(dir / "names_only"),
              "|0|0|0|0\n"
              ".. kind=6 size=-1 owner='' link='' hidden=0 zero=1\n"
              ".hidden kind=5 size=-1 owner='' link='' hidden=1 zero=1\n"
              "file kind=5 size=-1 owner='' link='' hidden=0 zero=1\n"
              "folder kind=5 size=-1 owner='' link='' hidden=0 zero=1\n");
    ASSERT_EQ(chmod((dir / "names_only").c_str(), 0755), 0);
}

// Whether an entry's path is short enough is the kernel's word, to the byte.
TEST(dir_lister_read, a_path_too_long_for_the_kernel_leaves_its_entry_unexamined) {
    const TempDir dir;
    std::string path = dir.path();
    while (path.size() + 101 < PATH_MAX - 60) {
        path += "/" + std::string(100, 'd');
        ASSERT_EQ(mkdir(path.c_str(), 0755), 0) << std::strerror(errno);
    }
    const int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    Names names;
    for (size_t length = PATH_MAX - 4; length <= PATH_MAX + 3; ++length) {
        names.emplace_back(length - path.size() - 1, 'f');
        const int file = openat(fd, names.back().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        EXPECT_GE(file, 0);
        close(file);
    }
    for (const std::string& folder : {path, path + "/"}) {
        const Listing listing = dir_lister::read(folder, false);
        int reached = 0;
        for (const std::string& name : names) {
            struct stat st = {};
            const bool reachable = lstat((path + "/" + name).c_str(), &st) == 0;
            reached += reachable;
            EXPECT_EQ(named(listing, name).kind, reachable ? Kind::File : Kind::Special)
                << path.size() + 1 + name.size();
            EXPECT_EQ(named(listing, name).size, reachable ? 0 : -1);
        }
        EXPECT_EQ(reached, 4);
        EXPECT_EQ(listing.file_count, reached);
    }
    for (const std::string& name : names)  // or the clean-up would not reach them
        EXPECT_EQ(unlinkat(fd, name.c_str(), 0), 0);
    close(fd);
}

TEST(dir_lister_read, a_link_behind_a_folder_that_may_not_be_searched_is_broken) {
    const TempDir dir;
    open_way(dir);
    ASSERT_EQ(mkdir((dir / "closed").c_str(), 0700), 0);
    write_file(dir / "closed/file", "");
    make_link("closed/file", dir / "link");
    EXPECT_EQ(named(dir_lister::read(dir.path(), false), "link").kind, Kind::Symlink);
    ASSERT_EQ(chmod((dir / "closed").c_str(), 0), 0);
    const std::string text = read_as_ordinary_user(dir.path());
    EXPECT_NE(text.find("\nlink kind=4 size=11 "), std::string::npos) << text;
    EXPECT_NE(text.find("link='closed/file'"), std::string::npos) << text;
    ASSERT_EQ(chmod((dir / "closed").c_str(), 0700), 0);
}

TEST(dir_lister_read, falls_back_to_lstat_where_statx_is_refused) {
    REQUIRE_FRESH_PROCESS();
    const mounts_fixture::Tmpfs fs;  // with birth times, if it can be had
    const TempDir dir(fs.ok() ? fs.path() : "");
    write_file(dir / "f", "12345", 04751);
    ASSERT_EQ(mkdir((dir / "d").c_str(), 0711), 0);
    make_link("f", dir / "l");
    const Listing plain = dir_lister::read(dir.path(), false);
    REQUIRE_SHIM(SYS_statx);
    for (const int code : {ENOSYS, EPERM, EIO}) {
        shim::clear();
        shim::fail(SYS_statx, code);
        const Listing listing = dir_lister::read(dir.path(), false);
        EXPECT_GE(shim::calls(SYS_statx), 3);
        EXPECT_EQ(listing.entries.size(), plain.entries.size());
        for (const FsEntry& expected : plain.entries) {
            const FsEntry& found = named(listing, expected.name);
            EXPECT_EQ(found.kind, expected.kind) << expected.name;
            EXPECT_EQ(found.size, expected.size) << expected.name;
            EXPECT_EQ(found.mtime, expected.mtime) << expected.name;
            EXPECT_EQ(found.ctime, expected.ctime) << expected.name;
            EXPECT_EQ(found.perm, expected.perm) << expected.name;
            EXPECT_EQ(found.owner, expected.owner) << expected.name;
            EXPECT_EQ(found.group, expected.group) << expected.name;
            EXPECT_EQ(found.link_target, expected.link_target) << expected.name;
            EXPECT_EQ(found.btime, 0) << expected.name;
        }
        EXPECT_EQ(listing.file_count, 1);
        EXPECT_EQ(listing.dir_count, 1);
        EXPECT_EQ(listing.total_bytes, 5);
    }
    shim::clear();
}

TEST(dir_lister_read, opens_again_what_a_signal_interrupted) {
    REQUIRE_FRESH_PROCESS();
    const TempDir dir;
    write_file(dir / "f", "");
    REQUIRE_SHIM(SYS_openat);
    shim::fail(SYS_openat, EINTR, 1, 2, shim::path_ends(1, dir.path()));
    const Listing listing = dir_lister::read(dir.path(), false);
    shim::clear();
    EXPECT_EQ(listing.error, "");
    EXPECT_EQ(names_of(listing), (Names{"..", "f"}));
}

TEST(dir_lister_read, a_readdir_that_fails_in_the_middle_ends_a_listing_that_succeeds) {
    REQUIRE_FRESH_PROCESS();
    const TempDir dir;
    constexpr int kFiles = 400;  // with such names more than one buffer of libc's
    for (int i = 0; i < kFiles; ++i)
        write_file(dir / (std::string(200, 'n') + std::to_string(i)), "x");
    REQUIRE_SHIM(SYS_getdents64);
    shim::fail(SYS_getdents64, EIO, 2);
    const Listing listing = dir_lister::read(dir.path(), false);
    shim::clear();
    EXPECT_EQ(listing.error, "");
    EXPECT_EQ(listing.error_code, 0);
    EXPECT_GT(listing.file_count, 0);
    EXPECT_LT(listing.file_count, kFiles);
    EXPECT_EQ(listing.entries.size(), static_cast<size_t>(listing.file_count) + 1);
    EXPECT_EQ(listing.total_bytes, listing.file_count);
}

TEST(dir_lister_read, without_a_link_text_the_kind_is_still_that_of_the_target) {
    REQUIRE_FRESH_PROCESS();
    const TempDir dir;
    ASSERT_EQ(mkdir((dir / "d").c_str(), 0755), 0);
    write_file(dir / "f", "");
    make_link("d", dir / "to_d");
    make_link("f", dir / "to_f");
    REQUIRE_SHIM(SYS_readlinkat);
    shim::fail(SYS_readlinkat, EIO);
    const Listing listing = dir_lister::read(dir.path(), false);
    shim::clear();
    EXPECT_EQ(named(listing, "to_d").kind, Kind::SymlinkDir);
    EXPECT_EQ(named(listing, "to_d").link_target, "");
    EXPECT_EQ(named(listing, "to_f").kind, Kind::Symlink);
    EXPECT_EQ(named(listing, "to_f").link_target, "");
}

TEST(dir_lister_read, an_entry_that_vanishes_under_the_listing_stays_in_it_uncounted) {
    REQUIRE_FRESH_PROCESS();
    const TempDir dir;
    write_file(dir / "stays", "12");
    write_file(dir / "goes", "345");
    REQUIRE_SHIM(SYS_statx);
    shim::rule(
        SYS_statx,
        [&](const shim::Call&) {
            unlink((dir / "goes").c_str());
            return shim::go();
        },
        shim::path_ends(1, "goes"));
    const Listing listing = dir_lister::read(dir.path(), false);
    shim::clear();
    EXPECT_EQ(named(listing, "goes").kind, Kind::Special);
    EXPECT_EQ(named(listing, "goes").size, -1);
    EXPECT_EQ(named(listing, "stays").size, 2);
    EXPECT_EQ(listing.file_count, 1);
    EXPECT_EQ(listing.total_bytes, 2);
}

TEST(dir_lister_read, asks_once_per_entry_and_twice_more_for_a_link) {
    REQUIRE_FRESH_PROCESS();
    const TempDir dir;
    for (int i = 0; i < 20; ++i)
        write_file(dir / ("f" + std::to_string(i)), "");
    make_link("f1", dir / "l");
    (void)dir_lister::read(dir.path(), false);  // the names of the ids are known from here on
    REQUIRE_SHIM(SYS_statx, SYS_newfstatat, SYS_readlinkat, SYS_openat);
    (void)dir_lister::read(dir.path(), false);
    EXPECT_EQ(shim::calls(SYS_statx), 21);
    EXPECT_EQ(shim::calls(SYS_readlinkat), 1);
    EXPECT_LE(shim::calls(SYS_newfstatat), 2);  // the link's target, and libc's look in opendir
    EXPECT_EQ(shim::calls(SYS_openat), 1);
    shim::clear();
}

TEST(dir_lister_read, leaves_no_descriptor_open) {
    const TempDir dir;
    write_file(dir / "f", "");
    const int before = dup(0);
    close(before);
    for (int i = 0; i < 50; ++i) {
        (void)dir_lister::read(dir.path(), false);
        (void)dir_lister::read(dir / "f", false);
    }
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}
