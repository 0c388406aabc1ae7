// The entry of the program.

#include "app.h"
#include "crash_handler.h"
#include "open_files.h"
#include "strutil.h"

#include <clocale>
#include <csignal>

int main(int argc, char** argv) {
    // Nobody sits before a run that is its own driver.
    for (int i = 1; i < argc; ++i)
        if (su::starts_with(argv[i], "--action="))
            CrashHandler::set_silent(true);
    CrashHandler::install();
    // A child that closes its end of a pipe is an error of that write, not the program's end.
    std::signal(SIGPIPE, SIG_IGN);
    open_files::raise_limit();
    std::setlocale(LC_ALL, "");
    std::setlocale(LC_NUMERIC, "C");
    App app;
    return app.run(argc, argv);
}
