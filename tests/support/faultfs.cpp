#include "faultfs.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace faultfs {

Fault fail(const std::string& op, int error, int from, int count, const std::string& name) {
    Fault fault;
    fault.op = op;
    fault.error = error;
    fault.from = from;
    fault.count = count;
    fault.name = name;
    return fault;
}

Fault stall(const std::string& op, int from, int count, const std::string& name) {
    Fault fault;
    fault.op = op;
    fault.stall = true;
    fault.from = from;
    fault.count = count;
    fault.name = name;
    return fault;
}

Fault limit(const std::string& op, int64_t most) {
    Fault fault;
    fault.op = op;
    fault.limit = most;
    return fault;
}

FaultFs::FaultFs(const Options& options) {
    m_backing = options.backing.empty() ? m_dir / "backing" : options.backing;
    mkdir(m_backing.c_str(), 0755);
    if (ok())
        start(options);
}

void FaultFs::start(const Options& options) {
#ifdef FAULTFS_BINARY
    if (access("/dev/fuse", R_OK | W_OK) != 0) {
        m_reason = "no /dev/fuse here";
        return;
    }
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        m_reason = "no socket for the file system's server";
        return;
    }
    const std::string socket_number = std::to_string(ends[1]);
    const char* const arguments[] = {FAULTFS_BINARY,
                                     m_backing.c_str(),
                                     m_point.c_str(),
                                     socket_number.c_str(),
                                     options.subtype.c_str(),
                                     options.unknown_types ? "1" : "0",
                                     options.keep_case   ? "2"
                                     : options.fold_case ? "1"
                                                         : "0",
                                     nullptr};
    m_pid = fork();
    if (m_pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int keep = dup(ends[1]);  // dup clears the close-on-exec flag
        dup2(keep, ends[1]);
        close(keep);
        execv(FAULTFS_BINARY, const_cast<char* const*>(arguments));
        _exit(127);
    }
    close(ends[1]);
    m_socket = ends[0];
    char answer[256];
    const ssize_t n = recv(m_socket, answer, sizeof answer, 0);  // "ready" once it is mounted
    m_mounted = n == 5 && std::memcmp(answer, "ready", 5) == 0;
    if (!m_mounted)
        m_reason = "the FUSE file system could not be mounted";
#else
    (void)options;
    m_reason = "built without libfuse3";
#endif
}

FaultFs::~FaultFs() {
    if (m_pid <= 0)
        return;
    if (m_mounted && m_socket >= 0)
        send(m_socket, "clear", 5, MSG_NOSIGNAL);
    unmount();
    kill_server();
}

void FaultFs::kill_server() {
    if (m_pid <= 0)
        return;
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
    m_pid = -1;
    close(m_socket);
    m_socket = -1;
}

std::string FaultFs::ask(const std::string& command) {
    char answer[256];
    ssize_t n = -1;
    if (send(m_socket, command.data(), command.size(), MSG_NOSIGNAL) >= 0)
        n = recv(m_socket, answer, sizeof answer, 0);
    if (n <= 0)
        throw std::runtime_error("the file system's server is gone");
    return std::string(answer, static_cast<size_t>(n));
}

void FaultFs::set(const Fault& fault) {
    ask("fault " + fault.op + " " + std::to_string(fault.from) + " " + std::to_string(fault.count) +
        " " + std::to_string(fault.error) + " " + std::to_string(fault.stall ? 1 : 0) + " " +
        std::to_string(fault.deaf ? 1 : 0) + " " + std::to_string(fault.limit) + " " + fault.name);
}

void FaultFs::clear() {
    ask("clear");
}

void FaultFs::release() {
    ask("release");
}

int64_t FaultFs::calls(const std::string& op) {
    return std::stoll(ask("calls " + op));
}

int FaultFs::stalled() {
    return std::stoi(ask("stalled"));
}

bool FaultFs::wait_stalled(int at_least, int timeout_ms) {
    for (int waited = 0; waited < timeout_ms; waited += 5) {
        if (stalled() >= at_least)
            return true;
        poll(nullptr, 0, 5);
    }
    return false;
}

}  // namespace faultfs
