// The built program drives itself through everything it can do, in a home that is thrown away.

#include "app_roads.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <set>

namespace {

using test_env::make_dirs;
using test_env::read_file;
using test_env::write_file;

class AllActions : public ProgramRoads {
  protected:
    void SetUp() override {
        ProgramRoads::SetUp();
        // No terminal is to stay behind, and no program of this machine is to get an address.
        write_file(m_bin / "x-terminal-emulator", "#!/bin/sh\n", 0755);
        set("PATH", m_bin.path() + ":/usr/bin:/bin");
        set("TERMINAL", "x-terminal-emulator");
        set("XDG_DATA_DIRS", m_bin / "no-data");
        m_program.keep_errors();
    }
    void TearDown() override {
        for (const auto& [name, value] : m_before)
            value.empty() ? unsetenv(name.c_str()) : setenv(name.c_str(), value.c_str(), 1);
    }
    void set(const std::string& name, const std::string& value) {
        const char* const before = std::getenv(name.c_str());
        m_before.emplace(name, before ? before : "");
        setenv(name.c_str(), value.c_str(), 1);
    }
    void run(const std::string& actions) {
        std::remove(m_program.log_path().c_str());
        ASSERT_EQ(m_program.run(sides(actions)), 0);
        const std::string errors = m_program.errors();
        for (const char* bad : {"WARNING **", "CRITICAL **", "ERROR **", "-WARNING", "-CRITICAL"})
            EXPECT_EQ(errors.find(bad), std::string::npos) << errors;
    }
    // Every opened dialogue, each with as many choices behind it as it tells.
    std::set<std::string> dialogues() {
        std::set<std::string> found;
        const std::vector<std::string> lines = m_program.log();
        const std::string opened = "dialog opened: ";
        for (size_t i = 0; i < lines.size(); ++i) {
            if (lines[i].rfind(opened, 0) != 0)
                continue;
            const std::string name =
                lines[i].substr(opened.size(), lines[i].find(' ', opened.size()) - opened.size());
            const size_t number = lines[i].find("— ") + std::string("— ").size();
            const int told = std::atoi(lines[i].c_str() + number);
            EXPECT_GT(told, 0) << lines[i];
            int listed = 0;
            while (i + 1 < lines.size() && lines[i + 1].rfind("  option ", 0) == 0) {
                ++listed;
                ++i;
            }
            EXPECT_EQ(listed, told) << name;
            found.insert(name);
        }
        return found;
    }
    void expect_all(const std::string& theme, const std::string& language);
    size_t count_lines(const std::string& prefix) {
        const std::vector<std::string> lines = m_program.log();
        return static_cast<size_t>(
            std::count_if(lines.begin(), lines.end(),
                          [&](const std::string& line) { return line.rfind(prefix, 0) == 0; }));
    }

    test_env::TempDir m_bin;
    std::map<std::string, std::string> m_before;
};

// In a session of that look, without a complaint of GTK's, and with the settings as before.
void AllActions::expect_all(const std::string& theme, const std::string& language) {
    make_dirs(l("folder/inner"));
    write_file(l("a.txt"), "1");
    write_file(r("b.txt"), "2");
    m_program.write_settings("{\n  \"language\": \"" + language + "\",\n  \"theme\": \"" + theme +
                             "\",\n  \"thread_count\": 2,\n  \"font_scale\": 120,\n"
                             "  \"delete_to_trash\": false,\n  \"left_sort_key\": \"size\",\n"
                             "  \"default_conflict\": \"skip\"\n}\n");
    run("Refresh");  // which leaves them complete and in their own form
    const std::string before = read_file(m_program.settings_path());
    ASSERT_NE(before.find("\"theme\": \"" + theme + "\""), std::string::npos);
    run("ALL");
    EXPECT_EQ(read_file(m_program.settings_path()), before);
    EXPECT_EQ(count_lines("selftest: -> "), 102U);
    EXPECT_TRUE(m_program.logged("selftest: done, 102 executed, 0 unknown"));
    EXPECT_TRUE(m_program.logged("language " + language + ", theme " + theme));
    EXPECT_EQ(count_lines("selftest:    still busy"), 0U);
    const std::set<std::string> seen = dialogues();
    for (const char* name :
         {"About", "Settings", "NewFolder", "NewFile", "SelectPattern", "Message", "LanguagePicker",
          "LogView", "Bookmarks", "FontPicker", "Sandbox", "Licenses"})
        EXPECT_TRUE(seen.contains(name)) << name;
    for (const char* skipped : {"Quit", "RestartAsRoot", "DeletePermanent", "SettingsReset"})
        EXPECT_FALSE(m_program.logged(std::string("selftest: -> ") + skipped)) << skipped;
}

TEST_F(AllActions, in_english_on_light) {
    expect_all("light", "en");
}

TEST_F(AllActions, in_english_on_dark) {
    expect_all("dark", "en");
}

TEST_F(AllActions, in_german_on_light) {
    expect_all("light", "de");
}

TEST_F(AllActions, in_german_on_dark) {
    expect_all("dark", "de");
}

TEST_F(AllActions, in_arabic_on_light) {
    expect_all("light", "ar");
}

TEST_F(AllActions, in_arabic_on_dark) {
    expect_all("dark", "ar");
}

// What "ALL" does not come to, since nothing is marked when it gets there.
TEST_F(AllActions, dialogues_about_what_is_marked_are_listed_too) {
    std::string ignored;
    if (test_env::run("command -v tar && command -v gzip", &ignored) != 0)
        GTEST_SKIP() << "tar or gzip is not installed";
    ASSERT_EQ(test_env::run("cd '" + m_bin.path() +
                            "' && mkdir -p in/folder && touch in/folder/one in/two && tar -czf '" +
                            l("a.tar.gz") + "' --sort=name in"),
              0);
    run("SelectAll,Properties,Pack,PackToOther,Unpack,ViewArchive,Delete");
    EXPECT_TRUE(m_program.logged("selftest: done, 7 executed, 0 unknown"));
    const std::set<std::string> seen = dialogues();
    for (const char* name : {"Properties", "Pack", "UnpackSide", "ArchiveView", "ConfirmDelete"})
        EXPECT_TRUE(seen.contains(name)) << name;
    EXPECT_TRUE(m_program.logged("selftest:    archive listed: 4 entries (2 dirs)"));
    // A file that is no archive but by its name.
    write_file(l("a.tar.gz"), "no archive");
    run("SelectAll,ViewArchive");
    EXPECT_EQ(count_lines("selftest:    archive listing failed: "), 1U);
    EXPECT_EQ(count_lines("selftest:    archive listed: "), 0U);
}

}  // namespace
