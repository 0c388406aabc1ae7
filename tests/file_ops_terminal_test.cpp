#include "file_ops.h"

#include "fresh_process.h"
#include "log_lines.h"
#include "open_files.h"
#include "test_env.h"
#include "wait_until.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

using test_env::exists;
using test_env::make_dirs;
using test_env::read_file;
using test_env::TempDir;
using test_env::write_file;

namespace {

// A search path of its own with programs that write down how they were called: the folder they
// stand in, their own name, each word, and what their output is.
class FakeTerminals {
  public:
    void add(const std::string& name, const std::string& folder = "bin") {
        make_dirs(m_dir / folder);
        // In one piece, so that a reader never sees a half.
        write_file(
            m_dir / folder + "/" + name,
            "#!/bin/sh\nexec 3>&1 4>&2\n{ pwd; for word; do echo \"<$word>\"; done; readlink "
            "/proc/$$/fd/3 /proc/$$/fd/4 /proc/$$/fd/0; ulimit -Sn; } > \"" +
                m_dir / "called" + ".tmp\"\nmv \"" + m_dir / "called" + ".tmp\" \"" +
                m_dir / "called" + "\"\n",
            0755);
    }
    void link(const std::string& name, const std::string& target) {
        make_dirs(m_dir / "bin");
        ASSERT_EQ(symlink(target.c_str(), (m_dir / "bin/" + name).c_str()), 0);
    }
    std::string path() const { return m_dir / "bin"; }
    std::string operator/(const std::string& name) const { return m_dir / name; }

    // The words that the terminal got for a folder, in a process that has not looked for one yet.
    // A failure is told by the message.
    std::string words_for(const std::string& folder, const char* chosen = nullptr) const {
        return test_env::answer_of_child([&] {
            use(chosen);
            const std::string error = file_ops::open_terminal_at(folder);
            if (!error.empty())
                return error;
            const std::vector<std::string> lines = wait_for_call();
            std::string words;
            for (size_t i = 1; i + 4 < lines.size(); ++i)
                words += lines[i];
            return lines[0] == folder ? words : "in " + lines[0];
        });
    }
    void use(const char* chosen) const {
        // The fakes need the shell's tools as well.
        setenv("PATH", (path() + ":" + m_tools.path()).c_str(), 1);
        if (chosen)
            setenv("TERMINAL", chosen, 1);
        else
            unsetenv("TERMINAL");
    }
    std::vector<std::string> wait_for_call() const {
        const std::string file = m_dir / "called";
        EXPECT_TRUE(test_env::wait_until([&] { return exists(file); }));
        const std::string content = read_file(file);
        std::remove(file.c_str());
        std::vector<std::string> lines;
        for (size_t at = 0; at < content.size();) {
            const size_t end = content.find('\n', at);
            lines.push_back(content.substr(at, end - at));
            at = end + 1;
        }
        return lines;
    }
    FakeTerminals() {
        for (const char* tool : {"readlink", "mv"})
            if (symlink((std::string("/bin/") + tool).c_str(), (m_tools / tool).c_str()) != 0)
                ADD_FAILURE();
    }

  private:
    const TempDir m_dir;
    const TempDir m_tools;
};

}  // namespace

TEST(TerminalAt, each_terminal_is_told_the_folder_in_its_own_way) {
    const TempDir folder;
    const std::string dir = folder / "a b=c";
    make_dirs(dir);
    const std::string joined = "<--working-directory=" + dir + ">";
    const std::pair<const char*, std::string> kRows[] = {
        {"gnome-terminal", joined},
        {"mate-terminal", joined},
        {"xfce4-terminal", joined},
        {"lxterminal", joined},
        {"tilix", joined},
        {"terminator", joined},
        {"kgx", joined},
        {"foot", joined},
        {"alacritty", joined},
        {"konsole", "<--workdir><" + dir + ">"},
        {"kitty", "<--directory><" + dir + ">"},
        {"wezterm", "<start><--cwd><" + dir + ">"},
        {"urxvt", ""},
        {"st", ""},
        {"xterm", ""},
        {"x-terminal-emulator", ""},
    };
    for (const auto& [program, words] : kRows) {
        FakeTerminals fakes;
        fakes.add(program);
        EXPECT_EQ(fakes.words_for(dir), words) << program;
    }
}

TEST(TerminalAt, links_and_a_wrapper_tell_which_terminal_it_is) {
    const TempDir folder;
    const std::string& dir = folder.path();
    {
        FakeTerminals fakes;
        fakes.add("konsole", "opt");
        fakes.link("alternative", "../opt/konsole");
        fakes.link("x-terminal-emulator", "alternative");
        EXPECT_EQ(fakes.words_for(dir), "<--workdir><" + dir + ">");
    }
    {
        FakeTerminals fakes;
        fakes.add("gnome-terminal.wrapper", "opt");
        fakes.link("x-terminal-emulator", "../opt/gnome-terminal.wrapper");
        EXPECT_EQ(fakes.words_for(dir), "<--working-directory=" + dir + ">");
    }
    {
        // Only an ending is cut off, and only once.
        FakeTerminals fakes;
        fakes.add("kitty.wrapper.old", "opt");
        fakes.link("x-terminal-emulator", "../opt/kitty.wrapper.old");
        EXPECT_EQ(fakes.words_for(dir), "");
    }
    {
        // The name that a known terminal really has counts, not the one it is called by.
        FakeTerminals fakes;
        fakes.add("mine", "opt");
        fakes.link("konsole", "../opt/mine");
        EXPECT_EQ(fakes.words_for(dir), "");
    }
}

TEST(TerminalAt, the_users_choice_is_taken_by_its_name_or_path) {
    const TempDir folder;
    const std::string& dir = folder.path();
    FakeTerminals fakes;
    fakes.add("foot");
    fakes.add("kitty", "opt");
    EXPECT_EQ(fakes.words_for(dir, (fakes / "opt/kitty").c_str()), "<--directory><" + dir + ">");
    EXPECT_EQ(fakes.words_for(dir, "foot"), "<--working-directory=" + dir + ">");
    EXPECT_EQ(fakes.words_for(dir, ""), "<--working-directory=" + dir + ">");
    EXPECT_EQ(fakes.words_for(dir, "not-there"), "<--working-directory=" + dir + ">");
}

TEST(TerminalAt, none_is_told) {
    const FakeTerminals fakes;
    EXPECT_EQ(fakes.words_for("/"), "No terminal program was found on this system.");
}

TEST(TerminalAt, what_cannot_be_started_is_told_and_logged) {
    const TempDir folder;
    FakeTerminals fakes;
    fakes.add("xterm");
    const std::string outcome = test_env::answer_of_child([&] {
        fakes.use(nullptr);
        const std::string gone = folder / "gone";
        const std::string error = file_ops::open_terminal_at(gone);
        EXPECT_NE(error.find("gone"), std::string::npos) << error;
        return std::to_string(test_env::logged("terminal xterm in " + gone + " failed: " + error)) +
               std::to_string(test_env::logged_with("opened in"));
    });
    EXPECT_EQ(outcome, "10");
    // It has been taken away since it was found.
    EXPECT_EQ(test_env::answer_of_child([&] {
                  fakes.use(nullptr);
                  (void)file_ops::terminal_program();
                  std::remove((fakes / "bin/xterm").c_str());
                  const std::string error = file_ops::open_terminal_at(folder.path());
                  return error.find("No such file") != std::string::npos ? "told" : error;
              }),
              "told");
}

TEST(TerminalAt, a_terminal_is_on_its_own) {
    REQUIRE_FRESH_PROCESS();
    const TempDir folder;
    FakeTerminals fakes;
    fakes.add("xterm");
    struct rlimit before = {};
    getrlimit(RLIMIT_NOFILE, &before);
    if (before.rlim_cur == before.rlim_max) {
        before.rlim_cur = before.rlim_max / 2;
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    }
    open_files::raise_limit();
    fakes.use(nullptr);
    EXPECT_EQ(file_ops::open_terminal_at(folder.path()), "");
    EXPECT_EQ(test_env::logged("terminal xterm opened in " + folder.path()), 1);
    const std::vector<std::string> lines = fakes.wait_for_call();
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[1], "/dev/null");  // its output
    EXPECT_EQ(lines[2], "/dev/null");  // and its errors go nowhere
    EXPECT_EQ(lines[3], "/dev/null");
    EXPECT_EQ(lines[4], std::to_string(before.rlim_cur));
}

// A search path may name a folder by where one stands. The shown folder may be anybody's.
TEST(TerminalAt, a_program_in_the_shown_folder_is_never_run) {
    const TempDir folder;
    FakeTerminals fakes;
    fakes.add("xterm");
    const std::string bait = folder / "bait";
    write_file(folder / "xterm", "#!/bin/sh\n: > " + bait + "\n", 0755);
    EXPECT_EQ(test_env::answer_of_child([&] {
                  fakes.use(nullptr);
                  setenv("PATH", (".:" + std::string(getenv("PATH"))).c_str(), 1);
                  if (chdir("/") != 0)
                      return std::string("no /");
                  const std::string error = file_ops::open_terminal_at(folder.path());
                  return error.empty() ? fakes.wait_for_call()[0] : error;
              }),
              folder.path());
    EXPECT_FALSE(exists(bait));
}
