// What cmake --install puts where, and whether those who read it are content with it.

#include "test_env.h"

#include "strutil.h"

#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using test_env::exists;
using test_env::lstat_of;
using test_env::read_file;
using test_env::run;

// Installs once for all tests of the process.
class Install : public ::testing::Test {
  protected:
    static std::string prefix() { return test_env::root() + "/installed/usr"; }
    static void SetUpTestSuite() {
        std::string output;
        ASSERT_EQ(run("DESTDIR=" + test_env::root() + "/installed cmake --install " +
                          BUILD_DIR " --prefix /usr",
                      &output),
                  0)
            << output;
    }
    // Runs a checker on installed files; its output is what it has to say.
    static void expect_content(const std::string& program, const std::string& arguments) {
        std::string output;
        if (run("command -v " + program, &output) != 0)
            GTEST_SKIP() << program << " is not installed";
        EXPECT_EQ(run("cd " + prefix() + " && " + program + " " + arguments + " 2>&1", &output), 0)
            << output;
    }
};

TEST_F(Install, everything_has_its_place) {
    for (const char* name :
         {"bin/ferrodeck", "libexec/ferrodeck/ferrodeck-helper",
          "share/applications/ferrodeck.desktop", "share/metainfo/ferrodeck.metainfo.xml",
          "share/polkit-1/actions/com.orlomar.ferrodeck.policy", "share/man/man1/ferrodeck.1.gz",
          "share/man/man8/ferrodeck-helper.8.gz", "share/bash-completion/completions/ferrodeck",
          "share/zsh/site-functions/_ferrodeck", "share/fish/vendor_completions.d/ferrodeck.fish",
          "share/icons/hicolor/scalable/apps/ferrodeck.svg",
          "share/icons/hicolor/symbolic/apps/ferrodeck-symbolic.svg"})
        EXPECT_TRUE(exists(prefix() + "/" + name)) << name;
}

// A text of the program names it so.
TEST_F(Install, the_program_has_a_second_name) {
    char target[64] = {};
    ASSERT_GT(readlink((prefix() + "/bin/Ferrodeck").c_str(), target, sizeof target - 1), 0);
    EXPECT_STREQ(target, "ferrodeck");
}

TEST_F(Install, the_helper_and_its_policy_agree) {
    const std::string policy =
        read_file(prefix() + "/share/polkit-1/actions/com.orlomar.ferrodeck.policy");
    EXPECT_NE(policy.find("/usr/libexec/ferrodeck/ferrodeck-helper"), std::string::npos) << policy;
    EXPECT_EQ(lstat_of(prefix() + "/libexec/ferrodeck/ferrodeck-helper").st_mode & 07777, 0755U);
    expect_content("xmllint", "--noout share/polkit-1/actions/com.orlomar.ferrodeck.policy");
}

TEST_F(Install, the_desktop_file_is_valid) {
    expect_content("desktop-file-validate", "share/applications/ferrodeck.desktop");
    const std::string text = read_file(prefix() + "/share/applications/ferrodeck.desktop");
    for (const char* line : {"\nExec=ferrodeck --left=%f\n", "\nMimeType=inode/directory;\n",
                             "\nIcon=ferrodeck\n", "\nStartupWMClass=ferrodeck\n"})
        EXPECT_NE(text.find(line), std::string::npos) << line;
}

TEST_F(Install, the_metainfo_is_valid) {
    expect_content("appstreamcli", "validate --no-net share/metainfo/ferrodeck.metainfo.xml");
    expect_content("xmllint", "--noout share/metainfo/ferrodeck.metainfo.xml");
}

TEST_F(Install, the_manuals_give_no_warning) {
    std::string output;
    if (run("command -v man", &output) != 0)
        GTEST_SKIP() << "man is not installed";
    for (const char* page : {"man1/ferrodeck.1.gz", "man8/ferrodeck-helper.8.gz"}) {
        EXPECT_EQ(run("MANROFFSEQ= MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 -Z " + prefix() +
                          "/share/man/" + page + " 2>&1 >/dev/null",
                      &output),
                  0);
        EXPECT_EQ(output, "") << page;
    }
    run("man -l " + prefix() + "/share/man/man1/ferrodeck.1.gz 2>/dev/null", &output);
    for (const char* option : {"--left=", "--right=", "--active=", "--geometry=", "--action="})
        EXPECT_NE(output.find(option), std::string::npos) << option;
}

TEST_F(Install, the_shells_complete_the_options_but_the_scripts_one) {
    for (const char* file :
         {"bash-completion/completions/ferrodeck", "zsh/site-functions/_ferrodeck",
          "fish/vendor_completions.d/ferrodeck.fish"}) {
        const std::string text = read_file(prefix() + "/share/" + file);
        for (const char* option : {"left", "right", "active", "geometry"})
            EXPECT_NE(text.find(option), std::string::npos) << file << " " << option;
        EXPECT_EQ(text.find("action"), std::string::npos) << file;
    }
    // What bash says to two letters.
    std::string output;
    if (run("test -e /usr/share/bash-completion/bash_completion", &output) != 0)
        GTEST_SKIP() << "bash-completion is not installed";
    EXPECT_EQ(
        run("bash -c '. /usr/share/bash-completion/bash_completion; . " + prefix() +
                "/share/bash-completion/completions/ferrodeck; COMP_WORDS=(ferrodeck --l); "
                "COMP_CWORD=1; COMP_LINE=\"ferrodeck --l\"; COMP_POINT=13; _ferrodeck 2>/dev/null; "
                "echo \"${COMPREPLY[*]}\"'",
            &output),
        0);
    EXPECT_EQ(output, "--left=\n");
}

// One version for all, which the build's own file gives.
TEST(Packaging, every_package_has_the_programs_version) {
    const std::string source = SOURCE_DIR "/packaging/";
    const std::string version = FERRODECK_VERSION;
    EXPECT_NE(read_file(source + "rpm/ferrodeck.spec").find("Version:        " + version + "\n"),
              std::string::npos);
    EXPECT_NE(read_file(source + "snap/snapcraft.yaml").find("version: \"" + version + "\"\n"),
              std::string::npos);
    EXPECT_NE(read_file(source + "appimage/AppImageBuilder.yml").find("version: " + version + "\n"),
              std::string::npos);
}

// The dialogue about a Snap's missing interfaces names them, and the Snap itself.
TEST(Packaging, the_snap_has_the_interfaces_that_the_program_asks_for) {
    const std::string snap = read_file(SOURCE_DIR "/packaging/snap/snapcraft.yaml");
    for (const char* line :
         {"name: ferrodeck\n", "- removable-media\n", "- system-backup\n", "- mount-observe\n"})
        EXPECT_NE(snap.find(line), std::string::npos) << line;
}

TEST(Packaging, the_recipes_can_be_read) {
    std::string output;
    for (const char* file : {"flatpak/org.example.ferrodeck.yml", "snap/snapcraft.yaml",
                             "appimage/AppImageBuilder.yml"}) {
        if (run("/usr/bin/python3 -c 'import yaml'", &output) != 0)
            GTEST_SKIP() << "python3-yaml is not installed";
        EXPECT_EQ(run(std::string("/usr/bin/python3 -c 'import yaml, sys; "
                                  "yaml.safe_load(open(sys.argv[1]))' " SOURCE_DIR "/packaging/") +
                          file + " 2>&1",
                      &output),
                  0)
            << output;
    }
    if (run("command -v rpmspec", &output) != 0)
        GTEST_SKIP() << "rpm is not installed";
    EXPECT_EQ(
        run("rpmspec -P " SOURCE_DIR "/packaging/rpm/ferrodeck.spec 2>&1 >/dev/null", &output), 0)
        << output;
}

}  // namespace
