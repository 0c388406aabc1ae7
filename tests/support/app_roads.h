// The built program, worked as a user does it: unattended, with keys and with the pointer under a
// window manager.

#pragma once

#include "app_display.h"
#include "app_program.h"
#include "test_env.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

inline void sleep_ms(int ms) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

template <class Condition>
bool wait_until(double seconds, Condition condition) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > until)
            return false;
        sleep_ms(5);
    }
    return true;
}

class ProgramRoads : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!test_env::ensure_display())
            GTEST_SKIP() << "no X server, and Xvfb cannot be started";
    }
    std::vector<std::string> sides(const std::string& actions = {}) {
        std::vector<std::string> words = {"--left=" + m_left.path(), "--right=" + m_right.path()};
        if (!actions.empty())
            words.push_back("--action=" + actions);
        return words;
    }
    std::string l(const std::string& name) { return m_left / name; }
    std::string r(const std::string& name) { return m_right / name; }

    test_env::TempDir m_left;
    test_env::TempDir m_right;
    test_env::Program m_program;
};

class KeyRoads : public ProgramRoads {
  protected:
    void SetUp() override {
        std::string ignored;
        if (test_env::run("command -v xdotool && command -v openbox", &ignored) != 0)
            GTEST_SKIP() << "xdotool or openbox is not installed";
        m_server = std::make_unique<test_env::XServer>(true);
        if (m_server->display().empty())
            GTEST_SKIP() << "Xvfb cannot be started";
        setenv("DISPLAY", m_server->display().c_str(), 1);
    }
    // Starts the program and waits until its window has the keyboard.
    void open(const std::vector<std::string>& more = {}) {
        ASSERT_TRUE(m_server->wait_for_window_manager());
        std::vector<std::string> words = sides();
        words.insert(words.end(), more.begin(), more.end());
        m_program.start(words);
        ASSERT_TRUE(wait_until(30,
                               [] {
                                   std::string found;
                                   std::string active;
                                   test_env::run(
                                       "xdotool search --onlyvisible --name '^Ferrodeck$'", &found);
                                   test_env::run("xdotool getactivewindow", &active);
                                   return !found.empty() && found == active;
                               }))
            << "no active window; the program's state: " << m_program.wait(0);
        sleep_ms(300);
    }
    void keys(const std::string& names) {
        std::string out;
        ASSERT_EQ(test_env::run("xdotool key --delay 40 " + names, &out), 0) << out;
    }
    // The end of the transfer, as the log tells it.
    bool wait_line(const std::string& prefix) {
        return wait_until(30, [&] {
            for (const std::string& line : m_program.log())
                if (line.compare(0, prefix.size(), prefix) == 0)
                    return true;
            return false;
        });
    }

    std::unique_ptr<test_env::XServer> m_server;
};

// Places are in the window of 1100 by 720 that it opens with, of which the sides take 508 each.
class PointerRoads : public KeyRoads {
  protected:
    static constexpr int kHeadY = 94 + 28 + 34 + 26 + 13;
    static constexpr int kPathY = 94 + 28 + 34 + 13;
    static constexpr int kThumbX = 502;

    static int row_y(int row) { return 208 + 24 * row + 12; }
    void open(const std::vector<std::string>& more = {}) {
        KeyRoads::open(more);
        std::string id;
        test_env::run("xdotool getactivewindow", &id);
        m_window = id.substr(0, id.find('\n'));
    }
    void xdotool(const std::string& words) {
        std::string out;
        ASSERT_EQ(test_env::run("xdotool " + words, &out), 0) << out;
    }
    void go(int x, int y) {
        xdotool("mousemove --window " + m_window + " " + std::to_string(x) + " " +
                std::to_string(y));
        sleep_ms(60);
    }
    void click(int x, int y, const std::string& options = {}) {
        go(x, y);
        xdotool("click " + options + " 1");
        sleep_ms(150);
    }
    void pull(int x, int y, int to_x, int to_y) {
        go(x, y);
        xdotool("mousedown 1");
        for (int i = 1; i <= 4; ++i)
            go(x + (to_x - x) * i / 4, y + (to_y - y) * i / 4);
        xdotool("mouseup 1");
        sleep_ms(150);
    }
    // A hundred files; the row of file i is i + 1.
    void make_files() {
        for (int i = 0; i < 100; ++i)
            test_env::write_file(l("f" + std::to_string(100 + i)), "x");
    }
    // F5 takes what is marked, and tells by it where the clicks have gone. The line with its result
    // moves all rows down.
    void copy_marked(const std::string& expected) {
        keys("F5");
        EXPECT_TRUE(wait_until(20, [&] { return test_env::exists(r(expected)); })) << expected;
    }
    void quit() {
        keys("ctrl+q");
        EXPECT_EQ(m_program.wait(15), 0);
    }
    bool stored(const std::string& line) {
        const std::string text = test_env::read_file(m_program.settings_path());
        return text.find(line) != std::string::npos;
    }

    std::string m_window;
};
