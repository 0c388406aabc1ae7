// Device classes and worker counts. The kernel's own files are replaced, in the test's mount
// namespace, by ones that show the disks that this machine does not have.

#include "faultfs.h"
#include "fs_ops.h"
#include "mounts_fixture.h"
#include "shim.h"
#include "test_env.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

using fsops::classify_device;
using fsops::DeviceClass;
using fsops::threads_for;
using mounts_fixture::LoopImage;
using mounts_fixture::Tmpfs;
using test_env::TempDir;
using test_env::write_file;

namespace {

// From the table of classes: slowest first.
constexpr DeviceClass kSlowestFirst[] = {DeviceClass::Rotational, DeviceClass::Unknown,
                                         DeviceClass::Ssd,        DeviceClass::Network,
                                         DeviceClass::Nvme,       DeviceClass::Memory};

// A /sys with one disk of the given name behind path's device number, and what its rotational file
// holds; null for no such file.
class FakeSys {
  public:
    FakeSys(const std::string& path, const std::string& name, const char* rotational,
            const std::string& disk) {
        if (mount("tmpfs", "/sys", "tmpfs", 0, nullptr) != 0)
            return;
        m_mounted = true;
        const dev_t device = test_env::lstat_of(path).st_dev;
        const std::string number =
            std::to_string(major(device)) + ":" + std::to_string(minor(device));
        test_env::make_dirs("/sys/devices/pci/" + name);
        test_env::make_dirs("/sys/dev/block");
        const std::string target = "../../devices/pci/" + name;
        (void)!symlink(target.c_str(), ("/sys/dev/block/" + number).c_str());
        if (rotational) {
            test_env::make_dirs("/sys/block/" + disk + "/queue");
            write_file("/sys/block/" + disk + "/queue/rotational", rotational);
        }
    }
    ~FakeSys() {
        if (m_mounted)
            umount2("/sys", MNT_DETACH);
    }
    FakeSys(const FakeSys&) = delete;
    FakeSys& operator=(const FakeSys&) = delete;
    bool ok() const { return m_mounted; }

  private:
    bool m_mounted = false;
};

}  // namespace

// --- Tables -------------------------------------------------------------------------------------

TEST(devices, every_class_has_its_text) {
    EXPECT_STREQ(fsops::device_class_name(DeviceClass::Unknown), "unknown");
    EXPECT_STREQ(fsops::device_class_name(DeviceClass::Rotational), "rotational disk");
    EXPECT_STREQ(fsops::device_class_name(DeviceClass::Ssd), "SSD");
    EXPECT_STREQ(fsops::device_class_name(DeviceClass::Nvme), "NVMe");
    EXPECT_STREQ(fsops::device_class_name(DeviceClass::Network), "network");
    EXPECT_STREQ(fsops::device_class_name(DeviceClass::Memory), "memory");
    EXPECT_STREQ(fsops::device_class_name(static_cast<DeviceClass>(6)), "unknown");
    EXPECT_STREQ(fsops::device_class_name(static_cast<DeviceClass>(-1)), "unknown");
}

TEST(devices, the_values_are_fixed) {
    EXPECT_EQ(static_cast<int>(DeviceClass::Unknown), 0);
    EXPECT_EQ(static_cast<int>(DeviceClass::Rotational), 1);
    EXPECT_EQ(static_cast<int>(DeviceClass::Ssd), 2);
    EXPECT_EQ(static_cast<int>(DeviceClass::Nvme), 3);
    EXPECT_EQ(static_cast<int>(DeviceClass::Network), 4);
    EXPECT_EQ(static_cast<int>(DeviceClass::Memory), 5);
}

TEST(devices, each_class_has_its_count) {
    struct Row {
        DeviceClass cls;
        int cores;
        int workers;
    };
    constexpr Row kRows[] = {
        {DeviceClass::Rotational, 1, 1}, {DeviceClass::Rotational, 64, 1},
        {DeviceClass::Ssd, 1, 2},        {DeviceClass::Ssd, 2, 2},
        {DeviceClass::Ssd, 3, 3},        {DeviceClass::Ssd, 4, 4},
        {DeviceClass::Ssd, 64, 4},       {DeviceClass::Unknown, 1, 2},
        {DeviceClass::Unknown, 3, 3},    {DeviceClass::Unknown, 8, 4},
        {DeviceClass::Nvme, 1, 4},       {DeviceClass::Nvme, 4, 4},
        {DeviceClass::Nvme, 7, 7},       {DeviceClass::Nvme, 16, 16},
        {DeviceClass::Nvme, 64, 16},     {DeviceClass::Network, 1, 8},
        {DeviceClass::Network, 64, 8},   {DeviceClass::Memory, 1, 2},
        {DeviceClass::Memory, 2, 2},     {DeviceClass::Memory, 5, 5},
        {DeviceClass::Memory, 16, 16},   {DeviceClass::Memory, 64, 16},
    };
    for (const Row& row : kRows) {
        EXPECT_EQ(threads_for(row.cls, row.cls, row.cores), row.workers)
            << fsops::device_class_name(row.cls) << " on " << row.cores;
    }
}

TEST(devices, the_slower_class_decides) {
    for (const int cores : {1, 2, 3, 4, 12, 100}) {
        for (size_t slow = 0; slow < std::size(kSlowestFirst); ++slow) {
            for (size_t fast = slow; fast < std::size(kSlowestFirst); ++fast) {
                const DeviceClass a = kSlowestFirst[slow];
                const DeviceClass b = kSlowestFirst[fast];
                EXPECT_EQ(threads_for(a, b, cores), threads_for(a, a, cores));
                EXPECT_EQ(threads_for(b, a, cores), threads_for(a, a, cores));
            }
        }
    }
}

TEST(devices, a_class_out_of_range_ranks_with_unknown) {
    const auto odd = static_cast<DeviceClass>(17);
    EXPECT_EQ(threads_for(DeviceClass::Ssd, odd, 8), threads_for(odd, odd, 8));
    EXPECT_EQ(threads_for(DeviceClass::Rotational, odd, 8), 1);
    EXPECT_EQ(threads_for(DeviceClass::Memory, odd, 64), 4);
}

TEST(devices, the_pairs_that_matter) {
    EXPECT_EQ(threads_for(DeviceClass::Memory, DeviceClass::Rotational, 16), 1);
    EXPECT_EQ(threads_for(DeviceClass::Nvme, DeviceClass::Network, 16), 8);
    EXPECT_EQ(threads_for(DeviceClass::Ssd, DeviceClass::Ssd, 2), 2);
}

TEST(devices, a_requested_count_is_taken_up_to_32_and_nothing_is_classified) {
    for (const auto& [requested, expected] :
         {std::pair(1, 1), {7, 7}, {31, 31}, {32, 32}, {33, 32}, {1'000'000, 32}})
        EXPECT_EQ(fsops::recommended_threads("/no", "/where", requested), expected);
    REQUIRE_SHIM(SYS_openat, SYS_newfstatat, SYS_statx, SYS_stat);
    EXPECT_EQ(fsops::recommended_threads("/", "/tmp", 5), 5);
    EXPECT_EQ(shim::calls(SYS_openat) + shim::calls(SYS_newfstatat) + shim::calls(SYS_statx) +
                  shim::calls(SYS_stat),
              0);
}

TEST(devices, none_requested_means_automatic) {
    const Tmpfs mount;
    REQUIRE_MOUNT(mount);
    const int expected = threads_for(DeviceClass::Memory, DeviceClass::Memory, fsops::cpu_cores());
    for (const int requested : {0, -1, -100})
        EXPECT_EQ(fsops::recommended_threads(mount.path(), mount.path(), requested), expected);
}

// --- Cores --------------------------------------------------------------------------------------

TEST(devices, cores_are_those_that_this_process_may_use) {
    cpu_set_t mine;
    ASSERT_EQ(sched_getaffinity(0, sizeof mine, &mine), 0);
    EXPECT_EQ(fsops::cpu_cores(), CPU_COUNT(&mine));
    int first = 0;
    while (!CPU_ISSET(first, &mine))
        ++first;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(first, &one);
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    EXPECT_EQ(fsops::cpu_cores(), 1);
    sched_setaffinity(0, sizeof mine, &mine);
}

TEST(devices, without_an_answer_the_cores_online_count) {
    REQUIRE_SHIM(SYS_sched_getaffinity);
    shim::fail(SYS_sched_getaffinity, EINVAL);
    EXPECT_EQ(fsops::cpu_cores(), static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)));
    EXPECT_GE(fsops::cpu_cores(), 1);
    shim::clear();
}

// --- Classes ------------------------------------------------------------------------------------

TEST(devices, file_systems_in_memory) {
    const Tmpfs mount;
    REQUIRE_MOUNT(mount);
    const TempDir dir;
    ASSERT_EQ(::mount("ramfs", dir.path().c_str(), "ramfs", 0, nullptr), 0);
    EXPECT_EQ(classify_device(mount.path()), DeviceClass::Memory);
    EXPECT_EQ(classify_device(dir.path()), DeviceClass::Memory);
    // The mount is enough: the path itself need not be there.
    EXPECT_EQ(classify_device(mount / "not/there"), DeviceClass::Memory);
    umount(dir.path().c_str());
}

TEST(devices, a_fuse_mount_with_a_subtype_is_the_network_with_8_workers) {
    const faultfs::FaultFs fs;
    REQUIRE_MOUNT(fs);
    EXPECT_EQ(classify_device(fs.path()), DeviceClass::Network);
    EXPECT_EQ(classify_device(fs / "not/there"), DeviceClass::Network);
    EXPECT_EQ(fsops::recommended_threads(fs.path(), fs.path(), 0), 8);
}

TEST(devices, a_fuse_mount_without_one_is_judged_by_its_device_number) {
    faultfs::Options options;
    options.subtype = "";
    const faultfs::FaultFs fs(options);
    REQUIRE_MOUNT(fs);
    EXPECT_EQ(classify_device(fs.path()), DeviceClass::Unknown);
}

TEST(devices, no_block_device_is_unknown) {
    const LoopImage mount("btrfs");
    REQUIRE_MOUNT(mount);
    EXPECT_EQ(classify_device(mount.path()), DeviceClass::Unknown);
}

TEST(devices, a_loop_device_has_no_disk_of_its_name) {
    const LoopImage mount("ext4");
    REQUIRE_MOUNT(mount);
    // loop0 is reduced to loop.
    EXPECT_EQ(classify_device(mount.path()), DeviceClass::Unknown);
}

TEST(devices, a_path_that_is_not_there_is_unknown) {
    EXPECT_EQ(classify_device("/no/such/path"), DeviceClass::Unknown);
}

TEST(devices, the_mount_types_of_the_network) {
    const std::string why_not = mounts_fixture::enter_namespace();
    if (!why_not.empty())
        GTEST_SKIP() << why_not;
    const TempDir dir;
    std::string table = "1 0 8:1 / / rw - ext4 /dev/sda1 rw\n";
    const std::vector<std::string> network = {"nfs",       "nfs4",       "cifs",  "smb3",
                                              "smbfs",     "afs",        "9p",    "ceph",
                                              "glusterfs", "fuse.sshfs", "fuse.x"};
    const std::vector<std::string> others = {"fuse",    "fuse.", "nfs3",    "sshfs",
                                             "fuseblk", "NFS",   "overlay", "nfsd"};
    for (const std::string& type : network)
        table += "2 1 0:9 / /net/" + type + " rw - " + type + " x rw\n";
    for (const std::string& type : others)
        table += "2 1 0:9 / /other/" + type + " rw - " + type + " x rw\n";
    write_file(dir / "table", table);
    ASSERT_EQ(mount((dir / "table").c_str(), "/proc/self/mountinfo", nullptr, MS_BIND, nullptr), 0);
    for (const std::string& type : network)
        EXPECT_EQ(classify_device("/net/" + type + "/a"), DeviceClass::Network) << type;
    for (const std::string& type : others)
        EXPECT_EQ(classify_device("/other/" + type + "/a"), DeviceClass::Unknown) << type;
    umount("/proc/self/mountinfo");
}

TEST(devices, a_disk_is_known_by_its_name_and_its_rotational_file) {
    const LoopImage image("ext4");
    REQUIRE_MOUNT(image);
    struct Row {
        const char* name;
        const char* rotational;
        const char* disk;  // where the file is expected
        DeviceClass expected;
    };
    constexpr Row kRows[] = {
        {"sda1", "1\n", "sda", DeviceClass::Rotational},
        {"sda", "0\n", "sda", DeviceClass::Ssd},
        {"sda12", "1 \n\n", "sda", DeviceClass::Rotational},
        {"vda3", "0", "vda", DeviceClass::Ssd},
        {"sda1", "2\n", "sda", DeviceClass::Unknown},
        {"sda1", "", "sda", DeviceClass::Unknown},
        {"sda1", "10\n", "sda", DeviceClass::Unknown},
        {"sda1", nullptr, "", DeviceClass::Unknown},
        {"sda1", "1\n", "sda1", DeviceClass::Unknown},
        {"nvme0n1", "1\n", "nvme0n1", DeviceClass::Nvme},
        {"nvme0n1p2", nullptr, "", DeviceClass::Nvme},
        {"mmcblk0p2", "0\n", "mmcblk0", DeviceClass::Ssd},
        {"mmcblk0", "0\n", "mmcblk0", DeviceClass::Ssd},
        {"mmcblk1boot0", "0\n", "mmcblk1boot0", DeviceClass::Ssd},
        {"dm-0", "0\n", "dm-0", DeviceClass::Unknown},
        {"dm-0", "0\n", "dm-", DeviceClass::Ssd},
        {"md127", "1\n", "md", DeviceClass::Rotational},
        {"259", "1\n", "259", DeviceClass::Rotational},
    };
    for (const Row& row : kRows) {
        const FakeSys sys(image.path(), row.name, row.rotational, row.disk);
        ASSERT_TRUE(sys.ok());
        EXPECT_EQ(classify_device(image.path()), row.expected)
            << row.name << " with " << (row.rotational ? row.rotational : "nothing") << " in "
            << row.disk;
    }
    test_env::make_dirs(image / "sub");
    EXPECT_EQ(classify_device(image / "sub"), DeviceClass::Unknown);
}

TEST(devices, from_memory_to_a_spinning_disk_takes_one_worker) {
    const Tmpfs memory;
    const LoopImage image("ext4");
    REQUIRE_MOUNT(image);
    const FakeSys sys(image.path(), "sda1", "1\n", "sda");
    ASSERT_TRUE(sys.ok());
    EXPECT_EQ(fsops::recommended_threads(memory.path(), image.path(), 0), 1);
    EXPECT_EQ(fsops::recommended_threads(image.path(), memory.path(), 0), 1);
}

TEST(devices, from_nvme_to_the_network_takes_8_workers) {
    const faultfs::FaultFs network;
    const LoopImage image("ext4");
    REQUIRE_MOUNT(network);
    REQUIRE_MOUNT(image);
    const FakeSys sys(image.path(), "nvme0n1p2", nullptr, "");
    ASSERT_TRUE(sys.ok());
    EXPECT_EQ(fsops::recommended_threads(image.path(), network.path(), 0), 8);
}

TEST(devices, one_ssd_for_both_follows_the_cores) {
    const LoopImage image("ext4");
    REQUIRE_MOUNT(image);
    const FakeSys sys(image.path(), "sda1", "0\n", "sda");
    ASSERT_TRUE(sys.ok());
    const int cores = fsops::cpu_cores();
    const int expected = cores >= 4 ? 4 : cores == 3 ? 3 : 2;
    EXPECT_EQ(fsops::recommended_threads(image.path(), image.path(), 0), expected);
}
