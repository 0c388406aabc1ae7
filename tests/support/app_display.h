// An X server for tests that open a window. One is started only when DISPLAY names none that
// answers, and it ends with the test process, however that ends.

#pragma once

#include <string>
#include <sys/types.h>

namespace test_env {

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

  private:
    std::string m_display;
    pid_t m_server = -1;
    pid_t m_manager = -1;
};

// Makes sure that DISPLAY names a server that answers. False when there is none to be had.
bool ensure_display();

}  // namespace test_env
