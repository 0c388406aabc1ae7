// The built program as a user has it: a process of its own with a home, a configuration folder and
// a log of its own.

#pragma once

#include "test_env.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace test_env {

class Program {
  public:
    Program() = default;
    ~Program();  // ends a process that is still there
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // Where the built program lies.
    static std::string path();

    // Before start(): the text of settings.json.
    void write_settings(const std::string& text);
    // A file of the configuration folder, which is made if it is missing.
    std::string config_file(const std::string& name) const;
    // Before start(): on this Wayland compositor, which its socket names, instead of DISPLAY.
    void use_wayland(const std::string& socket) { m_wayland = socket; }
    void start(const std::vector<std::string>& arguments, const std::string& working_dir = {});
    // The exit status, 128 and the signal's number, or -1 when it has not ended by then.
    int wait(double seconds = 60);
    // Whether the end that wait() has told of was by a signal.
    bool killed() const { return m_killed; }
    void signal(int number);
    // What it has written to its standard error. Told before start().
    void keep_errors() { m_keep_errors = true; }
    std::string errors() const { return read_file(m_home / "errors"); }
    pid_t pid() const { return m_pid; }

    // start() and wait().
    int run(const std::vector<std::string>& arguments, const std::string& working_dir = {});

    // The log's lines without time, level and thread.
    std::vector<std::string> log() const;
    bool logged(const std::string& text) const;
    bool wait_logged(const std::string& text, double seconds = 30) const;
    std::string log_path() const { return m_home / "config/Ferrodeck/Ferrodeck.log"; }
    std::string settings_path() const { return config_file("settings.json"); }

  private:
    TempDir m_home;
    std::string m_wayland;  // a socket's path; empty: X11
    pid_t m_pid = -1;
    bool m_killed = false;
    bool m_keep_errors = false;
};

}  // namespace test_env
