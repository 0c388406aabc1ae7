#include "app_display.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace test_env {

namespace {

bool connects(const char* path, bool abstract) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const size_t shift = abstract ? 1 : 0;
    std::snprintf(address.sun_path + shift, sizeof address.sun_path - shift, "%s", path);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto length =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + shift + std::strlen(path));
    const bool ok = connect(fd, reinterpret_cast<const sockaddr*>(&address), length) == 0;
    close(fd);
    return ok;
}

// Whether a local server answers to ":7" or ":7.0".
bool answers(const std::string& display) {
    if (display.empty() || display[0] != ':')
        return false;
    const std::string path = "/tmp/.X11-unix/X" + std::to_string(std::atoi(display.c_str() + 1));
    return connects(path.c_str(), true) || connects(path.c_str(), false);
}

// Runs a program that is to end with this process. -1 when it cannot be started.
pid_t spawn(const std::vector<std::string>& words, int keep_fd) {
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child != 0)
        return child;
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent)
        _exit(1);
    if (keep_fd >= 0)
        fcntl(keep_fd, F_SETFD, 0);
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int fd : {0, 1, 2})
        dup2(null, fd);
    std::vector<char*> argv;
    for (const std::string& word : words)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    _exit(127);
}

void end(pid_t pid) {
    if (pid <= 0)
        return;
    kill(pid, SIGTERM);
    while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR)
        continue;
}

}  // namespace

XServer::XServer(bool window_manager) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return;
    m_server = spawn({"Xvfb", "-displayfd", std::to_string(ends[1]), "-screen", "0", "1600x1200x24",
                      "-nolisten", "tcp", "-noreset"},
                     ends[1]);
    close(ends[1]);
    // The server writes its number once it takes connections; a failed start closes the pipe.
    std::string number;
    char c = 0;
    while (read(ends[0], &c, 1) == 1 && c != '\n')
        number += c;
    close(ends[0]);
    if (number.empty())
        return;
    m_display = ":" + number;
    if (window_manager) {
        setenv("DISPLAY", m_display.c_str(), 1);
        // Its theme lies where a window test may have hidden it.
        m_manager = spawn({"env", "-u", "XDG_DATA_DIRS", "openbox", "--sm-disable"}, -1);
    }
}

XServer::~XServer() {
    end(m_manager);
    end(m_server);
}

bool ensure_display() {
    const char* display = std::getenv("DISPLAY");
    if (display && answers(display))
        return true;
    static std::unique_ptr<XServer> server;
    if (!server)
        server = std::make_unique<XServer>(false);
    if (server->display().empty())
        return false;
    setenv("DISPLAY", server->display().c_str(), 1);
    return true;
}

}  // namespace test_env
