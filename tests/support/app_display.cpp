#include "app_display.h"

#include "test_env.h"

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

}  // namespace

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

std::string spawn_and_read_line(std::vector<std::string> words, pid_t& pid) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return {};
    for (std::string& word : words)
        if (const size_t at = word.find("%fd"); at != std::string::npos)
            word.replace(at, 3, std::to_string(ends[1]));
    pid = spawn(words, ends[1]);
    close(ends[1]);
    // A failed start closes the pipe.
    std::string line;
    char c = 0;
    while (::read(ends[0], &c, 1) == 1 && c != '\n')
        line += c;
    close(ends[0]);
    return line;
}

void end(pid_t pid) {
    if (pid <= 0)
        return;
    kill(pid, SIGTERM);
    while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR)
        continue;
}

XServer::XServer(bool window_manager) {
    // The server writes its number once it takes connections.
    const std::string number = spawn_and_read_line({"Xvfb", "-displayfd", "%fd", "-screen", "0",
                                                    "1600x1200x24", "-nolisten", "tcp", "-noreset"},
                                                   m_server);
    if (number.empty())
        return;
    m_display = ":" + number;
    if (window_manager) {
        setenv("DISPLAY", m_display.c_str(), 1);
        // Its theme lies where a window test may have hidden it.
        m_manager = spawn({"env", "-u", "XDG_DATA_DIRS", "openbox", "--sm-disable"});
    }
}

XServer::~XServer() {
    end(m_manager);
    end(m_server);
}

bool XServer::wait_for_window_manager() const {
    for (int i = 0; i < 3000; ++i) {
        std::string out;
        if (run("xprop -display " + m_display + " -root _NET_SUPPORTING_WM_CHECK", &out) == 0 &&
            out.find("window id") != std::string::npos)
            return true;
        usleep(10'000);
    }
    return false;
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

bool use_own_display() {
    static const XServer server(false);
    if (server.display().empty())
        return false;
    setenv("DISPLAY", server.display().c_str(), 1);
    return true;
}

}  // namespace test_env
