// Another program that files are dragged to and from, in a window titled "Partner": see
// dnd_partner_main.cpp. It shows up on DISPLAY.

#pragma once

#include "test_env.h"

#include <cstdio>
#include <string>
#include <sys/types.h>
#include <vector>

namespace test_env {

class Partner {
  public:
    Partner() = default;
    ~Partner();
    Partner(const Partner&) = delete;
    Partner& operator=(const Partner&) = delete;

    // What it gives away, as the bytes of a list of URIs; again at any time.
    void give(const std::string& list) const { write_file(m_dir / "list", list); }
    // From then on it promises a list and gives none.
    void take_back() const { std::remove((m_dir / "list").c_str()); }
    // It offers to "copy", to "move" or "both". Comes back once the window is there.
    bool start(const std::string& actions, const std::string& geometry);
    // Its window, as xdotool knows it.
    const std::string& window() const { return m_window; }
    // What has happened there.
    std::vector<std::string> lines() const;
    size_t count(const std::string& line) const;
    bool wait_line(const std::string& line, double seconds = 20) const;

  private:
    TempDir m_dir;
    std::string m_window;
    pid_t m_pid = -1;
};

}  // namespace test_env
