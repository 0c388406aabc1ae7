#include "drives.h"

#include "faultfs.h"
#include "fresh_process.h"
#include "i18n.h"
#include "mounts_fixture.h"
#include "strutil.h"
#include "test_env.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <thread>
#include <unistd.h>
#include <vector>

using drives::Drive;
using drives::Kind;
using mounts::Mount;

namespace {

Mount at(const std::string& point, const std::string& fs_type = "ext4") {
    Mount mount;
    mount.point = point;
    mount.fs_type = fs_type;
    return mount;
}

const Drive* find(const std::vector<Drive>& list, const std::string& path) {
    for (const Drive& drive : list)
        if (drive.path == path)
            return &drive;
    return nullptr;
}

int count(const std::vector<Drive>& list, const std::string& path) {
    int found = 0;
    for (const Drive& drive : list)
        found += drive.path == path ? 1 : 0;
    return found;
}

Drive of_mount(const Mount& mount) {
    const std::vector<Drive> list = drives::build_skeleton({mount});
    const Drive* const found = find(list, mount.point);
    return found ? *found : Drive{};
}

std::string paths_of(const std::vector<Drive>& list) {
    std::string paths;
    for (const Drive& drive : list)
        paths += drive.path + " ";
    return paths;
}

std::string home() {
    return test_env::root() + "/home";
}

// As user-dirs.dirs of a test's own names them. GLib reads that file once per process.
void name_special_folders(const std::string& text) {
    test_env::write_file(test_env::root() + "/config/user-dirs.dirs", text);
}

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

template <class Condition>
bool wait_until(Condition condition, double seconds = 20) {
    const auto start = std::chrono::steady_clock::now();
    while (!condition()) {
        if (seconds_since(start) > seconds)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

// Starts a refresh and waits for its end.
void refresh_whole() {
    drives::refresh();
    drives::shutdown_wait(20000);
}

std::string label_of(const std::string& path) {
    const std::vector<Drive> list = drives::list();
    const Drive* const drive = find(list, path);
    return drive ? drive->label : "none";
}

int64_t total_of(const std::string& path) {
    const std::vector<Drive> list = drives::list();
    const Drive* const drive = find(list, path);
    return drive ? drive->total_bytes : -1;
}

// --- What kind a mount is, and what it is called ----------------------------------------------

TEST(Drives, the_order_of_kinds_is_that_of_the_display) {
    EXPECT_EQ(static_cast<int>(Kind::Home), 0);
    EXPECT_EQ(static_cast<int>(Kind::Bookmark), 1);
    EXPECT_EQ(static_cast<int>(Kind::Local), 2);
    EXPECT_EQ(static_cast<int>(Kind::Removable), 3);
    EXPECT_EQ(static_cast<int>(Kind::Network), 4);
    EXPECT_EQ(static_cast<int>(Kind::Root), 5);
    EXPECT_EQ(sizeof(Kind), 4U);
}

TEST(Drives, the_kind_of_a_mount_is_decided_by_the_first_rule_that_applies) {
    struct Row {
        const char* point;
        const char* fs_type;
        Kind kind;
    };
    constexpr Row kRows[] = {
        {"/", "ext4", Kind::Root},
        {"/", "nfs", Kind::Root},
        {"/srv/share", "nfs", Kind::Network},
        {"/media/al/share", "cifs", Kind::Network},
        {"/home/al/gvfs", "fuse.gvfsd-fuse", Kind::Network},
        {"/home/al/gvfs", "fuse.gvfs-of-tomorrow", Kind::Network},
        {"/media/al/STICK", "vfat", Kind::Removable},
        {"/run/media/al/STICK", "vfat", Kind::Removable},
        {"/mnt/disk", "ext4", Kind::Removable},
        {"/mnt", "ext4", Kind::Local},
        {"/media", "ext4", Kind::Local},
        {"/media2/disk", "ext4", Kind::Local},
        {"/data", "xfs", Kind::Local},
        {"/data", "fuse.faultfs", Kind::Local},
    };
    for (const Row& row : kRows)
        EXPECT_EQ(of_mount(at(row.point, row.fs_type)).kind, row.kind)
            << row.point << " " << row.fs_type;
}

TEST(Drives, the_network_types_are_not_those_that_may_hang) {
    for (const char* type : {"nfs", "nfs4", "cifs", "smb3", "smbfs", "afs", "ncpfs", "9p",
                             "fuse.sshfs", "fuse.gvfsd-fuse", "fuse.davfs", "davfs", "fuse.s3fs",
                             "fuse.rclone", "fuse.curlftpfs", "ceph", "glusterfs"})
        EXPECT_TRUE(drives::is_network_fs(type)) << type;
    for (const char* type :
         {"", "fuse", "sshfs", "ftpfs", "curlftpfs", "fuse.encfs", "nfs3", "ext4", "NFS"})
        EXPECT_FALSE(drives::is_network_fs(type)) << type;
}

TEST(Drives, type_and_read_only_come_from_the_mount) {
    Mount mount = at("/data", "iso9660");
    mount.read_only = true;
    const Drive drive = of_mount(mount);
    EXPECT_EQ(drive.fs_type, "iso9660");
    EXPECT_TRUE(drive.read_only);
    EXPECT_FALSE(of_mount(at("/data")).read_only);
}

TEST(Drives, the_root_is_named_the_others_are_called_after_their_folder) {
    EXPECT_EQ(of_mount(at("/")).label, std::string(tr("drive.system")) + " (/)");
    EXPECT_EQ(of_mount(at("/media/al/My stick")).label, "My stick");
}

TEST(Drives, a_label_of_more_than_48_bytes_is_cut_to_45_and_an_ellipsis) {
    const std::string cut = std::string(45, 'a') + "…";
    EXPECT_EQ(of_mount(at("/mnt/" + std::string(60, 'a'))).label, cut);
    EXPECT_EQ(of_mount(at("/mnt/" + std::string(49, 'a'))).label, cut);
    EXPECT_EQ(of_mount(at("/mnt/" + std::string(48, 'a'))).label, std::string(48, 'a'));
    // No character is split.
    const std::string umlauts = "xx" + std::string(44, 'a') + "ää";
    EXPECT_EQ(of_mount(at("/mnt/" + umlauts)).label, "xx" + std::string(43, 'a') + "…");
    std::string wide;
    for (int i = 0; i < 30; ++i)
        wide += "ä";
    EXPECT_EQ(of_mount(at("/mnt/" + wide)).label, wide.substr(0, 44) + "…");
}

// --- The list ---------------------------------------------------------------------------------

TEST(Drives, the_list_is_sorted_by_kind_and_keeps_the_order_within_one) {
    const std::vector<Drive> list =
        drives::build_skeleton({at("/"), at("/srv/b", "nfs"), at("/media/z"), at("/data2"),
                                at("/media/a"), at("/data1"), at("/srv/a", "cifs")});
    EXPECT_EQ(paths_of(list), home() + " /data2 /data1 /media/z /media/a /srv/b /srv/a / ");
    EXPECT_EQ(list.front().kind, Kind::Home);
    EXPECT_EQ(list.front().label, tr("drive.home"));
    EXPECT_EQ(list.front().fs_type, "");
}

TEST(Drives, a_path_is_listed_once_and_the_home_folder_beats_a_mount) {
    const std::vector<Drive> list =
        drives::build_skeleton({at(home(), "xfs"), at("/data", "ext4"), at("/data", "btrfs")});
    EXPECT_EQ(count(list, home()), 1);
    EXPECT_EQ(find(list, home())->kind, Kind::Home);
    EXPECT_EQ(count(list, "/data"), 1);
    EXPECT_EQ(find(list, "/data")->fs_type, "ext4");
}

TEST(Drives, special_folders_stand_behind_the_home_folder_in_their_order) {
    REQUIRE_FRESH_PROCESS();
    for (const char* name : {"Films", "Music", "Pictures", "Docs", "Loads", "Desk"})
        test_env::make_dirs(home() + "/" + name);
    name_special_folders("XDG_VIDEOS_DIR=\"$HOME/Films\"\nXDG_MUSIC_DIR=\"$HOME/Music\"\n"
                         "XDG_PICTURES_DIR=\"$HOME/Pictures\"\nXDG_DOCUMENTS_DIR=\"$HOME/Docs\"\n"
                         "XDG_DOWNLOAD_DIR=\"$HOME/Loads\"\nXDG_DESKTOP_DIR=\"$HOME/Desk\"\n");
    const std::vector<Drive> list = drives::build_skeleton({});
    struct Row {
        const char* name;
        const char* key;
    };
    constexpr Row kRows[] = {{"Desk", "drive.desktop"},   {"Loads", "drive.downloads"},
                             {"Docs", "drive.documents"}, {"Pictures", "drive.pictures"},
                             {"Music", "drive.music"},    {"Films", "drive.videos"}};
    ASSERT_EQ(list.size(), 1 + std::size(kRows)) << paths_of(list);
    for (size_t i = 0; i < std::size(kRows); ++i) {
        EXPECT_EQ(list[i + 1].path, home() + "/" + kRows[i].name);
        EXPECT_EQ(list[i + 1].label, tr(kRows[i].key));
        EXPECT_EQ(list[i + 1].kind, Kind::Bookmark);
        EXPECT_EQ(list[i + 1].fs_type, "");
    }
}

TEST(Drives, special_folders_that_are_missing_or_the_home_folder_are_left_out) {
    REQUIRE_FRESH_PROCESS();
    test_env::make_dirs(home() + "/Music");
    ASSERT_EQ(symlink("/nowhere", (home() + "/Pictures").c_str()), 0);
    name_special_folders("XDG_DESKTOP_DIR=\"$HOME/\"\nXDG_DOWNLOAD_DIR=\"$HOME/Missing\"\n"
                         "XDG_DOCUMENTS_DIR=\"$HOME/Music\"\nXDG_MUSIC_DIR=\"$HOME/Music\"\n"
                         "XDG_PICTURES_DIR=\"$HOME/Pictures\"\n");
    // A link is there, wherever it leads; a folder of two uses has the name of the first.
    const std::vector<Drive> list = drives::build_skeleton({});
    EXPECT_EQ(paths_of(list), home() + " " + home() + "/Music " + home() + "/Pictures ");
    EXPECT_EQ(find(list, home() + "/Music")->label, tr("drive.documents"));
}

TEST(Drives, shares_of_the_desktop_are_called_after_their_settings) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    ASSERT_TRUE(test_env::mount_tmpfs("/run/user"));
    const std::string shares = "/run/user/" + std::to_string(getuid()) + "/gvfs";
    EXPECT_EQ(paths_of(drives::build_skeleton({})), home() + " ");
    for (const char* name : {"smb-share:server=nas,share=films", "plain,name", "dav:host=a:80"})
        test_env::make_dirs(shares + "/" + name);
    const std::vector<Drive> list = drives::build_skeleton({at("/"), at("/data")});
    ASSERT_EQ(list.size(), 6U) << paths_of(list);
    EXPECT_EQ(list.back().path, "/");
    struct Row {
        const char* name;
        const char* label;
    };
    for (const Row& row : {Row{"smb-share:server=nas,share=films", "server=nas share=films"},
                           Row{"plain,name", "plain name"}, Row{"dav:host=a:80", "host=a:80"}}) {
        const Drive* const drive = find(list, shares + "/" + row.name);
        ASSERT_TRUE(drive) << row.name;
        EXPECT_EQ(drive->label, row.label);
        EXPECT_EQ(drive->kind, Kind::Network);
        EXPECT_EQ(drive->fs_type, "gvfs");
    }
}

// --- Which drive holds a path -----------------------------------------------------------------

TEST(Drives, the_longest_path_holds_and_a_name_is_held_only_whole) {
    std::vector<Drive> list(5);
    list[0].path = "/home/al";
    list[1].path = "/home/al/disk";
    list[2].path = "/home";
    list[3].path = "/";
    list[4].path = "/home/al/disk";
    const auto holder = [&](const std::string& path) -> std::string {
        const Drive* const drive = drives::holder_of(list, path);
        return drive ? drive->path : "none";
    };
    EXPECT_EQ(holder("/home/al"), "/home/al");
    EXPECT_EQ(holder("/home/al/music"), "/home/al");
    EXPECT_EQ(holder("/home/al/disk/x"), "/home/al/disk");
    EXPECT_EQ(holder("/home/alice"), "/home");
    EXPECT_EQ(holder("/homes"), "/");
    EXPECT_EQ(holder("/"), "/");
    EXPECT_EQ(drives::holder_of(list, "/home/al/disk"), &list[1]) << "of equal ones the first";
    list.erase(list.begin() + 3);
    EXPECT_EQ(holder("/etc"), "none");
    EXPECT_EQ(drives::holder_of({}, "/"), nullptr);
}

TEST(Drives, a_mount_inside_the_home_folder_is_what_holds_a_path_inside_it) {
    REQUIRE_FRESH_PROCESS();
    const mounts_fixture::LoopImage disk("ext4");
    REQUIRE_MOUNT(disk);
    setenv("HOME", su::parent_of(disk.path()).c_str(), 1);
    refresh_whole();
    EXPECT_EQ(drives::label_for_path(disk / "a/b"), "m");
    EXPECT_EQ(drives::label_for_path(disk.path()), "m");
    EXPECT_EQ(drives::label_for_path(disk.path() + "ore"), tr("drive.home"));
    EXPECT_EQ(drives::label_for_path(su::parent_of(disk.path()) + "/x"), tr("drive.home"));
    EXPECT_EQ(drives::label_for_path("/etc"), std::string(tr("drive.system")) + " (/)");
}

TEST(Drives, there_is_no_label_before_the_list_is_filled) {
    REQUIRE_FRESH_PROCESS();
    EXPECT_EQ(drives::label_for_path("/"), "");
}

// --- Refreshing -------------------------------------------------------------------------------

TEST(Drives, the_first_list_has_names_without_sizes) {
    REQUIRE_FRESH_PROCESS();
    const std::vector<Drive> list = drives::list();
    ASSERT_FALSE(list.empty());
    EXPECT_EQ(list.front().path, home());
    EXPECT_EQ(list.front().kind, Kind::Home);
    for (const Drive& drive : list) {
        EXPECT_EQ(drive.total_bytes, 0) << drive.path;
        EXPECT_EQ(drive.free_bytes, 0) << drive.path;
    }
}

TEST(Drives, a_refresh_takes_sizes_from_the_file_system) {
    REQUIRE_FRESH_PROCESS();
    const mounts_fixture::LoopImage disk("ext4");
    REQUIRE_MOUNT(disk);
    drives::init();
    drives::shutdown_wait(20000);
    const std::vector<Drive> list = drives::list();
    const Drive* const drive = find(list, disk.path());
    ASSERT_TRUE(drive) << paths_of(list);
    struct statvfs vfs = {};
    ASSERT_EQ(statvfs(disk.path().c_str(), &vfs), 0);
    EXPECT_EQ(drive->total_bytes, static_cast<int64_t>(vfs.f_frsize * vfs.f_blocks));
    EXPECT_EQ(drive->free_bytes, static_cast<int64_t>(vfs.f_frsize * vfs.f_bavail));
    EXPECT_NE(vfs.f_bavail, vfs.f_bfree) << "what root keeps for itself is not free";
    EXPECT_EQ(drive->fs_type, "ext4");
}

TEST(Drives, a_disk_plugged_in_later_appears_with_a_refresh_and_goes_with_one) {
    REQUIRE_FRESH_PROCESS();
    ASSERT_EQ(mounts_fixture::enter_namespace(), "");
    refresh_whole();
    static_cast<void>(mounts::all());
    mounts_fixture::LoopImage stick("ext4");
    REQUIRE_MOUNT(stick);
    EXPECT_EQ(label_of(stick.path()), "none");
    refresh_whole();
    EXPECT_EQ(label_of(stick.path()), "m");
    EXPECT_GT(total_of(stick.path()), 0);
    EXPECT_EQ(mounts::for_path(stick.path())->point, "/") << "the snapshot stays";
    stick.unmount();
    refresh_whole();
    EXPECT_EQ(label_of(stick.path()), "none");
}

TEST(Drives, a_drive_that_cannot_tell_its_size_stays_with_zeros) {
    REQUIRE_FRESH_PROCESS();
    faultfs::FaultFs disk;
    REQUIRE_MOUNT(disk);
    refresh_whole();
    ASSERT_GT(total_of(disk.path()), 0);
    disk.set(faultfs::fail("statfs", EIO));
    refresh_whole();
    EXPECT_EQ(label_of(disk.path()), "m");
    EXPECT_EQ(total_of(disk.path()), 0);
}

// The first of two disks hangs, so that everything behind it would wait.
TEST(Drives, a_disk_that_hangs_delays_nothing_but_its_size) {
    REQUIRE_FRESH_PROCESS();
    faultfs::FaultFs dead;
    REQUIRE_MOUNT(dead);
    const mounts_fixture::LoopImage alive("ext4");
    REQUIRE_MOUNT(alive);
    dead.set(faultfs::stall("statfs", 1, -1));
    drives::refresh();
    ASSERT_TRUE(dead.wait_stalled(1));
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(label_of(dead.path()), "m");
    EXPECT_EQ(label_of(alive.path()), "m");
    EXPECT_EQ(drives::label_for_path(dead / "x"), "m");
    EXPECT_LT(seconds_since(start), 0.2);
    EXPECT_TRUE(wait_until([&] { return total_of(alive.path()) > 0; }));
    EXPECT_EQ(total_of(dead.path()), 0);

    drives::shutdown_wait(20000);
    const mounts_fixture::LoopImage later("ext4");
    REQUIRE_MOUNT(later);
    start = std::chrono::steady_clock::now();
    refresh_whole();
    EXPECT_LT(seconds_since(start), 0.9) << "the dead disk is not waited for again";
    EXPECT_EQ(label_of(later.path()), "m");
    EXPECT_GT(total_of(later.path()), 0);
    EXPECT_EQ(dead.calls("statfs"), 1) << "no second thread hangs";
    EXPECT_EQ(total_of(dead.path()), 0);

    dead.release();
    EXPECT_TRUE(wait_until([&] { return total_of(dead.path()) > 0; })) << "late, but there";
}

TEST(Drives, a_refresh_during_a_refresh_does_nothing_and_queues_none) {
    REQUIRE_FRESH_PROCESS();
    faultfs::FaultFs slow;
    REQUIRE_MOUNT(slow);
    slow.set(faultfs::stall("statfs", 1, -1));
    drives::refresh();
    ASSERT_TRUE(slow.wait_stalled(1));
    for (int i = 0; i < 5; ++i)
        drives::refresh();
    slow.release();
    drives::shutdown_wait(20000);
    ASSERT_TRUE(wait_until([&] { return total_of(slow.path()) > 0; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(slow.calls("statfs"), 1);
}

TEST(Drives, the_end_waits_for_a_refresh_but_not_longer_than_it_is_told) {
    REQUIRE_FRESH_PROCESS();
    faultfs::FaultFs slow;
    REQUIRE_MOUNT(slow);
    slow.set(faultfs::stall("statfs", 1, -1));
    drives::refresh();
    ASSERT_TRUE(slow.wait_stalled(1));
    auto start = std::chrono::steady_clock::now();
    drives::shutdown_wait(0);
    drives::shutdown_wait(-1);
    EXPECT_LT(seconds_since(start), 0.005);
    drives::shutdown_wait(500);
    EXPECT_GT(seconds_since(start), 0.45);
    EXPECT_LT(seconds_since(start), 0.9);
    slow.release();
    start = std::chrono::steady_clock::now();
    drives::shutdown_wait(20000);
    EXPECT_LT(seconds_since(start), 5);
    start = std::chrono::steady_clock::now();
    drives::shutdown_wait(20000);
    EXPECT_LT(seconds_since(start), 0.005) << "nothing runs";
}

}  // namespace
