#include "archive_ops_child.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <glib.h>
#include <poll.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace archive_ops {

namespace {

constexpr int kPollMs = 200;
constexpr auto kGrace = std::chrono::seconds(1);
constexpr size_t kErrorBlock = 8192;

// In the child, between fork and exec.
void own_session(gpointer) {
    setsid();
}

struct Process {
    GPid pid = 0;
    int out = -1;
    int err = -1;
};

bool start(const Child& child, Process& process, std::string& message) {
    std::vector<char*> argv;
    for (const std::string& argument : child.argv)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    gchar** environment = g_get_environ();
    environment = g_environ_setenv(environment, "LC_ALL", "C.UTF-8", TRUE);
    environment = g_environ_unsetenv(environment, "LANGUAGE");
    GError* error = nullptr;
    const auto flags = static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD);
    // Without a pipe for it, standard input is /dev/null.
    const bool started =
        g_spawn_async_with_pipes(child.cwd.empty() ? nullptr : child.cwd.c_str(), argv.data(),
                                 environment, flags, own_session, nullptr, &process.pid, nullptr,
                                 &process.out, &process.err, &error) != FALSE;
    g_strfreev(environment);
    if (!started && error)
        message = error->message;
    g_clear_error(&error);
    return started;
}

void close_stream(int& fd) {
    if (fd >= 0)
        close(fd);
    fd = -1;
}

bool has_ended(GPid pid) {
    siginfo_t info = {};
    const int result = waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT);
    return (result != 0 && errno != EINTR) || info.si_pid == pid;
}

int reap(GPid pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    g_spawn_close_pid(pid);
    return status;
}

// Reads and forgets. An archiver that cleans up says so first, and one that finds nobody to read
// it would end there and then.
void drain(int& fd) {
    char buffer[4096];
    if (read(fd, buffer, sizeof buffer) == 0)
        close_stream(fd);
}

// The leader is reaped last of all: until then its number, which is the group's, is nobody else's.
void stop(Process& process, const std::function<void(int pid)>& before_end) {
    using Clock = std::chrono::steady_clock;
    const GPid pid = process.pid;
    before_end(pid);
    kill(-pid, SIGTERM);
    const auto until = Clock::now() + kGrace;
    while (!has_ended(pid) && Clock::now() < until) {
        pollfd fds[] = {{process.out, POLLIN, 0}, {process.err, POLLIN, 0}};
        if (poll(fds, std::size(fds), 2) <= 0)
            continue;
        if (fds[0].revents != 0)
            drain(process.out);
        if (fds[1].revents != 0)
            drain(process.err);
    }
    if (!has_ended(pid))
        before_end(pid);
    // Also what the leader has left behind: nobody reads it any more.
    kill(-pid, SIGKILL);
    reap(pid);
}

// What a poll has found on one of the streams. False: it is at its end and closed.
template <class OnBytes>
bool read_stream(int& fd, std::vector<char>& buffer, const OnBytes& on_bytes) {
    const ssize_t length = read(fd, buffer.data(), buffer.size());
    if (length > 0) {
        on_bytes(std::string_view(buffer.data(), static_cast<size_t>(length)));
        return true;
    }
    if (length < 0 && (errno == EINTR || errno == EAGAIN))
        return true;
    close_stream(fd);
    return false;
}

}  // namespace

void LineCutter::add(std::string_view bytes) {
    for (size_t end = bytes.find('\n'); end != std::string_view::npos; end = bytes.find('\n')) {
        append(bytes.substr(0, end));
        give();
        bytes.remove_prefix(end + 1);
    }
    append(bytes);
    m_open = m_open || !bytes.empty();
}

void LineCutter::append(std::string_view part) {
    m_rest.append(part.substr(0, kMaxLine - std::min(kMaxLine, m_rest.size())));
}

void LineCutter::give() {
    while (!m_rest.empty() && m_rest.back() == '\r')
        m_rest.pop_back();
    m_on_line(m_rest);
    m_rest.clear();
    m_open = false;
}

void LineCutter::finish() {
    if (m_open)
        give();
}

ChildEnd run_child(const Child& child) {
    ChildEnd end;
    Process process;
    if (!start(child, process, end.message))
        return end;

    std::vector<char> output(child.block);
    std::vector<char> errors(kErrorBlock);
    bool keep_going = true;
    while (process.out >= 0 || process.err >= 0) {
        keep_going = keep_going && child.keep_going();
        if (!keep_going)
            break;
        // poll() passes over what is -1.
        pollfd fds[] = {
            {process.out, POLLIN, 0}, {process.err, POLLIN, 0}, {child.wake_fd, POLLIN, 0}};
        if (poll(fds, std::size(fds), kPollMs) <= 0)
            continue;
        if (fds[0].revents != 0 && !read_stream(process.out, output, [&](std::string_view bytes) {
                keep_going = child.on_output(bytes);
            }))
            child.on_output_end();
        if (fds[1].revents != 0 && !read_stream(process.err, errors, child.on_error_output))
            child.on_error_end();
    }
    // A child that has closed both streams may go on all the same.
    while (keep_going && !has_ended(process.pid)) {
        pollfd wake = {child.wake_fd, POLLIN, 0};
        (void)poll(&wake, 1, 2);
        keep_going = child.keep_going();
    }
    if (!keep_going)
        stop(process, child.before_end);
    close_stream(process.out);
    close_stream(process.err);
    if (!keep_going) {
        end.kind = ChildEnd::Kind::Stopped;
        return end;
    }

    GError* error = nullptr;
    const bool ok = g_spawn_check_wait_status(reap(process.pid), &error) != FALSE;
    end.kind = ok ? ChildEnd::Kind::Ok : ChildEnd::Kind::Failed;
    if (error)
        end.message = error->message;
    g_clear_error(&error);
    return end;
}

}  // namespace archive_ops
