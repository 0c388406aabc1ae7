#include "file_ops.h"

#include "fresh_process.h"
#include "log_lines.h"
#include "test_env.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

// What is found when these are the only programs, and what $TERMINAL says.
std::string terminal_among(const std::vector<std::string>& programs, const char* chosen = nullptr) {
    const test_env::TempDir bin;
    for (const std::string& name : programs)
        test_env::write_file(bin / name, "#!/bin/sh\n", 0755);
    return test_env::answer_of_child([&] {
        setenv("PATH", bin.path().c_str(), 1);
        if (chosen)
            setenv("TERMINAL", chosen, 1);
        else
            unsetenv("TERMINAL");
        const char* const found = file_ops::terminal_program();
        return std::string(found ? found : "none");
    });
}

TEST(Terminal, the_first_known_one_that_is_installed_is_taken) {
    const std::vector<std::string> known = {"x-terminal-emulator",
                                            "gnome-terminal",
                                            "konsole",
                                            "xfce4-terminal",
                                            "mate-terminal",
                                            "lxterminal",
                                            "tilix",
                                            "terminator",
                                            "kgx",
                                            "alacritty",
                                            "kitty",
                                            "foot",
                                            "wezterm",
                                            "urxvt",
                                            "st",
                                            "xterm"};
    for (size_t i = 0; i < known.size(); ++i)
        EXPECT_EQ(terminal_among({known.begin() + static_cast<ptrdiff_t>(i), known.end()}),
                  known[i]);
    EXPECT_EQ(terminal_among({}), "none");
    EXPECT_EQ(terminal_among({"bash"}), "none");
}

TEST(Terminal, the_users_choice_goes_first_if_it_can_be_found) {
    EXPECT_EQ(terminal_among({"mine", "xterm"}, "mine"), "mine");
    EXPECT_EQ(terminal_among({"xterm"}, "mine"), "xterm");
    EXPECT_EQ(terminal_among({"xterm"}, ""), "xterm");
}

TEST(Terminal, the_search_happens_once_and_is_logged) {
    REQUIRE_FRESH_PROCESS();
    const test_env::TempDir bin;
    test_env::write_file(bin / "foot", "#!/bin/sh\n", 0755);
    setenv("PATH", bin.path().c_str(), 1);
    unsetenv("TERMINAL");
    const char* const found = file_ops::terminal_program();
    EXPECT_STREQ(found, "foot");
    setenv("PATH", "/nonexistent", 1);
    EXPECT_EQ(file_ops::terminal_program(), found);
    EXPECT_EQ(test_env::logged("terminal: foot"), 1);
}

TEST(Terminal, the_log_tells_of_the_choice_and_of_none) {
    const auto line_after = [](const char* chosen) {
        const test_env::TempDir bin;
        test_env::write_file(bin / "mine", "#!/bin/sh\n", 0755);
        return test_env::answer_of_child([&] {
            setenv("PATH", bin.path().c_str(), 1);
            setenv("TERMINAL", chosen, 1);
            (void)file_ops::terminal_program();
            return std::to_string(test_env::logged("terminal: mine (from $TERMINAL)")) +
                   std::to_string(test_env::logged("terminal: (none found)"));
        });
    };
    EXPECT_EQ(line_after("mine"), "10");
    EXPECT_EQ(line_after("other"), "01");
}

}  // namespace
