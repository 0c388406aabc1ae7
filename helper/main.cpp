// ferrodeck-helper repeats with root's rights what the program was refused. pkexec starts it, with
// "--batch", once the user has given a password. It reads its whole input before it does anything,
// one operation per line (batch.h), and answers each by its number, the first line being 1:
//
//     OK <tab> number
//     ERR <tab> number <tab> why not
//
// A line that fails does not keep the next ones from being carried out. Exit status: 0 for a batch
// that was worked through, 1 for one that was not, 2 for a wrong call; 126 and 127 are pkexec's.

#include "batch.h"
#include "operations.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kFailed = 1;
constexpr int kWrongCall = 2;
// Some hundred times what the longest list of failures takes.
constexpr size_t kInputAtMost = size_t{256} << 20;

void complain(const char* text) {
    std::fprintf(stderr, "ferrodeck-helper: %s\n", text);
}

bool may_run() {
#ifdef FERRODECK_HELPER_RUNS_AS_ANYBODY
    return true;  // a build for tests
#else
    // A real uid that differs means that somebody has made the program setuid: then nobody has been
    // asked for a password.
    return geteuid() == 0 && getuid() == 0;
#endif
}

operations::Caller caller_of(const char* uid) {
    operations::Caller caller;
    uint32_t number = 0;
    if (!uid || !*uid)
        return caller;
    const char* const end = uid + std::strlen(uid);
    const auto [stopped, error] = std::from_chars(uid, end, number);
    if (error == std::errc() && stopped == end)
        caller.uid = number;
    return caller;
}

void on_stop(int) {
    operations::g_stop = 1;
}

void watch_signals() {
    struct sigaction stop = {};
    stop.sa_handler = on_stop;
    // All that would end it otherwise: the caller's clocks and limits go on through pkexec.
    for (const int number :
         {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGALRM, SIGVTALRM, SIGPROF, SIGXCPU, SIGUSR1, SIGUSR2})
        sigaction(number, &stop, nullptr);
    // Errors of a write each, which is then given up in order.
    for (const int number : {SIGPIPE, SIGXFSZ})
        std::signal(number, SIG_IGN);
}

// Whatever is opened next must not become one of the standard streams.
bool has_streams() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO})
        if (fcntl(fd, F_GETFD) < 0)
            return false;
    return fcntl(STDERR_FILENO, F_GETFD) >= 0 || open("/dev/null", O_WRONLY) == STDERR_FILENO;
}

bool read_input(std::string& input) {
    std::array<char, 1 << 16> buffer;
    for (;;) {
        const ssize_t length = read(STDIN_FILENO, buffer.data(), buffer.size());
        if (operations::g_stop)
            return false;
        if (length < 0 && errno == EINTR)
            continue;
        if (length <= 0)
            return length == 0;
        input.append(buffer.data(), static_cast<size_t>(length));
        if (input.size() > kInputAtMost)
            return false;
    }
}

// Nobody may be listening any more; what was asked for is done all the same.
void answer(size_t number, const std::string& error) {
    std::string line = error.empty() ? "OK\t" + std::to_string(number)
                                     : "ERR\t" + std::to_string(number) + "\t" + error;
    line += '\n';
    std::string_view rest = line;
    while (!rest.empty()) {
        const ssize_t written = write(STDOUT_FILENO, rest.data(), rest.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        rest.remove_prefix(static_cast<size_t>(written));
    }
}

int work_through(const std::string& input, const operations::Caller& caller) {
    bool complete = false;
    const std::vector<std::string_view> lines = batch::lines_of(input, complete);
    for (size_t i = 0; i < lines.size(); ++i) {
        if (operations::g_stop)
            return kFailed;
        batch::Operation operation;
        std::string error = batch::parse(lines[i], operation);
        if (error.empty() && !complete && i + 1 == lines.size())
            error = "the line is cut off";
        if (error.empty())
            error = operations::carry_out(operation, caller);
        answer(i + 1, error);
    }
    return operations::g_stop ? kFailed : 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (!has_streams())
        return kFailed;
    if (argc != 2 || std::string_view(argv[1]) != "--batch") {
        complain("started by Ferrodeck, with --batch");
        return kWrongCall;
    }
    if (!may_run()) {
        complain("needs root's rights");
        return kFailed;
    }
    const operations::Caller caller = caller_of(std::getenv("PKEXEC_UID"));
    clearenv();
    umask(077);
    watch_signals();
    if (chdir("/") != 0)
        return kFailed;
    std::string input;
    if (!read_input(input)) {
        complain("the operations could not be read");
        return kFailed;
    }
    return work_through(input, caller);
}
