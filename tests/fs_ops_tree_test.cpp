#include "fs_ops.h"

#include "as_user.h"
#include "faultfs.h"
#include "mounts_fixture.h"
#include "shim.h"
#include "test_env.h"
#include "tree.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits>
#include <sys/resource.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

using test_env::exists;
using test_env::make_dirs;
using test_env::TempDir;
using test_env::write_file;

namespace {

constexpr const char* kMountPoint = "this folder is a mount point";

std::string text(const std::string& path, int code) {
    return path + ": " + std::strerror(code);
}

fsops::TreeSize measure(const std::string& path) {
    return fsops::measure_tree(path, {}, {});
}

// What a process may have open; the tree helpers of the test keep one for each level.
void set_file_limit(rlim_t most) {
    struct rlimit files = {};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = std::min(most, files.rlim_max);
    setrlimit(RLIMIT_NOFILE, &files);
}

struct Removal {
    std::string error;
    int removed = 0;
};

Removal remove(const std::string& path) {
    Removal result;
    result.error = fsops::remove_recursive(path, [&] { ++result.removed; });
    return result;
}

using Totals = std::tuple<int64_t, int64_t, int64_t>;  // bytes, files, dirs

}  // namespace

// --- Measuring ----------------------------------------------------------------------------------

TEST(fs_ops_tree, measures_single_entries) {
    const TempDir dir;
    write_file(dir / "file", "12345");
    ASSERT_EQ(symlink("file", (dir / "link").c_str()), 0);
    ASSERT_EQ(symlink(dir.path().c_str(), (dir / "folder-link").c_str()), 0);
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0644), 0);
    EXPECT_EQ(measure(dir / "file").bytes, 5);
    EXPECT_EQ(measure(dir / "file").files, 1);
    EXPECT_EQ(measure(dir / "file").dirs, 0);
    for (const char* name : {"link", "folder-link", "fifo"}) {
        EXPECT_EQ(measure(dir / name).bytes, 0) << name;
        EXPECT_EQ(measure(dir / name).files, 1) << name;
        EXPECT_EQ(measure(dir / name).dirs, 0) << name;
    }
    const fsops::TreeSize none = measure(dir / "missing");
    EXPECT_EQ(none.bytes + none.files + none.dirs + none.unreadable, 0);
}

TEST(fs_ops_tree, measures_whole_trees_without_following_links) {
    const TempDir dir;
    make_dirs(dir / "a/b/c");
    make_dirs(dir / "empty");
    write_file(dir / "one", "1");
    write_file(dir / "a/two", "22");
    write_file(dir / "a/b/c/three", "333");
    ASSERT_EQ(link((dir / "a/two").c_str(), (dir / "a/b/twin").c_str()), 0);
    ASSERT_EQ(symlink("/usr", (dir / "a/away").c_str()), 0);
    ASSERT_EQ(symlink("..", (dir / "a/loop").c_str()), 0);
    for (int round = 0; round < 2; ++round) {
        const fsops::TreeSize size = measure(dir.path());
        EXPECT_EQ(size.bytes, 1 + 2 + 2 + 3);
        EXPECT_EQ(size.files, 6);
        EXPECT_EQ(size.dirs, 5);
        EXPECT_EQ(size.unreadable, 0);
    }
}

// Sparse files may be of any size, and two of the largest are more than a number holds.
TEST(fs_ops_tree, a_sum_of_sizes_ends_at_the_largest_number) {
    const mounts_fixture::Tmpfs mount;
    REQUIRE_MOUNT(mount);
    constexpr int64_t kMost = std::numeric_limits<int64_t>::max();
    make_dirs(mount / "tree");
    for (const char* name : {"tree/a", "tree/b", "tree/c"}) {
        write_file(mount / name, "");
        ASSERT_EQ(truncate((mount / name).c_str(), kMost), 0) << std::strerror(errno);
    }
    EXPECT_EQ(measure(mount / "tree").bytes, kMost);
    EXPECT_EQ(measure(mount / "tree").files, 3);
}

TEST(fs_ops_tree, folders_without_rights_are_counted_as_unreadable) {
    const TempDir dir;
    as_user::give(dir.path());
    EXPECT_TRUE(as_user::run([&] {
        make_dirs(dir / "open");
        make_dirs(dir / "closed");
        write_file(dir / "closed/file", "12345");
        write_file(dir / "open/file", "123");
        chmod((dir / "closed").c_str(), 0);
        const fsops::TreeSize size = measure(dir.path());
        chmod((dir / "closed").c_str(), 0700);
        EXPECT_EQ(size.bytes, 3);
        EXPECT_EQ(size.files, 1);
        EXPECT_EQ(size.dirs, 3);
        EXPECT_EQ(size.unreadable, 1);
    }));
}

TEST(fs_ops_tree, keep_going_ends_the_measuring) {
    const TempDir dir;
    for (int folder = 0; folder < 5; ++folder) {
        const std::string path = dir / std::to_string(folder);
        make_dirs(path);
        for (int file = 0; file < 20; ++file)
            write_file(path + "/" + std::to_string(file), "x");
    }
    const fsops::TreeSize none = fsops::measure_tree(dir.path(), [] { return false; }, {});
    EXPECT_EQ(none.dirs, 1);
    EXPECT_EQ(none.files, 0);
    int asked = 0;
    const auto up_to_thirty = [&] { return ++asked <= 30; };
    const fsops::TreeSize some = fsops::measure_tree(dir.path(), up_to_thirty, {});
    EXPECT_GT(some.files, 10);
    EXPECT_LE(some.files, 30);
    // Every folder up the stack asks once more and ends too.
    EXPECT_LE(asked, 30 + 3);
    int calls = 0;
    (void)fsops::measure_tree(dir.path(),
                              [&] {
                                  ++calls;
                                  return true;
                              },
                              {});
    EXPECT_GE(calls, 105);
}

TEST(fs_ops_tree, progress_comes_every_64_names_and_at_each_folders_end) {
    const TempDir dir;
    for (const auto& [files, calls] : {std::pair(0, 1), {60, 1}, {64, 2}, {200, 4}}) {
        const std::string path = dir / std::to_string(files);
        make_dirs(path);
        for (int i = 0; i < files; ++i)
            write_file(path + "/" + std::to_string(i), "xy");
        std::vector<Totals> seen;
        (void)fsops::measure_tree(path, {}, [&](int64_t bytes, int64_t count, int64_t dirs) {
            seen.emplace_back(bytes, count, dirs);
        });
        EXPECT_EQ(seen.size(), static_cast<size_t>(calls)) << files;
        EXPECT_EQ(seen.back(), Totals(2 * files, files, 1)) << files;
    }
}

TEST(fs_ops_tree, progress_sees_the_whole_tree_so_far) {
    const TempDir dir;
    make_dirs(dir / "a/b");
    for (const char* name : {"one", "a/two", "a/b/three"})
        write_file(dir / name, "1234");
    std::vector<Totals> seen;
    const fsops::TreeSize size =
        fsops::measure_tree(dir.path(), {}, [&](int64_t bytes, int64_t files, int64_t dirs) {
            seen.emplace_back(bytes, files, dirs);
        });
    ASSERT_EQ(seen.size(), 3U);  // at the end of b, a and the root
    EXPECT_EQ(std::get<2>(seen[0]), 3);
    EXPECT_GE(std::get<1>(seen[1]), 2);
    EXPECT_EQ(seen[2], Totals(size.bytes, size.files, size.dirs));
    EXPECT_EQ(seen[2], Totals(12, 3, 3));
    // The next measurement begins at nothing.
    seen.clear();
    (void)fsops::measure_tree(dir / "a/b", {}, [&](int64_t bytes, int64_t files, int64_t dirs) {
        seen.emplace_back(bytes, files, dirs);
    });
    EXPECT_EQ(seen.back(), Totals(4, 1, 1));
}

TEST(fs_ops_tree, two_thousand_levels_are_measured_and_removed) {
    for (const char* name : {"d", "a-name-that-makes-the-path-longer-than-any-path"}) {
        const TempDir dir;
        tree::build_deep(dir.path(), 2000, name);
        // Fewer files than the tree has levels.
        set_file_limit(256);
        const fsops::TreeSize size = measure(dir.path());
        EXPECT_EQ(size.dirs, 2001) << name;
        EXPECT_EQ(size.files, 1) << name;
        EXPECT_EQ(size.bytes, 4) << name;
        EXPECT_EQ(size.unreadable, 0) << name;
        const Removal removal = remove(dir / name);
        EXPECT_EQ(removal.error, "") << name;
        EXPECT_EQ(removal.removed, 2001) << name;
        EXPECT_FALSE(exists(dir / name));
        set_file_limit(RLIM_INFINITY);
        tree::remove_deep(dir.path());
    }
}

// --- Removing -----------------------------------------------------------------------------------

TEST(fs_ops_tree, removes_single_entries_and_never_what_a_link_points_to) {
    const TempDir dir;
    make_dirs(dir / "kept");
    write_file(dir / "kept/file", "x");
    write_file(dir / "file", "x");
    ASSERT_EQ(symlink("kept", (dir / "link").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", (dir / "dangling").c_str()), 0);
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0644), 0);
    for (const char* name : {"file", "link", "dangling", "fifo"}) {
        const Removal removal = remove(dir / name);
        EXPECT_EQ(removal.error, "") << name;
        EXPECT_EQ(removal.removed, 1) << name;
        EXPECT_FALSE(exists(dir / name)) << name;
    }
    EXPECT_TRUE(exists(dir / "kept/file"));
    EXPECT_EQ(fsops::remove_recursive(dir / "kept", {}), "");
    EXPECT_FALSE(exists(dir / "kept"));
}

TEST(fs_ops_tree, what_is_not_there_cannot_be_removed) {
    const TempDir dir;
    const Removal removal = remove(dir / "missing");
    EXPECT_EQ(removal.error, text(dir / "missing", ENOENT));
    EXPECT_EQ(fsops::last_error_code(), ENOENT);
    EXPECT_EQ(removal.removed, 0);
}

TEST(fs_ops_tree, removes_a_whole_tree_and_tells_each_entry) {
    const TempDir dir;
    tree::Shape shape;
    shape.folders = 10;
    shape.files = 40;
    shape.hard_links = 3;
    shape.fifos = 2;
    shape.hostile_names = true;
    shape.folder_modes = true;
    make_dirs(dir / "tree");
    make_dirs(dir / "outside");
    write_file(dir / "outside/file", "x");
    tree::build(dir / "tree", 3, shape);
    ASSERT_EQ(symlink("../outside", (dir / "tree/away").c_str()), 0);
    const int entries = static_cast<int>(tree::snapshot(dir / "tree").size());
    const Removal removal = remove(dir / "tree");
    EXPECT_EQ(removal.error, "");
    EXPECT_EQ(removal.removed, entries + 1);
    EXPECT_FALSE(exists(dir / "tree"));
    EXPECT_TRUE(exists(dir / "outside/file"));
}

TEST(fs_ops_tree, a_failing_entry_stops_nothing_and_its_error_is_the_result) {
    faultfs::FaultFs fs;
    REQUIRE_MOUNT(fs);
    make_dirs(fs / "tree/a/b");
    for (const char* name : {"tree/1", "tree/a/2", "tree/a/b/stays", "tree/a/b/3"})
        write_file(fs / name, "x");
    fs.set(faultfs::fail("unlink", EACCES, 1, -1, "stays"));
    const Removal removal = remove(fs / "tree");
    // The folders above are not empty, which is not the error to tell.
    EXPECT_EQ(removal.error, text(fs / "tree/a/b/stays", EACCES));
    EXPECT_EQ(removal.removed, 3);
    const tree::Snapshot left = tree::snapshot(fs / "tree");
    EXPECT_EQ(left.size(), 3U);
    EXPECT_TRUE(left.contains("a/b/stays"));
}

TEST(fs_ops_tree, a_folder_that_cannot_be_removed_is_not_told_as_removed) {
    faultfs::FaultFs fs;
    REQUIRE_MOUNT(fs);
    make_dirs(fs / "tree/a");
    write_file(fs / "tree/a/1", "x");
    fs.set(faultfs::fail("rmdir", EBUSY, 1, -1, "a"));
    const Removal removal = remove(fs / "tree");
    EXPECT_EQ(removal.error, text(fs / "tree/a", EBUSY));
    EXPECT_EQ(removal.removed, 1);
}

TEST(fs_ops_tree, an_ordinary_user_removes_what_the_rights_let_go) {
    const TempDir dir;
    as_user::give(dir.path());
    EXPECT_TRUE(as_user::run([&] {
        make_dirs(dir / "tree/fixed");
        make_dirs(dir / "tree/closed");
        write_file(dir / "tree/fixed/file", "x");
        write_file(dir / "tree/plain", "x");
        chmod((dir / "tree/fixed").c_str(), 0555);
        chmod((dir / "tree/closed").c_str(), 0);
        const Removal removal = remove(dir / "tree");
        EXPECT_TRUE(removal.error == text(dir / "tree/fixed/file", EACCES) ||
                    removal.error == text(dir / "tree/closed", EACCES))
            << removal.error;
        EXPECT_EQ(removal.removed, 1);
        EXPECT_FALSE(exists(dir / "tree/plain"));
        EXPECT_TRUE(exists(dir / "tree/fixed/file"));
        chmod((dir / "tree/fixed").c_str(), 0755);
        chmod((dir / "tree/closed").c_str(), 0755);
        EXPECT_EQ(remove(dir / "tree").error, "");
    }));
}

TEST(fs_ops_tree, keep_going_ends_the_removing) {
    const TempDir dir;
    make_dirs(dir / "tree/sub");
    for (int i = 0; i < 50; ++i) {
        write_file(dir / "tree/" + std::to_string(i), "");
        write_file(dir / "tree/sub/" + std::to_string(i), "");
    }
    int removed = 0;
    (void)fsops::remove_recursive(
        dir / "tree", [&] { ++removed; }, [&] { return removed < 20; });
    EXPECT_GE(removed, 20);
    EXPECT_LE(removed, 21);
    EXPECT_TRUE(exists(dir / "tree"));
    removed = 0;
    (void)fsops::remove_recursive(
        dir / "tree", [&] { ++removed; }, [] { return false; });
    EXPECT_EQ(removed, 0);
}

TEST(fs_ops_tree, a_mount_point_is_not_entered_and_the_rest_goes) {
    const TempDir dir;
    const TempDir elsewhere;
    write_file(elsewhere / "file", "x");
    make_dirs(dir / "tree/a/bound");
    make_dirs(dir / "tree/b");
    write_file(dir / "tree/b/file", "x");
    write_file(dir / "tree/a/file", "x");
    // Of the same device, so that device numbers do not tell.
    const mounts_fixture::Bind bind(elsewhere.path(), dir / "tree/a/bound");
    REQUIRE_MOUNT(bind);
    const Removal removal = remove(dir / "tree");
    EXPECT_NE(removal.error.find(kMountPoint), std::string::npos) << removal.error;
    EXPECT_EQ(removal.removed, 3);
    EXPECT_TRUE(exists(elsewhere / "file"));
    EXPECT_FALSE(exists(dir / "tree/b"));
    EXPECT_FALSE(exists(dir / "tree/a/file"));
}

TEST(fs_ops_tree, another_file_system_is_not_entered_either) {
    const mounts_fixture::Tmpfs inner;
    REQUIRE_MOUNT(inner);
    write_file(inner / "file", "x");
    const TempDir dir;
    make_dirs(dir / "tree/inner");
    const mounts_fixture::Bind bind(inner.path(), dir / "tree/inner");
    REQUIRE_MOUNT(bind);
    const Removal removal = remove(dir / "tree");
    EXPECT_NE(removal.error.find(kMountPoint), std::string::npos) << removal.error;
    EXPECT_EQ(removal.removed, 0);
    EXPECT_TRUE(exists(inner / "file"));
    // Nor is it when it is named itself.
    const Removal root = remove(dir / "tree/inner");
    EXPECT_NE(root.error.find(kMountPoint), std::string::npos) << root.error;
    EXPECT_EQ(root.removed, 0);
    EXPECT_TRUE(exists(inner / "file"));
}

// A sandbox may forbid the call that knows mount points. The device still tells.
TEST(fs_ops_tree, another_file_system_is_not_entered_where_statx_is_refused) {
    REQUIRE_SHIM(SYS_statx);
    const mounts_fixture::Tmpfs inner;
    REQUIRE_MOUNT(inner);
    write_file(inner / "file", "x");
    const TempDir dir;
    make_dirs(dir / "tree/inner");
    const mounts_fixture::Bind bind(inner.path(), dir / "tree/inner");
    REQUIRE_MOUNT(bind);
    shim::fail(SYS_statx, EPERM);
    const Removal removal = remove(dir / "tree");
    shim::clear();
    EXPECT_NE(removal.error.find(kMountPoint), std::string::npos) << removal.error;
    EXPECT_EQ(removal.removed, 0);
    EXPECT_TRUE(exists(inner / "file"));
}

TEST(fs_ops_tree, a_folder_swapped_for_a_link_in_between_is_not_followed) {
    REQUIRE_SHIM(SYS_openat, SYS_openat2);
    const TempDir dir;
    make_dirs(dir / "outside");
    write_file(dir / "outside/file", "x");
    make_dirs(dir / "tree/sub");
    write_file(dir / "tree/sub/file", "x");
    bool swapped = false;
    for (const long number : {SYS_openat, SYS_openat2}) {
        shim::rule(
            number,
            [&](const shim::Call&) {
                if (!swapped) {
                    rename((dir / "tree/sub").c_str(), (dir / "sub").c_str());
                    (void)!symlink("../outside", (dir / "tree/sub").c_str());
                    swapped = true;
                }
                return shim::go();
            },
            shim::path_ends(1, "sub"));
    }
    (void)remove(dir / "tree");
    shim::clear();
    EXPECT_TRUE(swapped);
    EXPECT_TRUE(exists(dir / "outside/file"));
    EXPECT_TRUE(exists(dir / "sub/file"));
}
