// What remains when the process dies: on a fatal signal a report is written, then a child asks the
// user what happened and offers a mail about it, while the process ends by the same signal.
//
// install() and set_silent() belong into main(), before the first thread. The handler itself runs
// on whichever thread has faulted.

#pragma once

#include <cstddef>

class CrashHandler {
  public:
    // For SIGSEGV, SIGABRT, SIGFPE, SIGBUS, SIGILL and SIGTRAP. Opens the log, whose path the
    // report names. The report is Ferrodeck_crash.txt in XDG_RUNTIME_DIR, or in /tmp without one.
    static void install();
    // The report alone: no dialogue, and exit status 134 (SIGABRT) or 139 in place of the signal.
    static void set_silent(bool silent);

    // What the shell runs that asks the user.
    struct Dialog {
        const char* report = "";   // its path
        const char* contact = "";  // a mail address
        const char* subject = "";
        bool german = false;
    };
    // False: there is no room for all of it. Allocates nothing.
    [[nodiscard]] static bool dialog_script(const Dialog& dialog, char* script, size_t size);
    // Whether any of LC_ALL, LANGUAGE and LANG names German.
    [[nodiscard]] static bool german_session();
};
