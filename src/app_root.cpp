// Root's rights: what was refused is repeated by the helper; the whole program is started again as
// root, with the same panes; and the message about a folder that may not be read, which offers
// that.
//
// The second instance is watched on the main loop, since the password may take minutes: by what it
// writes, by its end, and by a look at the processes every quarter of a second.

#include "app_root.h"

#include "elevate.h"
#include "format.h"
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
#include <dirent.h>
#include <functional>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr guint kPollMs = 250;
constexpr int kPollsAtMost = 960;
constexpr size_t kOutputAtMost = 2000;  // bytes, of what a message can show
constexpr int kLinesAtOnce = 100;       // of one that never stops, before the window's turn
constexpr int kReadsAtEnd = 40;         // what a pipe holds of lines of usual length
constexpr size_t kCommandName = 15;     // bytes of a program's name that the kernel keeps
constexpr int kDeclined = 126;          // as pkexec ends when its question was dismissed,
constexpr int kNotAuthorized = 127;     // and when it could not be asked

bool is_readable(const std::string& path) {
    return !path.empty() && access(path.c_str(), R_OK) == 0;
}

std::string variable(const char* name) {
    const char* const value = std::getenv(name);
    return value ? value : "";
}

std::string own_program() {
    char link[4096] = "";
    const ssize_t length = readlink("/proc/self/exe", link, sizeof link - 1);
    return length > 0 ? std::string(link, static_cast<size_t>(length)) : std::string();
}

// All of a small file; empty when there is none.
std::string content_of(const std::string& path) {
    std::string content;
    FILE* const file = std::fopen(path.c_str(), "rbe");
    if (!file)
        return content;
    char block[4096];
    for (size_t n = 0; (n = std::fread(block, 1, sizeof block, file)) > 0;)
        content.append(block, n);
    std::fclose(file);
    return content;
}

void for_each_process(const std::function<void(pid_t pid, const std::string& folder)>& visit) {
    DIR* const processes = opendir("/proc");
    if (!processes)
        return;
    while (const struct dirent* entry = readdir(processes)) {
        const std::string_view name = entry->d_name;
        pid_t pid = 0;
        const auto [stopped, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
        if (error == std::errc() && stopped == name.data() + name.size())
            visit(pid, "/proc/" + std::string(name));
    }
    closedir(processes);
}

// --- The X server's cookie --------------------------------------------------------------------

// What an X server was told to use, by its command line.
std::string cookie_in(const std::string& command_line) {
    std::vector<std::string> words;
    for (size_t at = 0; at < command_line.size(); at = command_line.find('\0', at) + 1) {
        words.emplace_back(command_line.c_str() + at);
        if (command_line.find('\0', at) == command_line.npos)
            break;
    }
    if (words.empty() || !(su::ends_with(words[0], "Xorg") || su::ends_with(words[0], "/X")))
        return {};
    const auto flag = std::find(words.begin(), words.end(), "-auth");
    return flag == words.end() || flag + 1 == words.end() ? std::string() : *(flag + 1);
}

std::string servers_cookie() {
    std::string found;
    for_each_process([&found](pid_t, const std::string& folder) {
        if (!found.empty())
            return;
        std::string path = cookie_in(content_of(folder + "/cmdline"));
        if (is_readable(path))
            found = std::move(path);
    });
    return found;
}

// The first one that we may read ourselves; empty: there is none.
std::string readable_cookie() {
    if (std::string path = variable("XAUTHORITY"); is_readable(path))
        return path;
    if (std::string path = servers_cookie(); !path.empty())
        return path;
    const std::string run = variable("XDG_RUNTIME_DIR");
    if (std::string path = run + "/gdm/Xauthority"; !run.empty() && is_readable(path))
        return path;
    const std::string home = real_home();
    if (std::string path = home + "/.Xauthority"; !home.empty() && is_readable(path))
        return path;
    return {};
}

const char* log_word(elevate::Availability availability) {
    switch (availability) {
    case elevate::Availability::Sandboxed:
        return "sandboxed (snap/flatpak)";
    case elevate::Availability::NoPkexec:
        return "pkexec not found";
    case elevate::Availability::NoHelper:
        return "helper not installed";
    case elevate::Availability::AlreadyRoot:
    case elevate::Availability::Yes:
        break;
    }
    return "already root";
}

// One word for a shell.
std::string quoted(const std::string& text) {
    std::string out = "'";
    for (const char c : text)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

bool lacks_rights(int code) {
    return code == EACCES || code == EPERM;
}

}  // namespace

// --- Retry by the helper ----------------------------------------------------------------------

// A move's file that is there already would only be copied a second time.
bool App::may_succeed_as_root(const copy_engine::FailedItem& item) {
    return lacks_rights(item.code) && !item.target.empty() && !item.copied;
}

void App::retry_as_admin() {
    std::vector<copy_engine::FailedItem> items = copy_engine::instance().snapshot().failures;
    std::erase_if(items, std::not_fn(may_succeed_as_root));
    if (items.empty() || m_veiled)
        return;
    std::vector<elevate::Job> jobs;
    for (const copy_engine::FailedItem& item : items)
        jobs.push_back({elevate::Job::Kind::Copy, item.path, item.target});
    Log::infof("retry as admin: %zu operation(s)", jobs.size());

    handle_release();  // whatever is held is not let go before the window hears again
    m_veiled = true;
    request_redraw();
    bool declined = false;
    const std::vector<elevate::Result> results = elevate::run(jobs, &declined);
    m_veiled = false;
    if (m_quitting)
        return;
    request_redraw();
    if (declined) {
        Log::infof("retry as admin: cancelled by the user");
        return;
    }

    std::vector<copy_engine::FailedItem> done;
    std::string first_error;
    for (size_t i = 0; i < results.size(); ++i) {
        if (results[i].ok)
            done.push_back(items[i]);
        else if (first_error.empty())
            first_error = fmt::embedded(results[i].path) + ": " + results[i].error;
    }
    const size_t failed = results.size() - done.size();
    copy_engine::instance().forget_failures(done);
    show_retried(done.size(), failed);
    Log::infof("retry as admin: %zu of %zu succeeded%s%s", done.size(), results.size(),
               first_error.empty() ? "" : " — first error: ", first_error.c_str());
    if (failed > 0 && !first_error.empty())
        show_message(tr("dlg.error"), first_error, true);
}

// The dialogue's list is not what it was.
void App::show_retried(size_t done, size_t failed) {
    refresh_both();
    m_result.valid = m_result.valid || !busy();
    m_result.title = std::string(tr("progress.copied")) + " " + tr("elevate.as_admin");
    m_result.detail =
        I18n::instance().trf("status.copied_summary", fmt::saturated(static_cast<int64_t>(done)),
                             fmt::saturated(static_cast<int64_t>(failed)));
    m_result.failures -= std::min(m_result.failures, done);
    if (m_overlay == Overlay::Errors)
        close_overlay();
}

// Over everything, and with nothing that could be clicked.
void App::draw_veil() {
    fill_rect(0, 0, m_layout.width, m_layout.height, "#000000", 0.38);
    m_hits.clear();
}

// --- Restart ----------------------------------------------------------------------------------

namespace {

// What GLib's sources hold.
using RootRestartRef = std::shared_ptr<App::RootRestart>;

void release_ref(gpointer data) {
    delete static_cast<RootRestartRef*>(data);
}

template <int Which>
gboolean on_root_output_cb(GIOChannel*, GIOCondition, gpointer data) {
    App::RootRestart& start = *static_cast<App::RootRestart*>(data);
    if (start.read_lines(Which))
        return TRUE;
    start.watches[Which] = 0;
    start.close_stream(Which);
    return FALSE;
}

void on_root_ended_cb(GPid pid, int status, gpointer data) {
    const RootRestartRef start = *static_cast<RootRestartRef*>(data);
    g_spawn_close_pid(pid);
    start->child = 0;
    if (start->app)
        start->app->end_root_start(status);
}

gboolean on_root_poll_cb(gpointer data) {
    static_cast<App*>(data)->poll_root_start();
    return TRUE;
}

}  // namespace

void App::RootRestart::listen(int which, int fd, GIOFunc callback) {
    GIOChannel* const channel = g_io_channel_unix_new(fd);
    g_io_channel_set_encoding(channel, nullptr, nullptr);
    g_io_channel_set_flags(channel, G_IO_FLAG_NONBLOCK, nullptr);
    g_io_channel_set_close_on_unref(channel, TRUE);
    channels[which] = channel;
    // Behind the painting, which one that never stops would keep from its turn.
    watches[which] = g_io_add_watch_full(channel, G_PRIORITY_DEFAULT_IDLE,
                                         static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR),
                                         callback, this, nullptr);
}

bool App::RootRestart::read_lines(int which) {
    for (int i = 0; i < kLinesAtOnce; ++i) {
        char* text = nullptr;
        gsize end = 0;
        const GIOStatus status =
            g_io_channel_read_line(channels[which], &text, nullptr, &end, nullptr);
        if (status != G_IO_STATUS_NORMAL) {
            g_free(text);
            return status == G_IO_STATUS_AGAIN;
        }
        const std::string line = su::sanitize_utf8(std::string(text, end));
        g_free(text);
        Log::infof("root child: %s", line.c_str());
        if (output.size() < kOutputAtMost)
            output += su::truncate_utf8(line, kOutputAtMost) + "\n";
    }
    return true;
}

void App::RootRestart::close_stream(int which) {
    if (watches[which])
        g_source_remove(std::exchange(watches[which], 0));
    if (channels[which])
        g_io_channel_unref(std::exchange(channels[which], nullptr));
}

bool App::can_restart_as_root(std::string* reason) {
    if (running_as_root())
        return false;
    const elevate::Availability availability = elevate::availability();
    if (availability != elevate::Availability::Yes) {
        if (reason)
            *reason = elevate::unavailable_reason();
        Log::infof("root restart unavailable: %s", log_word(availability));
        return false;
    }
    GdkDisplay* const display = gdk_display_get_default();
    if (display && std::string_view(G_OBJECT_TYPE_NAME(display)).find("X11") != std::string::npos)
        return true;
    if (reason)
        *reason = tr("err.root_wayland");
    return false;
}

std::vector<std::string> App::root_command(const std::string& program,
                                           const std::string& cookie) const {
    const std::string display = variable("DISPLAY");
    GtkWindow* const window = GTK_WINDOW(m_window);
    int width = 0;
    int height = 0;
    int x = 0;
    int y = 0;
    gtk_window_get_size(window, &width, &height);
    gtk_window_get_position(window, &x, &y);
    char geometry[80] = "";
    std::snprintf(geometry, sizeof geometry, "--geometry=%dx%d+%d+%d", width, height, x, y);
    return {"pkexec",
            "env",
            "DISPLAY=" + (display.empty() ? ":0" : display),
            "XAUTHORITY=" + cookie,
            program,
            "--left=" + m_left.path(),
            "--right=" + m_right.path(),
            std::string("--active=") + (m_active_right ? "right" : "left"),
            geometry};
}

void App::restart_as_root() {
    if (m_overlay == Overlay::Message)
        close_overlay();
    std::string reason = running_as_root() ? tr("header.root_mode") : "";
    if (!can_restart_as_root(&reason))
        return show_error(reason);
    if (!m_window || m_root_restart)
        return;
    if (busy())  // which would end with this window
        return show_busy();
    const std::string program = own_program();
    const std::string cookie = readable_cookie();
    if (cookie.empty()) {
        Log::warnf("restart as root: no readable X cookie found");
        return show_error(tr("err.root_no_cookie"));
    }
    std::vector<std::string> words = root_command(program, cookie);
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    Log::infof("restarting as root via pkexec: %s (cookie %s)", program.c_str(), cookie.c_str());

    auto start = std::make_shared<RootRestart>();
    start->app = this;
    start->program = su::basename_of(program);
    start->baseline = root_instances(start->program);
    int out = -1;
    int err = -1;
    GError* error = nullptr;
    const auto flags = static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD |
                                                G_SPAWN_CLOEXEC_PIPES);
    if (!g_spawn_async_with_pipes(nullptr, argv.data(), nullptr, flags, nullptr, nullptr,
                                  &start->child, nullptr, &out, &err, &error)) {
        Log::errorf("restart as root: %s", error ? error->message : "spawn failed");
        g_clear_error(&error);
        return show_error(tr("err.root_failed"));
    }
    start->listen(0, out, on_root_output_cb<0>);
    start->listen(1, err, on_root_output_cb<1>);
    watch_root_start(std::move(start));
    request_redraw();
}

void App::watch_root_start(std::shared_ptr<RootRestart> start) {
    m_root_restart = std::move(start);
    g_child_watch_add_full(G_PRIORITY_DEFAULT, m_root_restart->child, on_root_ended_cb,
                           new RootRestartRef(m_root_restart), release_ref);
    m_root_restart->timeout = g_timeout_add(kPollMs, on_root_poll_cb, this);
}

// The child itself goes on, if it still is there, and is reaped.
void App::forget_root_start() {
    if (!m_root_restart)
        return;
    const RootRestartRef start = std::exchange(m_root_restart, nullptr);
    start->app = nullptr;
    if (start->timeout)
        g_source_remove(start->timeout);
    for (const int which : {0, 1})
        start->close_stream(which);
}

void App::end_root_start(int status) {
    const RootRestartRef start = m_root_restart;
    for (const int which : {0, 1})
        for (int i = 0; i < kReadsAtEnd && start->channels[which]; ++i)
            if (!start->read_lines(which))
                break;
    forget_root_start();
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    Log::warnf("restart as root: child exited early with %d", code);
    if (code == kDeclined || code == kNotAuthorized) {
        show_error(tr("err.root_declined"));
    } else {
        std::string text = tr("err.root_failed");
        if (!start->output.empty())
            text += "\n" + start->output.substr(0, start->output.size() - 1);
        show_error(text);
    }
    request_redraw();
}

void App::poll_root_start() {
    RootRestart& start = *m_root_restart;
    for (const pid_t pid : root_instances(start.program)) {
        if (std::find(start.baseline.begin(), start.baseline.end(), pid) != start.baseline.end())
            continue;
        Log::infof("restart as root: the new root instance is up, pid %d", static_cast<int>(pid));
        forget_root_start();
        if (m_window)
            gtk_window_close(GTK_WINDOW(m_window));
        return;
    }
    if (++start.polls < kPollsAtMost)
        return;
    Log::warnf("restart as root: gave up waiting after %d s",
               static_cast<int>(kPollsAtMost * kPollMs / 1000));
    // Nor may it come up when nobody reckons with it.
    if (start.child)
        kill(start.child, SIGTERM);
    forget_root_start();
    show_error(tr("err.root_failed"));
}

std::vector<pid_t> App::root_instances(const std::string& program) {
    const std::string name = program.substr(0, kCommandName);
    std::vector<pid_t> found;
    for_each_process([&](pid_t pid, const std::string& folder) {
        struct stat st = {};
        if (stat(folder.c_str(), &st) != 0 || st.st_uid != 0)
            return;
        std::string command = content_of(folder + "/comm");
        while (!command.empty() && (command.back() == '\n' || command.back() == '\r'))
            command.pop_back();
        if (command == name)
            found.push_back(pid);
    });
    return found;
}

// --- A folder that may not be read ------------------------------------------------------------

void App::warn_if_unreadable(bool right) {
    const dir_lister::Listing& listing = pane_for(right).listing();
    if (!listing.error.empty() && lacks_rights(listing.error_code))
        warn_no_access(pane_for(right).path(), listing.error);
}

void App::warn_no_access(const std::string& path, const std::string& error) {
    Log::infof("permission denied: %s", path.c_str());
    // A question that a worker waits for stays, and so does what would be lost with its dialogue.
    if (m_overlay == Overlay::Conflict || conflict_waits())
        return;
    std::string text = fmt::embedded(path) + "\n" + error;
    text += std::string("\n\n") + tr("err.needs_root") + "\nsudo -i        # " +
            tr("err.root_shell") + "\nsudo ls -la " + quoted(path);
    if (elevate::availability() == elevate::Availability::Yes)
        text += std::string("\n\n") + tr("err.root_hint_helper");
    std::string reason;
    const bool can_restart = can_restart_as_root(&reason);
    if (can_restart)
        reason = tr("err.root_restart_hint");
    if (!reason.empty())
        text += "\n\n" + reason;
    show_message(tr("err.cannot_read"), text, false,
                 can_restart ? Action::RestartAsRoot : Action::None, "action.restart_root");
}
