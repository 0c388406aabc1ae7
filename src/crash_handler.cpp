// Not all that the handler calls is safe in a signal handler. The process is lost in any case, and
// the report is on disk before anything that may hang. But nothing here allocates: a program dies
// inside malloc() more often than elsewhere, with its lock held, and would wait there for ever. So
// there are buffers in place of strings and of stdio's streams, and a fork that does not ask for
// that lock.
//
// There is no stack of the handler's own: it would have to be asked for with SA_ONSTACK, and the
// handlers are registered with SA_RESETHAND alone. A stack that has run over ends the process
// without a report.

#include "crash_handler.h"

#include "logger.h"
#include "maker.h"
#include "open_files.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <execinfo.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace {

constexpr int kMaxFrames = 32;

int g_silent = 0;
char g_log_path[PATH_MAX] = "";  // a copy: what belongs to the log may be what is broken

struct FatalSignal {
    int number;
    const char* text;
};

constexpr FatalSignal kFatalSignals[] = {
    {SIGSEGV, "SIGSEGV (Segmentation fault)"},
    {SIGABRT, "SIGABRT (Abort)"},
    {SIGFPE, "SIGFPE (Floating point exception)"},
    {SIGBUS, "SIGBUS (Bus error)"},
    {SIGILL, "SIGILL (Illegal instruction)"},
    {SIGTRAP, "SIGTRAP (Trap — usually a fatal GLib/GTK error)"},
};

const char* signal_text(int number) {
    for (const FatalSignal& signal : kFatalSignals)
        if (signal.number == number)
            return signal.text;
    return "Unknown signal";
}

// Null when the variable is not set or empty.
const char* env(const char* name) {
    const char* const value = std::getenv(name);
    return value && *value ? value : nullptr;
}

const char* env_or_unknown(const char* name) {
    const char* const value = env(name);
    return value ? value : "unknown";
}

// The name is known to everybody and /tmp is everybody's: what another user has put there is
// neither followed nor written into.
int open_report(const char* path) {
    struct stat older = {};
    if (lstat(path, &older) == 0 && older.st_uid == geteuid())
        unlink(path);
    return open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
}

void print(int fd, const char* format, ...) __attribute__((format(printf, 2, 3)));

// A part of the report. One that cannot be written is missing from it: there is nobody to be told.
void print(int fd, const char* format, ...) {
    char text[PATH_MAX + 256];
    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    const size_t size = std::min(static_cast<size_t>(std::max(length, 0)), sizeof text - 1);
    for (size_t done = 0; done < size;) {
        const ssize_t written = write(fd, text + done, size - done);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        done += static_cast<size_t>(written);
    }
}

void write_report(int fd, int number, const char* time_text) {
    print(fd, "=== %s Crash Report ===\n", "Ferrodeck");
    print(fd, "Version: %s (Build %s)\n", FERRODECK_VERSION, FERRODECK_BUILD);
    if (const char* const revision = env("SNAP_REVISION"))
        print(fd, "Snap revision: %s\n", revision);
    print(fd, "Signal: %s (%d)\n", signal_text(number), number);
    print(fd, "Time: %s\n", time_text);
    struct utsname host = {};
    uname(&host);
    print(fd, "System: %s %s %s\n", host.sysname, host.release, host.machine);
    print(fd, "Desktop: %s (%s)\n", env_or_unknown("XDG_CURRENT_DESKTOP"),
          env_or_unknown("XDG_SESSION_TYPE"));
    if (const char* const version = env("SNAP_VERSION"))
        print(fd, "Snap: yes (v%s)\n", version);
    else
        print(fd, "Snap: no\n");
    print(fd, "\nBacktrace:\n");
    void* frames[kMaxFrames];
    backtrace_symbols_fd(frames, backtrace(frames, kMaxFrames), fd);
    print(fd, "\n\nLog (written up to the crash):\n  %s\n", g_log_path);
    print(fd, "\n=== End Report ===\n");
}

// Text in a buffer of the caller's, which it never passes.
class Text {
  public:
    Text(char* buffer, size_t size) : m_buffer(buffer), m_size(size) { m_buffer[0] = '\0'; }

    [[nodiscard]] bool whole() const { return m_whole; }
    Text& add(const char* text) {
        for (; *text; ++text)
            put(*text);
        return *this;
    }
    // As one word of the shell's, whatever it holds.
    Text& add_quoted(const char* text) {
        put('\'');
        for (; *text; ++text) {
            if (*text == '\'')
                add("'\\'");
            put(*text);
        }
        put('\'');
        return *this;
    }
    // As a part of an address.
    Text& add_encoded(const char* text) {
        constexpr char kDigits[] = "0123456789ABCDEF";
        for (; *text; ++text) {
            const char c = *text;
            const bool alnum =
                (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
            if (alnum || std::strchr("-_./~", c)) {
                put(c);
                continue;
            }
            const auto byte = static_cast<unsigned char>(c);
            put('%');
            put(kDigits[byte >> 4]);
            put(kDigits[byte & 15]);
        }
        return *this;
    }

  private:
    void put(char c) {
        m_whole = m_whole && m_used + 1 < m_size;
        if (!m_whole)
            return;
        m_buffer[m_used++] = c;
        m_buffer[m_used] = '\0';
    }

    char* m_buffer;
    size_t m_size;
    size_t m_used = 0;
    bool m_whole = true;
};

// Without the handlers that wait for other threads' locks, where there is such a call.
pid_t fork_alone() {
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 34)
    return _Fork();
#else
    return fork();
#endif
}

// The three variables that lead to the user's screen.
struct DisplayVariable {
    const char* name;
    char text[1024];  // "NAME=value"; empty: there was no value
};

DisplayVariable g_display[] = {{"DISPLAY", ""}, {"WAYLAND_DISPLAY", ""}, {"XAUTHORITY", ""}};

void keep_display() {
    for (DisplayVariable& variable : g_display) {
        const char* const value = env(variable.name);
        Text text(variable.text, sizeof variable.text);
        if (value && !text.add(variable.name).add("=").add(value).whole())
            variable.text[0] = '\0';
    }
}

// The child of the dying process. Does not return.
void ask_user(int number, const char* report, const char* time_text) {
    // What the handler runs with, and what main() has set, is not for other programs.
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, number);
    sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
    std::signal(SIGPIPE, SIG_DFL);
    open_files::restore_limit();
    // The dialogue shows what it can read there, and at a terminal it would be stopped for trying.
    if (const int null = open("/dev/null", O_RDONLY | O_CLOEXEC); null >= 0)
        dup2(null, STDIN_FILENO);
    // These take the place of what is there, which allocates nothing.
    for (DisplayVariable& variable : g_display)
        if (variable.text[0])
            putenv(variable.text);
    char subject[256];
    Text(subject, sizeof subject)
        .add("Ferrodeck")
        .add(" Crash: ")
        .add(signal_text(number))
        .add(" - ")
        .add(time_text);
    static char script[1 << 16];  // four times a path of the longest kind, each byte made four
    if (CrashHandler::dialog_script(
            {report, maker::kContact, subject, CrashHandler::german_session()}, script,
            sizeof script))
        execl("/bin/bash", "bash", "-c", script, nullptr);
    _exit(127);
}

void crash_handler(int number) {
    std::signal(number, SIG_DFL);
    char report[PATH_MAX];
    const char* const runtime_dir = env("XDG_RUNTIME_DIR");
    std::snprintf(report, sizeof report, "%s/Ferrodeck_crash.txt",
                  runtime_dir ? runtime_dir : "/tmp");
    const int fd = open_report(report);
    if (fd < 0) {
        std::raise(number);
        return;
    }
    char time_text[32] = "";
    const time_t now = std::time(nullptr);
    struct tm local = {};
    if (localtime_r(&now, &local))
        std::strftime(time_text, sizeof time_text, "%Y-%m-%d %H:%M:%S", &local);
    write_report(fd, number, time_text);
    close(fd);
    if (g_silent)
        _exit(number == SIGABRT ? 134 : 139);

    keep_display();
    if (fork_alone() == 0)
        ask_user(number, report, time_text);
    // Blocked while its handler runs: it takes effect when this returns.
    std::raise(number);
}

}  // namespace

void CrashHandler::set_silent(bool silent) {
    g_silent = silent ? 1 : 0;
}

void CrashHandler::install() {
    struct sigaction action = {};
    action.sa_handler = crash_handler;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigemptyset(&action.sa_mask);
    for (const FatalSignal& signal : kFatalSignals)
        sigaction(signal.number, &action, nullptr);
    // Their first calls load a library and a time zone.
    void* frame = nullptr;
    backtrace(&frame, 1);
    const time_t now = std::time(nullptr);
    struct tm local = {};
    localtime_r(&now, &local);
    std::snprintf(g_log_path, sizeof g_log_path, "%s", Log::instance().file_path_c_str());
}

bool CrashHandler::german_session() {
    for (const char* name : {"LC_ALL", "LANGUAGE", "LANG"})
        if (const char* const value = std::getenv(name); value && std::strncmp(value, "de", 2) == 0)
            return true;
    return false;
}

bool CrashHandler::dialog_script(const Dialog& dialog, char* script, size_t size) {
    const bool german = dialog.german;
    Text out(script, size);
    out.add("DESC=$(zenity --text-info --editable --title=")
        .add_quoted(german ? "Ferrodeck - Können Sie beschreiben, wann der Fehler aufgetreten ist?"
                           : "Ferrodeck - Can you describe when the error occurred?")
        .add(" --width=500 --height=250 --ok-label=")
        .add_quoted(german ? "Absturzbericht senden" : "Send crash report")
        .add(" --cancel-label=")
        .add_quoted(german ? "Nicht senden" : "Don't send")
        .add(" 2>/dev/null)\nif [ $? -ne 0 ]; then exit 0; fi\n");
    for (const char* line : {"echo ''", "echo 'User description:'", "echo \"$DESC\""})
        out.add(line).add(" >> ").add_quoted(dialog.report).add("\n");
    out.add("BODY=")
        .add_quoted(german ? "Bitte die Datei anhaengen: " : "Please attach this file: ")
        .add("\nxdg-open \"mailto:")
        .add(dialog.contact)
        .add("?subject=")
        .add_encoded(dialog.subject)
        .add("&body=${BODY}")
        .add_encoded(dialog.report)
        .add("\" 2>/dev/null || true\n");
    return out.whole();
}
