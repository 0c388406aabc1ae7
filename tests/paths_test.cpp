#include "paths.h"

#include "fresh_process.h"
#include "test_env.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <set>
#include <string>
#include <sys/mount.h>
#include <unistd.h>
#include <utility>
#include <vector>

using test_env::answer_of_child;
using test_env::TempDir;

namespace {

const std::string kHostFs = "/var/lib/snapd/hostfs";

void set(const char* name, const std::string& value) {
    setenv(name, value.c_str(), 1);
}

// The password database of this process, for the rest of its life.
bool use_accounts(const std::string& lines) {
    const std::string accounts = test_env::root() + "/passwd";
    test_env::write_file(accounts, lines);
    // Other sources of accounts know a root of their own.
    const std::string sources = test_env::root() + "/nsswitch.conf";
    test_env::write_file(sources, "passwd: files\n");
    return test_env::mount_bind(sources, "/etc/nsswitch.conf") &&
           test_env::mount_bind(accounts, "/etc/passwd");
}

// A Snap whose user is al. The folder of the host's files is there when the test makes it.
void become_snap() {
    set("SNAP", "/snap/ferrodeck/1");
    set("SNAP_NAME", "ferrodeck");
    set("SNAP_REAL_HOME", "/home/al");
}

bool make_hostfs() {
    return test_env::mount_tmpfs("/var/lib") && mkdir("/var/lib/snapd", 0755) == 0 &&
           mkdir(kHostFs.c_str(), 0755) == 0;
}

std::string yes_no(bool answer) {
    return answer ? "yes" : "no";
}

// Gives back the variables that a test has changed.
class Paths : public testing::Test {
  protected:
    Paths() {
        for (const char* name :
             {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "SNAP", "SNAP_NAME", "SNAP_REAL_HOME",
              "SUDO_USER", "PKEXEC_UID", "APPDIR", "APPIMAGE"}) {
            const char* value = std::getenv(name);
            m_before.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
        }
    }
    ~Paths() override {
        for (const auto& [name, value] : m_before) {
            if (value)
                set(name, *value);
            else
                unsetenv(name);
        }
    }

  private:
    std::vector<std::pair<const char*, std::optional<std::string>>> m_before;
};

mode_t mode_of(const std::string& path) {
    return test_env::lstat_of(path).st_mode & 07777;
}

TEST_F(Paths, a_tidy_path_has_no_slash_too_many_and_no_dots_that_lead_anywhere) {
    const TempDir dir;
    test_env::make_dirs(dir / "far/deep");
    ASSERT_EQ(symlink("far/deep", (dir / "link").c_str()), 0);
    for (const auto& [path, tidy] : {
             std::pair<std::string, std::string>{"/", "/"},
             {"//", "/"},
             {dir.path(), dir.path()},
             {dir / "far/", dir / "far"},
             {dir / "/far//deep//", dir / "far/deep"},
             {dir / ".", dir.path()},
             {dir / "far/./deep", dir / "far/deep"},
             {dir / "far/../far", dir / "far"},
             // The link itself stays, but what lies above it is above its goal.
             {dir / "link", dir / "link"},
             {dir / "link/..", dir / "far"},
             {"/..", "/"},
             {dir / "none/../far/", dir / "none/../far"},
             {dir / "..far/.deep/x..", dir / "..far/.deep/x.."},
         })
        EXPECT_EQ(tidy_path(path), tidy) << path;
}

}  // namespace

// ---- real_home ----

TEST_F(Paths, real_home_prefers_the_home_that_the_snap_tells) {
    set("SNAP_REAL_HOME", "/home/al");
    set("HOME", "/home/al/snap/ferrodeck/1");
    EXPECT_EQ(real_home(), "/home/al");
    unsetenv("SNAP_REAL_HOME");
}

TEST_F(Paths, real_home_takes_an_empty_variable_as_not_set) {
    set("SNAP_REAL_HOME", "");
    set("HOME", "/home/al");
    EXPECT_EQ(real_home(), "/home/al");
    unsetenv("SNAP_REAL_HOME");
    EXPECT_EQ(real_home(), "/home/al");
}

TEST_F(Paths, real_home_without_variables_is_that_of_the_real_user) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    ASSERT_TRUE(use_accounts("root:x:0:0::/the/root:/bin/sh\nal:x:1000:1000::/the/al:/bin/sh\n"));
    unsetenv("HOME");
    EXPECT_EQ(real_home(), "/the/root");
    set("HOME", "");
    EXPECT_EQ(real_home(), "/the/root");
    // The real user counts, not the one whose rights are in force.
    EXPECT_EQ(answer_of_child([] { return setresuid(1000, 0, 0) == 0 ? real_home() : "?"; }),
              "/the/al");
}

TEST_F(Paths, real_home_is_empty_when_the_account_has_none_or_is_missing) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    ASSERT_TRUE(use_accounts("root:x:0:0:::/bin/sh\n"));
    unsetenv("HOME");
    EXPECT_EQ(real_home(), "");
    EXPECT_EQ(answer_of_child([] { return setresuid(1000, 0, 0) == 0 ? real_home() : "?"; }), "");
}

// ---- trash_dir ----

TEST_F(Paths, trash_dir_lies_in_the_data_folder_and_is_not_made) {
    REQUIRE_FRESH_PROCESS();
    const std::string data = test_env::root() + "/data";
    set("XDG_DATA_HOME", data);
    EXPECT_EQ(trash_dir(), data + "/Trash/files");
    EXPECT_FALSE(test_env::exists(data));
}

TEST_F(Paths, trash_dir_puts_no_second_slash) {
    REQUIRE_FRESH_PROCESS();
    set("XDG_DATA_HOME", "/the/data/");
    EXPECT_EQ(trash_dir(), "/the/data/Trash/files");
}

// ---- config_dir ----

TEST_F(Paths, config_dir_is_made_for_the_owner_alone) {
    TempDir dir;
    set("XDG_CONFIG_HOME", dir / "config");
    umask(0);
    EXPECT_EQ(config_dir(), dir / "config/Ferrodeck");
    umask(022);
    EXPECT_EQ(mode_of(dir / "config"), 0700U);
    EXPECT_EQ(mode_of(dir / "config/Ferrodeck"), 0700U);
}

TEST_F(Paths, config_dir_leaves_folders_that_exist_as_they_are) {
    TempDir dir;
    set("XDG_CONFIG_HOME", dir / "config");
    test_env::make_dirs(dir / "config/Ferrodeck");
    chmod((dir / "config").c_str(), 0750);
    chmod((dir / "config/Ferrodeck").c_str(), 0755);
    test_env::write_file(dir / "config/Ferrodeck/kept", "x");
    EXPECT_EQ(config_dir(), dir / "config/Ferrodeck");
    EXPECT_EQ(mode_of(dir / "config"), 0750U);
    EXPECT_EQ(mode_of(dir / "config/Ferrodeck"), 0755U);
    EXPECT_EQ(test_env::read_file(dir / "config/Ferrodeck/kept"), "x");
}

TEST_F(Paths, config_dir_without_xdg_lies_in_home) {
    TempDir dir;
    set("HOME", dir.path());
    for (const bool empty : {false, true}) {
        if (empty)
            set("XDG_CONFIG_HOME", "");
        else
            unsetenv("XDG_CONFIG_HOME");
        EXPECT_EQ(config_dir(), dir / ".config/Ferrodeck");
        EXPECT_EQ(mode_of(dir / ".config"), 0700U);
        EXPECT_EQ(mode_of(dir / ".config/Ferrodeck"), 0700U);
        std::filesystem::remove_all(dir / ".config");
    }
}

TEST_F(Paths, config_dir_makes_two_levels_and_ignores_every_error) {
    TempDir dir;
    set("XDG_CONFIG_HOME", dir / "a/b");
    EXPECT_EQ(config_dir(), dir / "a/b/Ferrodeck");
    EXPECT_FALSE(test_env::exists(dir / "a"));
    test_env::write_file(dir / "file", "");
    set("XDG_CONFIG_HOME", dir / "file");
    EXPECT_EQ(config_dir(), dir / "file/Ferrodeck");
}

TEST_F(Paths, config_dir_with_neither_variable_is_the_working_directory) {
    TempDir dir;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(dir.path());
    for (const bool empty : {false, true}) {
        for (const char* name : {"XDG_CONFIG_HOME", "HOME"}) {
            if (empty)
                set(name, "");
            else
                unsetenv(name);
        }
        EXPECT_EQ(config_dir(), ".");
        EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
    }
    std::filesystem::current_path(before);
}

TEST_F(Paths, config_dir_takes_a_relative_xdg_folder_as_it_stands) {
    TempDir dir;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(dir.path());
    set("XDG_CONFIG_HOME", "some");
    EXPECT_EQ(config_dir(), "some/Ferrodeck");
    EXPECT_TRUE(test_env::exists(dir / "some/Ferrodeck"));
    std::filesystem::current_path(before);
}

TEST_F(Paths, config_dir_of_a_process_raised_to_root_is_in_roots_own_home) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    TempDir roots;
    TempDir users;
    ASSERT_TRUE(use_accounts("root:x:0:0::" + roots.path() +
                             ":/bin/sh\nal:x:1000:1000::" + users.path() + ":/bin/sh\n"));
    set("HOME", users.path());
    for (const bool with_xdg : {true, false}) {
        if (with_xdg)
            set("XDG_CONFIG_HOME", users / ".config");
        else
            unsetenv("XDG_CONFIG_HOME");
        for (const char* name : {"SUDO_USER", "PKEXEC_UID"}) {
            set(name, name == std::string("SUDO_USER") ? "al" : "1000");
            EXPECT_EQ(config_dir(), roots / ".config/Ferrodeck") << name;
            unsetenv(name);
        }
    }
    EXPECT_EQ(mode_of(roots / ".config/Ferrodeck"), 0700U);
    EXPECT_TRUE(std::filesystem::is_empty(users.path()));
}

TEST_F(Paths, config_dir_of_root_that_nobody_raised_follows_the_variables) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    TempDir dir;
    ASSERT_TRUE(use_accounts("root:x:0:0::/nowhere:/bin/sh\n"));
    set("HOME", dir.path());
    set("XDG_CONFIG_HOME", dir / "xdg");
    EXPECT_EQ(config_dir(), dir / "xdg/Ferrodeck");
    // Nobody answers to this number, so nobody raised the process.
    set("PKEXEC_UID", "1000");
    EXPECT_EQ(config_dir(), dir / "xdg/Ferrodeck");
    unsetenv("PKEXEC_UID");
    unsetenv("XDG_CONFIG_HOME");
    EXPECT_EQ(config_dir(), dir / ".config/Ferrodeck");
}

TEST_F(Paths, config_dir_of_a_raised_process_needs_an_absolute_home_of_root) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    TempDir dir;
    set("SUDO_USER", "al");
    set("XDG_CONFIG_HOME", dir / "xdg");
    ASSERT_TRUE(use_accounts("root:x:0:0::root:/bin/sh\n"));
    EXPECT_EQ(config_dir(), dir / "xdg/Ferrodeck");
    ASSERT_TRUE(use_accounts("root:x:0:0:::/bin/sh\n"));
    EXPECT_EQ(config_dir(), dir / "xdg/Ferrodeck");
    ASSERT_TRUE(use_accounts("al:x:1000:1000::/home/al:/bin/sh\n"));
    EXPECT_EQ(config_dir(), dir / "xdg/Ferrodeck");
}

TEST_F(Paths, config_dir_of_an_ordinary_user_pays_no_heed_to_sudo) {
    REQUIRE_FRESH_PROCESS();
    TempDir dir("/tmp");
    set("SUDO_USER", "al");
    set("XDG_CONFIG_HOME", dir.path());
    EXPECT_EQ(answer_of_child([] {
                  return geteuid() != 0 || test_env::become_ordinary_user() ? config_dir() : "?";
              }),
              dir / "Ferrodeck");
}

// ---- who runs us, and how we are packed ----

TEST_F(Paths, invoking_user_is_sudos_before_pkexecs) {
    set("SUDO_USER", "al");
    set("PKEXEC_UID", "0");
    EXPECT_EQ(invoking_user(), "al");
    set("SUDO_USER", "");
    EXPECT_EQ(invoking_user(), "root");
    unsetenv("SUDO_USER");
    EXPECT_EQ(invoking_user(), "root");
    set("PKEXEC_UID", "");
    EXPECT_EQ(invoking_user(), "");
    unsetenv("PKEXEC_UID");
    EXPECT_EQ(invoking_user(), "");
}

TEST_F(Paths, invoking_user_reads_pkexecs_number_in_base_10) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    ASSERT_TRUE(use_accounts("root:x:0:0::/:/bin/sh\neight:x:8:8::/:/bin/sh\n"
                             "ten:x:10:10::/:/bin/sh\n"));
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"10", "ten"},   {"010", "ten"}, {"10 and more", "ten"},
        {"0xA", "root"}, {"al", "root"}, {"11", ""}};
    for (const auto& [number, user] : cases) {
        set("PKEXEC_UID", number);
        EXPECT_EQ(invoking_user(), user) << number;
    }
}

TEST_F(Paths, running_as_root_looks_at_the_effective_user_once) {
    REQUIRE_FRESH_PROCESS();
    const auto ask = [] { return yes_no(running_as_root()); };
    EXPECT_EQ(answer_of_child(ask), yes_no(geteuid() == 0));
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can change its user";
    EXPECT_EQ(answer_of_child([&] { return seteuid(65534) == 0 ? ask() : "?"; }), "no");
    EXPECT_EQ(answer_of_child([&] { return setresuid(65534, 0, 0) == 0 ? ask() : "?"; }), "yes");
    EXPECT_EQ(answer_of_child([&] {
                  const std::string first = ask();
                  return first + (seteuid(65534) == 0 ? ask() : "?");
              }),
              "yesyes");
}

TEST_F(Paths, a_snap_needs_both_variables_to_be_set_and_not_empty) {
    REQUIRE_FRESH_PROCESS();
    const auto ask = [](const char* snap, const char* snap_name) {
        return answer_of_child([=] {
            if (snap)
                set("SNAP", snap);
            if (snap_name)
                set("SNAP_NAME", snap_name);
            return yes_no(running_in_snap());
        });
    };
    EXPECT_EQ(ask("/snap/f/1", "ferrodeck"), "yes");
    EXPECT_EQ(ask("/snap/f/1", ""), "no");
    EXPECT_EQ(ask("/snap/f/1", nullptr), "no");
    EXPECT_EQ(ask("", "ferrodeck"), "no");
    EXPECT_EQ(ask(nullptr, "ferrodeck"), "no");
    EXPECT_EQ(ask(nullptr, nullptr), "no");
}

TEST_F(Paths, the_answer_about_the_snap_stays_for_the_run) {
    REQUIRE_FRESH_PROCESS();
    EXPECT_EQ(answer_of_child([] {
                  become_snap();
                  const std::string first = yes_no(running_in_snap());
                  unsetenv("SNAP");
                  return first + yes_no(running_in_snap());
              }),
              "yesyes");
    EXPECT_FALSE(running_in_snap());
    become_snap();
    EXPECT_FALSE(running_in_snap());
}

TEST_F(Paths, a_flatpak_has_its_file_in_the_root) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    ASSERT_TRUE(test_env::enter_private_root());
    EXPECT_EQ(answer_of_child([] { return yes_no(running_in_flatpak()); }), "no");
    test_env::write_file("/.flatpak-info", "");
    EXPECT_TRUE(running_in_flatpak());
    unlink("/.flatpak-info");
    EXPECT_TRUE(running_in_flatpak());
}

TEST_F(Paths, package_kind_takes_the_first_that_matches) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    ASSERT_TRUE(test_env::enter_private_root());
    const auto ask = [](const std::vector<std::string>& variables) {
        return answer_of_child([&] {
            for (const std::string& name : variables)
                set(name.c_str(), "x");
            return std::string(package_kind());
        });
    };
    EXPECT_EQ(ask({}), "dev");  // the test binary lies in a build tree
    EXPECT_EQ(ask({"APPDIR"}), "appimage");
    EXPECT_EQ(ask({"APPIMAGE"}), "appimage");
    EXPECT_EQ(ask({"SNAP"}), "dev");
    test_env::write_file("/.flatpak-info", "");
    EXPECT_EQ(ask({"APPDIR", "APPIMAGE"}), "flatpak");
    EXPECT_EQ(ask({"SNAP", "SNAP_NAME", "APPDIR", "APPIMAGE"}), "snap");
}

TEST_F(Paths, package_kind_takes_empty_variables_as_not_set) {
    REQUIRE_FRESH_PROCESS();
    set("APPDIR", "");
    set("APPIMAGE", "");
    EXPECT_STREQ(package_kind(), "dev");
    set("APPDIR", "x");
    EXPECT_STREQ(package_kind(), "dev");  // asked once
}

// The next test runs this one in copies of the binary at other places, and reads what it prints.
TEST_F(Paths, package_kind_is_one_of_five_words) {
    const std::string kind = package_kind();
    const std::set<std::string> words = {"snap", "flatpak", "appimage", "system", "dev"};
    EXPECT_TRUE(words.contains(kind)) << kind;
    std::printf("kind=%s\n", kind.c_str());
}

TEST_F(Paths, package_kind_is_told_by_where_the_binary_lies) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    const std::string exe = std::filesystem::read_symlink("/proc/self/exe");
    ASSERT_TRUE(test_env::mount_tmpfs("/opt") && test_env::mount_tmpfs("/usr/local"));
    for (const char* folder : {"/usr/local/bin", "/usr/local/sbin"})
        mkdir(folder, 0755);
    for (const char* place : {"/opt/x", "/usr/local/bin/x", "/usr/local/sbin/x"})
        std::filesystem::copy_file(exe, place);
    // Folders of the system are not written to: the binary is shown there in place of a file.
    ASSERT_TRUE(test_env::mount_bind(exe, "/usr/bin/true"));
    ASSERT_TRUE(test_env::mount_bind(exe, "/usr/sbin/chroot"));
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"/opt/x", "dev"},           {"/usr/local/bin/x", "system"}, {"/usr/local/sbin/x", "dev"},
        {"/usr/bin/true", "system"}, {"/usr/sbin/chroot", "dev"},
    };
    for (const auto& [place, kind] : cases) {
        std::string output;
        test_env::run(place + " --gtest_filter=Paths.package_kind_is_one_of_five_words", &output);
        EXPECT_NE(output.find("kind=" + kind + "\n"), std::string::npos) << place << output;
    }
}

TEST_F(Paths, package_kind_is_system_when_the_binary_cannot_be_told) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    ASSERT_TRUE(test_env::mount_tmpfs("/proc"));
    const std::string kind = package_kind();
    umount("/proc");
    EXPECT_EQ(kind, "system");
}

TEST_F(Paths, removable_media_are_always_available_outside_a_snap) {
    REQUIRE_FRESH_PROCESS();
    EXPECT_TRUE(removable_media_available());
    become_snap();
    EXPECT_TRUE(removable_media_available());
}

TEST_F(Paths, removable_media_in_a_snap_need_one_of_three_folders) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    ASSERT_TRUE(test_env::enter_private_root());
    ASSERT_TRUE(test_env::mount_tmpfs("/run"));
    umount("/media");
    rmdir("/media");
    ASSERT_FALSE(test_env::exists("/media") || test_env::exists("/mnt"));
    become_snap();
    const auto ask = [] {
        return answer_of_child([] { return yes_no(removable_media_available()); });
    };
    EXPECT_EQ(ask(), "no");
    for (const char* folder : {"/media", "/run/media", "/mnt"}) {
        mkdir(folder, 0755);
        EXPECT_EQ(ask(), "yes") << folder;
        rmdir(folder);
    }
    EXPECT_EQ(ask(), "no");
    // What is mounted later is seen only in the next run.
    EXPECT_FALSE(removable_media_available());
    mkdir("/media", 0755);
    EXPECT_FALSE(removable_media_available());
}

// ---- paths as the user knows them, and as a Snap can open them ----

TEST_F(Paths, outside_a_snap_every_path_is_its_own) {
    REQUIRE_FRESH_PROCESS();
    for (const std::string path : {"/etc", "/", "", "etc", "/var/lib/snapd/hostfs/etc"}) {
        EXPECT_EQ(to_scan_path(path), path);
        EXPECT_TRUE(is_writable_location(path));
    }
    EXPECT_FALSE(hostfs_available());
}

TEST_F(Paths, the_host_folder_outside_a_snap_counts_for_nothing) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    ASSERT_TRUE(make_hostfs());
    EXPECT_FALSE(hostfs_available());
    EXPECT_EQ(to_scan_path("/etc"), "/etc");
}

TEST_F(Paths, a_snap_without_the_host_folder_leaves_paths_alone) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    ASSERT_TRUE(test_env::mount_tmpfs("/var/lib"));
    become_snap();
    EXPECT_FALSE(hostfs_available());
    EXPECT_EQ(to_scan_path("/etc"), "/etc");
    EXPECT_EQ(to_scan_path("/"), "/");
    // What becomes reachable later is seen only in the next run.
    ASSERT_TRUE(make_hostfs());
    EXPECT_FALSE(hostfs_available());
    EXPECT_EQ(to_scan_path("/etc"), "/etc");
}

TEST_F(Paths, a_snap_reaches_the_host_through_its_folder) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    ASSERT_TRUE(make_hostfs());
    become_snap();
    ASSERT_TRUE(hostfs_available());
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"/etc", kHostFs + "/etc"},
        {"/", kHostFs},
        {"/home", kHostFs + "/home"},
        {"/home/alice", kHostFs + "/home/alice"},
        {"/home/alice/f", kHostFs + "/home/alice/f"},
        {"/run", kHostFs + "/run"},
        {"/run/mediaX/f", kHostFs + "/run/mediaX/f"},
        {"/mntX", kHostFs + "/mntX"},
        {"/mediaX/f", kHostFs + "/mediaX/f"},
        {"/var/lib/snapd", kHostFs + "/var/lib/snapd"},
        {"/var/lib/snapd/hostfsX", kHostFs + "/var/lib/snapd/hostfsX"},
        // Reachable under their own names.
        {"/home/al", "/home/al"},
        {"/home/al/", "/home/al/"},
        {"/home/al/f", "/home/al/f"},
        {"/media", "/media"},
        {"/media/stick/f", "/media/stick/f"},
        {"/mnt", "/mnt"},
        {"/mnt/f", "/mnt/f"},
        {"/run/media", "/run/media"},
        {"/run/media/al/stick", "/run/media/al/stick"},
        // Nothing to convert.
        {"", ""},
        {"etc", "etc"},
        {"./etc", "./etc"},
        {kHostFs, kHostFs},
        {kHostFs + "/etc", kHostFs + "/etc"},
    };
    for (const auto& [path, converted] : cases) {
        EXPECT_EQ(to_scan_path(path), converted) << path;
        EXPECT_EQ(to_scan_path(converted), converted) << path;
    }
}

TEST_F(Paths, a_snap_without_a_home_reaches_removable_media_alone) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    ASSERT_TRUE(make_hostfs());
    ASSERT_TRUE(use_accounts(""));
    become_snap();
    unsetenv("SNAP_REAL_HOME");
    unsetenv("HOME");
    EXPECT_EQ(to_scan_path("/home/al"), kHostFs + "/home/al");
    EXPECT_EQ(to_scan_path("/mnt/f"), "/mnt/f");
    EXPECT_FALSE(is_writable_location("/home/al"));
    EXPECT_FALSE(is_writable_location(""));
}

TEST_F(Paths, display_path_drops_the_host_folder_by_plain_prefix) {
    EXPECT_EQ(to_display_path(kHostFs), "/");
    EXPECT_EQ(to_display_path(kHostFs + "/"), "/");
    EXPECT_EQ(to_display_path(kHostFs + "/etc"), "/etc");
    EXPECT_EQ(to_display_path(kHostFs + "X"), "X");
    EXPECT_EQ(to_display_path("/etc"), "/etc");
    EXPECT_EQ(to_display_path("/var/lib/snapd"), "/var/lib/snapd");
    EXPECT_EQ(to_display_path("/x" + kHostFs), "/x" + kHostFs);
    EXPECT_EQ(to_display_path(""), "");
}

TEST_F(Paths, a_snap_may_write_where_it_reaches_directly) {
    REQUIRE_FRESH_PROCESS();
    become_snap();
    for (const char* path : {"/home/al", "/home/al/f", "/media", "/media/s", "/mnt", "/mnt/s",
                             "/run/media", "/run/media/s"})
        EXPECT_TRUE(is_writable_location(path)) << path;
    for (const char* path : {"/", "/etc", "/home", "/home/alice", "/home/a", "/run", "/mntX",
                             "/mediaX", "/run/mediaX", "", "home/al"})
        EXPECT_FALSE(is_writable_location(path)) << path;
    EXPECT_FALSE(is_writable_location(kHostFs + "/home/al"));
}
