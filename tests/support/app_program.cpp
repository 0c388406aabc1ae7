#include "app_program.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace test_env {

namespace {

bool poll_for(double seconds, const std::function<bool()>& condition) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    for (;;) {
        if (condition())
            return true;
        if (std::chrono::steady_clock::now() > until)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

}  // namespace

Program::~Program() {
    if (m_pid <= 0)
        return;
    kill(m_pid, SIGKILL);
    while (waitpid(m_pid, nullptr, 0) < 0 && errno == EINTR)
        continue;
}

std::string Program::path() {
    return FERRODECK_PROGRAM;
}

void Program::write_settings(const std::string& text) {
    write_file(settings_path(), text);
}

std::string Program::config_file(const std::string& name) const {
    make_dirs(m_home / "config/Ferrodeck");
    return m_home / ("config/Ferrodeck/" + name);
}

void Program::start(const std::vector<std::string>& arguments, const std::string& working_dir) {
    make_dirs(m_home / "home");
    make_dirs(m_home / "config");
    std::vector<std::string> words = {path()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    const std::string home = m_home / "home";
    const std::string config = m_home / "config";
    const pid_t parent = getpid();
    m_pid = fork();
    if (m_pid != 0)
        return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(126);
    if (m_keep_errors) {
        const int errors = open((m_home / "errors").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(errors, STDERR_FILENO);
        close(errors);
    }
    // As a desktop session starts it, whatever this test process has inherited.
    ::signal(SIGPIPE, SIG_DFL);
    rlimit files = {};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = std::min<rlim_t>(files.rlim_max, 1024);
    setrlimit(RLIMIT_NOFILE, &files);
    setenv("HOME", home.c_str(), 1);
    setenv("XDG_CONFIG_HOME", config.c_str(), 1);
    setenv("XDG_DATA_HOME", (home + "/.local/share").c_str(), 1);
    setenv("GDK_BACKEND", m_wayland.empty() ? "x11" : "wayland", 1);
    if (!m_wayland.empty()) {
        setenv("WAYLAND_DISPLAY", m_wayland.c_str(), 1);
        unsetenv("DISPLAY");
    }
    setenv("NO_AT_BRIDGE", "1", 1);
    setenv("GSETTINGS_BACKEND", "memory", 1);
    setenv("GIO_USE_VFS", "local", 1);
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    // A sanitized build would report what fontconfig keeps, and end with its own status.
    setenv("ASAN_OPTIONS", "detect_leaks=0", 0);
    if (!working_dir.empty() && chdir(working_dir.c_str()) != 0)
        _exit(126);
    execv(argv[0], argv.data());
    _exit(127);
}

int Program::wait(double seconds) {
    int status = 0;
    if (m_pid <= 0 ||
        !poll_for(seconds, [this, &status] { return waitpid(m_pid, &status, WNOHANG) == m_pid; }))
        return -1;
    m_pid = -1;
    m_killed = WIFSIGNALED(status);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void Program::signal(int number) {
    if (m_pid > 0)
        kill(m_pid, number);
}

int Program::run(const std::vector<std::string>& arguments, const std::string& working_dir) {
    start(arguments, working_dir);
    return wait();
}

std::vector<std::string> Program::log() const {
    std::vector<std::string> lines;
    std::ifstream in(log_path());
    for (std::string line; std::getline(in, line);) {
        // "09:08:07.123 INFO  [ui  ] text"
        const size_t bracket = line.find("] ");
        lines.push_back(bracket == std::string::npos ? line : line.substr(bracket + 2));
    }
    return lines;
}

bool Program::logged(const std::string& text) const {
    for (const std::string& line : log())
        if (line == text)
            return true;
    return false;
}

bool Program::wait_logged(const std::string& text, double seconds) const {
    return poll_for(seconds, [this, &text] { return logged(text); });
}

}  // namespace test_env
