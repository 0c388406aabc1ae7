#include "elevate.h"

#include "i18n.h"
#include "logger.h"
#include "paths.h"
#include "strutil.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <glib-unix.h>
#include <glib.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace elevate {

namespace {

constexpr const char* kInstalled[] = {"/usr/libexec/ferrodeck/ferrodeck-helper",
                                      "/usr/lib/ferrodeck/ferrodeck-helper"};

// As pkexec ends when the user has dismissed its question, and when it could not ask it or start
// the helper.
constexpr int kDeclined = 126;
constexpr int kNotAuthorized = 127;

bool is_file(const std::string& path) {
    struct stat st = {};
    return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// And nobody else may write there. A link and what it leads to both.
bool belongs_to_root(const std::string& path) {
    struct stat link = {};
    struct stat st = {};
    return lstat(path.c_str(), &link) == 0 && link.st_uid == 0 && stat(path.c_str(), &st) == 0 &&
           st.st_uid == 0 && (st.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// A program that the user has unpacked somewhere must not bring along what root is to run.
bool is_trusted(const std::string& helper, const std::string& folder) {
    return std::string_view(package_kind()) == "dev" ||
           (belongs_to_root(helper) && belongs_to_root(folder));
}

bool in_path(const char* program) {
    char* const found = g_find_program_in_path(program);
    g_free(found);
    return found != nullptr;
}

// --- The batch --------------------------------------------------------------------------------

std::string number_text(const char* format, unsigned value) {
    char text[16] = "";
    std::snprintf(text, sizeof text, format, value);
    return text;
}

// A path with one of these cannot be told in a line.
bool can_be_told(const std::string& path) {
    return path.find_first_of(std::string_view("\t\n\0", 3)) == path.npos;
}

std::string line_of(const Job& job) {
    const bool told = can_be_told(job.source) && can_be_told(job.target);
    const auto line = [&](const char* word, const std::string& fields) {
        // The word alone is refused as malformed, and the numbers of the others stay.
        return word + (told ? "\t" + fields : std::string()) + "\n";
    };
    switch (job.kind) {
    case Job::Kind::Copy:
        return line("COPY", job.source + "\t" + job.target);
    case Job::Kind::MakeDir:
        return line("MKDIR", job.target + "\t" + number_text("%o", job.mode));
    case Job::Kind::Remove:
        return line("REMOVE", job.target);
    case Job::Kind::Chmod:
        return line("CHMOD", job.target + "\t" + number_text("%o", job.mode));
    case Job::Kind::Chown:
        return line("CHOWN",
                    job.target + "\t" + std::to_string(job.uid) + "\t" + std::to_string(job.gid));
    }
    return "\n";
}

// --- The answers ------------------------------------------------------------------------------

// "OK <tab> number" or "ERR <tab> number <tab> message". Anything else does no harm.
void take_answer(std::string_view line, std::vector<Result>& results) {
    const size_t first = line.find('\t');
    if (first == line.npos)
        return;
    const std::string_view word = line.substr(0, first);
    const std::string_view rest = line.substr(first + 1);
    const size_t second = rest.find('\t');
    const std::string_view digits = rest.substr(0, second);
    size_t number = 0;
    const auto [stopped, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc() || stopped != digits.data() + digits.size() || number < 1 ||
        number > results.size())
        return;
    Result& result = results[number - 1];
    if (word == "OK") {
        result.ok = true;
        result.error.clear();
    } else if (word == "ERR" && second != rest.npos) {
        result.ok = false;
        result.error = rest.substr(second + 1);
    }
}

// A line that is not ended may lack digits of its number.
void take_answers(std::string_view output, std::vector<Result>& results) {
    for (size_t end = output.find('\n'); end != output.npos; end = output.find('\n')) {
        take_answer(output.substr(0, end), results);
        output.remove_prefix(end + 1);
    }
}

std::vector<Result> all_failed(const std::vector<Job>& jobs, const std::string& error) {
    std::vector<Result> results;
    for (const Job& job : jobs)
        results.push_back({false, job.target, error});
    return results;
}

// --- The child, as the main loop sees it ------------------------------------------------------

// write() to a pipe whose reader has gone, as an error and without the signal.
ssize_t write_quietly(int fd, std::string_view bytes) {
    sigset_t pipe_signal;
    sigset_t pending;
    sigset_t before;
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    sigpending(&pending);
    pthread_sigmask(SIG_BLOCK, &pipe_signal, &before);
    const ssize_t written = write(fd, bytes.data(), bytes.size());
    const int code = errno;
    if (written < 0 && code == EPIPE && sigismember(&pending, SIGPIPE) == 0) {
        const struct timespec now = {};
        while (sigtimedwait(&pipe_signal, nullptr, &now) < 0 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = code;
    return written;
}

// One batch on its way. Of the streams each has its descriptor, -1 when closed, and its source on
// the main loop, 0 for none.
class Child {
  public:
    Child() = default;
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    bool start(const std::string& helper, std::string& error);
    // Until it has ended and closed its output, or abandon().
    void talk(const std::string& batch);
    void abandon();

    [[nodiscard]] bool abandoned() const { return m_abandoned; }
    [[nodiscard]] int wait_status() const { return m_status; }
    [[nodiscard]] const std::string& output() const { return m_output; }

  private:
    struct Stream {
        int fd = -1;
        guint source = 0;

        void watch(GIOCondition condition, GUnixFDSourceFunc callback, Child* child);
        void end();
    };

    static gboolean on_writable_cb(int fd, GIOCondition condition, gpointer data);
    static gboolean on_output_cb(int fd, GIOCondition condition, gpointer data);
    static gboolean on_complaint_cb(int fd, GIOCondition condition, gpointer data);
    static void on_ended_cb(GPid pid, int status, gpointer data);
    void leave_if_done();

    GMainLoop* m_loop = g_main_loop_new(nullptr, FALSE);
    GPid m_pid = 0;
    guint m_child_watch = 0;  // 0: reaped
    Stream m_in;
    Stream m_out;
    Stream m_err;
    std::string_view m_unsent;
    std::string m_output;
    int m_status = 0;
    bool m_abandoned = false;
};

Child* g_child = nullptr;  // the one that is waited for

bool Child::start(const std::string& helper, std::string& error) {
    std::string words[] = {"pkexec", helper, "--batch"};
    char* argv[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
    GError* failure = nullptr;
    const auto flags = static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD |
                                                G_SPAWN_CLOEXEC_PIPES);
    const bool started =
        g_spawn_async_with_pipes(nullptr, argv, nullptr, flags, nullptr, nullptr, &m_pid, &m_in.fd,
                                 &m_out.fd, &m_err.fd, &failure) != FALSE;
    if (!started)
        error = failure ? failure->message : "spawn failed";
    g_clear_error(&failure);
    return started;
}

Child::~Child() {
    for (Stream* const stream : {&m_in, &m_out, &m_err})
        stream->end();
    if (m_child_watch) {
        // Left behind: it is reaped when it ends.
        g_source_remove(m_child_watch);
        g_child_watch_add(
            m_pid, [](GPid pid, int, gpointer) { g_spawn_close_pid(pid); }, nullptr);
    }
    g_main_loop_unref(m_loop);
}

void Child::Stream::watch(GIOCondition condition, GUnixFDSourceFunc callback, Child* child) {
    g_unix_set_fd_nonblocking(fd, TRUE, nullptr);
    source = g_unix_fd_add(fd, static_cast<GIOCondition>(condition | G_IO_HUP | G_IO_ERR), callback,
                           child);
}

void Child::Stream::end() {
    if (source)
        g_source_remove(source);
    source = 0;
    if (fd >= 0)
        close(fd);
    fd = -1;
}

void Child::talk(const std::string& batch) {
    m_unsent = batch;
    m_in.watch(G_IO_OUT, on_writable_cb, this);
    m_out.watch(G_IO_IN, on_output_cb, this);
    m_err.watch(G_IO_IN, on_complaint_cb, this);
    m_child_watch = g_child_watch_add(m_pid, on_ended_cb, this);
    Child* const before = g_child;
    g_child = this;
    g_main_loop_run(m_loop);
    g_child = before;
}

void Child::abandon() {
    m_abandoned = true;
    // A password that nobody waits for need not be given. Once it is root's this does nothing.
    if (m_child_watch)
        kill(m_pid, SIGTERM);
    g_main_loop_quit(m_loop);
}

void Child::leave_if_done() {
    if (m_child_watch == 0 && m_out.fd < 0)
        g_main_loop_quit(m_loop);
}

gboolean Child::on_writable_cb(int fd, GIOCondition, gpointer data) {
    Child& child = *static_cast<Child*>(data);
    const ssize_t written = child.m_unsent.empty() ? 0 : write_quietly(fd, child.m_unsent);
    if (written < 0 && (errno == EAGAIN || errno == EINTR))
        return TRUE;
    if (written > 0)
        child.m_unsent.remove_prefix(static_cast<size_t>(written));
    if (written > 0 && !child.m_unsent.empty())
        return TRUE;
    child.m_in.source = 0;
    child.m_in.end();
    return FALSE;
}

gboolean Child::on_output_cb(int fd, GIOCondition, gpointer data) {
    Child& child = *static_cast<Child*>(data);
    char block[4096];
    const ssize_t length = read(fd, block, sizeof block);
    if (length > 0)
        child.m_output.append(block, static_cast<size_t>(length));
    if (length > 0 || (length < 0 && (errno == EAGAIN || errno == EINTR)))
        return TRUE;
    child.m_out.source = 0;
    child.m_out.end();
    child.m_err.end();
    child.leave_if_done();
    return FALSE;
}

// Thrown away; but a child that fills the pipe would wait for ever.
gboolean Child::on_complaint_cb(int fd, GIOCondition, gpointer data) {
    Child& child = *static_cast<Child*>(data);
    char block[4096];
    const ssize_t length = read(fd, block, sizeof block);
    if (length > 0 || (length < 0 && (errno == EAGAIN || errno == EINTR)))
        return TRUE;
    child.m_err.source = 0;
    return FALSE;
}

void Child::on_ended_cb(GPid pid, int status, gpointer data) {
    Child& child = *static_cast<Child*>(data);
    g_spawn_close_pid(pid);
    child.m_child_watch = 0;
    child.m_status = status;
    child.leave_if_done();
}

}  // namespace

std::string helper_path() {
    char link[4096] = "";
    const ssize_t length = readlink("/proc/self/exe", link, sizeof link - 1);
    if (length > 0) {
        const std::string folder = su::parent_of(std::string(link, static_cast<size_t>(length)));
        const std::string beside = folder + "/ferrodeck-helper";
        if (is_file(beside) && is_trusted(beside, folder))
            return beside;
    }
    for (const char* const path : kInstalled)
        if (is_file(path))
            return path;
    return {};
}

Availability availability() {
    if (running_as_root())
        return Availability::AlreadyRoot;
    if (std::getenv("SNAP") || running_in_flatpak())
        return Availability::Sandboxed;
    if (!in_path("pkexec"))
        return Availability::NoPkexec;
    return helper_path().empty() ? Availability::NoHelper : Availability::Yes;
}

std::string unavailable_reason() {
    switch (availability()) {
    case Availability::NoPkexec:
        return tr("elevate.no_pkexec");
    case Availability::NoHelper:
        return tr("elevate.no_helper");
    case Availability::Sandboxed:
        return tr("elevate.sandboxed");
    case Availability::Yes:
    case Availability::AlreadyRoot:
        break;
    }
    return {};
}

// --- Running ----------------------------------------------------------------------------------

std::vector<Result> run(const std::vector<Job>& jobs, bool* declined) {
    if (declined)
        *declined = false;
    if (jobs.empty())
        return {};
    const std::string helper = helper_path();
    if (helper.empty())
        return all_failed(jobs, tr("elevate.no_helper"));
    std::string batch;
    for (const Job& job : jobs)
        batch += line_of(job);
    Log::infof("elevate: asking polkit for %zu operation(s) via %s", jobs.size(), helper.c_str());
    Child child;
    std::string error;
    if (!child.start(helper, error)) {
        Log::errorf("elevate: %s", error.c_str());
        return all_failed(jobs, error);
    }
    child.talk(batch);
    if (child.abandoned())
        return {};
    const int status = child.wait_status();
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (code == kDeclined || code == kNotAuthorized) {
        Log::infof("elevate: authentication declined or pkexec unavailable (%d)", code);
        if (declined)
            *declined = true;
        return {};
    }
    std::vector<Result> results = all_failed(jobs, tr("elevate.no_answer"));
    take_answers(child.output(), results);
    const auto done = static_cast<size_t>(
        std::count_if(results.begin(), results.end(), [](const Result& r) { return r.ok; }));
    Log::infof("elevate: %zu of %zu operation(s) done, %zu failed", done, results.size(),
               results.size() - done);
    return results;
}

void abandon() {
    if (g_child)
        g_child->abandon();
}

}  // namespace elevate
