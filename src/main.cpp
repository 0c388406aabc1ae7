// The entry of the program.

#include "app.h"
#include "open_files.h"

#include <clocale>
#include <csignal>

int main(int argc, char** argv) {
    // A child that closes its end of a pipe is an error of that write, not the program's end.
    std::signal(SIGPIPE, SIG_IGN);
    open_files::raise_limit();
    std::setlocale(LC_ALL, "");
    std::setlocale(LC_NUMERIC, "C");
    App app;
    return app.run(argc, argv);
}
