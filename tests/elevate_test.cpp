// Who may have operations repeated with root's rights. Each question is asked in a process of its
// own, since some answers behind it are taken once.

#include "elevate.h"

#include "fresh_process.h"
#include "test_env.h"

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

namespace {

using elevate::Availability;
using test_env::make_dirs;
using test_env::write_file;

class Elevate : public ::testing::Test {
  protected:
    Elevate() {
        // An ordinary user has to reach it.
        for (const std::string& folder : {test_env::root(), m_bin.path()})
            std::filesystem::permissions(folder, std::filesystem::perms{0755});
    }

    // As an ordinary user with nothing but this folder in PATH; "kind reason helper".
    std::string ask(const std::function<void()>& before = [] {}) {
        return test_env::answer_of_child([&]() -> std::string {
            unsetenv("SNAP");
            setenv("PATH", m_bin.path().c_str(), 1);
            before();
            if (geteuid() == 0 && !test_env::become_ordinary_user())
                return "still root";
            return told();
        });
    }
    static std::string told() {
        return std::to_string(static_cast<int>(elevate::availability())) + " | " +
               elevate::unavailable_reason() + " | " + elevate::helper_path();
    }
    void with_pkexec() { write_file(m_bin / "pkexec", "#!/bin/sh\n", 0755); }

    test_env::TempDir m_bin;
};

constexpr char kNoPkexec[] =
    "2 | pkexec is not installed, so this cannot be run as administrator. | ";
constexpr char kNoHelper[] =
    "3 | The helper program is missing; the installation is incomplete. | ";
constexpr char kSandboxed[] =
    "4 | Inside a Snap or Flatpak this app cannot ask for administrator rights. | ";

TEST_F(Elevate, root_needs_no_help) {
    if (geteuid() != 0)
        GTEST_SKIP() << "not root";
    with_pkexec();
    EXPECT_EQ(test_env::answer_of_child([&]() -> std::string {
                  setenv("SNAP", "/snap", 1);  // which comes second
                  return told();
              }).substr(0, 7),
              "1 |  | ");
}

TEST_F(Elevate, a_sandbox_forbids_it_whatever_else_is_there) {
    with_pkexec();
    EXPECT_EQ(ask([] { setenv("SNAP", "/snap/x", 1); }), kSandboxed);
    // Even one whose name is empty.
    EXPECT_EQ(ask([] { setenv("SNAP", "", 1); }), kSandboxed);
}

TEST_F(Elevate, a_flatpak_is_known_by_its_file) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    if (!test_env::enter_private_root())
        GTEST_SKIP() << "no root of one's own to be had";
    write_file("/.flatpak-info", "");
    with_pkexec();
    EXPECT_EQ(ask(), kSandboxed);
}

TEST_F(Elevate, pkexec_is_looked_for_before_the_helper) {
    EXPECT_EQ(ask(), kNoPkexec);
    write_file(m_bin / "pkexec", "not to be run", 0644);
    EXPECT_EQ(ask(), kNoPkexec);
    with_pkexec();
    EXPECT_EQ(ask(), kNoHelper);
}

TEST_F(Elevate, the_helper_is_where_it_was_installed) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    ASSERT_TRUE(test_env::mount_tmpfs("/usr/libexec", "mode=755"));
    with_pkexec();
    EXPECT_EQ(ask(), kNoHelper);
    make_dirs("/usr/libexec/ferrodeck/ferrodeck-helper");  // a folder is none
    EXPECT_EQ(ask(), kNoHelper);
    std::filesystem::remove("/usr/libexec/ferrodeck/ferrodeck-helper");
    write_file("/usr/libexec/ferrodeck/ferrodeck-helper", "", 0755);
    std::filesystem::permissions("/usr/libexec/ferrodeck", std::filesystem::perms{0755});
    EXPECT_EQ(ask(), "0 |  | /usr/libexec/ferrodeck/ferrodeck-helper");
    // The other place comes second. Nothing that this process still needs is in it.
    ASSERT_TRUE(test_env::mount_tmpfs("/usr/lib", "mode=755"));
    make_dirs("/usr/lib/ferrodeck");
    std::filesystem::permissions("/usr/lib/ferrodeck", std::filesystem::perms{0755});
    write_file("/usr/lib/ferrodeck/ferrodeck-helper", "", 0755);
    EXPECT_EQ(ask(), "0 |  | /usr/libexec/ferrodeck/ferrodeck-helper");
    std::filesystem::remove("/usr/libexec/ferrodeck/ferrodeck-helper");
    EXPECT_EQ(ask(), "0 |  | /usr/lib/ferrodeck/ferrodeck-helper");
}

// The test program stands in for ours: this is a build tree, where any helper beside it will do.
TEST_F(Elevate, a_helper_beside_the_program_comes_first) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_PRIVATE_MOUNTS();
    const std::string folder =
        std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
    with_pkexec();
    ASSERT_TRUE(test_env::mount_tmpfs("/usr/libexec", "mode=755"));
    make_dirs("/usr/libexec/ferrodeck");
    write_file("/usr/libexec/ferrodeck/ferrodeck-helper", "", 0755);
    std::filesystem::permissions("/usr/libexec/ferrodeck", std::filesystem::perms{0755});
    ASSERT_TRUE(test_env::mount_tmpfs(folder, "mode=755"));
    EXPECT_EQ(ask(), "0 |  | /usr/libexec/ferrodeck/ferrodeck-helper");
    write_file(folder + "/ferrodeck-helper", "", 0755);
    EXPECT_EQ(ask(), "0 |  | " + folder + "/ferrodeck-helper");
    // Packed up by somebody else, it is trusted only if it belongs to root.
    const auto packed = [] { setenv("APPDIR", "/tmp/unpacked", 1); };
    EXPECT_EQ(ask(packed), "0 |  | " + folder + "/ferrodeck-helper");
    ASSERT_EQ(chown((folder + "/ferrodeck-helper").c_str(), 65534, 65534), 0);
    EXPECT_EQ(ask(packed), "0 |  | /usr/libexec/ferrodeck/ferrodeck-helper");
    EXPECT_EQ(ask(), "0 |  | " + folder + "/ferrodeck-helper");
    ASSERT_EQ(chown((folder + "/ferrodeck-helper").c_str(), 0, 0), 0);
    ASSERT_EQ(chown(folder.c_str(), 65534, 65534), 0);
    EXPECT_EQ(ask(packed), "0 |  | /usr/libexec/ferrodeck/ferrodeck-helper");
    // Nor may anybody else put another one in its place.
    ASSERT_EQ(chown(folder.c_str(), 0, 0), 0);
    for (const std::string& open : {folder, folder + "/ferrodeck-helper"})
        for (const unsigned mode : {01757U, 0775U}) {
            EXPECT_EQ(ask(packed), "0 |  | " + folder + "/ferrodeck-helper");
            std::filesystem::permissions(open, std::filesystem::perms{mode});
            EXPECT_EQ(ask(packed), "0 |  | /usr/libexec/ferrodeck/ferrodeck-helper");
            std::filesystem::permissions(open, std::filesystem::perms{0755});
        }
    std::filesystem::remove(folder + "/ferrodeck-helper");
    std::filesystem::create_symlink("/usr/libexec/ferrodeck/ferrodeck-helper",
                                    folder + "/ferrodeck-helper");
    ASSERT_EQ(lchown((folder + "/ferrodeck-helper").c_str(), 65534, 65534), 0);
    EXPECT_EQ(ask(packed), "0 |  | /usr/libexec/ferrodeck/ferrodeck-helper");
}

}  // namespace
