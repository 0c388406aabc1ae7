#include "mounts.h"

#include "fresh_process.h"
#include "test_env.h"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <vector>

using mounts::Mount;

namespace {

std::vector<Mount> parse(const std::string& text) {
    std::istringstream in(text);
    return mounts::parse_mountinfo(in);
}

Mount at(const std::string& point, const std::string& source = "none",
         const std::string& fs_type = "ext4") {
    Mount mount;
    mount.point = point;
    mount.fs_type = fs_type;
    mount.source = source;
    return mount;
}

// The points of what scannable_roots_of() lets through, each followed by a blank.
std::string roots_of(const std::vector<Mount>& table) {
    std::string points;
    for (const Mount& mount : mounts::scannable_roots_of(table))
        points += mount.point + " ";
    return points;
}

std::string point_for(const std::vector<Mount>& table, const std::string& path) {
    const Mount* mount = mounts::lookup(table, path);
    return mount ? mount->point : "none";
}

const std::string kHostFs = "/var/lib/snapd/hostfs";

bool make_hostfs() {
    return test_env::mount_tmpfs("/var/lib") && mkdir("/var/lib/snapd", 0755) == 0 &&
           mkdir(kHostFs.c_str(), 0755) == 0;
}

void become_snap() {
    setenv("SNAP", "/snap/ferrodeck/1", 1);
    setenv("SNAP_NAME", "ferrodeck", 1);
    setenv("SNAP_REAL_HOME", "/home/al", 1);
}

std::string type_and_source(const Mount* mount) {
    return mount ? mount->fs_type + " " + mount->source : "none";
}

}  // namespace

// ---- the table's lines ----

TEST(Mounts, a_line_gives_point_type_source_and_read_only) {
    const std::vector<Mount> table =
        parse("36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root rw,errors=continue\n"
              "37 35 98:1 / /ro ro,relatime - squashfs /dev/loop3 rw\n");
    ASSERT_EQ(table.size(), 2U);
    EXPECT_EQ(table[0].point, "/mnt2");
    EXPECT_EQ(table[0].fs_type, "ext3");
    EXPECT_EQ(table[0].source, "/dev/root");
    EXPECT_FALSE(table[0].read_only);
    EXPECT_EQ(table[1].point, "/ro");
    EXPECT_EQ(table[1].fs_type, "squashfs");
    EXPECT_EQ(table[1].source, "/dev/loop3");
    EXPECT_TRUE(table[1].read_only);
}

TEST(Mounts, optional_fields_change_nothing_because_the_separator_is_looked_for) {
    for (const std::string optional : {"", "shared:1 ", "shared:1 master:2 propagate_from:3 "}) {
        const std::vector<Mount> table =
            parse("1 2 0:3 / /data rw " + optional + "- ext4 /dev/sda1 rw\n");
        ASSERT_EQ(table.size(), 1U) << optional;
        EXPECT_EQ(table[0].point, "/data");
        EXPECT_EQ(table[0].fs_type, "ext4");
        EXPECT_EQ(table[0].source, "/dev/sda1");
    }
}

TEST(Mounts, a_separator_too_early_or_missing_makes_the_line_unusable) {
    for (const char* line : {
             "",
             "\n",
             "- ext4 /dev/sda1\n",
             "1 2 0:3 / /data - ext4 /dev/sda1 rw\n",  // five fields before it
             "1 2 0:3 / /data rw ext4 /dev/sda1 rw\n",
             "1 2 0:3 / /data rw -ext4 /dev/sda1 rw\n",
             "1 2 0:3 / /data rw - ext4\n",
             "1 2 0:3 / /data rw -\n",
             "1 2 0:3 / /data rw",
         })
        EXPECT_TRUE(parse(line).empty()) << line;
}

TEST(Mounts, unusable_lines_cost_no_others) {
    const std::vector<Mount> table = parse("1 2 0:3 / /a rw - ext4 /dev/a\n"
                                           "broken\n"
                                           "\n"
                                           "1 2 0:3 / /b rw - ext4 /dev/b");
    ASSERT_EQ(table.size(), 2U);
    EXPECT_EQ(table[0].point, "/a");
    EXPECT_EQ(table[1].point, "/b");
}

TEST(Mounts, only_the_first_lone_dash_separates) {
    const std::vector<Mount> table = parse("1 2 0:3 / /a rw - fuse.x - rw\n"
                                           "1 2 0:3 / /- rw - ext4 -x\n");
    ASSERT_EQ(table.size(), 2U);
    EXPECT_EQ(table[1].point, "/-");
    EXPECT_EQ(table[1].source, "-x");
    EXPECT_EQ(table[0].fs_type, "fuse.x");
    EXPECT_EQ(table[0].source, "-");
}

TEST(Mounts, fields_are_split_at_any_white_space) {
    const std::vector<Mount> table = parse(" 1\t2  0:3 / \t/a  ro   -  ext4\t/dev/a \r\n");
    ASSERT_EQ(table.size(), 1U);
    EXPECT_EQ(table[0].point, "/a");
    EXPECT_EQ(table[0].source, "/dev/a");
    EXPECT_TRUE(table[0].read_only);
}

TEST(Mounts, read_only_is_the_first_option_of_the_mount_itself) {
    const auto read_only = [](const std::string& options, const std::string& super = "rw") {
        const std::vector<Mount> table =
            parse("1 2 0:3 / /a " + options + " - ext4 /dev/a " + super + "\n");
        return table.size() == 1 && table[0].read_only;
    };
    EXPECT_TRUE(read_only("ro"));
    EXPECT_TRUE(read_only("ro,nosuid"));
    EXPECT_FALSE(read_only("rw"));
    EXPECT_FALSE(read_only("rw,ro"));
    EXPECT_FALSE(read_only("root"));
    EXPECT_FALSE(read_only("rox,ro"));
    EXPECT_FALSE(read_only("rw", "ro"));  // of the file system, not of this mount
}

TEST(Mounts, point_and_source_are_unescaped_and_the_type_is_not) {
    const std::vector<Mount> table =
        parse("1 2 0:3 / /media/al/My\\040Stick rw - e\\040x //nas/a\\040b rw\n");
    ASSERT_EQ(table.size(), 1U);
    EXPECT_EQ(table[0].point, "/media/al/My Stick");
    EXPECT_EQ(table[0].source, "//nas/a b");
    EXPECT_EQ(table[0].fs_type, "e\\040x");
}

TEST(Mounts, unescape_takes_a_backslash_and_three_octal_digits) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", ""},
        {"plain", "plain"},
        {"a\\040b", "a b"},
        {"\\011", "\t"},
        {"\\012", "\n"},
        {"\\134", "\\"},
        {"\\134040", "\\040"},  // what comes out is not looked at again
        {"\\040\\040", "  "},
        {"\\0401", " 1"},
        {"\\101", "A"},  // any value, not only what the kernel writes
        {"\\377", "\xFF"},
        {"\\303\\244", "\xC3\xA4"},
        {"\\08", "\\08"},
        {"\\048", "\\048"},  // 8 is no octal digit
        {"\\800", "\\800"},
        {"\\0a0", "\\0a0"},
        {"a\\", "a\\"},
        {"a\\0", "a\\0"},
        {"a\\04", "a\\04"},  // all three must lie inside the text
        {"\\\\040", "\\ "},
        {"\\x20", "\\x20"},
    };
    for (const auto& [text, plain] : cases)
        EXPECT_EQ(mounts::unescape(text), plain) << text;
    EXPECT_EQ(mounts::unescape("\\000"), std::string(1, '\0'));
}

// ---- the mount of a path ----

TEST(Mounts, the_longest_point_above_a_path_wins) {
    const std::vector<Mount> table = {at("/"), at("/home"), at("/home/al/nas"), at("/home/al"),
                                      at("/mnt")};
    EXPECT_EQ(point_for(table, "/"), "/");
    EXPECT_EQ(point_for(table, "/etc"), "/");
    EXPECT_EQ(point_for(table, "/home"), "/home");
    EXPECT_EQ(point_for(table, "/home/bo"), "/home");
    EXPECT_EQ(point_for(table, "/home/al"), "/home/al");
    EXPECT_EQ(point_for(table, "/home/al/x"), "/home/al");
    EXPECT_EQ(point_for(table, "/home/al/nas"), "/home/al/nas");
    EXPECT_EQ(point_for(table, "/home/al/nas/x/y"), "/home/al/nas");
    EXPECT_EQ(point_for(table, "/mnt/"), "/mnt");
}

TEST(Mounts, a_mount_of_al_does_not_catch_alice) {
    const std::vector<Mount> table = {at("/"), at("/home/al")};
    EXPECT_EQ(point_for(table, "/home/alice"), "/");
    EXPECT_EQ(point_for({at("/home/al")}, "/home/alice"), "none");
    EXPECT_EQ(point_for({at("/home/al")}, "/home/a"), "none");
    EXPECT_EQ(point_for({at("/home/al")}, "/home"), "none");
}

TEST(Mounts, of_equal_points_the_later_line_lies_on_top) {
    const std::vector<Mount> table = {at("/", "lower"), at("/data", "/dev/a"), at("/", "upper"),
                                      at("/data", "/dev/b")};
    const Mount* data = mounts::lookup(table, "/data/x");
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(data->source, "/dev/b");
    const Mount* root = mounts::lookup(table, "/x");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->source, "upper");
}

TEST(Mounts, the_root_matches_every_text_and_an_empty_table_none) {
    EXPECT_EQ(point_for({at("/")}, ""), "/");
    EXPECT_EQ(point_for({at("/")}, "relative"), "/");
    EXPECT_EQ(point_for({}, "/"), "none");
}

TEST(Mounts, the_table_is_read_once_and_stays_for_the_run) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    test_env::TempDir dir;
    ASSERT_TRUE(test_env::mount_tmpfs(dir.path()));
    const std::vector<Mount>& before = mounts::all();
    const size_t count = before.size();
    ASSERT_NE(mounts::for_path(dir / "x"), nullptr);
    EXPECT_EQ(mounts::for_path(dir / "x")->point, dir.path());
    EXPECT_EQ(mounts::for_path(dir / "x")->fs_type, "tmpfs");
    mkdir((dir / "later").c_str(), 0755);
    ASSERT_TRUE(test_env::mount_tmpfs(dir / "later"));
    EXPECT_EQ(&mounts::all(), &before);
    EXPECT_EQ(mounts::all().size(), count);
    EXPECT_EQ(mounts::for_path(dir / "later/x")->point, dir.path());
    umount((dir / "later").c_str());
    umount(dir.path().c_str());
    EXPECT_EQ(mounts::for_path(dir / "x")->point, dir.path());
}

TEST(Mounts, the_table_stands_in_the_kernels_order) {
    REQUIRE_FRESH_PROCESS();
    std::ifstream file("/proc/self/mountinfo");
    const std::vector<Mount> table = mounts::parse_mountinfo(file);
    ASSERT_FALSE(table.empty());
    ASSERT_EQ(mounts::all().size(), table.size());
    for (size_t i = 0; i < table.size(); ++i) {
        EXPECT_EQ(mounts::all()[i].point, table[i].point);
        EXPECT_EQ(mounts::all()[i].source, table[i].source);
    }
}

TEST(Mounts, a_point_with_a_blank_is_found_by_its_name) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    test_env::TempDir dir;
    mkdir((dir / "a b\\c").c_str(), 0755);
    ASSERT_TRUE(test_env::mount_tmpfs(dir / "a b\\c"));
    const Mount* mount = mounts::for_path(dir / "a b\\c/x");
    umount((dir / "a b\\c").c_str());
    ASSERT_NE(mount, nullptr);
    EXPECT_EQ(mount->point, dir / "a b\\c");
}

TEST(Mounts, an_unreadable_table_is_an_empty_one) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    ASSERT_TRUE(test_env::mount_tmpfs("/proc"));
    const bool empty = mounts::all().empty();
    const Mount* root = mounts::for_path("/");
    const std::vector<Mount> roots = mounts::scannable_roots();
    umount("/proc");
    EXPECT_TRUE(empty);
    EXPECT_EQ(root, nullptr);
    EXPECT_TRUE(roots.empty());
    EXPECT_TRUE(mounts::all().empty());
}

TEST(Mounts, a_snap_finds_the_hosts_mounts_under_the_users_names) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    become_snap();
    ASSERT_TRUE(make_hostfs());
    ASSERT_EQ(mount("host", kHostFs.c_str(), "tmpfs", 0, nullptr), 0);
    mkdir((kHostFs + "/srv").c_str(), 0755);
    ASSERT_EQ(mount("hosts-srv", (kHostFs + "/srv").c_str(), "tmpfs", 0, nullptr), 0);
    ASSERT_EQ(mount("own-opt", "/opt", "tmpfs", 0, nullptr), 0);
    const std::string root_mount = type_and_source(mounts::for_path("/"));
    // Its own name says only "the root": the host's name tells more.
    EXPECT_EQ(type_and_source(mounts::for_path("/srv/x")), "tmpfs hosts-srv");
    EXPECT_EQ(type_and_source(mounts::for_path(kHostFs + "/srv/x")), "tmpfs hosts-srv");
    // The host's own name says only "the host's root": the display name tells more.
    EXPECT_EQ(type_and_source(mounts::for_path(kHostFs + "/opt/x")), "tmpfs own-opt");
    EXPECT_EQ(type_and_source(mounts::for_path("/opt/x")), "tmpfs own-opt");
    // Nothing tells more: the first answer stays.
    EXPECT_EQ(type_and_source(mounts::for_path("/nowhere")), root_mount);
    EXPECT_EQ(type_and_source(mounts::for_path(kHostFs + "/nowhere")), "tmpfs host");
}

TEST(Mounts, a_path_of_the_host_folder_is_looked_up_by_its_display_form_outside_a_snap_too) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    ASSERT_TRUE(make_hostfs());
    ASSERT_EQ(mount("host", kHostFs.c_str(), "tmpfs", 0, nullptr), 0);
    ASSERT_EQ(mount("own-opt", "/opt", "tmpfs", 0, nullptr), 0);
    EXPECT_EQ(type_and_source(mounts::for_path(kHostFs + "/opt/x")), "tmpfs own-opt");
    EXPECT_EQ(type_and_source(mounts::for_path(kHostFs + "/etc")), "tmpfs host");
}

// ---- classes of file systems ----

TEST(Mounts, pseudo_file_systems_are_these_and_no_others) {
    for (const char* type :
         {"proc",       "sysfs",     "devtmpfs",  "devpts",   "cgroup",      "cgroup2",
          "pstore",     "bpf",       "tracefs",   "debugfs",  "securityfs",  "configfs",
          "fusectl",    "hugetlbfs", "mqueue",    "efivarfs", "binfmt_misc", "autofs",
          "rpc_pipefs", "nsfs",      "selinuxfs", "ramfs",    "swap"})
        EXPECT_TRUE(mounts::is_pseudo_fs(type)) << type;
    for (const char* type : {"tmpfs", "ext4", "fuse", "overlay", "squashfs", "", "Proc", "procfs",
                             "cgroup3", "nfs", "unknownfs"})
        EXPECT_FALSE(mounts::is_pseudo_fs(type)) << type;
}

TEST(Mounts, risky_file_systems_are_networks_and_all_that_begins_with_fuse) {
    for (const char* type :
         {"nfs", "nfs4", "cifs", "smb3", "smbfs", "afs", "ceph", "glusterfs", "9p", "sshfs",
          "davfs", "ftpfs", "curlftpfs", "fuse", "fuseblk", "fuse.sshfs", "fuse.", "fusectl"})
        EXPECT_TRUE(mounts::is_risky_fs(type)) << type;
    for (const char* type :
         {"ext4", "tmpfs", "nfs3", "nfsd", "smb", "", "fus", "xfuse", "Fuse", "btrfs", "unknownfs"})
        EXPECT_FALSE(mounts::is_risky_fs(type)) << type;
}

TEST(Mounts, image_file_systems_are_three) {
    for (const char* type : {"squashfs", "erofs", "iso9660"})
        EXPECT_TRUE(mounts::is_image_fs(type)) << type;
    for (const char* type : {"ext4", "udf", "cramfs", "", "squash"})
        EXPECT_FALSE(mounts::is_image_fs(type)) << type;
}

// ---- the mounts that are real storage ----

TEST(Mounts, scannable_roots_drop_pseudo_and_memory_and_squashfs) {
    EXPECT_EQ(roots_of({at("/"), at("/a", "none", "proc"), at("/b", "none", "tmpfs"),
                        at("/c", "none", "squashfs"), at("/d", "none", "iso9660"),
                        at("/e", "none", "fuse.sshfs"), at("/f", "none", "ramfs"),
                        at("/g", "none", "unknownfs")}),
              "/ /d /e /g ");
}

TEST(Mounts, scannable_roots_drop_the_systems_own_trees) {
    for (const std::string root : {"/snap", "/var/lib/snapd", "/var/snap", "/run", "/usr", "/etc",
                                   "/dev", "/proc", "/sys", "/boot", "/var"}) {
        EXPECT_EQ(roots_of({at(root)}), "") << root;
        EXPECT_EQ(roots_of({at(root + "/x")}), "") << root;
    }
    for (const std::string point :
         {"/snapX", "/snapshots/x", "/runner", "/usrlocal", "/devel", "/system", "/bootleg",
          "/variable", "/home", "/srv/usr", "/procurement"})
        EXPECT_EQ(roots_of({at(point)}), point + " ");
}

TEST(Mounts, what_the_desktop_mounts_below_run_media_survives) {
    EXPECT_EQ(roots_of({at("/run/media"), at("/run/media/al/Stick"), at("/run/mediaX"),
                        at("/run/user/1000/doc"), at("/run/lock")}),
              "/run/media /run/media/al/Stick ");
    // The other filters hold there all the same.
    EXPECT_EQ(roots_of({at("/run/media/al/mem", "none", "tmpfs"),
                        at("/run/media/al/img", "/dev/loop1", "squashfs")}),
              "");
}

TEST(Mounts, scannable_roots_keep_the_earlier_of_equal_points) {
    const std::vector<Mount> roots =
        mounts::scannable_roots_of({at("/data", "/dev/a"), at("/data", "/dev/b")});
    ASSERT_EQ(roots.size(), 1U);
    EXPECT_EQ(roots[0].source, "/dev/a");
}

TEST(Mounts, a_point_that_an_earlier_filter_dropped_has_not_been_seen) {
    // An automounter's own line stands before that of the share that it mounts.
    EXPECT_EQ(roots_of({at("/net", "systemd-1", "autofs"), at("/net", "nas:/x", "nfs4")}), "/net ");
    EXPECT_EQ(roots_of({at("/usr/x", "/dev/a"), at("/data", "/dev/a")}), "/data ");
}

TEST(Mounts, scannable_roots_show_each_device_once) {
    EXPECT_EQ(roots_of({at("/", "/dev/sda1"), at("/home", "/dev/sda2"),
                        at("/srv/bind", "/dev/sda1"), at("/data", "/dev/sda2")}),
              "/ /home ");
    // Only what lies in /dev/ is a device: shares may look alike.
    EXPECT_EQ(roots_of({at("/a", "nas:/x", "nfs4"), at("/b", "nas:/x", "nfs4"), at("/c", "/devel"),
                        at("/d", "/devel"), at("/e", "/dev"), at("/f", "/dev")}),
              "/a /b /c /d /e /f ");
}

TEST(Mounts, scannable_roots_copy_every_field_in_table_order) {
    std::vector<Mount> table = {at("/z", "/dev/z", "xfs"), at("/a", "/dev/a", "btrfs")};
    table[0].read_only = true;
    const std::vector<Mount> roots = mounts::scannable_roots_of(table);
    ASSERT_EQ(roots.size(), 2U);
    EXPECT_EQ(roots[0].point, "/z");
    EXPECT_EQ(roots[0].fs_type, "xfs");
    EXPECT_EQ(roots[0].source, "/dev/z");
    EXPECT_TRUE(roots[0].read_only);
    EXPECT_EQ(roots[1].point, "/a");
    EXPECT_FALSE(roots[1].read_only);
}

TEST(Mounts, scannable_roots_are_those_of_the_machines_table) {
    const std::vector<Mount> expected = mounts::scannable_roots_of(mounts::all());
    const std::vector<Mount> roots = mounts::scannable_roots();
    ASSERT_EQ(roots.size(), expected.size());
    for (size_t i = 0; i < roots.size(); ++i)
        EXPECT_EQ(roots[i].point, expected[i].point);
}
