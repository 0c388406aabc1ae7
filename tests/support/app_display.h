// An X server for tests that open a window. One is started only when DISPLAY names none that
// answers, and it ends with the test process, however that ends.

#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace test_env {

// Starts a program that ends with this process at the latest; of its descriptors only keep_fd is
// passed on. -1 when it cannot be started.
pid_t spawn(const std::vector<std::string>& words, int keep_fd = -1);
// The text up to the first line end that a program started by spawn() writes to a pipe, whose
// number replaces "%fd" in its words. Empty when it ends without one.
std::string spawn_and_read_line(std::vector<std::string> words, pid_t& pid);
// Ends it and waits for it; nothing for -1.
void end(pid_t pid);

// A server of its own, with or without a window manager, for tests that send keys to a focused
// window: a shared server has only one focus.
class XServer {
  public:
    explicit XServer(bool window_manager);
    ~XServer();
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;

    // ":7", or empty when Xvfb is not installed.
    const std::string& display() const { return m_display; }
    // Until the window manager has taken over. False when it never does.
    bool wait_for_window_manager() const;

  private:
    std::string m_display;
    pid_t m_server = -1;
    pid_t m_manager = -1;
};

// Makes sure that DISPLAY names a server that answers. False when there is none to be had.
bool ensure_display();

// Gives this process a server of its own to the end of its life, since GDK stays connected: on a
// shared one other tests' windows take the focus, and a window that they uncover is painted anew.
// To be called before the first window. False when Xvfb cannot be started.
bool use_own_display();

}  // namespace test_env
