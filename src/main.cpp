// The entry of the program.

#include "app.h"

#include <clocale>
#include <csignal>
#include <sys/resource.h>

namespace {

// A worker holds descriptors for the folders on its way and for both ends of a copy; the soft limit
// of a desktop session is far below what the hard one allows.
void raise_open_file_limit() {
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= limit.rlim_max)
        return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);  // a refusal leaves the limit that we have
}

}  // namespace

int main(int argc, char** argv) {
    // A child that closes its end of a pipe is an error of that write, not the program's end.
    std::signal(SIGPIPE, SIG_IGN);
    raise_open_file_limit();
    std::setlocale(LC_ALL, "");
    std::setlocale(LC_NUMERIC, "C");
    App app;
    return app.run(argc, argv);
}
