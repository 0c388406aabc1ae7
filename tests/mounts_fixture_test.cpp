#include "mounts_fixture.h"

#include <gtest/gtest.h>
#include <sys/statvfs.h>
#include <unistd.h>

using mounts_fixture::Bind;
using mounts_fixture::LoopImage;
using mounts_fixture::Tmpfs;

namespace {

std::string type_of(const std::string& path) {
    std::string type;
    test_env::run("findmnt -n -o FSTYPE --target '" + path + "'", &type);
    return type;
}

}  // namespace

TEST(mounts_fixture, a_tmpfs_has_the_size_asked_for_and_goes_with_the_object) {
    std::string point;
    {
        const Tmpfs mount("size=16m");
        REQUIRE_MOUNT(mount);
        point = mount.path();
        EXPECT_EQ(type_of(point), "tmpfs\n");
        struct statvfs space = {};
        ASSERT_EQ(statvfs(point.c_str(), &space), 0);
        EXPECT_EQ(space.f_blocks * space.f_frsize, 16U << 20);
        test_env::write_file(mount / "file", "content");
    }
    EXPECT_FALSE(test_env::exists(point));
}

TEST(mounts_fixture, nothing_is_seen_from_outside_the_test) {
    const Tmpfs mount;
    REQUIRE_MOUNT(mount);
    const std::string parent = std::to_string(getppid());
    EXPECT_NE(test_env::run("grep -q ' " + mount.path() + " ' /proc/" + parent + "/mountinfo"), 0);
}

TEST(mounts_fixture, loop_images_of_three_kinds) {
    for (const char* kind : {"ext4", "xfs", "btrfs"}) {
        const LoopImage mount(kind);
        REQUIRE_MOUNT(mount);
        EXPECT_EQ(type_of(mount.path()), std::string(kind) + "\n");
        test_env::write_file(mount / "file", test_env::pattern(100'000));
        if (std::string(kind) != "ext4") {
            EXPECT_EQ(test_env::run("cp --reflink=always '" + mount / "file" + "' '" +
                                    mount / "clone" + "'"),
                      0);
        }
    }
    std::string loops;
    test_env::run("losetup -l -n -O BACK-FILE", &loops);
    EXPECT_EQ(loops.find(test_env::root()), std::string::npos) << loops;
}

TEST(mounts_fixture, a_bind_mount_shows_the_same_files) {
    const test_env::TempDir dir;
    test_env::write_file(dir / "file", "content");
    const Bind mount(dir.path());
    REQUIRE_MOUNT(mount);
    EXPECT_EQ(test_env::lstat_of(mount / "file").st_ino, test_env::lstat_of(dir / "file").st_ino);
}
